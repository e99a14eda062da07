#include "core/cloudflare/CloudflareError.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "core/base/Text.hpp"

namespace vorlen {

namespace {

std::string describeFailure(const std::string& method, const std::string& path, std::int64_t status,
                            const std::vector<CloudflareError::Message>& messages) {
    std::string text = fmt::format("Cloudflare {} /{}: HTTP {}", method, path, status);
    for (std::size_t i = 0; i < messages.size(); ++i) {
        text += i == 0 ? ", " : "; ";
        const auto& message = messages[i];
        text += message.code ? fmt::format("code {}: {}", *message.code, message.message) : message.message;
    }
    return text;
}

}  // namespace

CloudflareError::CloudflareError(std::string method, std::string path, std::int64_t status,
                                 std::vector<Message> messages,
                                 std::optional<std::chrono::duration<double>> retryAfter)
    : method_(std::move(method)),
      path_(std::move(path)),
      status_(status),
      messages_(std::move(messages)),
      retryAfter_(retryAfter),
      description_(describeFailure(method_, path_, status_, messages_)) {}

bool CloudflareError::has(Code code) const {
    return std::any_of(messages_.begin(), messages_.end(),
                       [&](const Message& message) { return message.code == static_cast<std::int64_t>(code); });
}

bool CloudflareError::isPermissionRefused() const {
    return (status_ == 401 || status_ == 403) && !has(Code::r2NotEnabled);
}

bool CloudflareError::isRuleLimitReached() const {
    if (status_ != 400) return false;
    return std::any_of(messages_.begin(), messages_.end(), [](const Message& message) {
        const std::string lowered = asciiLowercased(message.message);
        return lowered.find("maximum number of rules") != std::string::npos ||
               (lowered.find("exceeded") != std::string::npos && lowered.find("rules") != std::string::npos);
    });
}

bool CloudflareError::isTransient() const {
    return (status_ == 429 || status_ >= 500) && suggestedRetryDelay() <= std::chrono::seconds(60);
}

std::chrono::duration<double> CloudflareError::suggestedRetryDelay() const {
    return retryAfter_.value_or(std::chrono::duration<double>(0));
}

}  // namespace vorlen
