#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/library/LibraryCache.hpp"
#include "core/library/LibraryVideo.hpp"
#include "core/publish/Publisher.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen {

// The published videos of a site, read from its bucket: the bucket is the only
// record of what was published.
struct Library {
    Destination destination;
    // Which bucket this is, for the cache: a cached list counts only for the same one.
    BucketLocation location;
    UploadOptions options;
    std::shared_ptr<LibraryCache> cache;

    // Every video folder, sorted by folder name. The listing runs in ranges cut
    // where the cached folders say, and a video.json is fetched only when its
    // ETag differs from the cached copy.
    std::vector<LibraryVideo> read(const std::function<void(const LibraryReadProgress&)>& onProgress = {}) const;
    // One folder, read afresh: before a change.
    LibraryVideo video(const std::string& folder) const;
    // The poster thumbnail of a video, built and kept in the cache when missing;
    // absent for a video without a poster or a cache without a thumbnail folder.
    std::optional<std::filesystem::path> thumbnail(const LibraryVideo& video, int maxPixelSize) const;

    // The key boundaries of a listing from the sorted cached folder names: at
    // least 50 folders a range, at most 8 ranges, none below 2.
    static std::vector<std::string> rangeBoundaries(const std::vector<std::string>& sortedFolders, const std::string& prefix,
                                                    std::size_t readConcurrency);
};

}  // namespace vorlen
