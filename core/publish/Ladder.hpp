#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlen {

enum class VideoCodec { h264, hevc };

// One video rendition of the ladder.
struct Rung {
    std::string id;
    std::int64_t height = 0;
    VideoCodec codec = VideoCodec::h264;
    std::int64_t maxrateKbps = 0;
    std::int64_t bufsizeKbps = 0;
    bool operator==(const Rung&) const = default;
};

// Every rung there is, tallest first.
const std::vector<Rung>& rungTable();

// 854 for 480, 1280 for 720, 1920 for 1080, 3840 for 2160, 640 for any other height.
std::int64_t standardWidth(std::int64_t height);

// The rungs that a picture of this displayed size calls for: a rung stays when
// the source reaches its standard width or its height. Never empty.
std::vector<Rung> ladder(std::int64_t width, std::int64_t height);

// 0.8 of the rung's maxrate, rounded: the average bitrate that the encoders aim at.
std::int64_t defaultTargetBitrateKbps(const Rung& rung);

}  // namespace vorlen
