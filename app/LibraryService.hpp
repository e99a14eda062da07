#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "app/PublishService.hpp"
#include "core/library/LibraryVideo.hpp"

namespace vorlen::app {

// Reading the published videos of one site. Calls block; run them on a task.
class LibraryService {
public:
    virtual ~LibraryService() = default;
    // This computer's last list of the site, without the network; absent when it has none.
    virtual std::optional<std::vector<LibraryVideo>> cachedVideos(const BucketAccess& access) = 0;
    // The current list, from the bucket. onProgress runs on the reading's threads, one call at a time.
    virtual std::vector<LibraryVideo> read(const BucketAccess& access,
                                           const std::function<void(const LibraryReadProgress&)>& onProgress) = 0;
    // A small picture of the video's poster, kept on this computer.
    virtual std::optional<std::filesystem::path> thumbnail(const BucketAccess& access, const LibraryVideo& video) = 0;
    // Forgets the list and the thumbnails of this site.
    virtual void clearCache() = 0;
};

// The catalogue that the site's home page is built from.
class CatalogService {
public:
    virtual ~CatalogService() = default;
    virtual void rebuild(const BucketAccess& access) = 0;
};

struct LibraryServices {
    std::shared_ptr<LibraryService> library;
    std::shared_ptr<CatalogService> catalog;
};

}  // namespace vorlen::app
