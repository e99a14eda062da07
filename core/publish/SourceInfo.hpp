#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "core/base/Json.hpp"
#include "core/publish/Tools.hpp"

namespace vorlen {

enum class HDRTransfer { pq, hlg };

// "pq" / "hlg"
std::string rawValue(HDRTransfer transfer);

struct AudioStream {
    std::int64_t index = 0;
    std::int64_t channels = 0;
    bool operator==(const AudioStream&) const = default;
};

// The few facts of a source that the build needs. Width and height are as
// displayed: a rotation is already applied.
struct SourceInfo {
    double durationSeconds = 0;
    double fps = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::optional<HDRTransfer> hdr;
    std::optional<AudioStream> audio;
    bool operator==(const SourceInfo&) const = default;
};

// Reads ffprobe's -show_streams -show_format JSON. Throws source errors.
SourceInfo sourceInfoFromProbe(const Json& probe);

// Only the duration and the audio, for a file whose audio alone is used: a
// file without a picture is fine, and one without audio has no `audio`.
SourceInfo audioInfoFromProbe(const Json& probe);

// Runs ffprobe on file and reads its answer.
SourceInfo inspectFile(const Tools& tools, const std::filesystem::path& file);
SourceInfo inspectAudioFile(const Tools& tools, const std::filesystem::path& file);

// The HDR10 facts of a picture, in the notation that x265 takes:
// "G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min)" and "maxCLL,maxFALL".
struct HDRMasteringMetadata {
    std::optional<std::string> masterDisplay;
    std::optional<std::string> maxCll;
    bool operator==(const HDRMasteringMetadata&) const = default;
};

// Reads the side data of the first frame of the source's picture.
HDRMasteringMetadata hdrMasteringMetadataFromProbe(const Json& probe);
HDRMasteringMetadata readHDRMasteringMetadata(const Tools& tools, const std::filesystem::path& file);

}  // namespace vorlen
