#include "core/publish/Publisher.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "core/publish/ToolRunner.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

// Processes whose parent is this test process.
std::vector<std::string> childProcesses() {
    std::vector<std::string> children;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        if (!std::getline(stat, line)) continue;
        auto close = line.rfind(')');
        if (close == std::string::npos) continue;
        std::istringstream rest(line.substr(close + 2));
        std::string state;
        pid_t parent = 0;
        rest >> state >> parent;
        if (parent == ::getpid()) children.push_back(line.substr(0, close + 1));
    }
    return children;
}

class PublisherTest : public ::testing::Test {
protected:
    void SetUp() override {
        publisher.tools = Tools::locate();
        publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
        publisher.workRoot = clips.path() / "work";
    }

    bool workRootIsEmpty() const { return !fs::exists(publisher.workRoot) || fs::is_empty(publisher.workRoot); }

    testing::ClipFolder clips;
    Publisher publisher;
    VideoDetails details{"A test", std::nullopt, std::nullopt, VideoVisibility::publicVideo};
};

TEST_F(PublisherTest, BuildsAPlayableFolderThatRemovesItselfWhenDropped) {
    auto source = clips.make("Garden walk.mp4", testing::lavfiVideo(320, 180, 7) + " " + testing::lavfiTone(7) +
                                                     " -c:v libx264 -preset ultrafast -c:a aac -shortest");
    auto inspection = publisher.inspect(source);
    std::vector<PublishProgress> reports;
    std::mutex mutex;
    auto created = SystemTime(std::chrono::seconds(1'700'000'000));
    auto built = publisher.build(inspection, details, AudioLoudness::web, created, [&](const PublishProgress& p) {
        std::lock_guard lock(mutex);
        reports.push_back(p);
    });

    const auto& folder = built->directory();
    EXPECT_EQ(folder.filename(), "publish");
    EXPECT_EQ(folder.parent_path().filename().string().rfind("garden-walk-", 0), 0u);
    EXPECT_FALSE(fs::exists(folder.parent_path() / "intermediate"));
    EXPECT_EQ(built->built().media, (std::vector<std::string>{"v_360/001.mp4", "a_stereo/001.mp4"}));
    auto all = built->allFiles();
    std::uint64_t bytes = 0;
    for (const auto& file : all) bytes += fs::file_size(folder / file);
    EXPECT_EQ(bytes, built->byteCount());
    EXPECT_NE(std::find(all.begin(), all.end(), "master.m3u8"), all.end());
    EXPECT_NE(std::find(all.begin(), all.end(), "manifest.mpd"), all.end());

    auto metadata = VideoMetadata::decoded(readFile(folder / "video.json"));
    EXPECT_EQ(metadata, built->built().metadata);
    EXPECT_EQ(metadata.size, (PixelSize{640, 360}));  // the 360 rung, scaled up to its standard box
    EXPECT_EQ(metadata.duration, std::round(inspection.info.durationSeconds * 1000) / 1000);
    EXPECT_EQ(metadata.created, created);
    ASSERT_TRUE(built->built().poster.has_value());
    const auto& poster = *built->built().poster;
    EXPECT_EQ(metadata.poster, (PosterFile{poster.name, {640, 360}}));
    EXPECT_TRUE(isValidPosterName(poster.name));
    EXPECT_EQ(readFile(folder / poster.name), poster.jpeg);
    EXPECT_EQ(readFile(folder / "poster.jpg"), poster.jpeg);
    EXPECT_FALSE(built->built().posterSelectionError);
    EXPECT_EQ(metadata.audio, VideoAudio(AudioTrack{AudioLoudness::web}));

    // ffmpeg plays every stream of the byte-range HLS without an error.
    auto decoded = ToolRunner::run("ffmpeg", publisher.tools.ffmpeg,
                                   {"-v", "error", "-i", (folder / "master.m3u8").string(), "-map", "0", "-f", "null", "-"});
    EXPECT_EQ(decoded.standardError, "");

    ASSERT_GE(reports.size(), 2u);
    EXPECT_EQ(reports.front().stage, PublishProgress::Stage::encoding);
    EXPECT_EQ(reports.back().stage, PublishProgress::Stage::packaging);
    EXPECT_EQ(reports.back().stageFraction, 1.0);
    for (const auto& report : reports) {
        EXPECT_GE(report.stageFraction, 0.0);
        EXPECT_LE(report.stageFraction, 1.0);
        EXPECT_EQ(report.uploadTotalBytes, inspection.estimatedBytes);
    }

    auto copy = built;
    built.reset();
    EXPECT_TRUE(fs::exists(folder));  // a holder is left
    copy.reset();
    EXPECT_TRUE(workRootIsEmpty());
}

TEST_F(PublisherTest, AReviewDecidesThePosterBeforeVideoJsonIsWritten) {
    auto source = clips.make("review.mp4", testing::lavfiVideo(320, 180, 4) + " -c:v libx264 -preset ultrafast");
    auto inspection = publisher.inspect(source);
    publisher.expectedUploadRate = 1000;
    std::optional<PosterProposal> proposed;
    std::optional<PublishProgress> reviewing;
    auto built = publisher.build(
        inspection, details, AudioLoudness::original, std::nullopt,
        [&](const PublishProgress& p) {
            if (p.stage == PublishProgress::Stage::reviewingPoster) reviewing = p;
        },
        [&](const PosterProposal& proposal) -> std::optional<Poster> {
            proposed = proposal;
            EXPECT_TRUE(fs::exists(proposal.video));  // frames can still be read from it
            return std::nullopt;
        });

    ASSERT_TRUE(proposed && reviewing);
    ASSERT_TRUE(std::holds_alternative<Poster>(proposed->selection));
    EXPECT_EQ(proposed->maximumSize, (PixelSize{640, 360}));
    EXPECT_DOUBLE_EQ(proposed->duration, inspection.info.durationSeconds);
    EXPECT_GT(reviewing->uploadTotalBytes, 0u);
    EXPECT_DOUBLE_EQ(*reviewing->stageETA, double(reviewing->uploadTotalBytes) / 1000);

    // Published without a poster: none in the record, none in the folder.
    EXPECT_FALSE(built->built().poster.has_value());
    EXPECT_EQ(built->built().metadata.poster, std::nullopt);
    EXPECT_FALSE(fs::exists(built->directory() / "poster.jpg"));
    EXPECT_EQ(VideoMetadata::decoded(readFile(built->directory() / "video.json")).poster, std::nullopt);
}

TEST_F(PublisherTest, SilentSourceHasNoAudioFilesAndSaysSo) {
    auto source = clips.make("mute.mp4", testing::lavfiVideo(320, 180, 3) + " -c:v libx264 -preset ultrafast");
    auto built = publisher.build(publisher.inspect(source), details, AudioLoudness::original, std::nullopt, {});
    EXPECT_EQ(built->built().media, (std::vector<std::string>{"v_360/001.mp4"}));
    for (const auto& file : built->allFiles()) EXPECT_NE(file.rfind("a_", 0), 0u) << file;
    EXPECT_EQ(built->built().metadata.audio, VideoAudio(NoAudioTrack{}));
}

TEST_F(PublisherTest, CancelledOrFailedBuildLeavesNoWorkDirectoryNorProcess) {
    auto source = clips.make("long.mp4", testing::lavfiVideo(320, 180, 30) + " " + testing::lavfiTone(30) +
                                              " -c:v libx264 -preset ultrafast -c:a aac -shortest");
    auto inspection = publisher.inspect(source);
    std::atomic<bool> encoding{false};
    auto task = Task<std::shared_ptr<BuiltFolder>>::spawn([&] {
        return publisher.build(inspection, details, AudioLoudness::broadcast, std::nullopt, [&](const PublishProgress& p) {
            if (p.stage == PublishProgress::Stage::encoding && p.stageFraction > 0) encoding = true;
        });
    });
    while (!encoding && !task.isFinished()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    task.cancel();
    EXPECT_THROW(task.value(), Cancelled);
    EXPECT_TRUE(workRootIsEmpty());
    EXPECT_EQ(childProcesses(), std::vector<std::string>{});

    // A source that goes bad after its inspection fails in ffmpeg, with its words.
    std::ofstream(source, std::ios::trunc) << "not a video any more";
    try {
        publisher.build(inspection, details, AudioLoudness::original, std::nullopt, {});
        FAIL();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text().rfind("ffmpeg failed: exit status: ", 0), 0u) << error.text();
    }
    EXPECT_TRUE(workRootIsEmpty());
}

}  // namespace
}  // namespace vorlen
