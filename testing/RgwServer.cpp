#include "testing/RgwServer.hpp"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <fmt/format.h>
#include <stdexcept>

#include "core/base/Dates.hpp"
#include "core/base/Files.hpp"
#include "testing/CommandOutput.hpp"
#include "core/base/Random.hpp"
#include "core/net/HttpClient.hpp"
#include "core/storage/SigV4.hpp"

namespace vorlen::testing {

namespace {

std::string script() { return std::string(VORLEN_SOURCE_DIR) + "/testing/rgw"; }


std::string valueOf(const std::string& output, const std::string& name) {
    const auto start = output.find(name + "=");
    if (start == std::string::npos) throw std::runtime_error("the test S3 server did not report " + name);
    const auto end = output.find('\n', start);
    return output.substr(start + name.size() + 1, end - start - name.size() - 1);
}

}  // namespace

RgwServer& RgwServer::shared() {
    // A server that failed to start fails every later test at once instead of starting again.
    static std::exception_ptr failure;
    if (failure) std::rethrow_exception(failure);
    try {
        static RgwServer server;
        return server;
    } catch (...) {
        failure = std::current_exception();
        throw;
    }
}

RgwServer::RgwServer() {
    dir_ = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-rgw-");
    const std::string output = commandOutput(fmt::format("VORLEN_RGW_OWNER={} '{}' start '{}'", ::getpid(), script(), dir_.string()),
                                             "the test S3 server did not start; see its logs");
    endpoint_ = valueOf(output, "endpoint");
    credentials_ = {valueOf(output, "access_key"), valueOf(output, "secret_key")};
    // The first writes of a fresh cluster create its pools and take seconds (more on
    // a busy machine): done here, with patience, so that tests time only themselves.
    auto warmUp = makeBucket({}, 1, std::chrono::seconds(600));
    warmUp->put("warm-up", RequestBody::bytes("warm-up"), {});
}

RgwServer::~RgwServer() {
    std::system(fmt::format("'{}' stop '{}' >/dev/null 2>&1", script(), dir_.string()).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

HttpResponse RgwServer::sendSigned(const std::string& method, const std::string& bucket, QueryItems query,
                                   std::chrono::seconds noProgressTimeout) const {
    SigV4::Request signing{method, "/" + bucket, query, {}, "UNSIGNED-PAYLOAD"};
    signing.headers["host"] = *hostOfURL(endpoint_);
    signing.headers["x-amz-date"] =
        formatIso8601Basic(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    signing.headers["x-amz-content-sha256"] = "UNSIGNED-PAYLOAD";
    HttpRequest request;
    request.method = method;
    request.url = endpoint_ + "/" + bucket;
    if (!query.empty()) request.url += "?" + SigV4::canonicalQuery(query);
    if (method == "PUT") request.body = RequestBody::bytes("");
    request.headers.emplace_back("authorization", SigV4::authorization(signing, credentials_, SigV4::Scope{}));
    request.headers.emplace_back("x-amz-date", signing.headers["x-amz-date"]);
    request.headers.emplace_back("x-amz-content-sha256", "UNSIGNED-PAYLOAD");
    HttpClientOptions options;
    options.maxConnectionsPerHost = 1;
    options.noProgressTimeout = noProgressTimeout;
    return HttpClient(options).send(request);
}

std::shared_ptr<S3Bucket> RgwServer::makeBucket(const std::string& endpoint, int connections,
                                                std::chrono::seconds noProgressTimeout) {
    const std::string name = "test-" + randomString(12, "abcdefghijklmnopqrstuvwxyz0123456789");
    auto response = sendSigned("PUT", name, {}, noProgressTimeout);
    if (response.status != 200) throw std::runtime_error(fmt::format("creating a test bucket gave HTTP {}", response.status));
    return client(name, endpoint, connections, noProgressTimeout);
}

std::shared_ptr<S3Bucket> RgwServer::client(const std::string& bucket, const std::string& endpoint, int connections,
                                            std::chrono::seconds noProgressTimeout) const {
    Endpoints endpoints;
    endpoints.r2Storage = endpoint.empty() ? endpoint_ : endpoint;
    return std::make_shared<S3Bucket>(BucketLocation{"test", bucket}, credentials_, endpoints, connections, noProgressTimeout);
}

std::size_t RgwServer::openUploads(const std::string& bucket) const {
    auto response = sendSigned("GET", bucket, {{"uploads", std::nullopt}}, std::chrono::seconds(60));
    if (response.status != 200) throw std::runtime_error(fmt::format("listing open uploads gave HTTP {}", response.status));
    std::size_t count = 0;
    for (auto at = response.body.find("<UploadId>"); at != std::string::npos; at = response.body.find("<UploadId>", at + 1))
        ++count;
    return count;
}

}  // namespace vorlen::testing
