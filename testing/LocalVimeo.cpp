#include "testing/LocalVimeo.hpp"

#include <unistd.h>

#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "testing/CommandOutput.hpp"

namespace vorlen::testing {

namespace {

std::string script(const char* name) { return std::string(VORLEN_SOURCE_DIR) + "/testing/vimeo/" + name; }

}  // namespace

LocalVimeo& LocalVimeo::shared() {
    static LocalVimeo vimeo;
    return vimeo;
}

LocalVimeo::LocalVimeo() : session_(std::make_shared<HttpClient>()) {
    dir_ = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-vimeo-");
    std::istringstream lines(commandOutput(
        fmt::format("VORLEN_VIMEO_OWNER={} '{}' '{}'", ::getpid(), script("start"), dir_.string()),
        "the local Vimeo did not start; see its log"));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("api=")) api_ = line.substr(4);
        if (line.starts_with("token=")) token_ = line.substr(6);
    }
    if (api_.empty() || token_.empty()) throw std::runtime_error("the local Vimeo did not report its address");
}

LocalVimeo::~LocalVimeo() {
    std::system(fmt::format("'{}' '{}' >/dev/null 2>&1", script("stop"), dir_.string()).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

void LocalVimeo::admin(const std::string& name, const Json& body) const {
    HttpRequest request;
    request.method = "POST";
    request.url = api_ + "/_admin/" + name;
    request.headers.emplace_back("Content-Type", "application/json");
    request.body = RequestBody::bytes(body.dump());
    if (session_->send(request).status != 200) throw std::runtime_error("the local Vimeo refused the switch " + name);
}

Json LocalVimeo::requests() const {
    HttpRequest request;
    request.url = api_ + "/_admin/requests";
    return Json::parse(session_->send(request).body);
}

}  // namespace vorlen::testing
