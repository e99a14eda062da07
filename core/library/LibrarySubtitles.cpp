// Changing the subtitle tracks of a published video through the manifest switch.
#include <fmt/format.h>

#include <cstdlib>
#include <sstream>

#include "core/base/Task.hpp"
#include "core/library/FolderObjects.hpp"
#include "core/library/Library.hpp"
#include "core/publish/DASHSubtitles.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/SubtitleLanguage.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen {

using namespace FolderObjects;

namespace {

// The length of a video without one in its record: the sum of the first variant's segments.
double playlistDuration(Bucket& bucket, const LibraryVideo& video, const std::string& master, const RetryPolicy& retry) {
    std::istringstream lines(master);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("#EXT-X-STREAM-INF:")) continue;
        std::string uri;
        while (std::getline(lines, uri) && (uri.empty() || uri.front() == '#')) {}
        const auto playlist = retry.run([&](std::int64_t) { return bucket.object(video.prefix + uri); });
        double seconds = 0;
        std::istringstream media(playlist.value_or(""));
        for (std::string entry; std::getline(media, entry);)
            if (entry.starts_with("#EXTINF:")) seconds += std::atof(entry.c_str() + 8);
        return seconds;
    }
    return 0;
}

SubtitleStream streamOf(const PublishedSubtitle& track) {
    return SubtitleStream{track.baseName, track.language, track.name, track.kind, 0,
                          track.folder.empty() ? std::nullopt : std::optional(track.folder)};
}

}  // namespace

SubtitleChangeResult Library::changeSubtitles(const LibraryVideo& video, const SubtitleChange& change) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    const auto current = currentManifests(
        video, fmt::format("cannot change the subtitles of \u201c{}\u201d: it is not playable", video.folder));
    const auto published = HLSMasterPlaylist::subtitles(current.master.data);

    std::set<std::string> going = change.removed;
    std::map<std::string, const SubtitleChange::Replacement*> replacements;
    for (const auto& replacement : change.replaced) {
        going.insert(replacement.baseName);
        replacements[replacement.baseName] = &replacement;
    }
    std::set<std::string> taken;
    for (const auto& track : published) taken.insert(track.baseName);
    for (const auto& base : going)
        if (!taken.contains(base))
            throw VorlenError::config(fmt::format("\u201c{}\u201d has no subtitle track {}", video.folder, base));

    // The tracks as they will stand: kept ones in place, a replaced one by its new
    // file in its place, the added ones at the end.
    std::vector<PublishedSubtitle> kept, oldTracks;
    std::vector<SubtitleTrack> newTracks;
    std::vector<std::pair<std::string, SubtitleTrack::Kind>> labels;
    std::vector<std::optional<std::size_t>> order;  // per final track: the index of its new track, or none for a kept one
    for (const auto& track : published) {
        if (!going.contains(track.baseName)) {
            kept.push_back(track);
            order.push_back(std::nullopt);
            continue;
        }
        oldTracks.push_back(track);
        if (auto found = replacements.find(track.baseName); found != replacements.end()) {
            newTracks.push_back(SubtitleTrack{found->second->file, found->second->language, track.kind});
            order.push_back(newTracks.size() - 1);
        }
    }
    for (const auto& track : change.added) {
        newTracks.push_back(track);
        order.push_back(newTracks.size() - 1);
    }
    // A file that is not a subtitle file is told before anything is written.
    std::vector<SubtitleDocument> documents;
    for (const auto& track : newTracks) documents.push_back(SubtitleDocument::read(track.file));

    for (const auto& track : kept) labels.emplace_back(track.language, track.kind);
    for (const auto& track : newTracks) labels.emplace_back(track.language, track.kind);
    const auto names = SubtitleLanguage::trackNames(labels);
    const double duration = video.metadata() && video.metadata()->duration
                                ? *video.metadata()->duration
                                : playlistDuration(bucket, video, current.master.data, retry);
    std::vector<SubtitleStream> added;
    for (std::size_t i = 0; i < newTracks.size(); ++i) {
        // Every new file gets a name never used in the folder: a cached copy of an
        // earlier file, kept for a year, can never stand in for it.
        auto base = SubtitleStream::freeBaseName(newTracks[i].language, taken, Naming::randomPart());
        taken.insert(base);
        added.push_back(SubtitleStream{base, SubtitleLanguage::code(newTracks[i].language), names[kept.size() + i],
                                       newTracks[i].kind, SubtitleStream::bandwidthOf(documents[i].webVTT.size(), duration),
                                       std::nullopt});
    }
    std::vector<SubtitleStream> streams;
    std::set<std::string> keptNames;
    std::size_t nextKept = 0;
    for (const auto& position : order) {
        if (position) {
            streams.push_back(added[*position]);
        } else {
            keptNames.insert(kept[nextKept].baseName);
            streams.push_back(streamOf(kept[nextKept++]));
        }
    }

    std::vector<std::string> newFiles;
    auto removeNewFiles = [&] {
        Task<void>::detached([&] {
            try {
                deleteStages(bucket, video.prefix, deletionStages(newFiles), retry);
            } catch (const std::exception&) {
            }
        }).value();
    };
    try {
        for (std::size_t i = 0; i < added.size(); ++i) {
            const auto& base = added[i].baseName;
            for (const auto& [file, text] : {std::pair(base + ".vtt", documents[i].webVTT),
                                             std::pair(base + ".m3u8", SubtitleStream::mediaPlaylist(base, duration))}) {
                newFiles.push_back(file);
                retry.run([&](std::int64_t) {
                    return bucket.put(video.prefix + file, RequestBody::bytes(text), videoFolderHeaders(file));
                });
            }
        }
        ReplacementManifests next{HLSMasterPlaylist::withSubtitles(current.master.data, streams), std::nullopt};
        if (current.mpd) next.mpd = DASHSubtitles::withSubtitles(current.mpd->data, keptNames, added);
        swapManifests(current, next, ManifestChange::subtitles);
        SubtitleChangeResult result{HLSMasterPlaylist::subtitles(next.master), std::nullopt};
        try {
            std::vector<std::string> oldFiles;
            for (const auto& track : oldTracks) {
                oldFiles.push_back(track.folder + track.baseName + ".m3u8");
                oldFiles.push_back(track.folder + track.baseName + ".vtt");
            }
            deleteStages(bucket, video.prefix, deletionStages(oldFiles), retry);
        } catch (const std::exception& error) {
            result.oldFilesFailure = error.what();
        }
        return result;
    } catch (const VorlenError& error) {
        if (!error.is<failure::ManifestRestore>()) removeNewFiles();
        throw;
    } catch (...) {
        removeNewFiles();
        throw;
    }
}

}  // namespace vorlen
