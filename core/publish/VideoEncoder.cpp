#include "core/publish/VideoEncoder.hpp"

namespace vorlen {

ColorPlan ColorPlan::forRung(VideoCodec codec, std::optional<HDRTransfer> sourceHDR) {
    if (codec == VideoCodec::h264) return {Kind::sdr8, HDRTransfer::pq};
    if (sourceHDR) return {Kind::hdr10, *sourceHDR};
    return {Kind::sdr10, HDRTransfer::pq};
}

}  // namespace vorlen
