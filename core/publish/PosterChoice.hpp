#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "core/publish/PosterFrameScorer.hpp"

// libvips' image, named here without libvips' headers, which stay inside this library.
namespace vips {
class VImage;
}

namespace vorlen {

// Brightness of a frame drawn as 64 by 64 grey pixels, each value in 0 to 1.
struct PosterFrameStatistics {
    double mean = 0;
    double variance = 0;
};

struct PosterCandidate {
    double time = 0;
    PosterFrameStatistics statistics;
    std::optional<PosterFrameScore> score;
};

// How a poster frame is picked from the sampled frames of a video.
struct PosterChoice {
    static constexpr int sampleCount = 12;

    // Evenly from 10% to 70% of the video; the review's thumbnails use the same times.
    static std::vector<double> samplingTimes(double duration);

    // Fails with "Could not measure a video frame."
    static PosterFrameStatistics statistics(const vips::VImage& frame);

    // Not nearly black, not nearly white, not flat.
    static bool isUsable(const PosterFrameStatistics& statistics);

    // Measures each frame and asks the scorer about the usable ones, until the
    // scorer fails once: from then on no frame gets a score.
    struct Evaluator {
        std::shared_ptr<PosterFrameScorer> scorer;
        bool scorerFailed = false;

        PosterCandidate evaluate(double time, const vips::VImage& frame);
    };

    // The time of the winning candidate, or none without candidates.
    static std::optional<double> choose(std::vector<PosterCandidate> candidates);
};

}  // namespace vorlen
