#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "core/base/Clock.hpp"

namespace vorlen {

// A token bucket shared by every request body of an upload. The limit can change
// while bodies wait; a waiting body sees the new limit within a tenth of a second.
// Reference type: hand it around as std::shared_ptr<RateLimiter>.
class RateLimiter {
public:
    // Time as the limiter sees it. Tests drive it; the product uses BootClock
    // and the cancellable sleep.
    struct Clock {
        std::function<BootClock::time_point()> now;
        std::function<void(std::chrono::nanoseconds)> sleep;
        static Clock system();
    };

    explicit RateLimiter(std::uint64_t bytesPerSecond = 0, Clock clock = Clock::system());
    ~RateLimiter();

    // Waits until `bytes` may go out (cancellable: throws Cancelled). With no
    // limit it returns at once.
    void reserve(std::uint64_t bytes);
    // Takes effect at once for bodies in flight; traffic already reserved keeps its turn.
    void setBytesPerSecond(std::uint64_t bytesPerSecond);
    std::uint64_t bytesPerSecond() const;
    // At most this many bytes may go at once (half a second of traffic, at least 1).
    double burst() const;

private:
    struct State;
    void refresh(State& state, BootClock::time_point now) const;

    Clock clock_;
    mutable std::mutex mutex_;
    std::unique_ptr<State> state_;
};

}  // namespace vorlen
