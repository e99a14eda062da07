#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "core/base/Dates.hpp"
#include "core/base/VorlenError.hpp"
#include "core/batch/BulkReferenceIndex.hpp"
#include "core/batch/BulkRowOutcome.hpp"
#include "core/library/Library.hpp"
#include "core/publish/PosterProposal.hpp"
#include "core/publish/PublishProgress.hpp"
#include "core/publish/SubtitleTrack.hpp"
#include "core/publish/VideoMetadata.hpp"

namespace vorlen {

// What an item of a run is doing, in the order an item goes through them.
enum class BatchPhase { preparing, downloading, waitingForReference, building, waitingForUpload, uploading };

// What a re-import of a video that the site already has replaces.
enum class ReimportMode { skip, videoAndAudio, audioOnly };

// One item in work, as the person sees it.
struct BatchActiveItem {
    std::int64_t item = 0;
    BatchPhase phase = BatchPhase::preparing;
    std::optional<std::string> folder;  // once reserved
    bool isReplacement = false;
    std::optional<double> downloadFraction;
    std::optional<PublishProgress> progress;  // of the build or the upload
};

// A source's own reason to fail an item; its text is the outcome's message as it stands.
class BatchItemFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What the source says of an item before the run decides anything.
namespace batchResume {
struct Finished { BulkRowOutcome outcome; };      // ends the item at once
struct Start { BulkReplacement replacement; };    // goes to the decision with this rule
}  // namespace batchResume
using BatchResume = std::variant<batchResume::Finished, batchResume::Start>;

// An item with its file at hand.
struct BatchPreparedItem {
    std::filesystem::path source;
    std::optional<std::string> title;
    std::optional<std::string> name;  // the wanted folder name; else the file name gives it
    std::optional<std::string> description;
    VideoVisibility visibility = VideoVisibility::publicVideo;
    std::optional<SystemTime> created;
    std::vector<SubtitleTrack> subtitles;
    PosterReview review;  // empty: the poster is chosen without review
    // Removes what the source made for the item; called once on every way out.
    std::function<void()> discard;
};

// The site as a run finds it at its start.
struct BatchContext {
    const Library* library = nullptr;
    std::string pageBase;  // a page address is this followed by the folder name
    std::map<std::string, LibraryVideo> videos;
    AudioLoudness audioLoudness = AudioLoudness::broadcast;
};

// What a run publishes: a list of items in their order. Items are numbered from
// 0. The run calls the storing operations under its lock, in the order of the
// changes; everything else from its one main loop.
class BatchSource {
public:
    virtual ~BatchSource() = default;

    virtual std::int64_t itemCount() const = 0;
    virtual std::optional<std::string> reference(std::int64_t item) const = 0;
    virtual BatchResume resume(std::int64_t item, const BatchContext& context) = 0;
    // Fails with BatchItemFailure for an item that cannot be published; may report a download.
    virtual BatchPreparedItem prepare(std::int64_t item, const std::function<void(double fraction)>& onDownload) = 0;
    // The item's work in this folder begins.
    virtual void storeStart(std::int64_t item, const std::string& folder, bool isReplacement) = 0;
    // A failure here ends the run: the run's memory could not keep up.
    virtual void storeOutcome(std::int64_t item, const BulkRowOutcome& outcome) = 0;
};

// Where a run stands, after each change.
struct BatchSnapshot {
    BulkRowCounts counts;
    std::map<std::int64_t, BulkRowOutcome> results;
    std::vector<BatchActiveItem> activeItems;
    std::optional<double> eta;  // seconds
};

// Publishes a long list of videos on one site while holding the site's batch
// record. One item builds while the one before it uploads; no more than two
// finished builds lie on disk at any time.
struct BatchRun {
    // Why an item that must re-import a video did not.
    static constexpr const char* siteLacksVideo =
        "Vorlen did not re-import this video, because the site no longer has it. A person can have deleted the video, "
        "or changed its reference. To publish it as a new video, start again with \u201cSkip\u201d.";

    std::shared_ptr<BatchSource> source;
    Publisher publisher;
    Library library;  // of the publisher's destination
    std::string pageBase;
    std::string computerName;
    BatchRunKind kind = BatchRunKind::bulkUpload;
    ReimportMode reimport = ReimportMode::skip;
    std::chrono::nanoseconds recordInterval = std::chrono::seconds(60);
    std::int64_t alreadyDone = 0;  // items finished by earlier runs, for the counts
    // Called under the run's lock, in the order of the changes; must not block.
    std::function<void(const BatchSnapshot&)> onSnapshot;

    // Returns when every item has an outcome. Fails when the site cannot be taken
    // or read, when cancelled, and when another run took the site; an item's
    // failure is its outcome and never the run's.
    BatchSnapshot run() const;
};

}  // namespace vorlen
