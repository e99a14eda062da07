#include "app/BulkUploadModel.hpp"
#include "app/BulkWords.hpp"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "core/base/Files.hpp"

namespace vorlen::app {
namespace {

namespace fs = std::filesystem;

BatchSnapshot publishedSoFar(std::int64_t published, std::int64_t left) {
    BatchSnapshot snapshot;
    snapshot.counts.published = published;
    snapshot.counts.left = left;
    BatchActiveItem active;
    active.item = published;
    active.phase = BatchPhase::uploading;
    snapshot.activeItems.push_back(active);
    return snapshot;
}

// Opens real sheets; a run does what the test scripts, and can be held until the test lets it go on.
class ScriptedBulkService final : public BulkService {
public:
    std::function<BulkRunReport(const std::function<void(const BulkProgress&)>&)> script;
    std::vector<BulkRow> rows = [] {
        std::vector<BulkRow> made(2);
        for (std::size_t at = 0; at < made.size(); ++at) {
            made[at].index = std::int64_t(at) + 1;
            made[at].file = fs::path(at == 0 ? "/films/a.mp4" : "/films/b.mp4");
        }
        return made;
    }();
    std::mutex mutex;
    std::condition_variable changed;
    bool isHeld = false;
    bool isWaiting = false;

    BulkSheetFile open(const fs::path& input) override { return BulkSheetFile::open(input); }
    BulkRunReport run(const BulkRunRequest&, const std::function<void(const BulkProgress&)>& onProgress) override {
        return script(onProgress);
    }
    std::optional<double> duration(const fs::path&) override { return 12.5; }

    void send(const BatchSnapshot& snapshot, const std::function<void(const BulkProgress&)>& onProgress) const {
        onProgress(BulkProgress{&rows, snapshot});
    }
    // The run waits here while the test holds it.
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

class BulkUploadModelTest : public ::testing::Test {
protected:
    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-bulk-model-");
    DirectoryRemover remover{folder};
    PostedQueue queue;
    std::shared_ptr<ScriptedBulkService> service = std::make_shared<ScriptedBulkService>();
    bool isPublishing = false;
    bool isSyncing = false;
    std::optional<std::string> activeRun;
    int ends = 0;
    std::shared_ptr<BulkUploadModel> model = BulkUploadModel::make(
        service,
        BulkUploadModel::Host{[] { return BucketAccess{}; }, [] { return std::optional<double>(); },
                              [] { return UploadTuning{}; }, "studio", [this] { return isPublishing; },
                              [this] { return isSyncing; }, [this] { return activeRun; }, nullptr, [this] { ++ends; }},
        queue);

