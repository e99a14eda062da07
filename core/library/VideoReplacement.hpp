#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/library/LibraryVideo.hpp"
#include "core/publish/Publisher.hpp"
#include "core/publish/PublishedSubtitle.hpp"
#include "core/publish/SubtitleTrack.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

// The two manifests of a published video as they were read: a switch writes each
// only over this very version.
struct CurrentManifests {
    LibraryVideo video;
    TaggedObject master;
    std::optional<TaggedObject> mpd;
};

// The texts that take their place.
struct ReplacementManifests {
    std::string master;
    std::optional<std::string> mpd;
};

// A published video as a replacement finds it, before any encoding starts (which
// may be hours before the switch).
struct ReplacementTarget {
    CurrentManifests manifests;
    VideoMetadata metadata;
    std::vector<PublishedSubtitle> subtitles;
};

// A replacement that switched. The failures after the switch do not undo it; each
// is told as a note.
struct VideoReplacement {
    Published published;
    std::optional<std::string> metadataFailure;
    std::optional<std::string> fixedPosterFailure;
    std::optional<std::string> oldFilesFailure;

    // What did not follow the switch, in words for the person.
    std::vector<std::string> notes() const;
};

// A change of the subtitle tracks of a published video.
struct SubtitleChange {
    struct Replacement {
        std::string baseName;
        std::filesystem::path file;
        std::string language;
    };
    std::set<std::string> removed;  // base names
    std::vector<Replacement> replaced;
    std::vector<SubtitleTrack> added;
};

struct SubtitleChangeResult {
    std::vector<PublishedSubtitle> subtitles;
    std::optional<std::string> oldFilesFailure;  // the player no longer uses them
};

}  // namespace vorlen
