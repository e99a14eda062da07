// The publish half of the Publisher: a finished folder into the bucket.
#include <atomic>
#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Log.hpp"
#include "core/base/Random.hpp"
#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/Publisher.hpp"
#include "core/storage/UploadMeter.hpp"
#include "core/storage/Uploader.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen {

namespace {

constexpr auto tickInterval = std::chrono::milliseconds(250);
constexpr std::size_t deleteGroupSize = 1000;
constexpr std::chrono::milliseconds lateWritePause{1000};
// User metadata of video.json that names the upload which wrote it. Two computers
// can build byte-identical placeholders in the same second: only this tells an
// upload its own write from another's.
constexpr const char* uploadIDField = "vorlen-upload";

// How an upload stands with its folder.
enum class FolderHold {
    claiming,  // its placeholder is on the way, or failed unanswered: it may have landed
    own,       // its placeholder won, so everything in the folder is the upload's
    lost,      // another upload's video.json stands there
};

enum class Writer { nobody, thisUpload, another };

Writer writerOf(Bucket& bucket, const std::string& key, const std::string& uploadID) {
    auto info = bucket.info(key);
    if (!info) return Writer::nobody;
    auto found = info->metadata.find(uploadIDField);
    return found != info->metadata.end() && found->second == uploadID ? Writer::thisUpload : Writer::another;
}

ObjectHeaders videoJSONHeaders(const std::string& uploadID) {
    ObjectHeaders headers = videoFolderHeaders("video.json");
    headers.metadata[uploadIDField] = uploadID;
    return headers;
}

// video.json with only what is known before the media: no poster, duration, size or audio.
std::string placeholderBytes(VideoMetadata metadata) {
    metadata.poster.reset();
    metadata.duration.reset();
    metadata.size.reset();
    metadata.audio.reset();
    metadata.unknownAudioLoudness.reset();
    return metadata.encoded();
}

// Writes the placeholder under the upload's retry rule; returns whether it stands.
// A conflict may meet the upload's own write, whose answer was lost: it counts as
// the upload's when the object carries the upload's ID.
bool writePlaceholder(Bucket& bucket, const std::string& key, const std::string& bytes, const std::string& uploadID,
                      const WriteCondition& condition, const UploadOptions& options) {
    RetryPolicy retry{options.maxRetries, options.retryDelay};
    return retry.run([&](std::int64_t) {
        try {
            bucket.put(key, RequestBody::bytes(bytes), videoJSONHeaders(uploadID), condition);
            return true;
        } catch (const VorlenError& error) {
            if (!error.is<failure::Conflict>()) throw;
            return writerOf(bucket, key, uploadID) == Writer::thisUpload;
        }
    });
}

// Deletes every key, in the order given, in groups of at most 1000. A key that
// the server refuses alone (a write of it may still be settling) is tried again
// as often as a request would be. Returns whether all are gone; each failure
// goes to the journal.
bool deleteAll(Bucket& bucket, const std::vector<std::string>& keys, const UploadOptions& options, UploadJournal& journal) {
    RetryPolicy retry{options.maxRetries, options.retryDelay};
    bool allGone = true;
    for (std::size_t start = 0; start < keys.size(); start += deleteGroupSize) {
        std::vector<std::string> group(keys.begin() + static_cast<std::ptrdiff_t>(start),
                                       keys.begin() + static_cast<std::ptrdiff_t>(std::min(keys.size(), start + deleteGroupSize)));
        try {
            for (std::int64_t attempt = 0; !group.empty(); ++attempt) {
                if (attempt > 0) sleepFor(std::chrono::duration_cast<std::chrono::nanoseconds>(options.retryDelay));
                auto failures = retry.run([&](std::int64_t) { return bucket.deleteObjects(group); });
                group.clear();
                for (const auto& failure : failures) {
                    journal.log(fmt::format("cleanup delete of {} failed: {} {}", failure.key, failure.code, failure.message));
                    group.push_back(failure.key);
                }
                if (!group.empty() && attempt == options.maxRetries) {
                    allGone = false;
                    break;
                }
            }
        } catch (const std::exception& error) {
            journal.log(fmt::format("cleanup delete failed: {}", error.what()));
            allGone = false;
        }
    }
    return allGone;
}

// A write that a stop cut off on this side may still be committed by the server
// after its delete went through. So the clean-up looks again, at once and after
// a pause, and deletes what came back, in the same order. The placeholder stays
// meanwhile: while it stands, no other upload takes the folder.
bool deleteLateWrites(Bucket& bucket, const std::string& folderPrefix, const std::vector<std::string>& keys,
                      const std::string& placeholderKey, const UploadOptions& options, UploadJournal& journal) {
    for (auto pause : {std::chrono::milliseconds(0), lateWritePause}) {
        sleepFor(pause);
        std::vector<std::string> found;
        try {
            found = bucket.listKeys(folderPrefix);
        } catch (const std::exception& error) {
            journal.log(fmt::format("cleanup listing failed: {}", error.what()));
            return false;
        }
        std::erase(found, placeholderKey);
        if (found.empty()) continue;
        std::vector<std::string> again;
        for (const auto& key : keys)
            if (std::find(found.begin(), found.end(), key) != found.end()) again.push_back(key);
        for (const auto& key : found)
            if (std::find(keys.begin(), keys.end(), key) == keys.end()) again.insert(again.begin(), key);
        journal.log(fmt::format("{} files came back after their delete", again.size()));
        if (!deleteAll(bucket, again, options, journal)) return false;
    }
    return true;
}

// Whether a placeholder whose write went unanswered landed, at once or a moment
// later: a write that a stop cut off may still be committed.
bool placeholderLanded(Bucket& bucket, const std::string& key, const std::string& uploadID) {
    for (auto pause : {std::chrono::milliseconds(0), lateWritePause}) {
        sleepFor(pause);
        Writer writer = writerOf(bucket, key, uploadID);
        if (writer != Writer::nobody) return writer == Writer::thisUpload;
    }
    return false;
}

// Removes what the upload wrote. Only a folder that its placeholder claimed is
// its own to empty: `keys` (all but video.json, in reverse order of upload, so
// master.m3u8 goes first), then the second look, then video.json, which holds
// the folder until nothing else is left. Settles a hold that was still claiming;
// returns whether all is gone.
bool removeUpload(Bucket& bucket, const std::string& folderPrefix, const std::vector<std::string>& keys,
                  FolderHold& hold, const std::string& uploadID, const UploadOptions& options, UploadJournal& journal) {
    const std::string placeholderKey = folderPrefix + "video.json";
    if (hold == FolderHold::claiming) {
        try {
            hold = placeholderLanded(bucket, placeholderKey, uploadID) ? FolderHold::own : FolderHold::lost;
        } catch (const std::exception& error) {
            journal.log(fmt::format("cleanup check of {} failed: {}", placeholderKey, error.what()));
            return false;
        }
    }
    if (hold != FolderHold::own) return true;
    return deleteAll(bucket, keys, options, journal) &&
           deleteLateWrites(bucket, folderPrefix, keys, placeholderKey, options, journal) &&
           deleteAll(bucket, {placeholderKey}, options, journal);
}

// The ETag of video.json while it is the upload's own, with which a retry takes the folder back.
std::optional<std::string> ownETag(Bucket& bucket, const std::string& key, const std::string& uploadID, UploadJournal& journal) {
    try {
        if (writerOf(bucket, key, uploadID) != Writer::thisUpload) return std::nullopt;
        if (auto tagged = bucket.taggedObject(key)) return tagged->etag;
    } catch (const std::exception& error) {
        journal.log(fmt::format("cleanup check of {} failed: {}", key, error.what()));
    }
    return std::nullopt;
}

// Claims a folder with the placeholder, which makes the name count as taken for
// every other computer: the folder resolved before the build or, when another
// upload took it meanwhile, the next free one (never for a typed name). `folder`
// and `hold` tell at every moment where the claim stands, so that a failure
// knows what is the upload's to clean up.
void claimFolder(const Publisher& publisher, BuiltFolder& built, const UploadFolder& target, const std::string& uploadID,
                 std::string& folder, FolderHold& hold, UploadJournal& journal, const FolderHandler& onFolderChange) {
    const Destination& destination = publisher.destination;
    const std::string placeholder = placeholderBytes(built.built().metadata);
    std::vector<std::string> lost;
    for (;;) {
        hold = FolderHold::claiming;
        const std::string key = destination.prefix + folder + "/video.json";
        auto leftovers = publisher.leftoversHere(built);
        bool intoLeftovers = leftovers && leftovers->folder == folder;
        auto condition = intoLeftovers && leftovers->placeholderETag ? WriteCondition::unchanged(*leftovers->placeholderETag)
                                                                     : WriteCondition::absent();
        if (writePlaceholder(*destination.bucket, key, placeholder, uploadID, condition, publisher.upload)) {
            hold = FolderHold::own;
            return;
        }
        hold = FolderHold::lost;
        // Another upload has the folder now, with whatever this build left there.
        if (intoLeftovers) built.setLeftovers(std::nullopt);
        if (target.isTyped) throw VorlenError::conflict(key);
        lost.push_back(folder);
        std::string next = publisher.resolveFolder(target.requestedName, lost);
        journal.log(fmt::format("{} belongs to another upload: the video goes to {}{}/", key, destination.prefix, next));
        folder = next;
        if (onFolderChange) onFolderChange(folder);
    }
}

}  // namespace

