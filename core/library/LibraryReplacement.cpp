// Replacing the media of a published video in place, and the switch of its two
// manifests that replacements and subtitle changes share.
#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/library/FolderObjects.hpp"
#include "core/library/Library.hpp"
#include "core/publish/DASHRewriter.hpp"
#include "core/publish/DASHSubtitles.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/Naming.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen {

using namespace FolderObjects;

namespace {

std::string titleOf(const LibraryVideo& video) {
    const auto* metadata = video.metadata();
    return metadata && !metadata->details.title().empty() ? metadata->details.title() : video.folder;
}

bool isConflict(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const VorlenError& error) {
        return error.is<failure::Conflict>();
    } catch (...) {
        return false;
    }
}

// Puts an object back as it was read when it holds what a switch wrote (`written`,
// absent for a switch that removed it). Anything else there is another computer's.
void putBack(Bucket& bucket, const std::string& key, const std::optional<TaggedObject>& old,
             const std::optional<std::string>& written, const RetryPolicy& retry) {
    const auto now = retry.run([&](std::int64_t) { return bucket.taggedObject(key); });
    const bool holdsWritten = now ? written && now->data == *written : !written;
    if (!holdsWritten) return;
    if (old)
        writeConditionally(bucket, key, old->data, videoFolderHeaders(key.substr(key.rfind('/') + 1)),
                           now ? WriteCondition::unchanged(now->etag) : WriteCondition::absent(), retry);
    else
        retry.run([&](std::int64_t) { bucket.remove(key); });
}

}  // namespace

CurrentManifests Library::currentManifests(const LibraryVideo& video, const std::string& notPlayable) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    auto master = retry.run([&](std::int64_t) { return bucket.taggedObject(video.prefix + switchFile); });
    if (!master) throw VorlenError::config(notPlayable);
    auto mpd = retry.run([&](std::int64_t) { return bucket.taggedObject(video.prefix + dashFile); });
    return CurrentManifests{video, std::move(*master), std::move(mpd)};
}

ReplacementTarget Library::replacementTarget(const std::string& folder) const {
    const auto notPlayable = fmt::format("cannot replace the video of \u201c{}\u201d: it is not playable", folder);
    auto current = video(folder);
    if (!current.isComplete) throw VorlenError::config(notPlayable);
    auto metadata = newRecord(current, detailsOf(current));  // refuses a record that cannot be rewritten
    auto manifests = currentManifests(current, notPlayable);
    auto subtitles = HLSMasterPlaylist::subtitles(manifests.master.data);
    return ReplacementTarget{std::move(manifests), std::move(metadata), std::move(subtitles)};
}

void Library::swapManifests(const CurrentManifests& current, const ReplacementManifests& next, ManifestChange change) const {
    checkCancellation();
    // Half a switch is the one state that must not stay: no stop reaches it from here.
    Task<void>::detached([&] {
        auto& bucket = *destination.bucket;
        const RetryPolicy retry{options.maxRetries, options.retryDelay};
        const auto& prefix = current.video.prefix;
        const auto mpdKey = prefix + dashFile;
        const bool touchesMPD = next.mpd || current.mpd;
        auto fail = [&](std::exception_ptr failure) {
            if (isConflict(failure)) throw VorlenError::manifestConflict(titleOf(current.video), change);
            std::rethrow_exception(failure);
        };
        auto restore = [&](std::exception_ptr failure, bool masterMayHaveLanded) {
            try {
                if (touchesMPD) putBack(bucket, mpdKey, current.mpd, next.mpd, retry);
                if (masterMayHaveLanded) putBack(bucket, prefix + switchFile, current.master, next.master, retry);
            } catch (const std::exception&) {
                throw VorlenError::manifestRestore(current.video.folder, change);
            }
            fail(failure);
        };

        try {
            if (next.mpd)
                writeConditionally(bucket, mpdKey, *next.mpd, videoFolderHeaders(dashFile),
                                   current.mpd ? WriteCondition::unchanged(current.mpd->etag) : WriteCondition::absent(),
                                   retry);
            else if (current.mpd)
                retry.run([&](std::int64_t) { bucket.remove(mpdKey); });
        } catch (...) {
            auto failure = std::current_exception();
            if (isConflict(failure)) fail(failure);  // the old manifests stand
            restore(failure, false);                 // the write may have landed all the same
        }
        try {
            writeConditionally(bucket, prefix + switchFile, next.master, videoFolderHeaders(switchFile),
                               WriteCondition::unchanged(current.master.etag), retry);
        } catch (...) {
            auto failure = std::current_exception();
            restore(failure, !isConflict(failure));
        }
    }).value();
}

