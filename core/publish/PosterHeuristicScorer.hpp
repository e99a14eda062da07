#pragma once

#include "core/publish/PosterFrameScorer.hpp"

namespace vorlen {

// Scores a frame from its sharpness, exposure, contrast and colourfulness,
// measured on a copy no larger than 256 pixels. It finds no faces: the face
// count stays 0.
class PosterHeuristicScorer : public PosterFrameScorer {
public:
    struct Measures {
        double sharpness = 0;      // 0 to 1
        double exposure = 0;       // 0 to 1, best at a middle brightness
        double contrast = 0;       // 0 to 1
        double colourfulness = 0;  // 0 to 1
    };

    PosterFrameScore score(const vips::VImage& frame) override;

    static Measures measure(const vips::VImage& frame);
    static double aesthetics(const Measures& measures);
};

}  // namespace vorlen
