#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>

namespace vorlen {

// How one upload runs. An Uploader takes the options of the moment it starts.
struct UploadOptions {
    std::int64_t concurrency = 8;        // requests at a time
    std::int64_t readConcurrency = 32;   // reads at a time
    std::uint64_t partSize = 33554432;   // a larger file goes in parts of this size
    std::int64_t maxRetries = 5;
    std::chrono::duration<double> retryDelay{0.5};
};

enum class ParallelUploads { one = 1, two = 2, four = 4, eight = 8 };
enum class UploadPartSize { mib5 = 5, mib8 = 8, mib16 = 16, mib32 = 32 };

// The person's choices of how uploads run; a change applies to the next upload.
struct UploadTuning {
    ParallelUploads parallelUploads = ParallelUploads::eight;
    UploadPartSize partSize = UploadPartSize::mib32;
};

// The person's speed limit, in megabits a second, or none.
struct UploadLimit {
    struct Unlimited {};
    struct MegabitsPerSecond { std::int64_t value = 0; };
    std::variant<Unlimited, MegabitsPerSecond> value;

    static UploadLimit unlimited() { return {Unlimited{}}; }
    static UploadLimit megabitsPerSecond(std::int64_t megabits) { return {MegabitsPerSecond{megabits}}; }

    // What the limiter takes: n x 1000000 x 0.125, rounded toward zero; 0 for no limit.
    std::uint64_t bytesPerSecond() const;
    // "<n> Mbit/s" or "Unlimited".
    std::string displayText() const;
};

// The defaults with the person's tuning applied.
UploadOptions uploadOptions(const UploadTuning& tuning);

}  // namespace vorlen
