#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "core/net/RetryPolicy.hpp"

namespace vorlen {

// A failure that the Cloudflare API reported, or an answer that could not be read.
// what() is the description for a person:
// "Cloudflare GET /zones/abc: HTTP 403, code 10000: Authentication error".
class CloudflareError : public std::exception, public RetryDelaySuggesting {
public:
    struct Message {
        std::optional<std::int64_t> code;
        std::string message;
        bool operator==(const Message&) const = default;
    };

    // The codes that the program acts on.
    enum class Code : std::int64_t {
        invalidToken = 1000,
        authentication = 10000,
        r2NoSuchObject = 10007,
        r2NotEnabled = 10042,
    };

    CloudflareError(std::string method, std::string path, std::int64_t status, std::vector<Message> messages,
                    std::optional<std::chrono::duration<double>> retryAfter);

    const std::string& method() const noexcept { return method_; }
    // The path segments joined by "/", not encoded, without a leading "/".
    const std::string& path() const noexcept { return path_; }
    std::int64_t status() const noexcept { return status_; }
    const std::vector<Message>& messages() const noexcept { return messages_; }
    const std::optional<std::chrono::duration<double>>& retryAfter() const noexcept { return retryAfter_; }

    const std::string& description() const noexcept { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

    bool has(Code code) const;
    bool isNotFound() const { return status_ == 404; }
    // 401 or 403, except the 403 of an account without R2, which must reach the
    // person as R2 being off and not as a token lacking a permission.
    bool isPermissionRefused() const;
    bool isRuleLimitReached() const;
    // 429 or 5xx with a wait of at most a minute; a server that asks for longer
    // fails at once, so that a run does not hang for minutes.
    bool isTransient() const;

    std::chrono::duration<double> suggestedRetryDelay() const override;
    std::optional<int> suggestingStatus() const override { return static_cast<int>(status_); }

private:
    std::string method_;
    std::string path_;
    std::int64_t status_;
    std::vector<Message> messages_;
    std::optional<std::chrono::duration<double>> retryAfter_;
    std::string description_;
};

}  // namespace vorlen
