#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

// How loud the published audio is: as the source is, at web level, or at broadcast level.
enum class AudioLoudness { original, web, broadcast };

// "original", "web", "broadcast": the form in records and settings.
std::string rawValue(AudioLoudness loudness);
std::optional<AudioLoudness> audioLoudnessFromRawValue(std::string_view text);

}  // namespace vorlen
