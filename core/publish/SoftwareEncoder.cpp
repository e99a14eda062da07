#include "core/publish/SoftwareEncoder.hpp"

#include <fmt/format.h>

namespace vorlen {

// Measured on a 2-core machine with the full 1080 ladder (bench/encode): the
// balanced pair is the cheapest that keeps SSIM at 0.99 for H.264 and 0.985 for
// HEVC at 1080. x264 stops at superfast, since ultrafast drops to Baseline.
const char* SoftwareEncoder::x264Preset(EncodingSpeed speed) {
    switch (speed) {
        case EncodingSpeed::fast: return "superfast";
        case EncodingSpeed::quality: return "medium";
        case EncodingSpeed::balanced: break;
    }
    return "veryfast";
}

const char* SoftwareEncoder::x265Preset(EncodingSpeed speed) {
    switch (speed) {
        case EncodingSpeed::fast: return "ultrafast";
        case EncodingSpeed::quality: return "medium";
        case EncodingSpeed::balanced: break;
    }
    return "faster";
}

std::string SoftwareEncoder::pixelFormat(const ColorPlan& plan) const {
    // libx265 takes planar 10-bit; asking for p010le would add a conversion.
    return plan.kind == ColorPlan::Kind::sdr8 ? "yuv420p" : "yuv420p10le";
}

std::vector<std::string> SoftwareEncoder::encoderArguments(const RungEncoding& encoding) const {
    auto gop = std::to_string(encoding.groupOfPictures);
    if (encoding.rung.codec == VideoCodec::h264) {
        // No scene-cut keyframes: every rung must cut at the same instants.
        return {"-c:v", "libx264", "-preset", x264Preset(speed_), "-profile:v", "high",
                "-forced-idr", "1", "-sc_threshold", "0", "-keyint_min", gop};
    }
    // Closed GOPs without scene cuts; x265 ignores -sc_threshold and needs its own keys.
    std::string params = fmt::format("log-level=warning:keyint={0}:min-keyint={0}:scenecut=0:open-gop=0", gop);
    if (encoding.plan.kind == ColorPlan::Kind::hdr10) {
        params += ":hdr10=1";
        if (encoding.mastering.masterDisplay) params += ":master-display=" + *encoding.mastering.masterDisplay;
        if (encoding.mastering.maxCll) params += ":max-cll=" + *encoding.mastering.maxCll;
    }
    return {"-c:v", "libx265", "-preset", x265Preset(speed_), "-profile:v", "main10", "-tag:v", "hvc1",
            "-forced-idr", "1", "-keyint_min", gop, "-x265-params", params};
}

std::int64_t SoftwareEncoder::targetBitrateKbps(const Rung& rung) const { return defaultTargetBitrateKbps(rung); }

}  // namespace vorlen
