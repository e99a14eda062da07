#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/publish/SubtitleDocument.hpp"
#include "core/publish/SubtitleTrack.hpp"

namespace vorlen {

// A subtitle track as the manifests declare it. Its files are <baseName>.vtt and
// <baseName>.m3u8 beside the manifests.
struct SubtitleStream {
    std::string baseName;
    std::string language;  // never empty: "und" for a track without one
    std::string name;      // the label in the player
    SubtitleTrack::Kind kind = SubtitleTrack::Kind::subtitles;
    std::int64_t bandwidth = 0;  // bits a second, an average over the video
    std::optional<std::string> folder;  // the prefix of the track's files, when they lie elsewhere

    // The streams of the tracks of a new video, with their documents read: names
    // told apart, base names unique among themselves and `taken`.
    static std::vector<SubtitleStream> make(const std::vector<SubtitleTrack>& tracks,
                                            const std::vector<SubtitleDocument>& documents, double durationSeconds,
                                            const std::set<std::string>& taken = {});

    // "sub_<language>", numbered from 2 when taken; with a random part
    // ("sub_<language>-<random>") for a track that replaces a cached one.
    static std::string freeBaseName(const std::string& language, const std::set<std::string>& taken,
                                    const std::string& randomPart = "");

    // ceil(bytes x 8 / duration): what the DASH Representation declares.
    static std::int64_t bandwidthOf(std::uint64_t bytes, double durationSeconds);

    // The media playlist of a track: its one .vtt file for the whole duration.
    static std::string mediaPlaylist(const std::string& baseName, double durationSeconds);

    bool operator==(const SubtitleStream&) const = default;
};

}  // namespace vorlen
