#include "core/library/Library.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "core/base/Clock.hpp"
#include "core/base/Task.hpp"
#include "core/library/FolderObjects.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/publish/Naming.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

// The changes of a published video, beside the reading in Library.cpp.
namespace vorlen {

using namespace FolderObjects;

VideoMetadata Library::newRecord(const LibraryVideo& video, const VideoDetails& details) {
    if (const auto* unreadable = std::get_if<LibraryVideo::Unreadable>(&video.metadataFile))
        throw VorlenError::metadata(fmt::format("cannot change \u201c{}\u201d: {}", video.folder, unreadable->reason));
    if (const auto* metadata = video.metadata()) {
        auto record = *metadata;
        record.details = details;
        record.updated = wallNow();
        return record;
    }
    if (!video.isComplete)
        throw VorlenError::metadata(
            fmt::format("\u201c{}\u201d has no video: it has no video.json and no playlist", video.folder));
    const auto now = wallNow();
    return VideoMetadata{details, std::nullopt, std::nullopt, std::nullopt, now, now, std::nullopt, std::nullopt};
}

LibraryVideo Library::saveDetails(const LibraryVideo& video, const VideoDetails& details) const {
    const auto record = newRecord(video, details);
    const auto tag = writeRecord(*destination.bucket, video.prefix, record, RetryPolicy{options.maxRetries, options.retryDelay},
                                 overRecordOf(video));
    return LibraryVideo{video.folder, video.prefix, LibraryVideo::Valid{record}, video.isComplete, tag};
}

PosterChange Library::changePoster(const LibraryVideo& video, const Poster& poster) const {
    auto record = newRecord(video, detailsOf(video));
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    auto& bucket = *destination.bucket;
    for (const auto& name : {poster.name, std::string("poster.jpg")})
        retry.run([&](std::int64_t) {
            return bucket.put(video.prefix + name, RequestBody::bytes(poster.jpeg), videoFolderHeaders(name));
        });
    const auto oldPoster = record.poster;
    record.poster = PosterFile{poster.name, poster.size()};
    const auto tag = writeRecord(bucket, video.prefix, record, retry, overRecordOf(video));
    PosterChange change{LibraryVideo{video.folder, video.prefix, LibraryVideo::Valid{record}, video.isComplete, tag}, std::nullopt};
    if (oldPoster && oldPoster->name != poster.name) {
        try {
            retry.run([&](std::int64_t) { bucket.remove(video.prefix + oldPoster->name); });
        } catch (const std::exception& error) {
            change.oldPosterFailure = error.what();
        }
    }
    return change;
}

VideoMove Library::move(const LibraryVideo& video, const std::string& toFolder, const VideoDetails& details) const {
    if (!Naming::isValidName(toFolder))
        throw VorlenError::config(fmt::format("\u201c{}\u201d is not a canonical folder name", toFolder));
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    const auto source = this->video(video.folder);
    if (!source.isComplete)
        throw VorlenError::config(fmt::format("cannot change \u201c{}\u201d: it is not playable", video.folder));
    const auto record = newRecord(source, details);
    const auto target = destination.prefix + toFolder + "/";
    if (retry.run([&](std::int64_t) { return bucket.hasObjects(target); }))
        throw VorlenError::config(fmt::format("\u201c{}\u201d exists already", toFolder));

    std::vector<std::vector<std::string>> copyStages(3);
    for (auto& file : filesOf(bucket, source.prefix)) {
        if (file == recordFile) continue;
        copyStages[file == switchFile ? 2 : isPlaylist(file) ? 1 : 0].push_back(std::move(file));
    }
    // The record takes the name first, so that another computer's move to it fails.
    const auto tag = writeRecord(bucket, target, record, retry, WriteCondition::absent());
    try {
        const auto width = static_cast<std::size_t>(std::max<std::int64_t>(1, options.concurrency));
        for (const auto& stage : copyStages)
            forEachInWindow(stage.size(), width, [&](std::size_t index) {
                retry.run([&](std::int64_t) { bucket.copy(source.prefix + stage[index], target + stage[index]); });
            });
    } catch (...) {
        // The source stays as it was; the target goes again, its record last.
        try {
            deleteStages(bucket, target, deletionStages(filesOf(bucket, target)), retry);
        } catch (const std::exception&) {
        }
        throw;
    }
    VideoMove moved{LibraryVideo{toFolder, target, LibraryVideo::Valid{record}, true, tag}, std::nullopt};
    try {
        remove(source);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        moved.oldFolderFailure = error.what();
    }
    return moved;
}

SegmentPlaylist Library::segmentPlaylist(const LibraryVideo& video, double seconds, const std::string& mediaBase) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    auto text = [&](const std::string& file) {
        auto found = retry.run([&](std::int64_t) { return bucket.object(video.prefix + file); });
        if (!found) throw VorlenError::config(fmt::format("cannot change \u201c{}\u201d: it is not playable", video.folder));
        return *found;
    };
    // The tallest video rendition of the master playlist.
    std::string rendition;
    std::int64_t tallest = -1;
    std::istringstream master(text(switchFile));
    for (std::string line; std::getline(master, line);) {
        if (!line.starts_with("#EXT-X-STREAM-INF:")) continue;
        std::int64_t height = 0;
        if (const auto at = line.find("RESOLUTION="); at != std::string::npos)
            height = std::atoll(line.c_str() + line.find('x', at) + 1);
        std::string uri;
        while (std::getline(master, uri) && (uri.empty() || uri.front() == '#')) {}
        if (height > tallest && isPlainFileName(uri)) {
            tallest = height;
            rendition = uri;
        }
    }
    if (rendition.empty()) throw VorlenError::config(fmt::format("cannot change \u201c{}\u201d: it is not playable", video.folder));

    std::istringstream media(text(rendition));
    std::string map, range;
    double start = 0, duration = 0;
    for (std::string line; std::getline(media, line);) {
        if (line.starts_with("#EXT-X-MAP:")) map = line;
        else if (line.starts_with("#EXTINF:")) duration = std::atof(line.c_str() + 8);
        else if (line.starts_with("#EXT-X-BYTERANGE:")) range = line;
        else if (!line.empty() && line.front() != '#') {
            if (seconds < start + duration && !map.empty()) {
                // The map's and the segment's file names are relative to the folder.
                const auto uriAt = map.find("URI=\"") + 5;
                map.insert(uriAt, mediaBase);
                return SegmentPlaylist{fmt::format("#EXTM3U\n#EXT-X-VERSION:6\n#EXT-X-TARGETDURATION:{}\n{}\n#EXTINF:{},\n{}\n{}{}\n"
                                                   "#EXT-X-ENDLIST\n",
                                                   static_cast<std::int64_t>(std::ceil(duration)), map, duration, range,
                                                   mediaBase, line),
                                       seconds - start};
            }
            start += duration;
            range.clear();
        }
    }
    throw VorlenError::source(fmt::format("The video has no frame at {} s.", seconds));
}

void Library::remove(const LibraryVideo& video) const {
    auto& bucket = *destination.bucket;
    deleteStages(bucket, video.prefix, deletionStages(filesOf(bucket, video.prefix)),
                 RetryPolicy{options.maxRetries, options.retryDelay});
}

}  // namespace vorlen
