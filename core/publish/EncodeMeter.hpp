#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "core/publish/PublishProgress.hpp"
#include "core/storage/UploadMeter.hpp"

namespace vorlen {

// What the two encoding branches have done so far; written from their output
// readers, read by the progress ticker.
class EncodeMeter {
public:
    struct State {
        double videoSeconds = 0;
        std::vector<double> audioFractions;  // one per audio rendition, 0…1
    };

    explicit EncodeMeter(std::size_t audioRenditions) { state_.audioFractions.assign(audioRenditions, 0); }

    void setVideoSeconds(double seconds);
    void setAudioFraction(std::size_t rendition, double fraction);
    State state() const;

    // Audio is a tenth of the work and video the rest; no audio counts as done.
    static double fraction(const State& state, double durationSeconds);

private:
    mutable std::mutex mutex_;
    State state_;
};

// Turns meter readings into encoding progress. Not thread-safe: one ticker owns it.
class EncodingProgressReporter {
public:
    EncodingProgressReporter(double durationSeconds, std::uint64_t estimatedBytes,
                             std::optional<double> expectedUploadRate)
        : duration_(durationSeconds), estimatedBytes_(estimatedBytes), expectedUploadRate_(expectedUploadRate) {}

    // elapsed: seconds since the encoding began.
    PublishProgress report(const EncodeMeter::State& state, double elapsed);

private:
    double duration_;
    std::uint64_t estimatedBytes_;
    std::optional<double> expectedUploadRate_;
    RateEstimator estimator_{15};
};

}  // namespace vorlen
