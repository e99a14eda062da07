#pragma once

#include <string>
#include <vector>

namespace vorlen {

// A row of the dashboard's form for the setup token (the Account API Token).
struct TokenPermission {
    enum class Scope { account, zone };
    enum class Level { read, edit, purge };

    Scope scope;
    std::string group;
    Level level;
    std::string formKey;

    // Every row; without the "Account API Tokens" row when the person makes the
    // R2 API Tokens by hand.
    static std::vector<TokenPermission> setupTokenRows(bool manualTokens);
};

// "read", "edit", "purge".
std::string rawValue(TokenPermission::Level level);

// The dashboard's form for the setup token, with its name and permissions filled in.
std::string setupTokenFormURL(const std::string& dashboard, bool manualTokens);

// The R2 API Token that a person makes in the dashboard when the setup token may not make tokens.
struct ManualTokenRequest {
    std::string accountID;
    std::string bucket;
    std::string permission = "Object Read & Write";
    std::string url;

    static ManualTokenRequest make(const std::string& dashboard, const std::string& accountID, const std::string& bucket,
                                   const std::string& tokenName);
    std::string message() const;
};

}  // namespace vorlen
