#include "app/CoreLibraryService.hpp"

#include <fmt/format.h>

#include "app/CorePublishService.hpp"
#include "app/SiteStorage.hpp"
#include "app/MediaCachePurge.hpp"
#include "app/Screen.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/library/Catalog.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/FrameReader.hpp"
#include "core/publish/PosterProposal.hpp"
#include "core/storage/FolderBucket.hpp"

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

LibraryVideo CoreLibraryService::video(const BucketAccess& access, const std::string& folder) {
    return library(access).video(folder);
}

LibraryVideo CoreLibraryService::saveDetails(const BucketAccess& access, const LibraryVideo& video, const VideoDetails& details) {
    return library(access).saveDetails(video, details);
}

PosterChange CoreLibraryService::changePoster(const BucketAccess& access, const LibraryVideo& video,
                                              const std::filesystem::path& image) {
    const auto* metadata = video.metadata();
    const auto height = metadata && metadata->size ? metadata->size->height : 1080;
    return library(access).changePoster(video, posterFromImage(image, PosterProposal::maximumSizeFor(height)));
}

PosterChange CoreLibraryService::changePosterToFrame(const BucketAccess& access, const LibraryVideo& video, double seconds) {
    // ffmpeg reads the media itself: the local site's files, or the media host's addresses.
    const auto& site = access.site;
    const auto mediaBase = site.isLocal() ? FolderBucket(*site.localFolder).objectPath(video.prefix).string()
                                          : linksFor(site, video.folder).media;
    const auto made = library(access);
    const auto segment = made.segmentPlaylist(video, seconds, mediaBase);
    const auto folder = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-frame-");
    const DirectoryRemover remover(folder);
    writeFileAtomically(folder / "segment.m3u8", segment.text);
    return made.changePoster(video, FrameReader(Tools::locate()).frameOfSegment(folder / "segment.m3u8", segment.offset, seconds));
}

AudioReplacement CoreLibraryService::reimportAudio(const BucketAccess& access, const LibraryVideo& video,
                                                  const std::optional<std::filesystem::path>& file, AudioLoudness loudness,
                                                  const ProgressHandler& onProgress) {
    const auto made = library(access);
    Publisher publisher;
    publisher.tools = Tools::locate();
    publisher.workRoot = defaultWorkRoot();
    publisher.destination = made.destination;
    publisher.upload = made.options;
    // The target's manifests are read before the encoding, so another computer's change meanwhile stops the switch.
    const auto target = made.replacementTarget(video.folder);
    const auto work = workDirectoryPath(publisher.workRoot, "published-audio");
    DirectoryRemover remover(work);
    std::filesystem::path source;
    if (file) {
        source = *file;
    } else {
        std::filesystem::create_directories(work);
        source = made.savePublishedAudio(target, work);
    }
    const auto built = made.buildAudio(target, inspectAudio(publisher.tools, source), loudness, publisher, onProgress);
    UploadJournal journal;
    return made.replaceAudio(target, *built, publisher, journal, onProgress);
}

VideoMove CoreLibraryService::changeVisibility(const BucketAccess& access, const LibraryVideo& video,
                                               VideoVisibility visibility) {
    const auto* metadata = video.metadata();
    const VideoDetails current = metadata ? metadata->details : VideoDetails("", std::nullopt, std::nullopt, VideoVisibility::publicVideo);
    const VideoDetails details(current.title(), current.reference(), current.description(), visibility);
    // An unlisted folder ends in its random part; the public link drops it, an unlisted one gets a fresh one.
    auto base = video.folder;
    if (current.visibility() == VideoVisibility::unlisted && base.size() > 9 && base[base.size() - 9] == '-')
        base.resize(base.size() - 9);
    const auto made = library(access);
    if (visibility == VideoVisibility::unlisted) return made.move(video, Naming::unlistedName(base), details);
    for (int n = 0;; ++n) {
        const auto name = Naming::numbered(base, n);
        if (!made.destination.bucket->hasObjects(made.destination.prefix + name + "/")) return made.move(video, name, details);
    }
}

void CoreLibraryService::remove(const BucketAccess& access, const LibraryVideo& video) { library(access).remove(video); }

std::vector<PublishedSubtitle> CoreLibraryService::subtitles(const BucketAccess& access, const LibraryVideo& video) {
    const auto manifests =
        library(access).currentManifests(video, fmt::format("\u201c{}\u201d is not playable", video.folder));
    return HLSMasterPlaylist::subtitles(manifests.master.data);
}

SubtitleChangeResult CoreLibraryService::changeSubtitles(const BucketAccess& access, const LibraryVideo& video,
                                                         const SubtitleChange& change) {
    return library(access).changeSubtitles(video, change);
}

void CoreLibraryService::purge(const BucketAccess& access, const std::string& folderPrefix, bool posterOnly,
                               const std::optional<std::string>& accountToken) {
    const auto& site = access.site;
    if (site.isLocal() || !site.mediaZoneID) return;
    const auto token = accountToken ? accountToken : access.credentials ? access.credentials->token : std::nullopt;
    if (!token) throw VorlenError::config(MediaCachePurge::cannotPurge);
    const MediaCachePurge purge{CloudflareAPI(APIToken{*token}, endpoints_.session(), endpoints_),
                                *site.mediaZoneID, site.mediaHost};
    posterOnly ? purge.purgePoster(folderPrefix) : purge.purgeFolder(folderPrefix);
}

void CoreLibraryService::rebuild(const BucketAccess& access) { rebuildCatalog(library(access)); }

}  // namespace vorlen::app
