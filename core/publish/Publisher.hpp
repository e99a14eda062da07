#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "core/base/Dates.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/publish/BuiltFolder.hpp"
#include "core/publish/Inspection.hpp"
#include "core/publish/PosterFrameScorer.hpp"
#include "core/publish/PosterProposal.hpp"
#include "core/publish/PublishProgress.hpp"
#include "core/publish/SubtitleTrack.hpp"
#include "core/publish/Tools.hpp"
#include "core/publish/VideoDetails.hpp"
#include "core/publish/VideoEncoder.hpp"
#include "core/net/RateLimiter.hpp"
#include "core/storage/Bucket.hpp"
#include "core/storage/UploadJournal.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen {

// Where video folders go: a bucket and the key prefix of all folders ("" or ending in "/").
struct Destination {
    std::shared_ptr<Bucket> bucket;
    std::string prefix;
    // Names the bucket itself, so that a retry knows whether leftovers lie in it.
    std::string bucketIdentity;
};

// What a finished upload made.
struct Published {
    std::string folderPrefix;
    std::string hlsKey;
    std::string dashKey;
    std::int64_t fileCount = 0;
    std::uint64_t uploadedBytes = 0;
    std::optional<double> uploadRate;
    VideoMetadata metadata;
};

// The folder an upload goes to, as resolved before the build.
struct UploadFolder {
    std::string requestedName;  // what was asked for: further candidates are numbered from it
    std::string name;           // the folder found free for it
    // The person chose the name: when another computer takes the folder first, the
    // publish fails instead of moving on to the next free name.
    bool isTyped = false;
};

using FolderHandler = std::function<void(const std::string& folder)>;

// Turns a source file into a finished video folder on the local disk, and a
// finished folder into a video folder in the bucket.
struct Publisher {
    Tools tools;
    std::shared_ptr<const VideoEncoder> encoder;
    std::filesystem::path workRoot;
    std::uint64_t maxChunkBytes = 268'435'456;
    std::optional<double> expectedUploadRate;  // bytes a second
    std::shared_ptr<PosterFrameScorer> posterScorer;  // the heuristic scorer when absent

    static constexpr double segmentSeconds = 6;

    Inspection inspect(const std::filesystem::path& source) const;

    // Encodes, packages, chooses a poster and writes video.json. With a review the
    // poster is whatever the review returns. Any failure or cancellation removes
    // the work directory before it reaches the caller; a poster that cannot be
    // chosen is no failure. Subtitle files are read before anything is encoded, so
    // a bad one fails at once; their tracks join the folder after packaging.
    std::shared_ptr<BuiltFolder> build(const Inspection& inspection, const VideoDetails& details,
                                       AudioLoudness audioLoudness, std::optional<SystemTime> created,
                                       const ProgressHandler& onProgress, const PosterReview& review = {},
                                       const std::vector<SubtitleTrack>& subtitles = {}) const;

    Destination destination;
    std::shared_ptr<RateLimiter> limiter = std::make_shared<RateLimiter>();
    UploadOptions upload;

    // The first free folder for name: the name itself, then name-1 ... name-999.
    // Names in `taken` are skipped without asking the bucket.
    std::string resolveFolder(const std::string& name, const std::vector<std::string>& taken = {}) const;

    // The leftovers of an earlier upload of this build, when they lie in this destination.
    std::optional<UploadLeftovers> leftoversHere(const BuiltFolder& built) const;

    // Uploads a finished folder under <prefix><folder>/, master.m3u8 last. A
    // placeholder video.json claims the folder first, written only where no object
    // is (or over the leftovers of this build). When another computer has claimed
    // the folder, the upload moves to the next free name and tells onFolderChange,
    // or fails with the conflict for a typed name. A failure or cancellation
    // deletes what went up, master.m3u8 first and video.json last, in a clean-up
    // that cancellation does not reach, and then passes on; it never deletes in a
    // folder that this upload did not claim.
    Published publish(BuiltFolder& built, const UploadFolder& folder, UploadJournal& journal,
                      const ProgressHandler& onProgress, const FolderHandler& onFolderChange = {}) const;

    // Uploads files of a local folder under keyPrefix in the batches of a video
    // folder, reporting the upload's progress; gives the last measured rate.
    std::optional<double> uploadFiles(const std::filesystem::path& directory, const std::vector<std::string>& files,
                                      const std::string& keyPrefix,
                                      const std::function<ObjectHeaders(const std::string&)>& headersFor,
                                      std::uint64_t totalBytes, UploadJournal& journal,
                                      const ProgressHandler& onProgress) const;
};

// $TMPDIR/vorlen, or /tmp/vorlen.
std::filesystem::path defaultWorkRoot();

// <workRoot>/<name>-<milliseconds since 1970>-<8 random hex digits>
std::filesystem::path workDirectoryPath(const std::filesystem::path& workRoot, const std::string& name);

}  // namespace vorlen
