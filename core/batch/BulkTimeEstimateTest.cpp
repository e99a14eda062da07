#include "core/batch/BulkTimeEstimate.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

using Work = BulkTimeEstimate::Work;

TEST(BulkTimeEstimate, NeedsAnInspectedFileForQueuedItemsAndARateForAnyUpload) {
    BulkTimeEstimate estimate;
    estimate.uploadRate = 1000;
    EXPECT_EQ(estimate.secondsLeft(Work{3, 0, std::nullopt}), std::nullopt);
    EXPECT_EQ(estimate.secondsLeft(Work{0, 0, std::nullopt}), 0.0);
    estimate.inspectedBytes = 6000;
    estimate.inspectedCount = 2;
    // Nothing built yet: the output is taken as large as the source.
    EXPECT_DOUBLE_EQ(*estimate.secondsLeft(Work{3, 1000, std::nullopt}), 10.0);
    estimate.uploadRate.reset();
    EXPECT_EQ(estimate.secondsLeft(Work{3, 1000, std::nullopt}), std::nullopt);
}

TEST(BulkTimeEstimate, TheSlowerStageSetsTheTime) {
    BulkTimeEstimate estimate;
    estimate.inspectedBytes = 10'000;
    estimate.inspectedCount = 1;
    estimate.builtExpectedBytes = 10'000;
    estimate.builtBytes = 5'000;  // builds halve the size
    estimate.buildSeconds = 10;   // 1000 source bytes a second

    const Work work{2, 0, Work::Building{10'000, 0.5}};
    // Upload: 0.5 × 10000 for the build in work + 0.5 × 20000 queued = 15000 bytes.
    // Build: 5000 left of the one in work + 20000 queued = 25000 bytes, 25 s.
    estimate.uploadRate = 100;  // upload-bound: 150 s
    EXPECT_DOUBLE_EQ(*estimate.secondsLeft(work), 150.0);
    estimate.uploadRate = 10'000;  // build-bound
    EXPECT_DOUBLE_EQ(*estimate.secondsLeft(work), 25.0);
}

TEST(BulkTimeEstimate, CountsABuildNotStartedAsFullAndAnUnknownOneAsQueued) {
    BulkTimeEstimate estimate;
    estimate.uploadRate = 1000;
    estimate.inspectedBytes = 4000;
    estimate.inspectedCount = 1;
    EXPECT_DOUBLE_EQ(*estimate.secondsLeft(Work{0, 0, Work::Building{2000, 0}}), 2.0);
    EXPECT_DOUBLE_EQ(*estimate.secondsLeft(Work{0, 500, Work::Built{1500}}), 2.0);
    EXPECT_DOUBLE_EQ(*estimate.secondsLeft(Work{0, 0, Work::Unknown{}}), 4.0);
}

}  // namespace
}  // namespace vorlen