std::string Publisher::resolveFolder(const std::string& name, const std::vector<std::string>& taken) const {
    if (!Naming::isValidName(name)) throw VorlenError::config(Naming::invalidNameMessage(name));
    const RetryPolicy retry{upload.maxRetries, upload.retryDelay};
    for (int n = 0; n <= 999; ++n) {
        checkCancellation();
        std::string candidate = Naming::numbered(name, n);
        if (std::find(taken.begin(), taken.end(), candidate) != taken.end()) continue;
        const auto prefix = destination.prefix + candidate + "/";
        if (!retry.run([&](std::int64_t) { return destination.bucket->hasObjects(prefix); })) return candidate;
    }
    throw VorlenError::config(fmt::format("no free folder name for \u201c{}\u201d", name));
}

std::optional<UploadLeftovers> Publisher::leftoversHere(const BuiltFolder& built) const {
    auto leftovers = built.leftovers();
    if (leftovers && leftovers->bucketIdentity == destination.bucketIdentity && leftovers->folderPrefix == destination.prefix)
        return leftovers;
    return std::nullopt;
}

std::optional<double> Publisher::uploadFiles(const std::filesystem::path& directory, const std::vector<std::string>& files,
                                             const std::string& keyPrefix,
                                             const std::function<ObjectHeaders(const std::string&)>& headersFor,
                                             std::uint64_t totalBytes, UploadJournal& journal,
                                             const ProgressHandler& onProgress) const {
    Uploader uploader{destination.bucket, limiter, upload, std::shared_ptr<UploadJournal>(&journal, [](UploadJournal*) {})};
    std::atomic<std::uint64_t> givenBytes{0};
    auto started = BootClock::now();
    UploadTicks ticks(totalBytes, journal);
    std::mutex ticksMutex;
    std::optional<double> lastRate;

    auto report = [&] {
        std::lock_guard lock(ticksMutex);
        UploadProgress progress = ticks.tick(givenBytes, secondsBetween(started, BootClock::now()));
        lastRate = progress.rate;
        if (!onProgress) return;
        PublishProgress out;
        out.stage = PublishProgress::Stage::uploading;
        out.stageFraction = progress.fraction;
        out.stageETA = progress.secondsLeft;
        out.totalETA = progress.secondsLeft;
        out.uploadedBytes = progress.reportedBytes;
        out.uploadTotalBytes = totalBytes;
        out.uploadRate = progress.rate;
        onProgress(out);
    };
    {
        auto ticker = Task<void>::spawn([&] {
            for (;;) {
                sleepFor(tickInterval);
                report();
            }
        });
        uploader.uploadFolder(directory, files, keyPrefix, headersFor, [&](std::uint64_t given) { givenBytes = given; });
        ticker.cancel();
    }
    double seconds = secondsBetween(started, BootClock::now());
    journal.log(fmt::format("upload ended: {} bytes in {:.1f} s", totalBytes, seconds));
    if (onProgress) {
        PublishProgress done;
        done.stage = PublishProgress::Stage::uploading;
        done.stageFraction = 1.0;
        done.uploadedBytes = totalBytes;
        done.uploadTotalBytes = totalBytes;
        std::lock_guard lock(ticksMutex);
        done.uploadRate = lastRate;
        onProgress(done);
    }
    std::lock_guard lock(ticksMutex);
    return lastRate;
}

