#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/publish/PublishedSubtitle.hpp"
#include "core/publish/SubtitleStream.hpp"

namespace vorlen::HLSMasterPlaylist {

// The master playlist with exactly these subtitle tracks: one EXT-X-MEDIA line
// each before the first variant, and SUBTITLES="subtitles" on every variant line.
// The lines and the attribute of earlier tracks go; with no track, nothing is added.
std::string withSubtitles(std::string_view master, const std::vector<SubtitleStream>& streams);

// The master playlist with the folder prefix (such as "r-k3x9a2mq/") before every
// relative media address: the URI attributes of tags and the variant lines.
std::string withMediaPrefix(std::string_view master, const std::string& prefix);

// An audio rendition that a master playlist declares: its media playlist as the
// master names it, and its channel count (0 when the master does not say).
struct AudioMedia {
    std::string uri;
    std::int64_t channels = 0;
    bool operator==(const AudioMedia&) const = default;
};
std::vector<AudioMedia> audio(std::string_view master);

// The master playlist with every audio rendition's media playlist taken from the
// folder (such as "r-k3x9a2mq/") under its own file name.
std::string withAudioFolder(std::string_view master, const std::string& folder);

// The subtitle tracks that a master playlist declares, in its order. Only a track
// whose playlist is a plain name beside the master, or in a folder beside it, counts.
std::vector<PublishedSubtitle> subtitles(std::string_view master);

}  // namespace vorlen::HLSMasterPlaylist
