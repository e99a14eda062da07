#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/MainQueue.hpp"
#include "app/VimeoSelection.hpp"
#include "app/VimeoService.hpp"
#include "app/VimeoWords.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// A failure to tell, as a title and a message.
struct VimeoProblem {
    std::string title;
    std::string message;
    bool operator==(const VimeoProblem&) const = default;
};

// What the person chose for one video in place of what the plan proposes.
struct VimeoImportChoice {
    std::optional<std::filesystem::path> file;  // a local original chosen by hand
    std::optional<VideoVisibility> visibility;
};

// One row of the table: a video of the account beside what the site and this computer have of it.
struct VimeoPlanEntry {
    std::string id;
    std::string title;
    std::optional<SystemTime> created;
    std::optional<double> duration;  // seconds
    std::string privacy;             // in words
    bool limitsViewers = false;
    std::optional<std::string> folder;  // the site's folder of an imported video
    bool isReady = false;
    bool isInColdStorage = false;
    std::optional<VimeoFile> vimeoFile;  // what Vimeo offers to download
    std::optional<VimeoFileMatch> fileMatch;  // absent before a folder or a file is chosen
    std::optional<std::string> fileMatchText;
    std::optional<std::filesystem::path> localFile;  // the original that an import uses, when one is settled
    VimeoImportChoice choice;
    VideoVisibility visibility = VideoVisibility::publicVideo;  // the one an import gives
    bool hasDifferentAudioLoudness = false;
    bool canBeSelected = false;
    bool canBeReimported = false;
    bool isSelected = false;  // to import, or for an imported video to import again
};

// The account's videos before a sync, with the person's selection.
struct VimeoPlanState {
    VimeoSyncPlan plan;
    std::vector<VimeoPlanEntry> entries;  // in the order of the plan
    VimeoSelection selection;
    VimeoSelectionRule rule;
    VimeoPlanFilter filter = VimeoPlanFilter::all;
    std::string search;
    std::optional<VimeoScanProgress> scan;  // while the folder of local originals is read
    std::map<std::string, VimeoFileMatch> folderMatches;  // of the files in the folder, by video ID
    std::map<std::string, VimeoFileMatch> chosenMatches;  // of the files chosen by hand, once inspected
    std::optional<std::string> fileProblem;  // why a folder or a file could not be read

    // The entries that pass the filter and the search, in their order.
    std::vector<const VimeoPlanEntry*> shownEntries() const;
    // What the table says when it shows nothing.
    std::string emptyText() const;
    std::int64_t selectedCount() const;
};

struct VimeoRunState {
    VimeoSyncRequest request;
    std::optional<BatchSnapshot> progress;
    std::map<std::string, std::string> subtitleProblems;  // by video ID
    bool isStopping = false;
};

struct VimeoEndState {
    enum class Ending { completed, stopped };
    Ending ending = Ending::completed;
    BulkRowCounts counts;
    std::vector<VimeoSyncItem> items;
    std::map<std::int64_t, BulkRowOutcome> results;  // by item index
    std::map<std::string, std::string> subtitleProblems;
};

namespace vimeoPhase {
struct Opening {};
struct NeedsToken {};
struct Reading { std::optional<VimeoReadProgress> progress; };  // the account, from Vimeo
struct Planning {};                                              // the site beside the list
struct Unreadable { VimeoProblem problem; };
struct Failed { VimeoProblem problem; };
}  // namespace vimeoPhase

using VimeoPhase = std::variant<vimeoPhase::Opening, vimeoPhase::NeedsToken, vimeoPhase::Reading, vimeoPhase::Planning,
                                vimeoPhase::Unreadable, VimeoPlanState, VimeoRunState, VimeoEndState, vimeoPhase::Failed>;

