#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/base/Dates.hpp"
#include "core/library/Library.hpp"
#include "core/publish/VideoMetadata.hpp"

namespace vorlen {

// The summary of a library that the page Worker builds the home page and the
// lists from, kept in one object since a Worker cannot list a bucket on every view.
struct Catalog {
    static constexpr const char* key = "_vorlen/catalog.json";
    static constexpr std::int64_t version = 1;

    struct Entry {
        std::string folder;
        std::string title;
        std::optional<std::string> description;
        std::optional<std::string> poster;  // the poster's file name
        std::optional<double> duration;
        std::optional<PixelSize> size;
        std::optional<SystemTime> created;
        std::optional<SystemTime> updated;
        VideoVisibility visibility = VideoVisibility::publicVideo;
        bool operator==(const Entry&) const = default;
    };

    std::vector<Entry> entries;

    // Only complete videos with a known record count; a folder without video.json
    // is a public video titled by its folder. Sorted by folder.
    static std::vector<Entry> entriesFrom(const std::vector<LibraryVideo>& videos);
    std::string encoded() const;
};

// Reads the library and replaces the catalogue object whole. No condition: it is
// derived data, and a later rebuild repairs a stale one.
void rebuildCatalog(const Library& library);

}  // namespace vorlen
