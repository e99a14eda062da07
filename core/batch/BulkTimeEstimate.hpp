#pragma once

#include <cstdint>
#include <optional>
#include <variant>

namespace vorlen {

// What a run has learnt of its speeds: how fast it uploads and builds, and how
// large its files are before and after the build.
struct BulkTimeEstimate {
    std::optional<double> uploadRate;  // bytes a second
    std::uint64_t inspectedBytes = 0;
    std::int64_t inspectedCount = 0;
    std::uint64_t builtExpectedBytes = 0;  // source sizes of the finished builds
    std::uint64_t builtBytes = 0;          // their output sizes
    double buildSeconds = 0;

    // The work in the run now.
    struct Work {
        std::int64_t queued = 0;        // items not yet started
        std::uint64_t uploadBytes = 0;  // left to send by the uploads in work
        // The build in work: built (its output size), in work (its source size and
        // fraction done), or unknown.
        struct Built { std::uint64_t bytes = 0; };
        struct Building { std::uint64_t expectedBytes = 0; double fraction = 0; };
        struct Unknown {};
        std::optional<std::variant<Built, Building, Unknown>> build;
    };

    // Seconds left, or nothing while there is not enough to go by. The two stages
    // overlap, so the slower one sets the time.
    std::optional<double> secondsLeft(const Work& work) const;
};

}  // namespace vorlen