// The Vimeo import of one site as its window shows it: the token, the account
// beside the site, the selection, the sync and its report. Lives on the main
// thread; reading, scanning and syncing go on tasks and come back through the
// main queue.
class VimeoSyncModel : public std::enable_shared_from_this<VimeoSyncModel> {
public:
    // What the model asks of the site around it.
    struct Host {
        std::function<BucketAccess()> access;  // may fail, as a secret store may
        std::function<std::optional<double>()> expectedUploadRate;
        std::function<UploadTuning()> uploadTuning;
        std::string computerName;
        std::function<bool()> isPublishing;
        std::function<bool()> isBulkUploading;
        // The words of a run that another computer holds on the site, if one does.
        std::function<std::optional<std::string>()> activeRun;
        std::function<VimeoSelection()> loadSelection;
        std::function<void(const VimeoSelection&)> saveSelection;
        std::function<void()> willStart;
        std::function<void()> didEnd;
    };

    static std::shared_ptr<VimeoSyncModel> make(std::shared_ptr<VimeoService> service, Host host, MainQueue& mainQueue);
    ~VimeoSyncModel();

    const VimeoPhase& phase() const { return phase_; }
    template <class T> const T* as() const { return std::get_if<T>(&phase_); }
    bool isRunning() const { return as<VimeoRunState>() != nullptr; }
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    // The token screen, or the account from the list this computer keeps, read from Vimeo when there is none.
    void open();
    // Keeps the token, then reads the account with it.
    void saveToken(const std::string& token);
    // Forgets the token and the list that it read.
    void forgetToken();
    // Reads the account from Vimeo again.
    void refresh();

    void setFilter(VimeoPlanFilter filter);
    void setSearch(const std::string& text);
    // Local originals: the video files of this folder and its subfolders, matched to the videos.
    void chooseFolder(const std::filesystem::path& folder);
    void chooseFile(const std::string& videoID, const std::filesystem::path& file);
    // Selects a video to import, or an imported one to import again.
    void setSelected(const std::string& videoID, bool selected);
    void setVisibility(const std::string& videoID, VideoVisibility visibility);
    void setIncludesAutoGeneratedSubtitles(bool includes);
    // The kinds of limited videos that the default selection takes; the videos of a
    // kind that changed follow the rule again.
    void setRule(VimeoSelectionRule rule);
    // Drops the person's choices: every video follows the default selection.
    void selectByDefault();

    // Refused, with the reason, while another job holds the site; nothing happens without a selection.
    std::optional<VimeoProblem> start();
    // The videos in progress stop and delete what they uploaded; the run then ends as stopped.
    void stop();

private:
    VimeoSyncModel(std::shared_ptr<VimeoService> service, Host host, MainQueue& mainQueue)
        : service_(std::move(service)), host_(std::move(host)), mainQueue_(mainQueue) {}
    void changed();
    void onMain(std::function<void(VimeoSyncModel&)> work);
    // On a task: `before`, then the token screen without a token, else the list (kept
    // or read from Vimeo) planned beside the site. A newer load drops an older one's results.
    void load(std::function<void(VimeoService&)> before, bool readsVimeo);
    void showPlan(VimeoSyncPlan plan);
    void readLocalFiles();
    void scanFolder(const std::filesystem::path& folder);
    void inspectChosen(const std::string& videoID, const std::filesystem::path& file);
    void rebuildEntries(VimeoPlanState& state) const;
    void changeSelection(const std::function<void(VimeoPlanState&)>& change);
    std::vector<VimeoSyncItem> selectedItems(const VimeoPlanState& state) const;
    void showProgress(BatchSnapshot snapshot, std::map<std::string, std::string> subtitleProblems);
    void end(VimeoPhase ended);

    std::shared_ptr<VimeoService> service_;
    Host host_;
    MainQueue& mainQueue_;
    std::vector<std::function<void()>> observers_;

    VimeoPhase phase_ = vimeoPhase::Opening{};
    std::uint64_t loadGeneration_ = 0;
    std::uint64_t scanGeneration_ = 0;
    std::optional<Task<void>> loadTask_;
    std::optional<Task<void>> scanTask_;
    std::vector<Task<void>> inspections_;
    std::optional<Task<void>> runTask_;
};

}  // namespace vorlen::app
