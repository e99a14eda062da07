#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlen {

// One audio rendition of a video: "stereo" (AAC) for every source, "surround"
// (E-AC-3 5.1) beside it for a source of three channels or more.
struct AudioRendition {
    std::string name;
    std::string layout;
    std::string codec;
    std::int64_t channels = 0;
    std::int64_t bitrateKbps = 0;
    std::vector<std::string> extraArguments;
    bool operator==(const AudioRendition&) const = default;
};

std::vector<AudioRendition> renditions(std::int64_t channels);

}  // namespace vorlen
