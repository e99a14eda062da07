#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/library/AudioReplacement.hpp"
#include "core/library/LibraryCache.hpp"
#include "core/library/LibraryVideo.hpp"
#include "core/library/VideoReplacement.hpp"
#include "core/publish/Poster.hpp"
#include "core/publish/Publisher.hpp"
#include "core/storage/UploadJournal.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen {

// A video given a new folder. The move stands even when the old folder could not
// be deleted all: the person is told to delete it.
struct VideoMove {
    LibraryVideo video;
    std::optional<std::string> oldFolderFailure;
};

// A video with a new poster; the old named poster may stay when its deletion failed.
struct PosterChange {
    LibraryVideo video;
    std::optional<std::string> oldPosterFailure;
};

// A playlist of one segment of a published video, to read a frame from.
struct SegmentPlaylist {
    std::string text;
    double offset = 0;  // the wanted time inside the segment
};

// The published videos of a site, read from its bucket: the bucket is the only
// record of what was published.
struct Library {
    Destination destination;
    // Which bucket this is, for the cache: a cached list counts only for the same one.
    BucketLocation location;
    UploadOptions options;
    std::shared_ptr<LibraryCache> cache;

    // Every video folder, sorted by folder name. The listing runs in ranges cut
    // where the cached folders say, and a video.json is fetched only when its
    // ETag differs from the cached copy.
    std::vector<LibraryVideo> read(const std::function<void(const LibraryReadProgress&)>& onProgress = {}) const;
    // One folder, read afresh: before a change.
    LibraryVideo video(const std::string& folder) const;
    // The poster thumbnail of a video, built and kept in the cache when missing;
    // absent for a video without a poster or a cache without a thumbnail folder.
    std::optional<std::filesystem::path> thumbnail(const LibraryVideo& video, int maxPixelSize) const;

    // Changes of a published video. What makes a video playable appears last and
    // disappears first: master.m3u8 is the switch.
    //
    // The record of a video with new details: a valid record keeps its facts, a
    // folder without video.json but with a playlist gets a first one, and an
    // unreadable record is never overwritten.
    static VideoMetadata newRecord(const LibraryVideo& video, const VideoDetails& details);
    // Writes the record in place: the link stays.
    LibraryVideo saveDetails(const LibraryVideo& video, const VideoDetails& details) const;
    // The poster under its content name, then poster.jpg, then the record; the old named poster goes last.
    PosterChange changePoster(const LibraryVideo& video, const Poster& poster) const;
    // A new folder (a new visibility means a new link): the record takes the name
    // first, the copies follow with master.m3u8 last, then the old folder goes.
    VideoMove move(const LibraryVideo& video, const std::string& toFolder, const VideoDetails& details) const;
    // The segment of the top video rendition that holds `seconds`, as a playlist
    // whose media lie under mediaBase (the folder's own files, or its media address).
    SegmentPlaylist segmentPlaylist(const LibraryVideo& video, double seconds, const std::string& mediaBase) const;
    // Deletes the folder in stages: master.m3u8, the other playlists, the rest, video.json.
    void remove(const LibraryVideo& video) const;

    // Replacing the media behind a published video, keeping its link, details and
    // poster. The new media goes in beside the old under a fresh "r-" prefix, the
    // two manifests switch in place, and only then do the old files go.
    //
    // The folder's record and manifests as they are now; refused for a record
    // that cannot be rewritten or a folder that does not play.
    ReplacementTarget replacementTarget(const std::string& folder) const;
    // Uploads a new build of the video (built without subtitles: the target's
    // tracks come along) and switches to it. Until the switch a failure or a stop
    // removes the new prefix and the old video plays on; from the switch on,
    // nothing stops it.
    VideoReplacement replace(const ReplacementTarget& target, BuiltFolder& built, const Publisher& publisher,
                             UploadJournal& journal, const ProgressHandler& onProgress) const;
    // New audio for a published video, the picture untouched. The build refuses a
    // source that does not fit the video (no audio on either side, other channel
    // layouts, another length) before any work, and encodes and packages the audio
    // in the segment layout of the published audio. The replacement uploads it
    // under a fresh "r-" prefix and switches the manifests as replace() does.
    std::shared_ptr<BuiltAudio> buildAudio(const ReplacementTarget& target, const Inspection& source,
                                           AudioLoudness loudness, const Publisher& publisher,
                                           const ProgressHandler& onProgress) const;
    AudioReplacement replaceAudio(const ReplacementTarget& target, BuiltAudio& built, const Publisher& publisher,
                                  UploadJournal& journal, const ProgressHandler& onProgress) const;
    // The audio rendition of the most channels that the video's master playlist
    // names; absent for a video without audio.
    static std::optional<PublishedAudio> publishedAudio(const ReplacementTarget& target);
    // Writes the published audio's init segment and media segments, read by range
    // from its chunk files, into the directory as one fragmented MP4 file: the
    // source of a re-import when the original file is not at hand.
    std::filesystem::path savePublishedAudio(const ReplacementTarget& target, const std::filesystem::path& directory) const;
    // Adds, replaces and removes subtitle tracks through the same switch: new
    // files first, the old ones after.
    SubtitleChangeResult changeSubtitles(const LibraryVideo& video, const SubtitleChange& change) const;

    // master.m3u8 (which must exist) and manifest.mpd with their ETags.
    CurrentManifests currentManifests(const LibraryVideo& video, const std::string& notPlayable) const;
    // The one moment of change: manifest.mpd, then master.m3u8, each only over the
    // version read. A conflict leaves the old manifests; a failure of the master
    // after the MPD switched puts the MPD back, and when even that fails the
    // players disagree: a manifestRestore failure.
    void swapManifests(const CurrentManifests& current, const ReplacementManifests& next, ManifestChange change) const;

    // Uploads the files of a change under mediaPrefix and switches the manifests to
    // them. Until the switch a failure or a stop removes the prefix again and the
    // video plays on as it was; gives the last measured upload rate.
    std::optional<double> uploadAndSwap(const CurrentManifests& current, const ReplacementManifests& next,
                                        ManifestChange change, const std::filesystem::path& directory,
                                        const std::vector<std::string>& files, const std::string& mediaPrefix,
                                        std::uint64_t bytes, const Publisher& publisher, UploadJournal& journal,
                                        const ProgressHandler& onProgress) const;

    // The key boundaries of a listing from the sorted cached folder names: at
    // least 50 folders a range, at most 8 ranges, none below 2.
    static std::vector<std::string> rangeBoundaries(const std::vector<std::string>& sortedFolders, const std::string& prefix,
                                                    std::size_t readConcurrency);
};

}  // namespace vorlen
