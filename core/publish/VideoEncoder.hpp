#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/publish/Ladder.hpp"
#include "core/publish/SourceInfo.hpp"

namespace vorlen {

// The colours a rung is encoded in: HDR kept (10-bit), or SDR in 8 or 10 bits.
struct ColorPlan {
    enum class Kind { hdr10, sdr8, sdr10 };
    Kind kind = Kind::sdr8;
    HDRTransfer transfer = HDRTransfer::pq;  // meaningful for hdr10 only

    // H.264 is always 8-bit SDR; HEVC keeps an HDR source's transfer, else 10-bit SDR.
    static ColorPlan forRung(VideoCodec codec, std::optional<HDRTransfer> sourceHDR);
    bool operator==(const ColorPlan&) const = default;
};

// What an encoder needs to know about one rung of the command.
struct RungEncoding {
    Rung rung;
    ColorPlan plan;
    std::int64_t groupOfPictures = 1;
    HDRMasteringMetadata mastering;  // the source's, for an hdr10 rung
};

// Everything specific to one family of encoders, so that a hardware encoder
// can take the software one's place and leave the rest of the command alone.
class VideoEncoder {
public:
    virtual ~VideoEncoder() = default;
    virtual std::string pixelFormat(const ColorPlan& plan) const = 0;
    // The codec, its profile and tag, its rate control mode and its keyframe discipline.
    virtual std::vector<std::string> encoderArguments(const RungEncoding& encoding) const = 0;
    virtual std::int64_t targetBitrateKbps(const Rung& rung) const = 0;
};

}  // namespace vorlen
