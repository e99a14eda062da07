#include "core/net/RateLimiter.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace vorlen {
namespace {

// A clock that moves only when the limiter sleeps, so a test counts seconds
// without spending them. `onSleep` lets a test change the limit "meanwhile".
struct DrivenClock {
    BootClock::time_point time{std::chrono::hours(1)};
    std::vector<double> sleeps;
    std::function<void()> onSleep;

    RateLimiter::Clock clock() {
        return {[this] { return time; },
                [this](std::chrono::nanoseconds duration) {
                    sleeps.push_back(std::chrono::duration<double>(duration).count());
                    time += duration;
                    if (onSleep) onSleep();
                }};
    }
    double seconds() const { return std::chrono::duration<double>(time.time_since_epoch()).count() - 3600; }
};

constexpr std::uint64_t piece = 262144;

TEST(RateLimiter, unlimitedNeverWaitsAndBurstIsHalfASecondButAtLeastOneByte) {
    DrivenClock driven;
    RateLimiter unlimited(0, driven.clock());
    for (int i = 0; i < 1000; ++i) unlimited.reserve(piece);
    EXPECT_TRUE(driven.sleeps.empty());
    EXPECT_EQ(unlimited.burst(), 1.0);

    RateLimiter slow(1, driven.clock());
    EXPECT_EQ(slow.burst(), 1.0);
    slow.setBytesPerSecond(125000);
    EXPECT_EQ(slow.burst(), 62500.0);
}

TEST(RateLimiter, pacesTheTotalAtTheRateAndNeverSleepsLongerThanATenth) {
    DrivenClock driven;
    RateLimiter limiter(1000000, driven.clock());
    for (int i = 0; i < 40; ++i) limiter.reserve(piece);
    // 40 pieces of 256 KiB at 1 MB/s, less the initial half-second burst.
    double expected = (40.0 * piece - 500000.0) / 1000000.0;
    EXPECT_NEAR(driven.seconds(), expected, 0.001);
    for (double sleep : driven.sleeps) EXPECT_LE(sleep, 0.1 + 1e-9);
}

TEST(RateLimiter, aLowerLimitSlowsWaitingBodiesWithinATenthOfASecond) {
    DrivenClock driven;
    RateLimiter limiter(0, driven.clock());
    // Unlimited traffic flows without time passing.
    for (int i = 0; i < 10; ++i) limiter.reserve(piece);
    EXPECT_EQ(driven.seconds(), 0.0);

    limiter.setBytesPerSecond(125000);  // 1 Mbit/s
    std::uint64_t sent = 0;
    while (driven.seconds() < 10.0) {
        limiter.reserve(65536);
        sent += 65536;
    }
    // Ten seconds at 1 Mbit/s plus one burst and one piece, no more.
    EXPECT_LE(sent, 10 * 125000 + 62500 + 65536);
    EXPECT_GE(sent, 10 * 125000 - 65536);
}

TEST(RateLimiter, liftingTheLimitFreesAWaitingBodyWithinATenthOfASecond) {
    DrivenClock driven;
    RateLimiter limiter(1, driven.clock());  // a byte a second: this piece would wait days
    double liftedAt = -1;
    driven.onSleep = [&] {
        if (liftedAt < 0 && driven.seconds() >= 5.0) {
            limiter.setBytesPerSecond(0);
            liftedAt = driven.seconds();
        }
    };
    limiter.reserve(piece);
    ASSERT_GE(liftedAt, 0);
    EXPECT_LE(driven.seconds() - liftedAt, 0.1 + 1e-9);
}

TEST(RateLimiter, raisingTheLimitSpeedsUpAWaitingBodyAndKeepsReservedTurns) {
    DrivenClock driven;
    RateLimiter limiter(1000, driven.clock());
    double raisedAt = -1;
    driven.onSleep = [&] {
        if (raisedAt < 0 && driven.seconds() >= 1.0) {
            limiter.setBytesPerSecond(10000000);
            raisedAt = driven.seconds();
        }
    };
    limiter.reserve(100000);  // 100 s at the old rate
    ASSERT_GE(raisedAt, 0);
    // The rest goes at 10 MB/s: about a hundredth of a second, seen within a tenth.
    EXPECT_LE(driven.seconds() - raisedAt, 0.1 + 1e-9);
}

}  // namespace
}  // namespace vorlen
