#include "app/VimeoSyncModel.hpp"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

namespace vorlen::app {
namespace {

VimeoVideo video(const std::string& id, const std::string& title, VimeoPrivacy::Kind privacy, bool hasFile = true) {
    VimeoVideo made;
    made.id = id;
    made.title = title;
    made.duration = 60;
    made.privacy = VimeoPrivacy{privacy, ""};
    made.isReady = true;
    if (hasFile) made.file = VimeoFile{"source", std::nullopt, std::nullopt, std::nullopt};
    return made;
}

BatchSnapshot importedSoFar(std::int64_t published, std::int64_t left) {
    BatchSnapshot snapshot;
    snapshot.counts.published = published;
    snapshot.counts.left = left;
    BatchActiveItem active;
    active.item = published;
    active.phase = BatchPhase::downloading;
    active.downloadFraction = 0.5;
    snapshot.activeItems.push_back(active);
    return snapshot;
}

// An account of scripted videos beside a site of scripted folders; a sync does what
// the test scripts, and can be held until the test lets it go on.
class ScriptedVimeoService final : public VimeoService {
public:
    bool hasSavedToken = true;
    std::optional<VimeoStoredList> stored;
    VimeoStoredList account{VimeoAccount{"7", "Harbour Films", std::nullopt, std::nullopt}, SystemTime{}, {}};
    std::optional<std::string> readFailure;
    int reads = 0;
    std::vector<BulkBucketFolder> folders;
    std::function<VimeoSyncResult(const std::function<void(const VimeoSyncProgress&)>&)> script;
    std::vector<VimeoSyncItem> syncedItems;
    std::mutex mutex;
    std::condition_variable changed;
    bool isHeld = false;
    bool isWaiting = false;

    bool hasToken() override { return hasSavedToken; }
    void saveToken(const std::string&) override { hasSavedToken = true; }
    void forgetToken() override {
        hasSavedToken = false;
        stored.reset();
    }
    std::optional<VimeoStoredList> storedList() override { return stored; }
    VimeoStoredList readList(const std::function<void(const VimeoReadProgress&)>& onProgress) override {
        ++reads;
        if (readFailure) throw std::runtime_error(*readFailure);
        const auto total = std::int64_t(account.videos.size());
        for (std::int64_t read = 1; read <= total; ++read) onProgress(VimeoReadProgress{read, total});
        stored = account;
        return account;
    }
    VimeoSyncPlan plan(const BucketAccess&, const VimeoStoredList& list) override {
        return VimeoSyncPlan::make(list.account, list.videos, list.readAt, folders, AudioLoudness::broadcast);
    }
    std::vector<VimeoLocalFile> scanFiles(const std::vector<std::filesystem::path>&,
                                          const std::function<void(const VimeoScanProgress&)>&) override {
        return {};
    }
    VimeoLocalFile localFile(const std::filesystem::path& file) override {
        if (file.filename() == "gone.mp4") throw std::runtime_error("There is no file at \u201c" + file.string() + "\u201d.");
        return VimeoLocalFile{file, 60};
    }
    VimeoSyncResult sync(const VimeoSyncRequest& request,
                         const std::function<void(const VimeoSyncProgress&)>& onProgress) override {
        syncedItems = request.items;
        return script(onProgress);
    }

    void send(const BatchSnapshot& snapshot, const std::function<void(const VimeoSyncProgress&)>& onProgress,
              std::map<std::string, std::string> subtitleProblems = {}) const {
        onProgress(VimeoSyncProgress{&syncedItems, snapshot, std::move(subtitleProblems)});
    }
    void waitWhileHeld() {
        std::unique_lock lock(mutex);
        isWaiting = true;
        changed.notify_all();
        changed.wait(lock, [&] { return !isHeld; });
    }
    bool waitUntilWaiting() {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30), [&] { return isWaiting; });
    }
    void release() {
        std::lock_guard lock(mutex);
        isHeld = false;
        changed.notify_all();
    }
};

