#pragma once

#include <atomic>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/LibraryEntry.hpp"
#include "app/LibraryService.hpp"
#include "app/PublishService.hpp"
#include "app/MainQueue.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// The library of one site as its window shows it: this computer's last list at
// once, then the bucket's current one, and the poster thumbnails as they come.
// Lives on the main thread; the reading and the thumbnails run on tasks.
class LibraryModel : public std::enable_shared_from_this<LibraryModel> {
public:
    // What runs for a folder now.
    enum class Change {
        waiting, saving, movingToNewLink, changingPoster, deleting, replacingVideo, reimportingAudio, changingSubtitles
    };
    // What remains to be told after a change, or why a change was refused.
    struct Problem {
        std::string title;
        std::string message;
        bool operator==(const Problem&) const = default;
    };

    // What remains after a change: the problem to show, and for a bulk report its
    // heading (by kind) and the line of the video.
    struct Note {
        enum class Kind { failed, oldFolderRemains, inCache, other };
        Kind kind = Kind::failed;
        Problem problem;
        std::string detail;
    };
    // The work of a change, on a task, with the purge of its run.
    using Purge = std::function<void(const std::string& folderPrefix, bool posterOnly)>;
    using ChangeWork = std::function<std::optional<Note>(LibraryService&, const BucketAccess&, const Purge&)>;

    struct Listing {
        std::vector<LibraryEntry> entries;  // in folder order
        bool isCurrent = false;             // false while it is the cached list
    };
    // How the model reaches the bucket; it may fail (a secret store that does not answer).
    using AccessSource = std::function<BucketAccess()>;

    // One change over several videos, one after another.
    struct BulkChange {
        enum class Action { makePublic, makeUnlisted, remove, reimportAudio };
        Action action = Action::makePublic;
        std::int64_t count = 0;
        std::int64_t finished = 0;
        bool operator==(const BulkChange&) const = default;
    };

    // The publish service encodes the new file of a replacement.
    static std::shared_ptr<LibraryModel> make(std::shared_ptr<LibraryService> service, std::shared_ptr<PublishService> publish,
                                              AccessSource access, SiteSummary site, MainQueue& mainQueue);
    ~LibraryModel();

    const SiteSummary& site() const { return site_; }
    const std::optional<Listing>& listing() const { return listing_; }
    // Raised with every new listing, so that a view can tell one from a progress report.
    std::uint64_t listingGeneration() const { return listingGeneration_; }
    const std::optional<LibraryReadProgress>& refreshProgress() const { return refreshProgress_; }
    bool isRefreshing() const { return refreshTask_.has_value(); }
    // The last reading's failure; the list on screen stays.
    const std::optional<std::string>& refreshFailure() const { return refreshFailure_; }
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    // Changes: one at a time for each folder. A change is refused (the problem
    // comes back and nothing runs) while another runs for the folder, while its
    // edit window is open (unless the change comes from that window), or when its
    // record cannot be read. At the end the list is read again, videosDidChange
    // runs (the catalogue follows) and problem() tells what remains.
    const std::map<std::string, Change>& changes() const { return changes_; }
    const std::optional<Problem>& problem() const { return problem_; }
    void dismissProblem();
    void setEditing(const std::string& folder, bool isEditing);
    std::function<void()> videosDidChange;
    // The account token for a purge that this computer's R2 API Token may not do;
    // called on a change's task, at most once a run. Unset: this computer has none.
    std::function<std::optional<std::string>()> accountToken;

    std::optional<Problem> saveDetails(const LibraryEntry& entry, const VideoDetails& details, bool fromEditWindow = false);
    std::optional<Problem> changeVisibility(const LibraryEntry& entry, VideoVisibility visibility, bool fromEditWindow = false);
    std::optional<Problem> changePoster(const LibraryEntry& entry, const std::filesystem::path& image, bool fromEditWindow = false);
    std::optional<Problem> remove(const LibraryEntry& entry, bool fromEditWindow = false);
    // A frame of the published video at a time in seconds becomes its poster.
    std::optional<Problem> changePosterToFrame(const LibraryEntry& entry, double seconds, bool fromEditWindow = false);
    // A new file behind the video: its link, details and poster stay.
    std::optional<Problem> replaceVideo(const LibraryEntry& entry, const std::filesystem::path& file, bool fromEditWindow = false);
    // New audio at a loudness, the picture untouched: from a file, or without one
    // from the video's own published audio (how many videos get a new loudness at once).
    std::optional<Problem> reimportAudio(const LibraryEntry& entry, const std::optional<std::filesystem::path>& file,
                                         AudioLoudness loudness, bool fromEditWindow = false);
    // The tracks that the video's manifests declare: absent until known (they load
    // in the background, and onChange tells when they are there).
    std::optional<std::vector<PublishedSubtitle>> subtitles(const LibraryEntry& entry);
    std::optional<Problem> changeSubtitles(const LibraryEntry& entry, const SubtitleChange& change, bool fromEditWindow = false);

