#pragma once

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

// The subtitle tracks that a master playlist declares, in its order. Only a track
// whose playlist is a plain name beside the master, or in a folder beside it, counts.
std::vector<PublishedSubtitle> subtitles(std::string_view master);

}  // namespace vorlen::HLSMasterPlaylist
