#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/publish/AudioEncoder.hpp"
#include "core/publish/StreamLayout.hpp"
#include "core/publish/Tools.hpp"
#include "core/publish/VideoCommand.hpp"

namespace vorlen {

struct PackageInputs {
    std::vector<EncodedRung> videos;
    std::vector<EncodedAudio> audios;
};

// Runs the packager over the encoded rungs and audio renditions: HLS and DASH
// with one small file per segment, which the chunker folds afterwards.
namespace Packager {

// The streams in packaging order: H.264 rungs in ladder order, then HEVC, then audio.
std::vector<PackagedStream> streams(const PackageInputs& inputs);

// The packager's command line for an output directory.
std::vector<std::string> arguments(const PackageInputs& inputs, const std::filesystem::path& output,
                                   double segmentSeconds);

// Creates each stream's directory, runs the packager, and returns the streams, video first.
std::vector<PackagedStream> package(const PackageInputs& inputs, const Tools& tools,
                                    const std::filesystem::path& output, double segmentSeconds);

}  // namespace Packager

}  // namespace vorlen
