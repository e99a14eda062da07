#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

#include "core/base/Clock.hpp"

namespace vorlen {

// A token bucket shared by every request body of an upload. The limit can change
// while bodies wait; a waiting body sees the new limit at once.
// Reference type: hand it around as std::shared_ptr<RateLimiter>.
class RateLimiter {
public:
    explicit RateLimiter(std::uint64_t bytesPerSecond = 0);

    // Waits until `bytes` may go out (cancellable: throws Cancelled).
    void reserve(std::uint64_t bytes);
    void setBytesPerSecond(std::uint64_t bytesPerSecond);
    std::uint64_t bytesPerSecond() const;

private:
    struct State;
    mutable std::mutex mutex_;
    std::unique_ptr<State> state_;
};

}  // namespace vorlen
