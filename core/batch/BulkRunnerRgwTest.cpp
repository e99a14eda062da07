#include "core/batch/BulkRunner.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <atomic>
#include <mutex>
#include <random>

#include "core/base/Files.hpp"
#include "core/batch/BatchRunRecord.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "core/storage/VideoFolderHeaders.hpp"
#include "testing/FailureText.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/MediaClip.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using namespace std::chrono_literals;
using testing::Fault;
using testing::failureOf;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;
namespace fs = std::filesystem;

const std::string pageBase = "https://videos.example.com/";

// Spreadsheets of real clips published through a proxy to the real S3 server.
class BulkRunnerRgwTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        clips = new testing::ClipFolder;
        for (const auto* name : {"alpha", "beta", "gamma", "delta"})
            clips->make(fmt::format("{}.mp4", name), testing::lavfiVideo(320, 180, 2) + " " + testing::lavfiTone(2) +
                                                         " -c:v libx264 -preset ultrafast -c:a aac -shortest");
    }
    static void TearDownTestSuite() { delete clips; }

    BulkRunnerRgwTest()
        : direct_(RgwServer::shared().makeBucket()),
          proxy_(RgwServer::shared().endpoint(), RgwServer::shared().credentials()) {
        const auto bucket = RgwServer::shared().client(direct_->location().bucket, proxy_.endpoint());
        runner_.publisher.tools = Tools::locate();
        runner_.publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
        runner_.publisher.workRoot = clips->path() / "work";
        runner_.publisher.destination = Destination{bucket, "videos/", direct_->location().bucket};
        runner_.publisher.upload.maxRetries = 5;
        runner_.publisher.upload.retryDelay = std::chrono::milliseconds(10);
        runner_.library = Library{runner_.publisher.destination, bucket->location(), runner_.publisher.upload, nullptr};
        runner_.pageBase = pageBase;
        runner_.computerName = "Laptop";
        runner_.recordInterval = 100ms;
    }

    fs::path sheet(const std::string& name, const std::string& rows) {
        const auto path = clips->path() / name;
        fs::remove(BulkSheetFile::outputPath(path));
        writeFileAtomically(path, "File,Title,Reference\r\n" + rows);
        return path;
    }

    BulkRunResult run(const fs::path& input, const std::function<void(const BulkProgress&)>& onProgress = {}) {
        auto file = BulkSheetFile::open(input);
        const BulkColumnMapping mapping{*file.sheet.column("File"), file.sheet.column("Title"),
                                        file.sheet.column("Reference"), std::nullopt, std::nullopt};
        const auto rows = file.prepareForRun(mapping);
        return runner_.run(file, rows, ReimportMode::skip, onProgress);
    }

    // The status column of the results copy, row by row.
    static std::vector<std::string> statuses(const fs::path& input) {
        const auto copy = DelimitedText::read(BulkSheetFile::outputPath(input));
        std::vector<std::string> found;
        for (std::size_t row = 1; row < copy.rows.size(); ++row) found.push_back(copy.rows[row].back());
        return found;
    }

    // Folder by reference: every folder of the bucket, finished or not.
    std::multimap<std::string, std::string> foldersByReference() const {
        std::multimap<std::string, std::string> found;
        for (const auto& video : runner_.library.read()) {
            const auto* metadata = video.metadata();
            EXPECT_TRUE(video.isComplete) << video.folder << " is left unfinished";
            found.emplace(metadata && metadata->details.reference() ? *metadata->details.reference() : "", video.folder);
        }
        return found;
    }

    static inline testing::ClipFolder* clips = nullptr;
    std::shared_ptr<S3Bucket> direct_;
    FaultProxy proxy_;
    BulkRunner runner_;
};

