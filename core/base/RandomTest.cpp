#include "core/base/Random.hpp"

#include <gtest/gtest.h>
#include <vector>

using namespace vorlen;

TEST(RandomTest, AlphabetIsUsedUniformly) {
    const std::string alphabet = "abcdefghijklmnopqrstuvwxyz0123456789";  // 36: not a power of two
    const std::size_t draws = 360000;
    std::vector<double> counts(alphabet.size(), 0);
    for (char c : randomString(draws, alphabet)) counts[alphabet.find(c)] += 1;
    const double expected = double(draws) / double(alphabet.size());
    double chiSquare = 0;
    for (double count : counts) chiSquare += (count - expected) * (count - expected) / expected;
    // 35 degrees of freedom: the 99.99th percentile is about 75.
    EXPECT_LT(chiSquare, 75.0);
    for (std::uint32_t bound : {1u, 2u, 7u}) EXPECT_LT(secureRandomBelow(bound), bound);
}