class VimeoSyncModelTest : public ::testing::Test {
protected:
    PostedQueue queue;
    std::shared_ptr<ScriptedVimeoService> service = std::make_shared<ScriptedVimeoService>();
    bool isPublishing = false;
    bool isBulkUploading = false;
    std::optional<std::string> activeRun;
    VimeoSelection savedSelection;
    int starts = 0;
    int ends = 0;
    std::shared_ptr<VimeoSyncModel> model = VimeoSyncModel::make(
        service,
        VimeoSyncModel::Host{[] { return BucketAccess{}; }, [] { return std::optional<double>(); },
                             [] { return UploadTuning{}; }, "studio", [this] { return isPublishing; },
                             [this] { return isBulkUploading; }, [this] { return activeRun; },
                             [this] { return savedSelection; },
                             [this](const VimeoSelection& selection) { savedSelection = selection; },
                             [this] { ++starts; }, [this] { ++ends; }},
        queue);

    void SetUp() override {
        using Kind = VimeoPrivacy::Kind;
        service->account.videos = {video("1", "Harbour", Kind::anybody),       video("2", "Lighthouse", Kind::unlisted),
                                   video("3", "Family", Kind::nobody),         video("4", "Rehearsal", Kind::password),
                                   video("5", "No Download", Kind::anybody, false), video("6", "Imported", Kind::anybody)};
        service->account.videos.push_back(video("8", "Uploading", Kind::anybody));
        service->account.videos.back().isReady = false;
        service->folders = {BulkBucketFolder{"imported", "vimeo:6", true, AudioLoudness::web}};
    }

    void openPlan() {
        model->open();
        queue.runUntil([&] { return model->as<VimeoPlanState>() || model->as<vimeoPhase::Unreadable>(); });
        ASSERT_TRUE(model->as<VimeoPlanState>());
    }
    const VimeoPlanEntry& entry(const std::string& id) const {
        for (const auto& each : model->as<VimeoPlanState>()->entries)
            if (each.id == id) return each;
        throw std::out_of_range(id);
    }
    std::vector<std::string> selectedIDs() const {
        std::vector<std::string> ids;
        for (const auto& each : model->as<VimeoPlanState>()->entries)
            if (each.isSelected) ids.push_back(each.id);
        return ids;
    }
    void runUntilEnded() {
        queue.runUntil([&] { return !model->isRunning(); });
    }
};

TEST_F(VimeoSyncModelTest, WithoutATokenTheTokenScreenShowsAndASavedTokenReadsTheAccount) {
    service->hasSavedToken = false;
    model->open();
    queue.runUntil([&] { return model->as<vimeoPhase::NeedsToken>() != nullptr; });
    EXPECT_EQ(service->reads, 0);

    model->saveToken("   ");
    EXPECT_TRUE(model->as<vimeoPhase::NeedsToken>());
    model->saveToken(" a1b2c3 ");
    queue.runUntil([&] { return model->as<VimeoPlanState>() != nullptr; });
    EXPECT_EQ(service->reads, 1);
    EXPECT_EQ(model->as<VimeoPlanState>()->plan.account.name, "Harbour Films");

    model->forgetToken();
    queue.runUntil([&] { return model->as<vimeoPhase::NeedsToken>() != nullptr; });
    EXPECT_FALSE(service->stored);
}

TEST_F(VimeoSyncModelTest, TheStoredListOpensWithoutAReadAndRefreshReadsWithProgress) {
    service->stored = service->account;
    service->stored->videos.resize(2);
    openPlan();
    EXPECT_EQ(service->reads, 0);
    EXPECT_EQ(model->as<VimeoPlanState>()->entries.size(), 2u);

    std::optional<VimeoReadProgress> lastShown;
    model->onChange([&] {
        if (const auto* reading = model->as<vimeoPhase::Reading>(); reading && reading->progress) lastShown = reading->progress;
    });
    model->refresh();
    queue.runUntil([&] { return model->as<VimeoPlanState>() != nullptr; });
    EXPECT_EQ(service->reads, 1);
    EXPECT_EQ(lastShown, (VimeoReadProgress{7, 7}));
    EXPECT_EQ(model->as<VimeoPlanState>()->entries.size(), 7u);
}

TEST_F(VimeoSyncModelTest, AFailedReadShowsWhyUnderItsTitle) {
    service->readFailure = "Vimeo GET /me: HTTP 401, Unauthorized";
    model->open();
    queue.runUntil([&] { return model->as<vimeoPhase::Unreadable>() != nullptr; });
    EXPECT_EQ(model->as<vimeoPhase::Unreadable>()->problem,
              (VimeoProblem{VimeoWords::cannotRead, "Vimeo GET /me: HTTP 401, Unauthorized"}));
}