    void open(const std::string& name, std::string_view text) {
        writeFileAtomically(folder / name, text);
        model->open(folder / name);
        queue.runUntil([&] { return !model->as<bulkPhase::Opening>(); });
    }
    // A sheet of two rows ready to start.
    void openTwoRows() {
        open("films.csv", "File,Title\na.mp4,Harbour\nb.mp4,Lighthouse\n");
        ASSERT_TRUE(model->as<BulkMappingState>());
    }
    void runUntilEnded() {
        queue.runUntil([&] { return !model->isRunning(); });
    }
};

TEST_F(BulkUploadModelTest, ASheetWithoutRowsBelowItsHeaderIsEmptyAndAnEmptyFileIsUnreadable) {
    open("header.csv", "File,Title\n,\n \t, \n");
    EXPECT_TRUE(model->as<bulkPhase::Empty>());

    open("nothing.csv", "");
    const auto* unreadable = model->as<bulkPhase::Unreadable>();
    ASSERT_TRUE(unreadable);
    EXPECT_EQ(unreadable->problem.title, BulkWords::cannotOpen);
    EXPECT_EQ(unreadable->problem.message, "The spreadsheet is empty.");
}

TEST_F(BulkUploadModelTest, TheMappingNeedsAFileColumnAndCountsThePlanOnceItHasOne) {
    open("films.csv", "Path,Title,Notes\na.mp4,Harbour,first\nb.mp4,Lighthouse,\n");
    const auto* mapping = model->as<BulkMappingState>();
    ASSERT_TRUE(mapping);
    EXPECT_TRUE(std::holds_alternative<BulkMappingState::NeedsFile>(mapping->plan));
    EXPECT_EQ(mapping->choice.title, (BulkSheetColumn{1, "Title"}));
    EXPECT_EQ(mapping->sampleRows, (std::vector<std::vector<std::string>>{{"a.mp4", "Harbour", "first"},
                                                                          {"b.mp4", "Lighthouse", ""}}));
    EXPECT_EQ(mapping->origin, BulkWords::origin(BulkSheetSource::input, folder / "films (published).csv"));
    // Without a file column there is nothing to start.
    EXPECT_EQ(model->start(), std::nullopt);
    EXPECT_TRUE(model->as<BulkMappingState>());

    model->choose(BulkColumnRole::file, BulkSheetColumn{0, "Path"});
    mapping = model->as<BulkMappingState>();
    ASSERT_TRUE(std::holds_alternative<BulkPlan>(mapping->plan));
    EXPECT_EQ(std::get<BulkPlan>(mapping->plan).rowCount, 2);

    // A column that the results copy writes to cannot be one of the person's.
    model->choose(BulkColumnRole::title, BulkSheetColumn{3, "Vorlen folder"});
    const auto* failed = std::get_if<BulkMappingState::Failed>(&model->as<BulkMappingState>()->plan);
    ASSERT_TRUE(failed);
    EXPECT_EQ(model->start(), (BulkProblem{folder / "films.csv", BulkWords::cannotStart, failed->message}));
}

TEST_F(BulkUploadModelTest, AStartIsRefusedWhileAnotherJobHoldsTheSite) {
    openTwoRows();
    bool started = false;
    service->script = [&](const auto&) {
        started = true;
        return BulkRunReport{};
    };
    const auto input = folder / "films.csv";
    isPublishing = true;
    EXPECT_EQ(model->start(), (BulkProblem{input, BulkWords::cannotStart, BulkWords::publishing}));
    isPublishing = false;
    isSyncing = true;
    EXPECT_EQ(model->start(), (BulkProblem{input, BulkWords::cannotStart, BulkWords::syncing}));
    isSyncing = false;
    activeRun = "A bulk upload from “Studio Mac” holds the site.";
    EXPECT_EQ(model->start(), (BulkProblem{input, BulkWords::cannotStart, *activeRun}));
    EXPECT_TRUE(model->as<BulkMappingState>());
    queue.drain();
    EXPECT_FALSE(started);
}

TEST_F(BulkUploadModelTest, TheNewestProgressWinsAndACompletedRunReportsItsResults) {
    openTwoRows();
    service->isHeld = true;
    service->script = [&](const auto& onProgress) {
        for (std::int64_t published = 0; published <= 2; ++published)
            service->send(publishedSoFar(published, 2 - published), onProgress);
        service->waitWhileHeld();
        BulkRunReport report;
        report.output = folder / "films (published).csv";
        report.addedRowCount = 1;
        report.result.items = service->rows;
        report.result.snapshot.counts.published = 2;
        return report;
    };
    ASSERT_EQ(model->start(), std::nullopt);
    ASSERT_TRUE(model->isRunning());
    ASSERT_TRUE(service->waitUntilWaiting());

    std::vector<std::int64_t> shown;
    model->onChange([&] {
        if (const auto* running = model->as<BulkRunState>(); running && running->progress)
            shown.push_back(running->progress->counts.published);
    });
    queue.drain();
    // Three reports while the main thread was busy come as one, the last.
    ASSERT_FALSE(shown.empty());
    EXPECT_EQ(shown.front(), 2);
    const auto* running = model->as<BulkRunState>();
    ASSERT_TRUE(running && running->progress);
    EXPECT_EQ(running->progress->counts.published, 2);
    EXPECT_EQ(running->rows.size(), 2u);
    queue.runUntil([&] { return model->as<BulkRunState>()->durations.size() == 2; });
    EXPECT_EQ(model->as<BulkRunState>()->durations.at("/films/b.mp4"), 12.5);

    service->release();
    runUntilEnded();
    const auto* ended = model->as<BulkEndState>();
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->ending, BulkEndState::Ending::completed);
    EXPECT_EQ(ended->counts.published, 2);
    EXPECT_EQ(ended->addedRowCount, 1);
    EXPECT_EQ(ended->durations.size(), 2u);
    EXPECT_EQ(ends, 1);
}

TEST_F(BulkUploadModelTest, AStopEndsTheRunAsStoppedWithItsLastCounts) {
    openTwoRows();
    service->script = [&](const auto& onProgress) -> BulkRunReport {
        service->send(publishedSoFar(1, 1), onProgress);
        for (;;) sleepFor(std::chrono::milliseconds(5));
    };
    ASSERT_EQ(model->start(), std::nullopt);
    queue.runUntil([&] { return model->as<BulkRunState>()->progress.has_value(); });

    model->stop();
    EXPECT_TRUE(model->as<BulkRunState>()->isStopping);
    runUntilEnded();
    const auto* ended = model->as<BulkEndState>();
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->ending, BulkEndState::Ending::stopped);
    EXPECT_EQ(ended->counts.published, 1);
    EXPECT_EQ(ended->output, folder / "films (published).csv");
    EXPECT_EQ(ends, 1);
}

TEST_F(BulkUploadModelTest, AFailureBeforeAnyProgressDidNotStartAndOneAfterItStopped) {
    openTwoRows();
    service->script = [](const auto&) -> BulkRunReport { throw std::runtime_error("Another computer holds the site."); };
    ASSERT_EQ(model->start(), std::nullopt);
    runUntilEnded();
    const auto* failed = model->as<bulkPhase::Failed>();
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->problem, (BulkProblem{folder / "films.csv", BulkWords::didNotStart, "Another computer holds the site."}));

    openTwoRows();
    service->script = [&](const auto& onProgress) -> BulkRunReport {
        service->send(publishedSoFar(0, 2), onProgress);
        throw std::runtime_error("The results file cannot be written.");
    };
    ASSERT_EQ(model->start(), std::nullopt);
    runUntilEnded();
    failed = model->as<bulkPhase::Failed>();
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->problem.title, BulkWords::stoppedTitle);
}

}  // namespace
}  // namespace vorlen::app
