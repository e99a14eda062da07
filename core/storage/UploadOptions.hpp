#pragma once

#include <chrono>
#include <cstdint>

namespace vorlen {

// How one upload runs. An Uploader takes the options of the moment it starts.
struct UploadOptions {
    std::int64_t concurrency = 8;        // requests at a time
    std::int64_t readConcurrency = 32;   // reads at a time
    std::uint64_t partSize = 33554432;   // a larger file goes in parts of this size
    std::int64_t maxRetries = 5;
    std::chrono::duration<double> retryDelay{0.5};
};

}  // namespace vorlen
