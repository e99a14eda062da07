#include "core/base/Text.hpp"
#include "core/storage/SigV4.hpp"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>

#include "core/base/Crypto.hpp"

namespace vorlen::SigV4 {

namespace {

bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

std::string digestText(const Digest256& digest) {
    return std::string(reinterpret_cast<const char*>(digest.data()), digest.size());
}

std::string dateStampOf(const Request& request) {
    auto date = request.headers.find("x-amz-date");
    return date == request.headers.end() ? std::string() : date->second.substr(0, 8);
}

std::string scopeText(const Request& request, const Scope& scope) {
    return fmt::format("{}/{}/{}/aws4_request", dateStampOf(request), scope.region, scope.service);
}

// Lowercased names with trimmed values, sorted by name then value.
std::vector<std::pair<std::string, std::string>> canonicalHeaders(const Request& request) {
    std::vector<std::pair<std::string, std::string>> headers;
    for (const auto& [name, value] : request.headers) headers.emplace_back(asciiLowercased(name), trimmedAsciiWhitespace(value));
    std::sort(headers.begin(), headers.end());
    return headers;
}

std::string signedHeaders(const std::vector<std::pair<std::string, std::string>>& headers) {
    std::string names;
    for (const auto& header : headers) {
        if (!names.empty()) names += ';';
        names += header.first;
    }
    return names;
}

}  // namespace

std::string uriEncode(std::string_view text, bool keepSlash) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (unsigned char c : text) {
        if (isUnreserved(c) || (keepSlash && c == '/')) {
            encoded += static_cast<char>(c);
        } else {
            encoded += '%';
            encoded += digits[c >> 4];
            encoded += digits[c & 15];
        }
    }
    return encoded;
}

std::string canonicalQuery(const QueryItems& query) {
    std::vector<std::pair<std::string, std::string>> items;
    for (const auto& [name, value] : query) items.emplace_back(uriEncode(name, false), uriEncode(value.value_or(""), false));
    std::sort(items.begin(), items.end());
    std::string text;
    for (const auto& [name, value] : items) {
        if (!text.empty()) text += '&';
        text += name + '=' + value;
    }
    return text;
}

std::string canonicalRequest(const Request& request) {
    const auto headers = canonicalHeaders(request);
    std::string block;
    for (const auto& [name, value] : headers) block += name + ':' + value + '\n';
    return fmt::format("{}\n{}\n{}\n{}\n{}\n{}", request.method, request.path, canonicalQuery(request.query), block,
                       signedHeaders(headers), request.payloadHash);
}

std::string stringToSign(const Request& request, const Scope& scope) {
    auto date = request.headers.find("x-amz-date");
    return fmt::format("AWS4-HMAC-SHA256\n{}\n{}\n{}", date == request.headers.end() ? "" : date->second,
                       scopeText(request, scope), sha256Hex(canonicalRequest(request)));
}

std::string signature(const Request& request, const S3Credentials& credentials, const Scope& scope) {
    std::string key = digestText(hmacSha256("AWS4" + credentials.secretAccessKey, dateStampOf(request)));
    key = digestText(hmacSha256(key, scope.region));
    key = digestText(hmacSha256(key, scope.service));
    key = digestText(hmacSha256(key, "aws4_request"));
    return hex(hmacSha256(key, stringToSign(request, scope)));
}

std::string authorization(const Request& request, const S3Credentials& credentials, const Scope& scope) {
    return fmt::format("AWS4-HMAC-SHA256 Credential={}/{}, SignedHeaders={}, Signature={}", credentials.accessKeyID,
                       scopeText(request, scope), signedHeaders(canonicalHeaders(request)),
                       signature(request, credentials, scope));
}

}  // namespace vorlen::SigV4
