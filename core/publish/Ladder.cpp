#include "core/publish/Ladder.hpp"

#include <cmath>

namespace vorlen {

const std::vector<Rung>& rungTable() {
    static const std::vector<Rung> table{
        {"2160uhd", 2160, VideoCodec::hevc, 16000, 22500},
        {"2160lite", 2160, VideoCodec::hevc, 9630, 13500},
        {"1080hevc", 1080, VideoCodec::hevc, 4815, 6750},
        {"1080", 1080, VideoCodec::h264, 5350, 7500},
        {"720", 720, VideoCodec::h264, 3210, 4500},
        {"480", 480, VideoCodec::h264, 1600, 2250},
        {"360", 360, VideoCodec::h264, 856, 1200},
    };
    return table;
}

std::int64_t standardWidth(std::int64_t height) {
    switch (height) {
        case 480: return 854;
        case 720: return 1280;
        case 1080: return 1920;
        case 2160: return 3840;
        default: return 640;
    }
}

std::vector<Rung> ladder(std::int64_t width, std::int64_t height) {
    std::vector<Rung> kept;
    for (const auto& rung : rungTable()) {
        if (width >= standardWidth(rung.height) || height >= rung.height) kept.push_back(rung);
    }
    if (kept.empty()) kept.push_back(rungTable().back());
    return kept;
}

std::int64_t defaultTargetBitrateKbps(const Rung& rung) {
    return std::llround(static_cast<double>(rung.maxrateKbps) * 0.8);
}

}  // namespace vorlen
