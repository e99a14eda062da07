#include "core/library/Library.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>

#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/Poster.hpp"

namespace vorlen {
namespace {

constexpr std::size_t foldersPerRange = 50;
constexpr std::size_t maximumRanges = 8;

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// What a listing found of one folder.
struct FoundFolder {
    bool isComplete = false;
    std::optional<ListedObject> metadataFile;
};

}  // namespace

std::vector<std::string> Library::rangeBoundaries(const std::vector<std::string>& sortedFolders, const std::string& prefix,
                                                  std::size_t readConcurrency) {
    const auto count = sortedFolders.size();
    const auto ranges = std::min(readConcurrency, count < foldersPerRange * 9 ? count / foldersPerRange : maximumRanges);
    std::vector<std::string> boundaries;
    if (ranges < 2) return boundaries;
    for (std::size_t i = 1; i < ranges; ++i) boundaries.push_back(prefix + sortedFolders[i * count / ranges] + "/");
    return boundaries;
}

std::vector<LibraryVideo> Library::read(const std::function<void(const LibraryReadProgress&)>& onProgress) const {
    auto& bucket = *destination.bucket;
    const auto& prefix = destination.prefix;
    const auto width = static_cast<std::size_t>(std::max<std::int64_t>(1, options.readConcurrency));
    std::mutex progressMutex;
    auto report = [&](LibraryReadProgress progress) {
        if (!onProgress) return;
        std::lock_guard lock(progressMutex);
        onProgress(progress);
    };

    const auto cacheGeneration = cache ? cache->generation() : 0;
    const auto cached = cache ? cache->list(location, prefix) : std::nullopt;
    std::map<std::string, const LibraryFolderRecord*> cachedByName;
    std::vector<std::string> cachedNames;
    if (cached) {
        for (const auto& record : cached->folders) {
            cachedByName.emplace(record.folder, &record);
            cachedNames.push_back(record.folder);
        }
        std::sort(cachedNames.begin(), cachedNames.end());
    }
    const auto ranges = Bucket::ranges(rangeBoundaries(cachedNames, prefix, width));

    const auto listStart = std::chrono::steady_clock::now();
    std::mutex foldersMutex;
    std::map<std::string, FoundFolder> folders;
    std::int64_t pages = 0;
    bucket.listRanges(prefix, ranges, static_cast<int>(options.maxRetries), options.retryDelay,
                      [&](const Bucket::ListPage& page) {
                          std::size_t found = 0;
                          {
                              std::lock_guard lock(foldersMutex);
                              ++pages;
                              for (const auto& object : page.objects) {
                                  if (object.key.compare(0, prefix.size(), prefix) != 0) continue;
                                  const std::string_view rest = std::string_view(object.key).substr(prefix.size());
                                  const auto slash = rest.find('/');
                                  if (slash == std::string_view::npos || slash == 0) continue;
                                  // Only valid names are video folders: this keeps _vorlen/ and its kind out.
                                  const auto name = rest.substr(0, slash);
                                  if (!Naming::isValidName(name)) continue;
                                  auto& folder = folders[std::string(name)];
                                  const auto file = rest.substr(slash + 1);
                                  if (file == "video.json") folder.metadataFile = object;
                                  else if (file == "master.m3u8") folder.isComplete = true;
                              }
                              found = folders.size();
                          }
                          report({LibraryReadProgress::Listing{static_cast<std::int64_t>(found)}});
                      });
    const auto listSeconds = secondsSince(listStart);

    std::vector<LibraryVideo> videos;
    std::vector<LibraryFolderRecord> records;
    std::vector<std::size_t> toFetch;
    for (auto& [name, found] : folders) {
        // A folder of media alone is what an upload that did not end leaves behind.
        if (!found.isComplete && !found.metadataFile) continue;
        LibraryVideo video{name, prefix + name + "/", LibraryVideo::Missing{}, found.isComplete, std::nullopt};
        LibraryFolderRecord record{name, found.isComplete, std::nullopt};
        if (found.metadataFile) {
            const auto tag = found.metadataFile->etag ? unquotedETag(*found.metadataFile->etag) : std::string();
            const auto cachedRecord = cachedByName.find(name);
            if (!tag.empty() && cachedRecord != cachedByName.end() && cachedRecord->second->metadata &&
                cachedRecord->second->metadata->tag == tag) {
                record.metadata = cachedRecord->second->metadata;
                video.metadataFile = metadataFileFrom(record.metadata->data);
                video.metadataTag = tag;
            } else {
                toFetch.push_back(videos.size());
            }
        }
        videos.push_back(std::move(video));
        records.push_back(std::move(record));
    }

    const auto fetchStart = std::chrono::steady_clock::now();
    const RetryPolicy retry{options.maxRetries, options.retryDelay, {}};
    std::atomic<std::int64_t> fetched = 0;
    const auto total = static_cast<std::int64_t>(toFetch.size());
    // A few workers take the records in turn: a task per record would keep each ended
    // thread's stack until the whole reading ends, some 24 KB a record.
    std::atomic<std::size_t> nextFetch = 0;
    forEachInWindow(std::min(width, toFetch.size()), width, [&](std::size_t) {
        for (auto index = nextFetch++; index < toFetch.size(); index = nextFetch++) {
            checkCancellation();
            auto& video = videos[toFetch[index]];
            const auto object = retry.run([&](std::int64_t) { return bucket.taggedObject(video.prefix + "video.json"); });
            if (object) {
                video.metadataFile = metadataFileFrom(object->data);
                video.metadataTag = unquotedETag(object->etag);
                records[toFetch[index]].metadata = LibraryFolderRecord::MetadataCopy{*video.metadataTag, object->data};
            }
            // A video.json that vanished since the listing leaves the video with a missing record.
            report({LibraryReadProgress::Reading{++fetched, total}});
        }
    });
    const auto fetchSeconds = secondsSince(fetchStart);

    if (cache) cache->store({location.accountID, location.bucket, prefix, std::move(records)}, cacheGeneration);
    log().info("Read {} folders: {} list pages in {} ranges in {:.2f} s, {} video.json files in {:.2f} s", videos.size(),
               pages, ranges.size(), listSeconds, toFetch.size(), fetchSeconds);
    return videos;
}

LibraryVideo Library::video(const std::string& folder) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay, {}};
    LibraryVideo video{folder, destination.prefix + folder + "/", LibraryVideo::Missing{}, false, std::nullopt};
    if (const auto object = retry.run([&](std::int64_t) { return bucket.taggedObject(video.prefix + "video.json"); })) {
        video.metadataFile = metadataFileFrom(object->data);
        video.metadataTag = unquotedETag(object->etag);
    }
    video.isComplete = retry.run([&](std::int64_t) { return bucket.info(video.prefix + "master.m3u8").has_value(); });
    return video;
}

std::optional<std::filesystem::path> Library::thumbnail(const LibraryVideo& video, int maxPixelSize) const {
    const auto* metadata = video.metadata();
    if (!cache || !metadata || !metadata->poster) return std::nullopt;
    const auto posterKey = video.prefix + metadata->poster->name;
    if (auto existing = cache->thumbnail(location, posterKey)) return existing;
    const auto slot = cache->thumbnailSlot(location, posterKey);
    if (!slot) return std::nullopt;
    const RetryPolicy retry{options.maxRetries, options.retryDelay, {}};
    const auto poster = retry.run([&](std::int64_t) { return destination.bucket->object(posterKey); });
    if (!poster) return std::nullopt;
    if (!slot->store(vorlen::thumbnail(*poster, maxPixelSize).jpeg)) return std::nullopt;
    return slot->file();
}

}  // namespace vorlen
