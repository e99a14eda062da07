#include "app/CoreLibraryService.hpp"

#include "app/CorePublishService.hpp"
#include "app/SiteStorage.hpp"
#include "core/library/Catalog.hpp"

namespace vorlen::app {

LibraryServices CoreLibraryService::make(const SiteID& site, Endpoints endpoints) {
    auto service = std::make_shared<CoreLibraryService>(LibraryCache::inFolder(SiteStorage(site).cacheFolder), std::move(endpoints));
    return LibraryServices{service, service};
}

Library CoreLibraryService::library(const BucketAccess& access) const {
    // The reading's own defaults, which bench/library measures: small records, many at once.
    return Library{CorePublishService::destinationFor(access, endpoints_), CorePublishService::locationOf(access.site),
                   UploadOptions{}, cache_};
}

std::optional<std::vector<LibraryVideo>> CoreLibraryService::cachedVideos(const BucketAccess& access) {
    return cache_->cachedVideos(CorePublishService::locationOf(access.site), CorePublishService::videoPrefix(access.site));
}

std::vector<LibraryVideo> CoreLibraryService::read(const BucketAccess& access,
                                                   const std::function<void(const LibraryReadProgress&)>& onProgress) {
    return library(access).read(onProgress);
}

std::optional<std::filesystem::path> CoreLibraryService::thumbnail(const BucketAccess& access, const LibraryVideo& video) {
    return library(access).thumbnail(video, thumbnailPixels);
}

void CoreLibraryService::rebuild(const BucketAccess& access) { rebuildCatalog(library(access)); }

}  // namespace vorlen::app
