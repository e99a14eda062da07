#include "testing/LocalCloudflareAccount.hpp"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "testing/CommandOutput.hpp"

namespace vorlen::testing {

namespace {

std::string script(const char* name) { return std::string(VORLEN_SOURCE_DIR) + "/testing/cloudflare/" + name; }


}  // namespace

LocalCloudflareAccount& LocalCloudflareAccount::shared() {
    // An account that failed to start fails every later test at once instead of starting again.
    static std::exception_ptr failure;
    if (failure) std::rethrow_exception(failure);
    try {
        static LocalCloudflareAccount account;
        return account;
    } catch (...) {
        failure = std::current_exception();
        throw;
    }
}

LocalCloudflareAccount::LocalCloudflareAccount() : session_(std::make_shared<HttpClient>()) {
    dir_ = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-cloudflare-");
    std::istringstream lines(
        commandOutput(fmt::format("VORLEN_CLOUDFLARE_OWNER={} '{}' '{}'", ::getpid(), script("start"), dir_.string()),
                      "the local Cloudflare account did not start; see its logs"));
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string name = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        if (name == "api") api_ = value;
        else if (name == "r2") r2_ = value;
        else if (name == "account") accountID_ = value;
        else if (name == "token") setupToken_ = APIToken{value};
        else if (name == "control") control_ = value;
        else if (name == "edge") edge_ = value;
        else if (name == "ca") edgeAuthority_ = value;
        else if (name == "zone") zones_[value.substr(0, value.find(' '))] = value.substr(value.find(' ') + 1);
    }
    if (api_.empty() || control_.empty() || accountID_.empty() || setupToken_.value.empty())
        throw std::runtime_error("the local Cloudflare account did not report its addresses");
}

LocalCloudflareAccount::~LocalCloudflareAccount() {
    std::system(fmt::format("'{}' '{}' >/dev/null 2>&1", script("stop"), dir_.string()).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

Json LocalCloudflareAccount::control(const std::string& method, const std::string& path, const Json& body) const {
    HttpRequest request;
    request.method = method;
    request.url = control_ + path;
    if (!body.is_null()) {
        request.headers.emplace_back("Content-Type", "application/json");
        request.body = RequestBody::bytes(body.dump());
    }
    const auto response = session_->send(request);
    if (response.status / 100 != 2)
        throw std::runtime_error(fmt::format("the local account refused {} {}: HTTP {}", method, path, response.status));
    return response.body.empty() ? Json() : Json::parse(response.body);
}

std::string LocalCloudflareAccount::controlGet(const std::string& path) const {
    HttpRequest request;
    request.url = control_ + path;
    return session_->send(request).body;
}

void LocalCloudflareAccount::setFaults(const Json& faults) const { control("PUT", "/faults", faults); }
void LocalCloudflareAccount::setQuirks(const Json& quirks) const { control("PUT", "/quirks", quirks); }
void LocalCloudflareAccount::setR2Enabled(bool enabled) const { control("PUT", "/r2", {{"enabled", enabled}}); }

void LocalCloudflareAccount::setDomainActivation(double seconds) const {
    control("PUT", "/domains", {{"activationSeconds", seconds}});
}

void LocalCloudflareAccount::reset() const {
    setFaults({{"share", 0}, {"script", Json::array()}});
    setQuirks({{"endlessPaging", false}, {"repeatingCursor", false}});
    setR2Enabled(true);
    setDomainActivation(2);
}

std::vector<LocalCloudflareAccount::Request> LocalCloudflareAccount::requests() const {
    std::vector<Request> all;
    for (const auto& entry : Json::parse(controlGet("/requests")))
        all.push_back({entry.value("method", ""), entry.value("path", ""), entry.value("query", Json::object()),
                       entry["status"].is_number() ? entry["status"].get<int>() : 0});
    return all;
}

APIToken LocalCloudflareAccount::makeUserToken() const {
    const Json policy = {{"effect", "allow"},
                         {"resources", {{"com.cloudflare.api.account." + accountID_, "*"}}},
                         {"permission_groups", {{{"id", "c1fde68c7bcc44588cbb6ddbc16d6480"}}}}};  // Account Settings Read
    const Json made = control("POST", "/user-tokens", {{"name", "user token"}, {"policies", {policy}}});
    return APIToken{made.at("value").get<std::string>()};
}

void LocalCloudflareAccount::clearRequests() const { control("DELETE", "/requests", nullptr); }

Json LocalCloudflareAccount::state() const { return Json::parse(controlGet("/state")); }

}  // namespace vorlen::testing