std::optional<double> Library::uploadAndSwap(const CurrentManifests& current, const ReplacementManifests& next,
                                             ManifestChange change, const std::filesystem::path& directory,
                                             const std::vector<std::string>& files, const std::string& mediaPrefix,
                                             std::uint64_t bytes, const Publisher& publisher, UploadJournal& journal,
                                             const ProgressHandler& onProgress) const {
    journal.logStart(files.size(), bytes, publisher.upload, publisher.limiter->bytesPerSecond(),
                     change == ManifestChange::audio ? "audio replacement" : "replacement");
    try {
        auto rate = publisher.uploadFiles(directory, files, mediaPrefix, videoFolderHeaders, bytes, journal, onProgress);
        swapManifests(current, next, change);
        return rate;
    } catch (...) {
        auto failure = std::current_exception();
        journal.logStop(failure);
        bool playersMayUseIt = false;
        try {
            throw;
        } catch (const VorlenError& error) {
            playersMayUseIt = error.is<failure::ManifestRestore>();
        } catch (...) {
        }
        if (!playersMayUseIt) {
            auto& bucket = *destination.bucket;
            const RetryPolicy retry{options.maxRetries, options.retryDelay};
            bool gone = Task<bool>::detached([&] {
                            try {
                                deleteStages(bucket, mediaPrefix, deletionStages(filesOf(bucket, mediaPrefix)), retry);
                                return true;
                            } catch (const std::exception& error) {
                                journal.log(fmt::format("cleanup delete failed: {}", error.what()));
                                return false;
                            }
                        }).value();
            if (!gone) journal.log("the cleanup did not delete every file");
        }
        std::rethrow_exception(failure);
    }
}

