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
    // Where its files lie inside the video folder: "" beside the manifests, or the
    // prefix of a replacement ("r-k3x9a2mq/") that took them along.
    std::string folder;

    bool operator==(const PublishedSubtitle&) const = default;
};

}  // namespace vorlen
