#include "core/publish/AudioLoudness.hpp"

namespace vorlen {

std::string rawValue(AudioLoudness loudness) {
    switch (loudness) {
        case AudioLoudness::original: return "original";
        case AudioLoudness::web: return "web";
        case AudioLoudness::broadcast: return "broadcast";
    }
    return "original";
}

std::optional<AudioLoudness> audioLoudnessFromRawValue(std::string_view text) {
    if (text == "original") return AudioLoudness::original;
    if (text == "web") return AudioLoudness::web;
    if (text == "broadcast") return AudioLoudness::broadcast;
    return std::nullopt;
}

}  // namespace vorlen
