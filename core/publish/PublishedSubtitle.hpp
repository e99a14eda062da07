#pragma once

#include <string>

#include "core/publish/SubtitleTrack.hpp"

namespace vorlen {

// A subtitle track as a published video's manifests declare it.
struct PublishedSubtitle {
    std::string baseName;
    std::string language;
    std::string name;
    SubtitleTrack::Kind kind = SubtitleTrack::Kind::subtitles;

    bool operator==(const PublishedSubtitle&) const = default;
};

}  // namespace vorlen
