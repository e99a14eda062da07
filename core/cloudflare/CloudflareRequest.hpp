#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "core/base/Json.hpp"
#include "core/cloudflare/MultipartForm.hpp"

namespace vorlen {

// One call of the Cloudflare REST API, before it is encoded.
struct CloudflareRequest {
    enum class Method { get, post, put, patch, delete_ };

    struct JsonBody {
        std::string bytes;
    };
    using Body = std::variant<JsonBody, MultipartForm>;

    // The client's own token, or another one for this request alone (the asset
    // upload sends its session's token).
    struct APITokenCredential {};
    struct Bearer {
        std::string token;
    };
    using Credential = std::variant<APITokenCredential, Bearer>;

    Method method = Method::get;
    // One entry per path segment, not yet encoded.
    std::vector<std::string> path;
    std::vector<std::pair<std::string, std::string>> query;
    std::optional<Body> body;
    Credential credential = APITokenCredential{};
    // Whether sending it twice does no harm: only such a request is retried after
    // a failure that may have reached the server.
    bool isIdempotent = true;

    static CloudflareRequest get(std::vector<std::string> path,
                                 std::vector<std::pair<std::string, std::string>> query = {}) {
        return CloudflareRequest{Method::get, std::move(path), std::move(query), std::nullopt, APITokenCredential{}, true};
    }
    // A request with a JSON body, encoded as every JSON the system writes.
    static CloudflareRequest withJson(Method method, std::vector<std::string> path, const Json& body, bool isIdempotent) {
        return CloudflareRequest{method, std::move(path), {}, Body{JsonBody{encodeJson(body)}}, APITokenCredential{}, isIdempotent};
    }
    static CloudflareRequest remove(std::vector<std::string> path,
                                    std::vector<std::pair<std::string, std::string>> query = {}) {
        return CloudflareRequest{Method::delete_, std::move(path), std::move(query), std::nullopt, APITokenCredential{}, true};
    }
};

// "GET", "POST", "PUT", "PATCH", "DELETE".
std::string rawValue(CloudflareRequest::Method method);

}  // namespace vorlen
