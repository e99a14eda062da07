#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>

#include "core/net/RetryPolicy.hpp"

namespace vorlen {

// A failure that the Vimeo API reported, or an answer that could not be read.
// what() is the description for a person:
// "Vimeo GET /me: HTTP 401, code 8003: Unauthorized".
class VimeoError : public std::exception, public RetryDelaySuggesting {
public:
    VimeoError(std::string method, std::string path, std::int64_t status, std::string message,
               std::optional<std::string> developerMessage = std::nullopt, std::optional<std::int64_t> code = std::nullopt,
               std::optional<std::chrono::duration<double>> retryAfter = std::nullopt);

    const std::string& method() const noexcept { return method_; }
    const std::string& path() const noexcept { return path_; }
    std::int64_t status() const noexcept { return status_; }
    const std::string& message() const noexcept { return message_; }
    const std::optional<std::string>& developerMessage() const noexcept { return developerMessage_; }
    const std::optional<std::int64_t>& code() const noexcept { return code_; }
    const std::optional<std::chrono::duration<double>>& retryAfter() const noexcept { return retryAfter_; }

    const char* what() const noexcept override { return description_.c_str(); }

    std::chrono::duration<double> suggestedRetryDelay() const override {
        return retryAfter_.value_or(std::chrono::duration<double>(0));
    }
    std::optional<int> suggestingStatus() const override { return static_cast<int>(status_); }

private:
    std::string method_;
    std::string path_;
    std::int64_t status_;
    std::string message_;
    std::optional<std::string> developerMessage_;
    std::optional<std::int64_t> code_;
    std::optional<std::chrono::duration<double>> retryAfter_;
    std::string description_;
};

}  // namespace vorlen
