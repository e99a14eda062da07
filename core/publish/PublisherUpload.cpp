// The publish half of the Publisher: a finished folder into the bucket.
#include <atomic>
#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Log.hpp"
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
// a pause, and deletes what came back, in the same order.
bool deleteLateWrites(Bucket& bucket, const std::string& folderPrefix, const std::vector<std::string>& keys,
                      const UploadOptions& options, UploadJournal& journal) {
    for (auto pause : {std::chrono::milliseconds(0), lateWritePause}) {
        sleepFor(pause);
        std::vector<std::string> found;
        try {
            found = bucket.listKeys(folderPrefix);
        } catch (const std::exception& error) {
            journal.log(fmt::format("cleanup listing failed: {}", error.what()));
            return false;
        }
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

}  // namespace

std::string Publisher::resolveFolder(const std::string& name, const std::vector<std::string>& taken) const {
    if (!Naming::isValidName(name)) throw VorlenError::config(Naming::invalidNameMessage(name));
    for (int n = 0; n <= 999; ++n) {
        checkCancellation();
        std::string candidate = Naming::numbered(name, n);
        if (std::find(taken.begin(), taken.end(), candidate) != taken.end()) continue;
        if (!destination.bucket->hasObjects(destination.prefix + candidate + "/")) return candidate;
    }
    throw VorlenError::config(fmt::format("no free folder name for \u201c{}\u201d", name));
}

Published Publisher::publish(BuiltFolder& built, const std::string& folder, UploadJournal& journal,
                             const ProgressHandler& onProgress) const {
    checkCancellation();
    const std::string folderPrefix = destination.prefix + folder + "/";
    const std::vector<std::string> files = built.allFiles();
    const auto batches = videoFolderBatches(files);
    std::uint64_t totalBytes = built.byteCount();
    journal.logStart(files.size(), totalBytes, upload, limiter->bytesPerSecond());

    Uploader uploader{destination.bucket, limiter, upload, std::shared_ptr<UploadJournal>(&journal, [](UploadJournal*) {})};
    RetryPolicy retry{upload.maxRetries, upload.retryDelay};
    std::atomic<std::uint64_t> storedBytes{0};  // bytes of the batches that are done
    std::atomic<std::uint64_t> batchBytes{0};   // bytes given so far in the running batch
    auto started = BootClock::now();
    UploadTicks ticks(totalBytes, journal);
    std::mutex ticksMutex;
    std::optional<double> lastRate;

    auto report = [&] {
        std::lock_guard lock(ticksMutex);
        UploadProgress progress = ticks.tick(storedBytes + batchBytes, secondsBetween(started, BootClock::now()));
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

    try {
        // The placeholder makes the name count as taken for every other computer from now on.
        VideoMetadata placeholder = built.built().metadata;
        placeholder.poster.reset();
        placeholder.duration.reset();
        placeholder.size.reset();
        placeholder.audio.reset();
        placeholder.unknownAudioLoudness.reset();
        std::string placeholderBytes = placeholder.encoded();
        retry.run([&](std::int64_t) {
            return destination.bucket->put(folderPrefix + "video.json", RequestBody::bytes(placeholderBytes),
                                           videoFolderHeaders("video.json"));
        });

        auto ticker = Task<void>::spawn([&] {
            for (;;) {
                sleepFor(tickInterval);
                report();
            }
        });
        for (const auto& batch : batches) {
            std::vector<UploadFile> uploads;
            std::uint64_t bytes = 0;
            for (const auto& path : batch) {
                auto file = built.directory() / path;
                bytes += std::filesystem::file_size(file);
                uploads.push_back(UploadFile{file, folderPrefix + path, videoFolderHeaders(path)});
            }
            uploader.upload(uploads, [&](std::uint64_t given) { batchBytes = given; });
            storedBytes += bytes;
            batchBytes = 0;
        }
        ticker.cancel();
    } catch (...) {
        auto failure = std::current_exception();
        journal.logStop(failure);
        // Reverse order of upload: master.m3u8 goes first, so no player starts a half-deleted video.
        std::vector<std::string> keys;
        for (auto batch = batches.rbegin(); batch != batches.rend(); ++batch)
            for (auto path = batch->rbegin(); path != batch->rend(); ++path) keys.push_back(folderPrefix + *path);
        if (std::find(keys.begin(), keys.end(), folderPrefix + "video.json") == keys.end())
            keys.push_back(folderPrefix + "video.json");
        auto bucket = destination.bucket;
        auto options = upload;
        bool allGone = Task<bool>::detached([&, bucket, options] {
                           return deleteAll(*bucket, keys, options, journal) &&
                                  deleteLateWrites(*bucket, folderPrefix, keys, options, journal);
                       }).value();
        if (!allGone) {
            journal.log("the cleanup did not delete every file");
            built.setLeftovers(UploadLeftovers{destination.bucketIdentity, destination.prefix, folder});
        }
        std::rethrow_exception(failure);
    }

    double seconds = secondsBetween(started, BootClock::now());
    journal.log(fmt::format("upload ended: {} bytes in {:.1f} s", totalBytes, seconds));
    if (onProgress) {
        PublishProgress done;
        done.stage = PublishProgress::Stage::uploading;
        done.stageFraction = 1.0;
        done.uploadedBytes = totalBytes;
        done.uploadTotalBytes = totalBytes;
        done.uploadRate = lastRate;
        onProgress(done);
    }
    built.setLeftovers(std::nullopt);
    return Published{folderPrefix,  folderPrefix + "master.m3u8", folderPrefix + "manifest.mpd",
                     static_cast<std::int64_t>(files.size()), totalBytes, lastRate, built.built().metadata};
}

}  // namespace vorlen
