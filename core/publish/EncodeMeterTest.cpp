#include "core/publish/EncodeMeter.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

TEST(EncodeMeter, WeighsVideoAndAudioAndReportsTimes) {
    EncodeMeter silent(0);
    silent.setVideoSeconds(5);
    silent.setAudioFraction(0, 0.5);  // no such rendition: ignored
    EXPECT_DOUBLE_EQ(EncodeMeter::fraction(silent.state(), 10), 0.1 + 0.45);

    EncodeMeter meter(2);
    meter.setAudioFraction(0, 1.0);
    meter.setVideoSeconds(12);  // past the end: clamped
    EXPECT_DOUBLE_EQ(EncodeMeter::fraction(meter.state(), 10), 0.05 + 0.9);

    EncodingProgressReporter reporter(10, 1'000'000, 100'000);
    EncodeMeter running(1);
    auto first = reporter.report(running.state(), 0.5);
    EXPECT_EQ(first.stageETA, std::nullopt);
    EXPECT_EQ(first.encodeSpeed, std::nullopt);  // not before a second has passed
    EXPECT_EQ(first.uploadTotalBytes, 1'000'000u);
    running.setVideoSeconds(5);
    running.setAudioFraction(0, 0.5);
    auto second = reporter.report(running.state(), 2.5);
    // fraction 0.05 + 0.45 = 0.5 in 2 s: 0.25 a second, so 2 s left, and 10 s of upload.
    EXPECT_DOUBLE_EQ(second.stageFraction, 0.5);
    EXPECT_DOUBLE_EQ(*second.stageETA, 2.0);
    EXPECT_DOUBLE_EQ(*second.totalETA, 12.0);
    EXPECT_DOUBLE_EQ(*second.encodeSpeed, 2.0);

    EncodingProgressReporter unknownUpload(10, 1'000'000, std::nullopt);
    unknownUpload.report(EncodeMeter(0).state(), 0);
    EncodeMeter half(0);
    half.setVideoSeconds(5);
    auto withoutRate = unknownUpload.report(half.state(), 1);
    EXPECT_EQ(withoutRate.totalETA, withoutRate.stageETA);
}

}  // namespace
}  // namespace vorlen