Published Publisher::publish(BuiltFolder& built, const UploadFolder& target, UploadJournal& journal,
                             const ProgressHandler& onProgress, const FolderHandler& onFolderChange) const {
    checkCancellation();
    const std::vector<std::string> files = built.allFiles();
    const auto batches = videoFolderBatches(files);
    std::uint64_t totalBytes = built.byteCount();
    journal.logStart(files.size(), totalBytes, upload, limiter->bytesPerSecond());

    const std::string uploadID = randomString(16, "0123456789abcdef");
    std::string folder = target.name;
    FolderHold hold = FolderHold::claiming;
    std::optional<double> rate;
    try {
        claimFolder(*this, built, target, uploadID, folder, hold, journal, onFolderChange);
        rate = uploadFiles(
            built.directory(), files, destination.prefix + folder + "/",
            [&](const std::string& path) { return path == "video.json" ? videoJSONHeaders(uploadID) : videoFolderHeaders(path); },
            totalBytes, journal, onProgress);
    } catch (...) {
        auto failure = std::current_exception();
        journal.logStop(failure);
        const std::string folderPrefix = destination.prefix + folder + "/";
        // Reverse order of upload: master.m3u8 goes first, so no player starts a half-deleted video.
        std::vector<std::string> keys;
        for (auto batch = batches.rbegin(); batch != batches.rend(); ++batch)
            for (auto path = batch->rbegin(); path != batch->rend(); ++path)
                if (*path != "video.json") keys.push_back(folderPrefix + *path);
        auto bucket = destination.bucket;
        auto options = upload;
        std::optional<std::string> placeholderETag;
        bool allGone = Task<bool>::detached([&, bucket, options] {
                           if (removeUpload(*bucket, folderPrefix, keys, hold, uploadID, options, journal)) return true;
                           placeholderETag = ownETag(*bucket, folderPrefix + "video.json", uploadID, journal);
                           return false;
                       }).value();
        auto leftovers = leftoversHere(built);
        if (!allGone) {
            journal.log("the cleanup did not delete every file");
            built.setLeftovers(UploadLeftovers{destination.bucketIdentity, destination.prefix, folder, placeholderETag});
        } else if (hold == FolderHold::own && leftovers && leftovers->folder == folder) {
            built.setLeftovers(std::nullopt);  // they went with the rest of the folder
        }
        std::rethrow_exception(failure);
    }

    const std::string folderPrefix = destination.prefix + folder + "/";
    built.setLeftovers(std::nullopt);
    return Published{folderPrefix,  folderPrefix + "master.m3u8", folderPrefix + "manifest.mpd",
                     static_cast<std::int64_t>(files.size()), totalBytes, rate, built.built().metadata};
}

}  // namespace vorlen
