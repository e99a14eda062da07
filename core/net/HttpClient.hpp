#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/net/RequestBody.hpp"
#include "core/net/RequestTransport.hpp"

namespace vorlen {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<RequestBody> body;
    // curl sends a request again by itself when a kept connection drops before any
    // answer, although the server may have acted on it. One that must not happen
    // twice goes on a fresh connection instead, where a lost answer is a failure.
    bool idempotent = true;
    // Receives the response body as it arrives; without it the body is kept in the response.
    std::function<void(std::string_view)> onResponseData;
    // Hears the status and headers before the first byte of a response body.
    std::function<void(const struct HttpResponse&)> onResponseStart;
};

struct HttpResponse {
    int status = 0;
    std::vector<std::pair<std::string, std::string>> headers;  // names lowercased, in arrival order
    std::string body;
    RequestTransport transport;

    std::optional<std::string> header(std::string_view lowercasedName) const;
};

// The Host header that a request to url carries ("host" or "host:port"); absent
// when url is not a valid URL.
std::optional<std::string> hostOfURL(const std::string& url);
// A reference (absolute, or relative as in a stylesheet's url()) resolved against
// an absolute base URL; absent when either cannot be read.
std::optional<std::string> resolvedURL(const std::string& base, const std::string& reference);

struct HttpClientOptions {
    // Never below 1.
    int maxConnectionsPerHost = 8;
    // A transfer that moves no byte for this long fails as timed out; a slow one goes on.
    std::chrono::seconds noProgressTimeout{60};
    // Entries of curl's --connect-to form, "HOST:PORT:CONNECT-HOST:CONNECT-PORT": a
    // request to HOST:PORT connects there instead, still naming HOST in its Host
    // header and TLS handshake.
    std::vector<std::string> connectTo;
    // A certificate authority (a PEM file) trusted on top of the system's; empty for none.
    std::filesystem::path extraCertificateAuthority;
};

// The HTTP session every service shares: connections kept per host up to a cap,
// TLS verified, no cache. A request waits for a free connection of its host.
// Cancelling the calling task aborts the transfer at once.
// Reference type: hold it as std::shared_ptr<HttpClient>.
class HttpClient {
public:
    // Fails when the extra certificate authority cannot be read.
    explicit HttpClient(HttpClientOptions options = {});
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // Any status comes back as a response. Fails with TransportError, with
    // Cancelled, or with the failure of reading the request body's file.
    HttpResponse send(const HttpRequest& request);

    const HttpClientOptions& options() const { return options_; }

private:
    struct Slot;
    struct HostPool;
    Slot* acquire(const std::string& origin);
    void release(const std::string& origin, Slot* slot);

    HttpClientOptions options_;
    // The system's bundle followed by the extra authority; empty when there is none.
    std::string trustedCertificates_;
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<HostPool>> pools_;
};

}  // namespace vorlen
