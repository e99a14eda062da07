#include "app/R2Credentials.hpp"

#include "core/base/Crypto.hpp"

namespace vorlen::app {

R2Credentials R2Credentials::fromToken(const std::string& tokenID, const std::string& value) {
    return R2Credentials{tokenID, tokenID, sha256Hex(value), value};
}

Json R2Credentials::toJson() const {
    Json json = {{"tokenID", tokenID}, {"accessKeyID", accessKeyID}, {"secretAccessKey", secretAccessKey}};
    if (token) json["token"] = *token;
    return json;
}

std::optional<R2Credentials> R2Credentials::fromJson(const Json& json) {
    auto tokenID = optionalField<std::string>(json, "tokenID");
    auto accessKeyID = optionalField<std::string>(json, "accessKeyID");
    auto secretAccessKey = optionalField<std::string>(json, "secretAccessKey");
    if (!tokenID || !accessKeyID || !secretAccessKey) return std::nullopt;
    return R2Credentials{*tokenID, *accessKeyID, *secretAccessKey, optionalField<std::string>(json, "token")};
}

std::string R2Credentials::redacted() const {
    return "R2Credentials(tokenID: " + tokenID + ", accessKeyID: " + accessKeyID + ", \u2026)";
}

}  // namespace vorlen::app
