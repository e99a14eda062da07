#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/publish/PublishedSubtitle.hpp"
#include "core/publish/SubtitleStream.hpp"

namespace vorlen::DASHSubtitles {

// The manifest with the WebVTT adaptation sets of its first Period cut down to
// those in `kept` (by base name) and one added for each of `added`.
std::string withSubtitles(std::string_view mpd, const std::set<std::string>& kept,
                          const std::vector<SubtitleStream>& added);

// The WebVTT tracks of the first Period. The role tells captions; a label that
// ends in " (auto-generated)" tells an auto-generated track, which DASH has no role for.
std::vector<PublishedSubtitle> subtitles(std::string_view mpd);

}  // namespace vorlen::DASHSubtitles
