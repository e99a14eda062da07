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

}  // namespace HLSRewriter

}  // namespace vorlen
