#include "core/storage/UploadMeter.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

TEST(UploadMeter, neverGoesBackwardsWhenARetryTakesBytesBack) {
    UploadMeter meter(1000);
    EXPECT_EQ(meter.update(400, 0).reportedBytes, 400u);
    auto afterRetry = meter.update(150, 1);  // a failed part took 250 bytes back
    EXPECT_EQ(afterRetry.reportedBytes, 400u);
    EXPECT_DOUBLE_EQ(afterRetry.fraction, 0.4);
    EXPECT_EQ(meter.update(500, 2).reportedBytes, 500u);
    EXPECT_DOUBLE_EQ(UploadMeter(0).update(0, 0).fraction, 1.0);
}

TEST(UploadMeter, knowsARateOnceTwoSecondsOfGrowthAreSeen) {
    UploadMeter meter(10000);
    EXPECT_FALSE(meter.update(0, 0).rate);
    EXPECT_FALSE(meter.update(1000, 1.5).rate);
    auto progress = meter.update(2000, 2);
    ASSERT_TRUE(progress.rate);
    EXPECT_DOUBLE_EQ(*progress.rate, 1000);
    EXPECT_DOUBLE_EQ(*progress.secondsLeft, 8);
    // A stall keeps the samples of the window: the rate falls, then is unknown when nothing grew.
    EXPECT_LT(*meter.update(2000, 10).rate, 1000);
    UploadMeter stalled(100);
    stalled.update(50, 0);
    EXPECT_FALSE(stalled.update(50, 5).rate);
}

TEST(RateEstimator, forgetsSamplesOlderThanItsWindowButKeepsTwo) {
    RateEstimator estimator(15);
    for (int second = 0; second <= 100; ++second) estimator.add(second, second < 90 ? second * 10.0 : 900 + (second - 90) * 100.0);
    // Only the last 15 seconds count: 5 s at 10 bytes/s and 10 s at 100 bytes/s.
    EXPECT_NEAR(*estimator.rate(), (1900.0 - 850.0) / 15.0, 1e-9);
    RateEstimator sparse(15);
    sparse.add(0, 0);
    sparse.add(100, 100);
    sparse.add(200, 300);
    EXPECT_DOUBLE_EQ(*sparse.rate(), 2.0);
}

TEST(UploadTicks, writesAProgressLineEveryFifteenSeconds) {
    UploadJournal journal;
    UploadTicks ticks(1000, journal);
    for (double second = 0; second <= 31; second += 0.25) ticks.tick(static_cast<std::uint64_t>(second * 10), second);
    auto lines = journal.entries();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(lines[0].ends_with("upload progress: 150 bytes given now, 150 reported, of 1000, 10 bytes/s")) << lines[0];
    UploadJournal quiet;
    UploadTicks first(1000, quiet);
    first.tick(0, 16);
    EXPECT_TRUE(quiet.entries().at(0).ends_with("of 1000, rate not known"));
}

}  // namespace
}  // namespace vorlen
