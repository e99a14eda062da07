#pragma once

#include <chrono>
#include <cstdint>
#include <exception>

namespace vorlen {

// How often and how patiently a transient failure is tried again.
struct RetryPolicy {
    std::int64_t maxRetries = 5;
    std::chrono::duration<double> delay{0.5};
};

// A failure that names its own wait (a server's Retry-After).
class RetryDelaySuggesting {
public:
    virtual ~RetryDelaySuggesting() = default;
    virtual std::chrono::duration<double> suggestedRetryDelay() const = 0;
};

// The one test that decides whether a failure may be tried again.
bool isTransient(const std::exception_ptr& error);

// The wait a failure suggests itself; zero when it suggests none.
std::chrono::duration<double> suggestedRetryDelay(const std::exception_ptr& error);

}  // namespace vorlen
