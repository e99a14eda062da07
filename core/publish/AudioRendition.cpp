#include "core/publish/AudioRendition.hpp"

namespace vorlen {

std::vector<AudioRendition> renditions(std::int64_t channels) {
    std::vector<AudioRendition> list{{"stereo", "stereo", "aac", 2, 256, {"-cutoff", "20000"}}};
    if (channels >= 3) list.push_back({"surround", "5.1", "eac3", 6, 640, {}});
    return list;
}

}  // namespace vorlen