TEST_F(VimeoSyncModelTest, TheDefaultSelectionTakesVideosThatAnyoneMayWatchAndTheRuleAddsLimitedOnes) {
    openPlan();
    EXPECT_EQ(selectedIDs(), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(entry("3").limitsViewers);
    EXPECT_TRUE(entry("3").canBeSelected);
    // Imported, without a file, not ready: none can be selected.
    for (const char* id : {"5", "6", "8"}) EXPECT_FALSE(entry(id).canBeSelected) << id;
    EXPECT_EQ(entry("6").folder, "imported");
    EXPECT_TRUE(entry("6").hasDifferentAudioLoudness);
    model->setSelected("5", true);
    EXPECT_FALSE(entry("5").isSelected);

    model->setRule({true, false});
    EXPECT_EQ(selectedIDs(), (std::vector<std::string>{"1", "2", "3"}));
    model->setRule({true, true});
    EXPECT_EQ(selectedIDs(), (std::vector<std::string>{"1", "2", "3", "4"}));
    model->setSelected("2", false);
    // An imported video with a file on Vimeo is imported again when selected.
    model->setSelected("6", true);
    model->setVisibility("3", VideoVisibility::publicVideo);
    EXPECT_EQ(selectedIDs(), (std::vector<std::string>{"1", "3", "4", "6"}));

    // The choices stay with the site: the next opening shows them.
    EXPECT_EQ(savedSelection.reimports, std::set<std::string>{"6"});
    openPlan();
    EXPECT_EQ(selectedIDs(), (std::vector<std::string>{"1", "3", "4", "6"}));
    EXPECT_EQ(entry("3").visibility, VideoVisibility::publicVideo);
    EXPECT_EQ(entry("4").visibility, VideoVisibility::unlisted);

    service->script = [](const auto&) { return VimeoSyncResult{}; };
    ASSERT_EQ(model->start(), std::nullopt);
    runUntilEnded();
    ASSERT_EQ(service->syncedItems.size(), 4u);
    const auto& reimport = service->syncedItems[3];
    EXPECT_EQ(reimport.index, 3);
    EXPECT_EQ(reimport.video.id, "6");
    EXPECT_TRUE(reimport.isReimport);
    EXPECT_FALSE(service->syncedItems[0].isReimport);
    EXPECT_EQ(service->syncedItems[1].visibility, VideoVisibility::publicVideo);

    openPlan();
    model->selectByDefault();
    EXPECT_EQ(selectedIDs(), (std::vector<std::string>{"1", "2"}));
}

TEST_F(VimeoSyncModelTest, AFileChosenByHandGivesAVideoWithoutADownloadItsFileAndIsKeptWithTheSite) {
    openPlan();
    model->chooseFile("5", "/films/gone.mp4");
    queue.runUntil([&] { return model->as<VimeoPlanState>()->fileProblem.has_value(); });
    EXPECT_EQ(*model->as<VimeoPlanState>()->fileProblem, "There is no file at \u201c/films/gone.mp4\u201d.");
    EXPECT_FALSE(entry("5").canBeSelected);

    model->chooseFile("5", "/films/no-download.mp4");
    queue.runUntil([&] { return entry("5").localFile.has_value(); });
    EXPECT_EQ(entry("5").localFile, "/films/no-download.mp4");
    EXPECT_TRUE(entry("5").canBeSelected);
    EXPECT_TRUE(entry("5").isSelected);
    EXPECT_TRUE(entry("5").fileMatchText);
    EXPECT_EQ(savedSelection.files.at("5"), "/films/no-download.mp4");

    // The next opening inspects the chosen file again.
    openPlan();
    queue.runUntil([&] { return entry("5").localFile.has_value(); });
    service->script = [](const auto&) { return VimeoSyncResult{}; };
    ASSERT_EQ(model->start(), std::nullopt);
    runUntilEnded();
    ASSERT_EQ(service->syncedItems.size(), 3u);
    EXPECT_EQ(service->syncedItems[2].video.id, "5");
    EXPECT_EQ(service->syncedItems[2].file, "/films/no-download.mp4");
    EXPECT_FALSE(service->syncedItems[0].file);
}

TEST_F(VimeoSyncModelTest, AStartIsRefusedWhileAnotherJobHoldsTheSite) {
    openPlan();
    service->script = [](const auto&) { return VimeoSyncResult{}; };
    isPublishing = true;
    EXPECT_EQ(model->start(), (VimeoProblem{VimeoWords::cannotStart, VimeoWords::publishing}));
    isPublishing = false;
    isBulkUploading = true;
    EXPECT_EQ(model->start(), (VimeoProblem{VimeoWords::cannotStart, VimeoWords::bulkUploading}));
    isBulkUploading = false;
    activeRun = "A Vimeo sync from \u201cStudio\u201d holds the site.";
    EXPECT_EQ(model->start(), (VimeoProblem{VimeoWords::cannotStart, *activeRun}));
    EXPECT_TRUE(model->as<VimeoPlanState>());
    EXPECT_EQ(starts, 0);
}

TEST_F(VimeoSyncModelTest, TheNewestProgressWinsAndACompletedSyncReportsItsResults) {
    openPlan();
    service->isHeld = true;
    service->script = [&](const auto& onProgress) {
        for (std::int64_t published = 0; published <= 2; ++published)
            service->send(importedSoFar(published, 2 - published), onProgress, {{"1", "No subtitles"}});
        service->waitWhileHeld();
        VimeoSyncResult result;
        result.items = service->syncedItems;
        result.snapshot.counts.published = 2;
        result.snapshot.results[0] = bulkOutcome::Published{{"harbour", "https://watch.example/harbour"}};
        result.subtitleProblems = {{"1", "No subtitles"}};
        return result;
    };
    ASSERT_EQ(model->start(), std::nullopt);
    ASSERT_TRUE(model->isRunning());
    EXPECT_EQ(starts, 1);
    ASSERT_TRUE(service->waitUntilWaiting());

    std::vector<std::int64_t> shown;
    model->onChange([&] {
        if (const auto* running = model->as<VimeoRunState>(); running && running->progress)
            shown.push_back(running->progress->counts.published);
    });
    queue.drain();
    // Three reports while the main thread was busy come as one, the last.
    EXPECT_EQ(shown, std::vector<std::int64_t>{2});
    EXPECT_EQ(model->as<VimeoRunState>()->subtitleProblems.at("1"), "No subtitles");

    service->release();
    runUntilEnded();
    const auto* ended = model->as<VimeoEndState>();
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->ending, VimeoEndState::Ending::completed);
    EXPECT_EQ(ended->counts.published, 2);
    EXPECT_EQ(ended->items.size(), 2u);
    EXPECT_EQ(ended->subtitleProblems.size(), 1u);
    EXPECT_EQ(ends, 1);
}

