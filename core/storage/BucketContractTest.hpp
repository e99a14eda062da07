#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "core/storage/Bucket.hpp"

namespace vorlen {

// The behaviour that every Bucket shares, run on each implementation. An
// implementation's test file instantiates the suite with its factory:
//
//   INSTANTIATE_TEST_SUITE_P(Folder, BucketContract, ::testing::Values(BucketFactory{"folder", make}),
//                            BucketFactory::name);
//
// Each test works under a fresh random prefix, so one bucket may serve them all.
struct BucketFactory {
    std::string label;
    std::function<std::shared_ptr<Bucket>()> make;

    static std::string name(const ::testing::TestParamInfo<BucketFactory>& info) { return info.param.label; }
    // How a test's name shows the bucket: by its label, not its bytes.
    friend void PrintTo(const BucketFactory& factory, std::ostream* out) { *out << factory.label; }
};

class BucketContract : public ::testing::TestWithParam<BucketFactory> {
protected:
    void SetUp() override;
    void TearDown() override;

    std::shared_ptr<Bucket> bucket;
    std::string prefix;  // "contract-<random>/"
};

}  // namespace vorlen