TEST_F(BulkRunnerRgwTest, EachReferenceIsPublishedOnceAndARunAgainTouchesOnlyWhatIsNotDone) {
    // An earlier upload of R-3 that never finished: its folder has a record but no manifest.
    const VideoDetails interrupted("Gamma", "R-3", std::nullopt, VideoVisibility::publicVideo);
    const auto time = parseIso8601("2026-01-01T00:00:00Z").value();
    direct_->put("videos/old-try/video.json",
                 RequestBody::bytes(VideoMetadata{interrupted, std::nullopt, 2.0, PixelSize{320, 180}, time, time,
                                                  AudioTrack{}, std::nullopt}
                                        .encoded()),
                 videoFolderHeaders("video.json"));
    direct_->put("videos/old-try/v_180/001.mp4", RequestBody::bytes("part"), videoFolderHeaders("v_180/001.mp4"));

    const auto input = sheet("videos.csv", "alpha.mp4,Alpha,R-1\r\nbeta.mp4,Beta,R-2\r\nbeta.mp4,Beta again, R-2\r\n"
                                           "gamma.mp4,Gamma,R-3\r\nnowhere.mp4,Gone,R-4\r\n");
    std::mutex seenMutex;
    std::set<BatchPhase> phases;
    const auto result = run(input, [&](const BulkProgress& progress) {
        std::lock_guard lock(seenMutex);
        for (const auto& active : progress.snapshot.activeItems) phases.insert(active.phase);
    });

    EXPECT_EQ(result.snapshot.counts, (BulkRowCounts{0, 3, 0, 1, 1, 0}));
    EXPECT_EQ(statuses(input), (std::vector<std::string>{"Published", "Published", "Skipped: already in the bucket (beta)",
                                                         "Published",
                                                         fmt::format("Failed: There is no file at \u201c{}\u201d.",
                                                                     (clips->path() / "nowhere.mp4").string())}));
    EXPECT_EQ(foldersByReference(),
              (std::multimap<std::string, std::string>{{"R-1", "alpha"}, {"R-2", "beta"}, {"R-3", "gamma"}}));
    EXPECT_TRUE(phases.contains(BatchPhase::waitingForReference)) << "the second R-2 row waits for the first";
    EXPECT_TRUE(phases.contains(BatchPhase::uploading));
    EXPECT_FALSE(direct_->object(BatchRunRecord::key)) << "the record goes with the run";
    EXPECT_TRUE(fs::is_empty(clips->path() / "work")) << "no build stays on disk";

    // Only the failed row is an item again.
    const auto again = run(input);
    EXPECT_EQ(again.snapshot.counts, (BulkRowCounts{4, 0, 0, 0, 1, 0}));
    EXPECT_EQ(foldersByReference().size(), 3u);
}

TEST_F(BulkRunnerRgwTest, ARunWhoseRecordWasTakenOverStopsCleanAndTheNextRunFinishesTheRest) {
    const auto input = sheet("lost.csv", "alpha.mp4,Alpha,L-1\r\nbeta.mp4,Beta,L-2\r\ngamma.mp4,Gamma,L-3\r\n");
    std::atomic<bool> takenOver = false;
    const auto failure = failureOf([&] {
        run(input, [&](const BulkProgress& progress) {
            // Another computer takes the site while this one sleeps, once the first row is done.
            if (progress.snapshot.results.empty() || takenOver.exchange(true)) return;
            const BatchRunRecord other{"another-run", BatchRunKind::bulkUpload, "Studio",
                                       std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())};
            direct_->put(BatchRunRecord::key, RequestBody::bytes(other.encoded()), {});
        });
    });
    EXPECT_EQ(failure, "Another run started on this site while this run could not report to the bucket, for example "
                       "while this computer was asleep. So this run stopped. A later run continues with the videos that are "
                       "left.");
    EXPECT_EQ(statuses(input).front(), "Published");
    EXPECT_NE(statuses(input).back(), "Published");
    EXPECT_EQ(BatchRunRecord::decoded(direct_->object(BatchRunRecord::key).value()).id, "another-run")
        << "the other run's record stays";
    foldersByReference();  // nothing unfinished was left behind

    direct_->remove(BatchRunRecord::key);
    const auto again = run(input);
    EXPECT_EQ(again.snapshot.counts.failed, 0);
    EXPECT_EQ(statuses(input), (std::vector<std::string>{"Published", "Published", "Published"}));
    EXPECT_EQ(foldersByReference(),
              (std::multimap<std::string, std::string>{{"L-1", "alpha"}, {"L-2", "beta"}, {"L-3", "gamma"}}));
}

TEST_F(BulkRunnerRgwTest, UnderTenPercentInjectedFaultsEveryRowIsPublishedOnce) {
    const auto input = sheet("faults.csv", "alpha.mp4,Alpha,F-1\r\nbeta.mp4,Beta,F-2\r\ngamma.mp4,Gamma,F-3\r\n"
                                           "delta.mp4,Delta,F-4\r\n");
    std::mutex randomMutex;
    std::mt19937 random(18);
    proxy_.setPolicy([&](const ProxyRequest&) {
        std::lock_guard lock(randomMutex);
        return Fault::tenthOfTheTime(random());
    });
    const auto result = run(input);
    proxy_.setPolicy([](const ProxyRequest&) { return Fault::none(); });

    EXPECT_EQ(result.snapshot.counts, (BulkRowCounts{0, 4, 0, 0, 0, 0}));
    EXPECT_EQ(statuses(input), (std::vector<std::string>(4, "Published")));
    EXPECT_EQ(foldersByReference(), (std::multimap<std::string, std::string>{
                                        {"F-1", "alpha"}, {"F-2", "beta"}, {"F-3", "gamma"}, {"F-4", "delta"}}));
    EXPECT_FALSE(direct_->object(BatchRunRecord::key));
    EXPECT_GT(proxy_.faultsInjected(), 0u);
    RecordProperty("faults", static_cast<int>(proxy_.faultsInjected()));
}

}  // namespace
}  // namespace vorlen
