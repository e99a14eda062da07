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

}  // namespace DASHRewriter

}  // namespace vorlen
