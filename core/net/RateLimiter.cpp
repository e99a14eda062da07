#include "core/net/RateLimiter.hpp"

#include <algorithm>

#include "core/base/Task.hpp"

namespace vorlen {

namespace {

// The longest single sleep: a change of the limit, or a cancellation, is seen this soon.
constexpr double maxWaitSeconds = 0.1;

double burstFor(std::uint64_t bytesPerSecond) {
    return std::max(1.0, 0.5 * static_cast<double>(bytesPerSecond));
}

}  // namespace

// Two counters that only grow: `reserved` (bytes handed out tickets for) and
// `allowed` (bytes that may have gone by now).
struct RateLimiter::State {
    std::uint64_t bytesPerSecond = 0;
    double burst = 1;
    double reserved = 0;
    double allowed = 0;
    BootClock::time_point last;
};

RateLimiter::Clock RateLimiter::Clock::system() {
    return Clock{[] { return BootClock::now(); }, [](std::chrono::nanoseconds duration) { sleepFor(duration); }};
}

RateLimiter::RateLimiter(std::uint64_t bytesPerSecond, Clock clock)
    : clock_(std::move(clock)), state_(std::make_unique<State>()) {
    state_->bytesPerSecond = bytesPerSecond;
    state_->burst = burstFor(bytesPerSecond);
    state_->allowed = state_->burst;
    state_->last = clock_.now();
}

RateLimiter::~RateLimiter() = default;

void RateLimiter::refresh(State& state, BootClock::time_point now) const {
    double elapsed = std::max(0.0, secondsBetween(state.last, now));
    state.allowed = std::min(state.allowed + elapsed * static_cast<double>(state.bytesPerSecond),
                             state.reserved + state.burst);
    state.last = now;
}

void RateLimiter::reserve(std::uint64_t bytes) {
    double ticket = 0;
    {
        std::lock_guard lock(mutex_);
        if (state_->bytesPerSecond == 0) return;
        refresh(*state_, clock_.now());
        state_->reserved += static_cast<double>(bytes);
        ticket = state_->reserved;
    }
    for (;;) {
        double wait = 0;
        {
            std::lock_guard lock(mutex_);
            if (state_->bytesPerSecond == 0) return;
            refresh(*state_, clock_.now());
            double ahead = ticket - state_->allowed;
            if (ahead <= 0) return;
            wait = std::min(ahead / static_cast<double>(state_->bytesPerSecond), maxWaitSeconds);
        }
        clock_.sleep(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(wait)));
    }
}

void RateLimiter::setBytesPerSecond(std::uint64_t bytesPerSecond) {
    std::lock_guard lock(mutex_);
    auto now = clock_.now();
    bool wasUnlimited = state_->bytesPerSecond == 0;
    if (!wasUnlimited) refresh(*state_, now);
    state_->bytesPerSecond = bytesPerSecond;
    state_->burst = burstFor(bytesPerSecond);
    state_->allowed = wasUnlimited ? state_->reserved + state_->burst
                                   : std::min(state_->allowed, state_->reserved + state_->burst);
    state_->last = now;
}

std::uint64_t RateLimiter::bytesPerSecond() const {
    std::lock_guard lock(mutex_);
    return state_->bytesPerSecond;
}

double RateLimiter::burst() const {
    std::lock_guard lock(mutex_);
    return state_->burst;
}

}  // namespace vorlen
