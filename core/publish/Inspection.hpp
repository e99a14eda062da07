#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "core/publish/AudioRendition.hpp"
#include "core/publish/Ladder.hpp"
#include "core/publish/SourceInfo.hpp"
#include "core/publish/VideoEncoder.hpp"

namespace vorlen {

// What a source will become, before anything is encoded.
struct Inspection {
    std::filesystem::path source;
    SourceInfo info;
    std::vector<Rung> ladder;
    std::vector<AudioRendition> audio;
    std::string suggestedName;
    std::string suggestedTitle;
    std::uint64_t estimatedBytes = 0;
};

Inspection inspect(const Tools& tools, const VideoEncoder& encoder, const std::filesystem::path& source);

// A file whose audio alone is used: its audio facts and renditions, no ladder.
Inspection inspectAudio(const Tools& tools, const std::filesystem::path& source);

// The ladder and renditions that the facts call for, with names and the size estimate.
Inspection inspectionFor(const std::filesystem::path& source, const SourceInfo& info, const VideoEncoder& encoder);

// A title from a file name: extension dropped, runs of ".", "_" and white space become one space.
std::string suggestedTitle(std::string_view fileName);

// duration × (the rungs' target bitrates + the renditions' bitrates), in bytes.
std::uint64_t estimatedBytes(double durationSeconds, const std::vector<Rung>& ladder,
                             const std::vector<AudioRendition>& audio, const VideoEncoder& encoder);

}  // namespace vorlen
