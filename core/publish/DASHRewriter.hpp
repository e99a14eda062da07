#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/publish/StreamLayout.hpp"

namespace vorlen {

// Rewrites a packager's DASH manifest so that every SegmentTemplate, at any
// level, becomes a SegmentList of byte ranges in the streams' chunk files.
namespace DASHRewriter {

// Throws a manifest VorlenError when the manifest does not match the layouts.
std::string rewrite(std::string_view mpd, const std::vector<StreamLayout>& layouts);

// The manifest with the folder prefix (such as "r-k3x9a2mq/") before every relative
// media address: BaseURL, and initialization, media, sourceURL and index where no
// BaseURL above them was prefixed already.
std::string withMediaPrefix(std::string_view mpd, const std::string& prefix);

// The manifest with new audio: each Representation of an audio AdaptationSet takes
// the SegmentList and bandwidth of the stream of the same name (such as "a_stereo")
// in the audio manifest. Throws a manifest VorlenError for a representation that
// the new audio has no stream for.
std::string withAudio(std::string_view mpd, std::string_view audioMpd);

}  // namespace DASHRewriter

}  // namespace vorlen
