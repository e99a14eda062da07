#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/publish/AudioLoudness.hpp"
#include "core/publish/AudioRendition.hpp"
#include "core/publish/SourceInfo.hpp"
#include "core/publish/Tools.hpp"

namespace vorlen {

struct AudioSource {
    std::filesystem::path file;
    AudioStream stream;
    double durationSeconds = 0;
};

struct EncodedAudio {
    AudioRendition rendition;
    std::filesystem::path file;
    bool operator==(const EncodedAudio&) const = default;
};

// loudnorm's first-pass figures, kept as ffmpeg printed them so that the same
// digits go back into the second pass.
struct LoudnormMeasurement {
    std::string inputI, inputTP, inputLRA, inputThresh, targetOffset;
    bool operator==(const LoudnormMeasurement&) const = default;
};

// The last "{" … "}" block of standard error, decoded; nothing when there is none.
std::optional<LoudnormMeasurement> parseLoudnormMeasurement(const std::string& standardError);

// A measuring pass comes first unless the audio keeps its loudness and is not downmixed.
bool needsMeasurement(AudioLoudness loudness, const AudioRendition& rendition, std::int64_t sourceChannels);

// The filter that sets the loudness after measuring, or nothing when none applies.
std::optional<std::string> loudnessFilter(AudioLoudness loudness, const LoudnormMeasurement& measurement);

// The whole of one rendition: one or two ffmpeg runs; onFraction gets 0…1.
EncodedAudio encodeAudio(const Tools& tools, const AudioSource& source, const AudioRendition& rendition,
                         AudioLoudness loudness, const std::filesystem::path& outputDirectory,
                         const std::function<void(double)>& onFraction);

}  // namespace vorlen
