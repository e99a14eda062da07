#pragma once

#include <memory>

#include "app/LibraryService.hpp"
#include "core/library/Library.hpp"
#include "core/net/Endpoints.hpp"

namespace vorlen::app {

// The library and the catalogue of one site over the core's Library, with the
// site's cache on this computer.
class CoreLibraryService final : public LibraryService, public CatalogService {
public:
    // The thumbnails fit the library's rows.
    static constexpr int thumbnailPixels = 240;

    CoreLibraryService(std::shared_ptr<LibraryCache> cache, Endpoints endpoints)
        : cache_(std::move(cache)), endpoints_(std::move(endpoints)) {}
    // Both contracts over one service, with the cache in the site's cache folder.
    static LibraryServices make(const SiteID& site, Endpoints endpoints);

    std::optional<std::vector<LibraryVideo>> cachedVideos(const BucketAccess& access) override;
    std::vector<LibraryVideo> read(const BucketAccess& access,
                                   const std::function<void(const LibraryReadProgress&)>& onProgress) override;
    std::optional<std::filesystem::path> thumbnail(const BucketAccess& access, const LibraryVideo& video) override;
    void clearCache() override { cache_->clear(); }
    LibraryVideo video(const BucketAccess& access, const std::string& folder) override;
    LibraryVideo saveDetails(const BucketAccess& access, const LibraryVideo& video, const VideoDetails& details) override;
    PosterChange changePoster(const BucketAccess& access, const LibraryVideo& video, const std::filesystem::path& image) override;
    PosterChange changePosterToFrame(const BucketAccess& access, const LibraryVideo& video, double seconds) override;
    VideoMove changeVisibility(const BucketAccess& access, const LibraryVideo& video, VideoVisibility visibility) override;
    void remove(const BucketAccess& access, const LibraryVideo& video) override;
    std::vector<PublishedSubtitle> subtitles(const BucketAccess& access, const LibraryVideo& video) override;
    SubtitleChangeResult changeSubtitles(const BucketAccess& access, const LibraryVideo& video,
                                         const SubtitleChange& change) override;
    AudioReplacement reimportAudio(const BucketAccess& access, const LibraryVideo& video,
                                   const std::optional<std::filesystem::path>& file, AudioLoudness loudness,
                                   const ProgressHandler& onProgress) override;
    void purge(const BucketAccess& access, const std::string& folderPrefix, bool posterOnly,
               const std::optional<std::string>& accountToken) override;
    void rebuild(const BucketAccess& access) override;

private:
    Library library(const BucketAccess& access) const;

    std::shared_ptr<LibraryCache> cache_;
    Endpoints endpoints_;
};

}  // namespace vorlen::app
