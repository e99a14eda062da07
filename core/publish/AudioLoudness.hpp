#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

// How the audio of a video is levelled: as it came, for the web, or for broadcast.
enum class AudioLoudness { original, web, broadcast };

inline std::string rawValue(AudioLoudness value) {
    switch (value) {
        case AudioLoudness::original: return "original";
        case AudioLoudness::web: return "web";
        case AudioLoudness::broadcast: return "broadcast";
    }
    return "broadcast";
}

inline std::optional<AudioLoudness> audioLoudnessFrom(std::string_view text) {
    if (text == "original") return AudioLoudness::original;
    if (text == "web") return AudioLoudness::web;
    if (text == "broadcast") return AudioLoudness::broadcast;
    return std::nullopt;
}

}  // namespace vorlen
