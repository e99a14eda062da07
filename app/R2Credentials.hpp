#pragma once

#include <optional>
#include <string>

#include "core/base/Json.hpp"

namespace vorlen::app {

// The everyday R2 API Token of this computer and the S3 keys that follow from it.
struct R2Credentials {
    std::string tokenID;
    std::string accessKeyID;
    std::string secretAccessKey;
    std::optional<std::string> token;

    // The S3 keys of an R2 API Token: its ID, and the SHA-256 of its value in lowercase hex.
    static R2Credentials fromToken(const std::string& tokenID, const std::string& value);

    Json toJson() const;
    static std::optional<R2Credentials> fromJson(const Json& json);
    // For logs: the IDs only.
    std::string redacted() const;
    bool operator==(const R2Credentials&) const = default;
};

}  // namespace vorlen::app
