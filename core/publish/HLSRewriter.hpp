#pragma once

#include <string>
#include <string_view>

#include "core/publish/StreamLayout.hpp"

namespace vorlen {

// Rewrites a packager's media playlist so that the init segment and every media
// segment are byte ranges of the stream's chunk files. #EXTINF and all other
// tags stay as they were.
namespace HLSRewriter {

// Throws a manifest VorlenError when the playlist does not match the layout.
std::string rewrite(std::string_view playlist, const StreamLayout& layout);

// Reads a rewritten playlist back: where its init segment and media segments lie,
// with file names as the playlist writes them. Throws a manifest VorlenError for a
// playlist without byte ranges.
StreamLayout layoutOf(std::string_view playlist);

}  // namespace HLSRewriter

}  // namespace vorlen
