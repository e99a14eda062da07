#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "app/PublishService.hpp"
#include "core/library/Library.hpp"

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

    // Changes of one video, each read afresh with video() first.
    virtual LibraryVideo video(const BucketAccess& access, const std::string& folder) = 0;
    virtual LibraryVideo saveDetails(const BucketAccess& access, const LibraryVideo& video, const VideoDetails& details) = 0;
    // A poster from an image file, made no larger than the video's top rendition needs.
    virtual PosterChange changePoster(const BucketAccess& access, const LibraryVideo& video, const std::filesystem::path& image) = 0;
    // A poster from the published video's own frame at a time in seconds.
    virtual PosterChange changePosterToFrame(const BucketAccess& access, const LibraryVideo& video, double seconds) = 0;
    // A new visibility is a new link: the video moves to a new folder.
    virtual VideoMove changeVisibility(const BucketAccess& access, const LibraryVideo& video, VideoVisibility visibility) = 0;
    virtual void remove(const BucketAccess& access, const LibraryVideo& video) = 0;
    // The subtitle tracks that the video's manifests declare now.
    virtual std::vector<PublishedSubtitle> subtitles(const BucketAccess& access, const LibraryVideo& video) = 0;
    virtual SubtitleChangeResult changeSubtitles(const BucketAccess& access, const LibraryVideo& video,
                                                 const SubtitleChange& change) = 0;
    // New audio for the video at a loudness, its picture untouched: from a file, or
    // without one from the video's own published audio. onProgress runs on the work's threads.
    virtual AudioReplacement reimportAudio(const BucketAccess& access, const LibraryVideo& video,
                                           const std::optional<std::filesystem::path>& file, AudioLoudness loudness,
                                           const ProgressHandler& onProgress) = 0;
    // What the media host's cache keeps of a folder, or only of its poster.jpg,
    // goes; nothing to do for a site without a media zone (a local one). With the
    // account token when given, else with this computer's R2 API Token.
    virtual void purge(const BucketAccess& access, const std::string& folderPrefix, bool posterOnly,
                       const std::optional<std::string>& accountToken) = 0;
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
