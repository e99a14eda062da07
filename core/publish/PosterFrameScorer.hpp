#pragma once

#include <cstdint>


// libvips' image, named here without libvips' headers, which stay inside this library.
namespace vips {
class VImage;
}

namespace vorlen {

struct PosterFrameScore {
    double aesthetics = 0;  // 0 to 1, higher is better
    std::int64_t faceCount = 0;
};

// Judges how good a video frame would look as a poster. A scorer may fail; the
// choice then falls back on the frames' variance.
class PosterFrameScorer {
public:
    virtual ~PosterFrameScorer() = default;
    virtual PosterFrameScore score(const vips::VImage& frame) = 0;
};

}  // namespace vorlen
