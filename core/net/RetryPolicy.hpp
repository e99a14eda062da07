#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>

#include "core/base/Task.hpp"

namespace vorlen {

// How often and how patiently a transient failure is tried again.
struct RetryPolicy {
    using Sleeper = std::function<void(std::chrono::nanoseconds)>;

    RetryPolicy(std::int64_t maxRetries = 5, std::chrono::duration<double> delay = std::chrono::duration<double>(0.5),
                Sleeper sleep = {})
        : maxRetries(maxRetries), delay(delay), sleep(std::move(sleep)) {}

    std::int64_t maxRetries;
    std::chrono::duration<double> delay;
    // Waits between attempts; empty means sleepFor, which ends early with Cancelled.
    // Tests give one that records the waits instead of sleeping.
    Sleeper sleep;

    // Runs work(attempt) with attempt from 1; a failure that mayRetry accepts (by
    // default the transient test) is tried again after retryWait while retries
    // are left. onFailure runs after every failed attempt, before the decision; a
    // failure that it throws ends the loop in place of the attempt's (the uploader
    // gives checkCancellation, so that a failure while cancelled is the cancellation).
    template <class F>
    auto run(F&& work, const std::function<void()>& onFailure = {},
             const std::function<bool(const std::exception_ptr&)>& mayRetry = {}) const
        -> decltype(work(std::int64_t{1}));
};

// A failure that names its own wait (a server's Retry-After). One that also
// names its HTTP status is transient only for 429 and 5xx, and only when the
// wait is at most a minute: a longer one goes back to the person.
class RetryDelaySuggesting {
public:
    virtual ~RetryDelaySuggesting() = default;
    virtual std::chrono::duration<double> suggestedRetryDelay() const = 0;
    virtual std::optional<int> suggestingStatus() const { return std::nullopt; }
};

// The one test that decides whether a failure may be tried again.
bool isTransient(const std::exception_ptr& error);

// The wait a failure suggests itself; zero when it suggests none.
std::chrono::duration<double> suggestedRetryDelay(const std::exception_ptr& error);

// The wait before retry number `retry` (from 0): delay times 2, 4, 8, 16, 16, ...,
// and never sooner than the failure asks.
std::chrono::duration<double> retryWait(std::chrono::duration<double> delay, std::int64_t retry,
                                        const std::exception_ptr& error);

template <class F>
auto RetryPolicy::run(F&& work, const std::function<void()>& onFailure,
                      const std::function<bool(const std::exception_ptr&)>& mayRetry) const
    -> decltype(work(std::int64_t{1})) {
    for (std::int64_t attempt = 1;; ++attempt) {
        try {
            return work(attempt);
        } catch (...) {
            if (onFailure) onFailure();
            auto error = std::current_exception();
            if (attempt > maxRetries || !(mayRetry ? mayRetry(error) : isTransient(error))) throw;
            const auto wait = std::chrono::duration_cast<std::chrono::nanoseconds>(retryWait(delay, attempt - 1, error));
            sleep ? sleep(wait) : sleepFor(wait);
        }
    }
}

}  // namespace vorlen
