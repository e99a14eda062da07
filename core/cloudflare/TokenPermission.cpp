#include "core/cloudflare/TokenPermission.hpp"

#include <fmt/format.h>

#include "core/base/Json.hpp"
#include "core/base/Text.hpp"

namespace vorlen {

namespace {

std::string withoutTrailingSlash(std::string url) {
    while (url.ends_with('/')) url.pop_back();
    return url;
}

}  // namespace

std::vector<TokenPermission> TokenPermission::setupTokenRows(bool manualTokens) {
    using S = Scope;
    using L = Level;
    std::vector<TokenPermission> rows{
        {S::account, "Account Settings", L::read, "c1fde68c7bcc44588cbb6ddbc16d6480"},
        {S::account, "Workers R2 Storage", L::edit, "bf7481a1826f439697cb59a20b22293e"},
        {S::account, "Workers Scripts", L::edit, "e086da7e2179491d91ee5f35b3ca210a"},
        {S::account, "Workers KV Storage", L::edit, "f7f0eda5697f475c90846e879bab8666"},
        {S::account, "Account API Tokens", L::edit, "5bc3f8b21c554832afc660159ab75fa4"},
        {S::zone, "Zone", L::read, "c8fed203ed3043cba015a93ad1616f1f"},
        {S::zone, "DNS", L::read, "82e64a83756745bbbb1c9c2701bf816b"},
        {S::zone, "Workers Routes", L::edit, "28f4b596e7d643029c524985477ae49a"},
        {S::zone, "Zone WAF", L::edit, "fb6778dc191143babbfaa57993f1d275"},
        {S::zone, "Cache Settings", L::edit, "cache_settings"},
        {S::zone, "Cache Purge", L::purge, "e17beae8b8cb423a99b1730f21238bed"},
    };
    if (manualTokens) std::erase_if(rows, [](const TokenPermission& row) { return row.group == "Account API Tokens"; });
    return rows;
}

std::string rawValue(TokenPermission::Level level) {
    switch (level) {
        case TokenPermission::Level::read: return "read";
        case TokenPermission::Level::edit: return "edit";
        case TokenPermission::Level::purge: return "purge";
    }
    return "read";
}

std::string setupTokenFormURL(const std::string& dashboard, bool manualTokens) {
    Json keys = Json::array();
    for (const auto& row : TokenPermission::setupTokenRows(manualTokens))
        keys.push_back({{"key", row.formKey}, {"type", rawValue(row.level)}});
    return fmt::format("{}/?to=/:account/api-tokens&permissionGroupKeys={}&name={}", withoutTrailingSlash(dashboard),
                       percentEncoded(encodeJson(keys)), percentEncoded("Vorlen setup"));
}

ManualTokenRequest ManualTokenRequest::make(const std::string& dashboard, const std::string& accountID,
                                            const std::string& bucket, const std::string& tokenName) {
    ManualTokenRequest request{accountID, bucket, "Object Read & Write", {}};
    request.url = fmt::format("{}/{}/r2/api-tokens/create?type=account&name={}&permission=object-write",
                              withoutTrailingSlash(dashboard), accountID, percentEncoded(tokenName));
    return request;
}

std::string ManualTokenRequest::message() const {
    return fmt::format(
        "The Cloudflare Account API Token cannot create tokens. In the dashboard, create an R2 API Token with the "
        "permission \u201c{}\u201d on the bucket \u201c{}\u201d only. Then paste the token value.",
        permission, bucket);
}

}  // namespace vorlen
