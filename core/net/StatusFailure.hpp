#pragma once

#include <optional>
#include <string>

#include "core/base/VorlenError.hpp"
#include "core/net/RetryPolicy.hpp"

namespace vorlen {

// `status(code, body)` that also remembers the server's Retry-After, so that a
// retry never comes sooner than the server asked. Caught as VorlenError it is
// the plain status case, and transient as that case says.
class StatusFailure : public VorlenError, public RetryDelaySuggesting {
public:
    StatusFailure(int code, std::string body, std::optional<std::chrono::duration<double>> retryAfter)
        : VorlenError(VorlenError::status(code, std::move(body))), retryAfter_(retryAfter.value_or(std::chrono::duration<double>(0))) {}

    std::chrono::duration<double> suggestedRetryDelay() const override { return retryAfter_; }

private:
    std::chrono::duration<double> retryAfter_;
};

}  // namespace vorlen
