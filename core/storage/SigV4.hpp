#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/storage/S3Credentials.hpp"

namespace vorlen {

using QueryItems = std::vector<std::pair<std::string, std::optional<std::string>>>;

// AWS Signature Version 4 for S3. Stateless.
namespace SigV4 {

struct Scope {
    std::string region = "auto";
    std::string service = "s3";
};

struct Request {
    std::string method;
    std::string path;  // already percent-encoded
    QueryItems query;  // an absent value signs as the empty string
    std::map<std::string, std::string> headers;  // must hold x-amz-date
    std::string payloadHash = "UNSIGNED-PAYLOAD";
};

// Byte-wise percent-encoding with uppercase hex; "/" is kept only when keepSlash is set (object keys).
std::string uriEncode(std::string_view text, bool keepSlash);
// Names and values encoded (slash too), sorted by name then value, joined with "&".
std::string canonicalQuery(const QueryItems& query);

std::string canonicalRequest(const Request& request);
std::string stringToSign(const Request& request, const Scope& scope);
std::string signature(const Request& request, const S3Credentials& credentials, const Scope& scope);
// The Authorization header's value.
std::string authorization(const Request& request, const S3Credentials& credentials, const Scope& scope);

}  // namespace SigV4

}  // namespace vorlen
