#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "core/base/Dates.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/publish/VideoDetails.hpp"

namespace vorlen {

struct PixelSize {
    std::int64_t width = 0;
    std::int64_t height = 0;
    bool operator==(const PixelSize&) const = default;
};

struct PosterFile {
    std::string name;  // a plain file name inside the video's folder
    PixelSize size;
    bool operator==(const PosterFile&) const = default;
};

// Whether the video has sound, and how loud it was made when it is known.
struct AudioTrack {
    std::optional<AudioLoudness> loudness;
    bool operator==(const AudioTrack&) const = default;
};
struct NoAudioTrack {
    bool operator==(const NoAudioTrack&) const = default;
};
using VideoAudio = std::variant<AudioTrack, NoAudioTrack>;

// The record of one published video, stored as its folder's video.json.
struct VideoMetadata {
    static constexpr std::int64_t version = 1;

    VideoDetails details;
    std::optional<PosterFile> poster;
    std::optional<double> duration;
    std::optional<PixelSize> size;
    SystemTime created;
    SystemTime updated;
    std::optional<VideoAudio> audio;  // older records do not say
    // An audio_loudness that this version does not know, written back as it was
    // so that editing a newer app's record keeps its facts.
    std::optional<std::string> unknownAudioLoudness;

    std::string encoded() const;
    // Throws a metadata VorlenError with the reason; never touches the record.
    static VideoMetadata decoded(std::string_view data);

    bool operator==(const VideoMetadata&) const = default;
};

// Plain file names only: no path, no hidden file, nothing a URL must escape.
bool isPlainFileName(std::string_view name);

}  // namespace vorlen