    // Bulk changes run the same changes over the selected videos one after another;
    // bulkChange() counts them, and at the end problem() sums up what did not work.
    // A bulk change asked for while one runs is ignored.
    void changeVisibility(const std::vector<LibraryEntry>& entries, VideoVisibility visibility);
    void remove(const std::vector<LibraryEntry>& entries);
    void reimportAudio(const std::vector<LibraryEntry>& entries, AudioLoudness loudness);
    const std::optional<BulkChange>& bulkChange() const { return bulkChange_; }

    // Shows the cached list when nothing is shown yet, then reads the bucket. A
    // refresh during a reading starts it again, so the list is never older than the request.
    void refresh();
    // The thumbnail of an entry's poster when it is on this computer; otherwise
    // it is made in the background and onChange tells when it is there.
    std::optional<std::filesystem::path> thumbnail(const LibraryEntry& entry);

private:
    LibraryModel(std::shared_ptr<LibraryService> service, std::shared_ptr<PublishService> publish, AccessSource access,
                 SiteSummary site, MainQueue& mainQueue)
        : service_(std::move(service)),
          publish_(std::move(publish)),
          access_(std::move(access)),
          site_(std::move(site)),
          mainQueue_(mainQueue) {}
    void changed();
    void onMain(std::function<void(LibraryModel&)> work);
    std::vector<LibraryEntry> entriesFrom(std::vector<LibraryVideo> videos) const;
    void loadNextThumbnail();
    std::optional<Problem> refusal(const LibraryEntry& entry, bool fromEditWindow) const;
    std::optional<Problem> runChange(const LibraryEntry& entry, Change change, bool fromEditWindow, ChangeWork work);
    void finishChange(const std::string& folder);
    ChangeWork moveWork(const LibraryEntry& entry, VideoVisibility visibility) const;
    ChangeWork removeWork(const LibraryEntry& entry) const;
    ChangeWork audioWork(const LibraryEntry& entry, const std::optional<std::filesystem::path>& file,
                         AudioLoudness loudness) const;
    // workFor gives nothing for a video that has what the change would give it.
    void runBulk(const std::vector<LibraryEntry>& entries, BulkChange::Action action,
                 const std::function<std::optional<ChangeWork>(const LibraryEntry&)>& workFor);
    void endBulk();

    std::shared_ptr<LibraryService> service_;
    std::shared_ptr<PublishService> publish_;
    AccessSource access_;
    SiteSummary site_;
    MainQueue& mainQueue_;
    std::vector<std::function<void()>> observers_;

    std::optional<Listing> listing_;
    std::uint64_t listingGeneration_ = 0;
    std::optional<LibraryReadProgress> refreshProgress_;
    std::optional<std::string> refreshFailure_;
    std::optional<Task<void>> refreshTask_;
    std::uint64_t refreshGeneration_ = 0;
    // The latest progress of the reading, handed to the main thread one post at a time.
    std::shared_ptr<std::atomic<bool>> progressPosted_ = std::make_shared<std::atomic<bool>>(false);

    std::map<std::string, Change> changes_;
    std::set<std::string> editedVideos_;
    std::optional<Problem> problem_;
    std::map<std::string, Task<void>> changeTasks_;
    std::optional<BulkChange> bulkChange_;
    std::optional<Task<void>> bulkTask_;
    std::vector<std::pair<std::string, Note>> bulkNotes_;  // by title

    std::map<std::string, std::optional<std::vector<PublishedSubtitle>>> subtitles_;  // by folder
    std::map<std::string, Task<void>> subtitleTasks_;

    std::map<std::string, std::optional<std::filesystem::path>> thumbnails_;  // by poster key; absent: none to show
    std::deque<LibraryVideo> thumbnailQueue_;
    std::optional<Task<void>> thumbnailTask_;
};

}  // namespace vorlen::app
