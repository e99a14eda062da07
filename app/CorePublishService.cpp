#include "app/CorePublishService.hpp"

#include "app/CredentialStore.hpp"
#include "app/SiteWorkspace.hpp"

#include "core/base/VorlenError.hpp"
#include "core/library/Library.hpp"
#include "core/publish/SubtitleDocument.hpp"
#include "core/publish/SubtitleLanguage.hpp"
#include "core/storage/FolderBucket.hpp"
#include "core/storage/S3Bucket.hpp"

namespace vorlen::app {

namespace {

std::vector<SubtitleTrack> subtitleTracks(const std::vector<VideoSubtitle>& subtitles) {
    std::vector<SubtitleTrack> tracks;
    for (const auto& subtitle : subtitles)
        tracks.push_back(SubtitleTrack{subtitle.file, subtitle.language, SubtitleTrack::Kind::subtitles});
    return tracks;
}

}  // namespace

std::shared_ptr<Bucket> CorePublishService::bucketFor(const BucketAccess& access, const Endpoints& endpoints) {
    const SiteSummary& site = access.site;
    if (site.isLocal()) return std::make_shared<FolderBucket>(*site.localFolder);
    if (!access.credentials) throw VorlenError::config(SettingsError::missingToken);
    Endpoints chosen = endpoints;
    if (site.s3Endpoint) chosen.r2Storage = *site.s3Endpoint;
    return std::make_shared<S3Bucket>(BucketLocation{site.accountID, site.bucket},
                                      S3Credentials{access.credentials->accessKeyID, access.credentials->secretAccessKey},
                                      chosen);
}

std::shared_ptr<Bucket> CorePublishService::bucketOf(const LocalSite& site, std::shared_ptr<SecretStore> secrets,
                                                    const Endpoints& endpoints) {
    BucketAccess access{site.settings, std::nullopt};
    if (!site.settings.isLocal()) access.credentials = CredentialStore(std::move(secrets), SiteStorage(site.id).credentialsItem).read();
    return bucketFor(access, endpoints);
}

Destination CorePublishService::destinationFor(const BucketAccess& access, const Endpoints& endpoints) {
    const SiteSummary& site = access.site;
    const auto identity = site.isLocal() ? "folder:" + site.localFolder->string() : "r2:" + site.accountID + "/" + site.bucket;
    return Destination{bucketFor(access, endpoints), videoPrefix(site), identity};
}

BucketLocation CorePublishService::locationOf(const SiteSummary& site) {
    if (site.isLocal()) return BucketLocation{"", site.localFolder->string()};
    return BucketLocation{site.accountID, site.bucket};
}

Publisher CorePublishService::publisher(const BucketAccess& access, const UploadTuning& tuning,
                                        std::optional<double> expectedUploadRate) const {
    Publisher made;
    made.tools = Tools::locate();
    made.encoder = pipeline_.encoder;
    made.workRoot = pipeline_.workRoot;
    made.expectedUploadRate = expectedUploadRate;
    made.destination = destinationFor(access, pipeline_.endpoints);
    made.limiter = pipeline_.limiter;
    made.upload.concurrency = tuning.concurrency();
    made.upload.readConcurrency = tuning.concurrency();
    made.upload.partSize = tuning.partBytes();
    made.upload.maxRetries = 5;
    made.upload.retryDelay = std::chrono::duration<double>(0.5);
    return made;
}

VideoInspection CorePublishService::inspect(const fs::path& file) {
    Inspection inspection = vorlen::inspect(Tools::locate(), *pipeline_.encoder, file);
    VideoInspection view;
    view.source = inspection.source;
    view.suggestedName = inspection.suggestedName;
    view.suggestedTitle = inspection.suggestedTitle;
    view.picture = {inspection.info.width, inspection.info.height, inspection.info.fps, inspection.info.hdr.has_value()};
    view.duration = inspection.info.durationSeconds;
    if (inspection.info.audio) view.audioChannels = inspection.info.audio->channels;
    for (const auto& rung : inspection.ladder) view.rungs.push_back(rung.id);
    for (const auto& rendition : inspection.audio) view.audioRenditions.push_back(rendition.name);
    view.estimatedBytes = inspection.estimatedBytes;
    return view;
}

VideoSubtitle CorePublishService::readSubtitle(const fs::path& file) {
    auto document = SubtitleDocument::read(file);
    // "film.de.srt" names its language; otherwise the person's own.
    auto language = SubtitleLanguage::fromFileName(file).value_or(SubtitleLanguage::currentLanguage());
    return VideoSubtitle{file, language, document.cueCount};
}

ResolvedFolder CorePublishService::resolveFolder(const std::string& name, const BucketAccess& access) {
    auto made = publisher(access, UploadTuning{}, std::nullopt);
    std::string found = made.resolveFolder(name);
    return ResolvedFolder{name, found, made.destination.prefix + found + "/"};
}

PublishedVideo CorePublishService::publish(const PublishRequest& request, const std::function<void(const PublishEvent&)>& onEvent) {
    auto made = publisher(request.access, request.uploadTuning, request.expectedUploadRate);
    auto progress = [&](const PublishProgress& p) { onEvent(PublishEvent{PublishEvent::Progress{p}}); };

    auto announce = [&](const std::string& folder) {
        onEvent(PublishEvent{PublishEvent::Folder{{request.name, folder, made.destination.prefix + folder + "/"}}});
    };

    std::shared_ptr<BuiltFolder> built = request.built;
    std::string folder;
    if (!built) {
        folder = made.resolveFolder(request.name);
        announce(folder);
        Inspection inspection = vorlen::inspect(made.tools, *pipeline_.encoder, request.source);
        PosterReviewer reviewer{made.tools, std::nullopt, request.posterReviewTimeLimit,
                                [&](const PosterReviewRequest& review) { onEvent(PublishEvent{PublishEvent::ReviewPoster{review}}); }};
        built = made.build(inspection, request.details, request.audioLoudness, std::nullopt, progress,
                           [&](const PosterProposal& proposal) { return reviewer.review(proposal); },
                           subtitleTracks(request.subtitles));
        onEvent(PublishEvent{PublishEvent::Built{built}});
    } else {
        // A retry goes back to the folder that a failed clean-up left, when it is in this bucket.
        auto leftovers = made.leftoversHere(*built);
        folder = leftovers ? leftovers->folder : made.resolveFolder(request.name);
        announce(folder);
    }

    UploadJournal journal;
    try {
        Published published = made.publish(*built, UploadFolder{request.name, folder, request.isNameTyped}, journal, progress, announce);
        onEvent(PublishEvent{PublishEvent::UploadLog{journal.entries()}});
        return PublishedVideo{published.folderPrefix, published.hlsKey,        published.dashKey,
                              published.fileCount,    published.uploadedBytes, published.uploadRate};
    } catch (...) {
        onEvent(PublishEvent{PublishEvent::UploadLog{journal.entries()}});
        throw;
    }
}

VideoReplacement CorePublishService::replace(const ReplaceRequest& request,
                                             const std::function<void(const JobProgress&)>& onProgress) {
    const auto made = publisher(request.access, request.uploadTuning, request.expectedUploadRate);
    const Library library{made.destination, locationOf(request.access.site), made.upload, nullptr};
    const auto target = library.replacementTarget(request.folder);
    const Inspection inspection = vorlen::inspect(made.tools, *pipeline_.encoder, request.source);
    // No poster review: the video keeps its poster, and one without takes the new build's choice.
    const auto built = made.build(inspection, target.metadata.details, request.audioLoudness, target.metadata.created, onProgress);
    UploadJournal journal;
    return library.replace(target, *built, made, journal, onProgress);
}

}  // namespace vorlen::app