VideoReplacement Library::replace(const ReplacementTarget& target, BuiltFolder& built, const Publisher& publisher,
                                  UploadJournal& journal, const ProgressHandler& onProgress) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    const auto& video = target.manifests.video;
    const auto& made = built.built();
    const auto& directory = built.directory();
    const double duration = made.metadata.duration.value_or(0);
    // A fresh prefix: the new files never meet an old name, so they keep their long cache lifetime.
    const std::string mediaFolder = "r-" + Naming::randomPart() + "/";
    const std::string mediaPrefix = video.prefix + mediaFolder;

    std::vector<std::string> files = made.media;
    for (const auto& manifest : made.manifests)
        if (manifest != switchFile && manifest != dashFile) files.push_back(manifest);
    // The video's subtitle tracks come along into the new prefix.
    std::vector<SubtitleStream> subtitles;
    for (const auto& track : target.subtitles) {
        const auto key = video.prefix + track.folder + track.baseName + ".vtt";
        const auto vtt = retry.run([&](std::int64_t) { return bucket.object(key); });
        if (!vtt) {
            journal.log(fmt::format("{} is missing: its track does not come along", key));
            continue;
        }
        writeFileAtomically(directory / (track.baseName + ".vtt"), *vtt);
        writeFileAtomically(directory / (track.baseName + ".m3u8"), SubtitleStream::mediaPlaylist(track.baseName, duration));
        files.push_back(track.baseName + ".vtt");
        files.push_back(track.baseName + ".m3u8");
        subtitles.push_back(SubtitleStream{track.baseName, track.language, track.name, track.kind,
                                           SubtitleStream::bandwidthOf(vtt->size(), duration), mediaFolder});
    }
    ReplacementManifests manifests{
        HLSMasterPlaylist::withSubtitles(HLSMasterPlaylist::withMediaPrefix(readFile(directory / switchFile), mediaFolder),
                                         subtitles),
        std::nullopt};
    if (std::filesystem::exists(directory / dashFile))
        manifests.mpd = DASHSubtitles::withSubtitles(DASHRewriter::withMediaPrefix(readFile(directory / dashFile), mediaFolder),
                                                     {}, subtitles);

    std::uint64_t bytes = 0;
    for (const auto& file : files) bytes += std::filesystem::file_size(directory / file);
    const auto rate = uploadAndSwap(target.manifests, manifests, ManifestChange::video, directory, files, mediaPrefix, bytes,
                                    publisher, journal, onProgress);

    // The new video is live: what follows may fail without undoing it.
    VideoReplacement result{Published{video.prefix, video.prefix + switchFile, video.prefix + dashFile,
                                      static_cast<std::int64_t>(files.size()), bytes, rate, made.metadata},
                            std::nullopt, std::nullopt, std::nullopt};
    Task<void>::detached([&] {
        // A video without a poster takes the new video's.
        std::optional<PosterFile> fixedPoster;
        if (!target.metadata.poster && made.poster) {
            try {
                for (const auto& name : {made.poster->name, std::string("poster.jpg")})
                    retry.run([&](std::int64_t) {
                        return bucket.put(video.prefix + name, RequestBody::bytes(made.poster->jpeg), videoFolderHeaders(name));
                    });
                fixedPoster = PosterFile{made.poster->name, made.poster->size()};
            } catch (const std::exception& error) {
                result.fixedPosterFailure = error.what();
            }
        }
        std::set<std::string> kept{recordFile, switchFile, dashFile, "poster.jpg"};
        if (fixedPoster) kept.insert(fixedPoster->name);
        try {
            // The record as it is now: details changed during the encoding stay.
            const auto current = this->video(video.folder);
            auto record = newRecord(current, detailsOf(current));
            if (record.poster) kept.insert(record.poster->name);
            record.duration = made.metadata.duration;
            record.size = made.metadata.size;
            record.audio = made.metadata.audio;
            record.unknownAudioLoudness = made.metadata.unknownAudioLoudness;
            if (!record.poster) record.poster = fixedPoster;
            writeRecord(bucket, video.prefix, record, retry, overRecordOf(current));
            result.published.metadata = record;
        } catch (const std::exception& error) {
            result.metadataFailure = error.what();
            if (target.metadata.poster) kept.insert(target.metadata.poster->name);
        }
        try {
            std::vector<std::string> old;
            for (auto& file : filesOf(bucket, video.prefix))
                if (!kept.contains(file) && !file.starts_with(mediaFolder)) old.push_back(std::move(file));
            deleteStages(bucket, video.prefix, deletionStages(old), retry);
        } catch (const std::exception& error) {
            result.oldFilesFailure = error.what();
        }
    }).value();
    return result;
}

std::vector<std::string> VideoReplacement::notes() const {
    std::vector<std::string> notes;
    if (metadataFailure)
        notes.push_back(fmt::format("The new video plays, but the library can still show the length and size of the old "
                                    "video. Replace the video again to finish. ({})",
                                    *metadataFailure));
    if (fixedPosterFailure)
        notes.push_back(fmt::format(
            "The new video plays, but Vorlen could not give it a poster. Choose a poster in the library. ({})",
            *fixedPosterFailure));
    if (oldFilesFailure)
        notes.push_back(fmt::format("The new video plays, but some files of the old video stay in the folder. Replace "
                                    "the video again to remove them. ({})",
                                    *oldFilesFailure));
    return notes;
}

std::vector<std::string> AudioReplacement::notes() const {
    std::vector<std::string> notes;
    if (metadataFailure)
        notes.push_back(fmt::format("The new audio plays, but the library can still show the old audio loudness. "
                                    "Re-import the audio again to finish. ({})",
                                    *metadataFailure));
    if (oldFilesFailure)
        notes.push_back(fmt::format("The new audio plays, but some files of the old audio stay in the folder. Re-import "
                                    "the audio again to remove them. ({})",
                                    *oldFilesFailure));
    return notes;
}

}  // namespace vorlen
