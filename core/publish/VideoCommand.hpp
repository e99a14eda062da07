#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "core/publish/Ladder.hpp"
#include "core/publish/SourceInfo.hpp"
#include "core/publish/Tools.hpp"
#include "core/publish/VideoEncoder.hpp"

namespace vorlen {

struct EncodedRung {
    Rung rung;
    std::filesystem::path file;
    bool operator==(const EncodedRung&) const = default;
};

// The one ffmpeg command that decodes the source once and encodes every rung.
struct VideoCommand {
    std::vector<std::string> arguments;
    std::vector<EncodedRung> outputs;

    static VideoCommand make(const std::filesystem::path& source, const SourceInfo& info, const std::vector<Rung>& rungs,
                             const VideoEncoder& encoder, double segmentSeconds,
                             const std::filesystem::path& outputDirectory, const HDRMasteringMetadata& mastering = {});
};

// "scale=w=<standard width>:h=<height>:force_original_aspect_ratio=decrease:..."
std::string scaleFilter(std::int64_t height);

// The split graph; the picture is taken with [0:V:0], which skips cover pictures.
std::string filterGraph(const SourceInfo& info, const std::vector<Rung>& rungs, const VideoEncoder& encoder);

// ceil(fps × segment seconds), at least 1.
std::int64_t groupOfPictures(double fps, double segmentSeconds);

// An HDR source with an H.264 rung must be tone-mapped, which takes zscale.
bool needsToneMapping(const SourceInfo& info, const std::vector<Rung>& rungs);
bool filtersListZscale(const std::string& filtersOutput);
// Throws the config error when ffmpeg lacks zscale.
void checkToneMapping(const Tools& tools);

// Runs the command; seconds encoded go to onSeconds.
std::vector<EncodedRung> encodeVideo(const Tools& tools, const VideoCommand& command,
                                     const std::function<void(double)>& onSeconds);

}  // namespace vorlen