TEST_F(VimeoSyncModelTest, AStopEndsTheSyncAsStoppedWithItsLastCounts) {
    openPlan();
    service->script = [&](const auto& onProgress) -> VimeoSyncResult {
        service->send(importedSoFar(1, 1), onProgress);
        for (;;) sleepFor(std::chrono::milliseconds(5));
    };
    ASSERT_EQ(model->start(), std::nullopt);
    queue.runUntil([&] { return model->as<VimeoRunState>()->progress.has_value(); });

    model->stop();
    EXPECT_TRUE(model->as<VimeoRunState>()->isStopping);
    runUntilEnded();
    const auto* ended = model->as<VimeoEndState>();
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->ending, VimeoEndState::Ending::stopped);
    EXPECT_EQ(ended->counts.published, 1);
    EXPECT_EQ(ended->items.size(), 2u);
    EXPECT_EQ(ends, 1);
}

TEST_F(VimeoSyncModelTest, AFailureBeforeAnyProgressDidNotStartAndOneAfterItStopped) {
    openPlan();
    service->script = [](const auto&) -> VimeoSyncResult { throw std::runtime_error("Another computer holds the site."); };
    ASSERT_EQ(model->start(), std::nullopt);
    runUntilEnded();
    const auto* failed = model->as<vimeoPhase::Failed>();
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->problem, (VimeoProblem{VimeoWords::didNotStart, "Another computer holds the site."}));

    openPlan();
    service->script = [&](const auto& onProgress) -> VimeoSyncResult {
        service->send(importedSoFar(0, 2), onProgress);
        throw std::runtime_error("The site cannot be read.");
    };
    ASSERT_EQ(model->start(), std::nullopt);
    runUntilEnded();
    failed = model->as<vimeoPhase::Failed>();
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->problem.title, VimeoWords::stoppedTitle);
}

}  // namespace
}  // namespace vorlen::app
