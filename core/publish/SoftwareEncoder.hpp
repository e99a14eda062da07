#pragma once

#include "core/publish/EncodingSpeed.hpp"
#include "core/publish/VideoEncoder.hpp"

namespace vorlen {

// libx264 (High) for H.264 rungs and libx265 (Main 10, tagged hvc1) for HEVC
// rungs, with keyframes only where the segment grid wants them.
class SoftwareEncoder : public VideoEncoder {
public:
    explicit SoftwareEncoder(EncodingSpeed speed = EncodingSpeed::balanced) : speed_(speed) {}

    std::string pixelFormat(const ColorPlan& plan) const override;
    std::vector<std::string> encoderArguments(const RungEncoding& encoding) const override;
    std::int64_t targetBitrateKbps(const Rung& rung) const override;

    // The x264 and x265 presets of a speed.
    static const char* x264Preset(EncodingSpeed speed);
    static const char* x265Preset(EncodingSpeed speed);

private:
    EncodingSpeed speed_;
};

}  // namespace vorlen
