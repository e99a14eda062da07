#include "core/storage/RateEstimator.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

TEST(RateEstimator, MeasuresOverTheWindowOnly) {
    RateEstimator estimator(15);
    EXPECT_EQ(estimator.rate(), std::nullopt);
    estimator.add(0, 0);
    EXPECT_EQ(estimator.rate(), std::nullopt);
    estimator.add(0, 5);
    EXPECT_EQ(estimator.rate(), std::nullopt);  // no time between the samples
    estimator.add(10, 100);
    EXPECT_EQ(estimator.rate(), 10.0);
    // At 20 the samples at 0 are older than 15 s and drop out: (400 - 100) / (20 - 10).
    estimator.add(20, 400);
    EXPECT_EQ(estimator.rate(), 30.0);
    EXPECT_EQ(estimator.lastDone(), 400.0);
}

}  // namespace
}  // namespace vorlen
