#include "app/SiteWorkspace.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>

#include "app/CorePublishService.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/MediaClip.hpp"

using namespace vorlen;
using namespace vorlen::app;
using namespace std::chrono_literals;

namespace {

// A publish service whose calls the test controls.
class FakePublishService final : public PublishService {
public:
    std::mutex mutex;
    std::vector<std::string> resolvedNames;
    std::vector<PublishRequest> publishes;
    std::function<void(const PublishRequest&, const std::function<void(const PublishEvent&)>&)> onPublish;
    std::function<VideoInspection(const fs::path&)> onInspect = [](const fs::path& file) {
        VideoInspection inspection;
        inspection.source = file;
        inspection.suggestedName = "holiday";
        inspection.suggestedTitle = "Holiday";
        return inspection;
    };

    VideoInspection inspect(const fs::path& file) override { return onInspect(file); }
    VideoSubtitle readSubtitle(const fs::path& file) override { return VideoSubtitle{file, "en", 3}; }
    ResolvedFolder resolveFolder(const std::string& name, const BucketAccess&) override {
        std::lock_guard lock(mutex);
        resolvedNames.push_back(name);
        return ResolvedFolder{name, name, name + "/"};
    }
    VideoReplacement replace(const ReplaceRequest&, const std::function<void(const JobProgress&)>&) override {
        throw std::runtime_error("not replaced here");
    }
    PublishedVideo publish(const PublishRequest& request, const std::function<void(const PublishEvent&)>& onEvent) override {
        {
            std::lock_guard lock(mutex);
            publishes.push_back(request);
        }
        if (onPublish) onPublish(request, onEvent);
        return PublishedVideo{request.name + "/", request.name + "/master.m3u8", request.name + "/manifest.mpd", 12, 1000, 5e6};
    }
    std::size_t publishCount() {
        std::lock_guard lock(mutex);
        return publishes.size();
    }
};

// Counts the catalogue rebuilds that publishes ask for.
class CountingCatalogService final : public CatalogService {
public:
    std::atomic<int> rebuilds = 0;
    void rebuild(const BucketAccess&) override { ++rebuilds; }
};

// The batch run that the bucket's record names, as the test sets it.
class FakeBatchRunService final : public BatchRunService {
public:
    std::optional<ActiveBatchRun> activeRun(const BucketAccess&) override {
        std::lock_guard lock(mutex);
        return run;
    }
    void setRun(std::optional<ActiveBatchRun> active) {
        std::lock_guard lock(mutex);
        run = std::move(active);
    }

private:
    std::mutex mutex;
    std::optional<ActiveBatchRun> run;
};

struct Fixture {
    PostedQueue queue;
    std::shared_ptr<CountingCatalogService> catalog = std::make_shared<CountingCatalogService>();
    std::shared_ptr<FakeBatchRunService> batchRuns = std::make_shared<FakeBatchRunService>();
    std::shared_ptr<FakePublishService> service = std::make_shared<FakePublishService>();
    std::optional<double> recordedRate;
    std::shared_ptr<SiteWorkspace> workspace;

    // A local site in siteFolder, or with credentials an R2 site that keeps them there;
    // its publishes go to `publish`, else to the fake service.
    explicit Fixture(std::chrono::nanoseconds nameCheckDelay = 1ms, std::shared_ptr<PublishService> publish = nullptr,
                     fs::path siteFolder = "/tmp/unused", std::shared_ptr<CredentialStore> credentials = nullptr) {
        SiteSummary site;
        site.accountID = "local";
        site.bucket = "local";
        site.mediaHost = Hostname::parse("media.localhost");
        site.pageHost = Hostname::parse("localhost");
        if (!credentials) site.localFolder = siteFolder;
        LocalSite local{SiteID{"local"}, site, VideoVisibility::publicVideo, std::nullopt, UploadLimit{}};
        SiteWorkspace::Host host{[] { return LocalSettings{}; }, [this](double rate) { recordedRate = rate; }, nullptr, nullptr};
        workspace = SiteWorkspace::make(local, {publish ? publish : service, credentials, {nullptr, catalog}, nullptr, batchRuns, nullptr}, host, queue,
                                        {nameCheckDelay, 20s, CatalogModel::defaultInterval});
    }

    template <class State>
    State& waitFor() {
        queue.runUntil([&] { return workspace->screen().as<State>() != nullptr; });
        return *const_cast<State*>(workspace->screen().as<State>());
    }
    void waitForNameStatus() {
        queue.runUntil([&] {
            auto* confirm = workspace->screen().as<ConfirmState>();
            return confirm && !std::holds_alternative<ConfirmState::Checking>(confirm->nameStatus);
        });
    }
};

// A secret store whose bus has gone away.
class FailingSecretStore final : public SecretStore {
public:
    std::optional<std::string> read(const SecretItem&) override { throw std::runtime_error("The secret store did not answer: no bus"); }
    void write(const SecretItem&, std::string_view) override { throw std::runtime_error("unused"); }
    bool remove(const SecretItem&) override { throw std::runtime_error("unused"); }
};

}  // namespace

TEST(SiteWorkspaceTest, VideoWithTwoSubtitlesReachesConfirmWithBoth) {
    Fixture fixture;
    EXPECT_TRUE(fixture.workspace->drop({"/v/a.srt", "/v/holiday.mov", "/v/b.VTT", "/v/second.mp4"}));
    EXPECT_TRUE(fixture.workspace->screen().as<Screen::Inspecting>());
    EXPECT_FALSE(fixture.workspace->canStartVideo());
    auto& confirm = fixture.waitFor<ConfirmState>();
    EXPECT_EQ(confirm.inspection.source, "/v/holiday.mov");
    ASSERT_EQ(confirm.subtitleFiles.files.size(), 2u);
    EXPECT_EQ(confirm.randomPart.size(), 8u);
    fixture.waitForNameStatus();
    EXPECT_TRUE(std::holds_alternative<ConfirmState::Resolved>(fixture.workspace->screen().as<ConfirmState>()->nameStatus));
}

TEST(SiteWorkspaceTest, OnlyTheLastNameIsQueriedAndUnlistedWithoutNameIsInvalid) {
    Fixture fixture(1s);
    fixture.workspace->drop({"/v/holiday.mov"});
    fixture.waitFor<ConfirmState>();
    for (auto name : {"h", "ho", "hol", "holi"}) fixture.workspace->editConfirm([&](ConfirmState& c) { c.name = name; });
    fixture.waitForNameStatus();
    {
        std::lock_guard lock(fixture.service->mutex);
        EXPECT_EQ(fixture.service->resolvedNames, std::vector<std::string>{"holi"});
    }
    fixture.workspace->editConfirm([](ConfirmState& c) {
        c.name = "";
        c.visibility = VideoVisibility::unlisted;
    });
    EXPECT_TRUE(std::holds_alternative<ConfirmState::Invalid>(fixture.workspace->screen().as<ConfirmState>()->nameStatus));
    std::lock_guard lock(fixture.service->mutex);
    EXPECT_EQ(fixture.service->resolvedNames.size(), 1u);
}

TEST(SiteWorkspaceTest, DropsThatMustNotChangeAnything) {
    Fixture fixture;
    EXPECT_FALSE(fixture.workspace->drop({"/v/only.srt"}));  // subtitles alone on start
    fixture.workspace->drop({"/v/holiday.mov"});
    EXPECT_FALSE(fixture.workspace->drop({"/v/other.mov"}));  // a second video while busy
    fixture.waitFor<ConfirmState>();
    fixture.waitForNameStatus();
    fixture.workspace->confirmPublish();
    fixture.waitFor<PublishedState>();
    EXPECT_FALSE(fixture.workspace->drop({"/v/late.vtt"}));
    EXPECT_TRUE(fixture.workspace->screen().as<PublishedState>());
}

TEST(SiteWorkspaceTest, StopDuringInspectionReturnsToStartWithoutAFailure) {
    Fixture fixture;
    fixture.service->onInspect = [](const fs::path&) -> VideoInspection {
        for (;;) sleepFor(1s);
    };
    fixture.workspace->drop({"/v/holiday.mov"});
    fixture.workspace->stop();
    EXPECT_TRUE(fixture.workspace->screen().as<Screen::Start>());
    fixture.queue.drain();
    EXPECT_TRUE(fixture.workspace->screen().as<Screen::Start>());
}

TEST(SiteWorkspaceTest, FailedUploadRetriesWithTheSameBuildAndEarlyFailureBuildsAgain) {
    Fixture fixture;
    auto built = std::shared_ptr<BuiltFolder>(reinterpret_cast<BuiltFolder*>(new int(1)), [](BuiltFolder* p) {
        delete reinterpret_cast<int*>(p);
    });
    std::atomic<int> attempt{0};
    fixture.service->onPublish = [&](const PublishRequest& request, const std::function<void(const PublishEvent&)>& onEvent) {
        int now = ++attempt;
        if (now == 1) throw VorlenError::tool("ffmpeg", "exit status: 1");  // before the build ended
        if (now == 2) {
            EXPECT_EQ(request.built, nullptr);
            onEvent(PublishEvent{PublishEvent::Built{built}});
            onEvent(PublishEvent{PublishEvent::UploadLog{{"0.1 s failed"}}});
            throw VorlenError::status(503, "Slow Down");
        }
        EXPECT_EQ(request.built, built);
    };
    fixture.workspace->drop({"/v/holiday.mov"});
    fixture.waitFor<ConfirmState>();
    fixture.workspace->confirmPublish();

    auto first = fixture.waitFor<Failure>();
    EXPECT_EQ(first.title, "Publishing Failed");
    EXPECT_EQ(first.message, "ffmpeg failed: exit status: 1");
    ASSERT_TRUE(first.retry);
    EXPECT_EQ(first.retry->built, nullptr);

    fixture.workspace->retry();
    fixture.queue.runUntil([&] {
        auto* failure = fixture.workspace->screen().as<Failure>();
        return failure && failure->message.find("503") != std::string::npos;
    });
    auto second = *fixture.workspace->screen().as<Failure>();
    EXPECT_EQ(second.uploadLog, std::vector<std::string>{"0.1 s failed"});
    ASSERT_TRUE(second.retry);
    EXPECT_EQ(second.retry->built, built);

    fixture.workspace->retry();
    auto& published = fixture.waitFor<PublishedState>();
    EXPECT_EQ(published.links.page, "http://localhost:8787/holiday");
    EXPECT_EQ(published.links.hls, "http://media.localhost:8787/holiday/master.m3u8");
    EXPECT_EQ(fixture.recordedRate, 5e6);
    EXPECT_EQ(attempt, 3);
    // Only the publish that ended well asks the pages to catch up.
    fixture.queue.runUntil([&] { return !fixture.workspace->catalog().isBusy(); });
    EXPECT_EQ(fixture.catalog->rebuilds, 1);
}

TEST(SiteWorkspaceTest, StopDuringPublishingEndsOnStart) {
    Fixture fixture;
    fixture.service->onPublish = [](const PublishRequest&, const std::function<void(const PublishEvent&)>&) {
        for (;;) sleepFor(1s);
    };
    fixture.workspace->drop({"/v/holiday.mov"});
    fixture.waitFor<ConfirmState>();
    fixture.workspace->confirmPublish();
    ASSERT_TRUE(fixture.workspace->screen().as<PublishingState>());
    fixture.workspace->stop();
    EXPECT_TRUE(fixture.workspace->screen().as<PublishingState>()->isStopping);
    fixture.waitFor<Screen::Start>();
}

TEST(SiteWorkspaceTest, PosterReviewHoldsTheCountdownAndTheAnswerReachesThePublish) {
    Fixture fixture;
    std::optional<PosterDecision> decided;
    std::function<void()> fireTimer;
    fixture.service->onPublish = [&](const PublishRequest&, const std::function<void(const PublishEvent&)>& onEvent) {
        auto neverFires = [&](BootClock::time_point, std::function<void()> fire) {
            fireTimer = fire;
            return std::function<void()>([] {});
        };
        PosterReviewRequest request;
        request.selection = Poster{"jpeg", "poster-00000001.jpg", 16, 9, 1.0};
        request.reply = PosterReviewReply::start(PosterDecision::of(*request.selection), 20s, neverFires);
        onEvent(PublishEvent{PublishEvent::ReviewPoster{request}});
        decided = request.reply->decision();
    };
    fixture.workspace->drop({"/v/holiday.mov"});
    fixture.waitFor<ConfirmState>();
    fixture.workspace->confirmPublish();
    auto& review = fixture.waitFor<PosterReviewState>();
    EXPECT_TRUE(review.isCountingDown);
    ASSERT_TRUE(review.poster);
    fixture.workspace->holdCountdown();
    EXPECT_FALSE(fixture.workspace->screen().as<PosterReviewState>()->isCountingDown);
    fireTimer();  // a timer that fires after the hold changes nothing
    fixture.workspace->publishWithoutPoster();
    fixture.workspace->confirmPoster();
    EXPECT_TRUE(fixture.workspace->screen().as<PublishingState>());
    fixture.waitFor<PublishedState>();
    ASSERT_TRUE(decided);
    EXPECT_FALSE(decided->poster);
}

TEST(SiteWorkspaceTest, AFailingSecretStoreEndsOnTheFailureScreenWithItsWords) {
    auto credentials = std::make_shared<CredentialStore>(std::make_shared<FailingSecretStore>(), SecretItem{"vorlen", "r2"});
    Fixture fixture(1ms, nullptr, "/tmp/unused", credentials);
    ASSERT_TRUE(fixture.workspace->drop({"/videos/holiday.mp4"}));
    auto& failure = fixture.waitFor<Failure>();
    EXPECT_EQ(failure.title, "Cannot Publish");
    EXPECT_EQ(failure.message, "The secret store did not answer: no bus");
    EXPECT_FALSE(failure.retry);
    EXPECT_TRUE(fixture.service->resolvedNames.empty());
}

TEST(SiteWorkspaceTest, ATypedNameTakenDuringTheBuildFailsWithTheConflictAndTheRetryKeepsTheBuild) {
    vorlen::testing::ClipFolder clips;
    auto source = clips.make("Harbour walk.mp4", vorlen::testing::lavfiVideo(320, 180, 2) + " " + vorlen::testing::lavfiTone(2) +
                                                     " -c:v libx264 -preset ultrafast -c:a aac -shortest");
    fs::path siteFolder = clips.path() / "site";
    CorePipeline pipeline;
    pipeline.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
    pipeline.workRoot = clips.path() / "work";
    Fixture fixture(1ms, std::make_shared<CorePublishService>(pipeline), siteFolder);
    auto settled = [&] {
        const auto& screen = fixture.workspace->screen();
        return screen.as<PosterReviewState>() || screen.as<Failure>() || screen.as<PublishedState>();
    };

    fixture.workspace->drop({source});
    fixture.waitFor<ConfirmState>();
    fixture.workspace->editConfirm([](ConfirmState& confirm) { confirm.name = "harbour"; });
    fixture.waitForNameStatus();
    fixture.workspace->confirmPublish();
    fixture.queue.runUntil(settled);
    ASSERT_TRUE(fixture.workspace->screen().as<PosterReviewState>()) << "the build waits for the poster review";
    fixture.workspace->holdCountdown();

    // Meanwhile another computer publishes under the same name.
    FolderBucket other(siteFolder);
    other.put("harbour/video.json", RequestBody::bytes("theirs"), {}, WriteCondition::absent());
    fixture.workspace->confirmPoster();
    fixture.queue.runUntil(settled);
    auto* failure = fixture.workspace->screen().as<Failure>();
    ASSERT_TRUE(failure) << "the publish went into the other computer's folder";
    EXPECT_EQ(failure->title, "Publishing Failed");
    EXPECT_EQ(failure->message, "harbour/video.json changed after it was read, or it exists already");
    ASSERT_TRUE(failure->retry);
    auto build = failure->retry->built;
    ASSERT_TRUE(build);
    EXPECT_EQ(other.listKeys(""), std::vector<std::string>{"harbour/video.json"});

    fixture.workspace->retry();
    EXPECT_EQ(fixture.workspace->screen().as<PublishingState>()->built, build);
    fixture.queue.runUntil(settled);
    auto* published = fixture.workspace->screen().as<PublishedState>();
    ASSERT_TRUE(published);
    EXPECT_EQ(published->links.page, "http://localhost:8787/harbour-1");
    EXPECT_EQ(other.object("harbour/video.json"), "theirs");
}

TEST(SiteWorkspaceTest, ABatchRunHereRefusesVideosAndIsRefusedWhileOneIsOnItsWay) {
    Fixture fixture;
    fixture.workspace->beginBatchRun(BatchRunKind::bulkUpload);
    EXPECT_FALSE(fixture.workspace->drop({"/v/holiday.mov"}));
    EXPECT_TRUE(fixture.workspace->screen().as<Screen::Start>());
    EXPECT_EQ(fixture.workspace->videoRefusal(), "A bulk upload is running. Publish the video when the bulk upload ends or stops.");
    auto refusal = [&](BatchRunKind kind) {
        try {
            fixture.workspace->beginBatchRun(kind);
        } catch (const VorlenError& error) {
            return std::string(error.what());
        }
        return std::string("not refused");
    };
    EXPECT_EQ(refusal(BatchRunKind::vimeoSync), "A bulk upload is running. Start the sync when the bulk upload ends or stops.");
    fixture.workspace->endBatchRun();
    fixture.workspace->beginBatchRun(BatchRunKind::vimeoSync);
    EXPECT_EQ(refusal(BatchRunKind::bulkUpload), "A Vimeo sync is running. Start the bulk upload when the sync ends or stops.");
    fixture.workspace->endBatchRun();

    // A video counts from its drop, before the person confirms it.
    ASSERT_TRUE(fixture.workspace->drop({"/v/holiday.mov"}));
    EXPECT_EQ(refusal(BatchRunKind::bulkUpload),
              "Vorlen is publishing a video. Start the bulk upload when that video is published or cancelled.");
    fixture.waitFor<ConfirmState>();
    EXPECT_EQ(refusal(BatchRunKind::vimeoSync),
              "Vorlen is publishing a video. Start the sync when that video is published or cancelled.");
    EXPECT_FALSE(fixture.workspace->batchRunHere());
}

TEST(SiteWorkspaceTest, AnotherComputersBatchRunRefusesThePublishAndItsRetry) {
    Fixture fixture;
    const ActiveBatchRun studio{BatchRunKind::vimeoSync, "Studio", SystemTime{}};
    fixture.batchRuns->setRun(studio);
    fixture.workspace->drop({"/v/holiday.mov"});
    fixture.waitFor<ConfirmState>();
    fixture.workspace->confirmPublish();
    auto refused = fixture.waitFor<Failure>();
    EXPECT_EQ(refused.title, "Cannot Publish");
    EXPECT_EQ(refused.message, studio.message());
    EXPECT_EQ(fixture.service->publishCount(), 0u);
    ASSERT_TRUE(refused.retry);

    // The run ends there, then one begins here: a retry waits for it too.
    fixture.batchRuns->setRun(std::nullopt);
    fixture.workspace->beginBatchRun(BatchRunKind::bulkUpload);
    fixture.workspace->retry();
    EXPECT_EQ(fixture.workspace->screen().as<Failure>()->message,
              "A bulk upload is running. Publish the video when the bulk upload ends or stops.");
    fixture.workspace->endBatchRun();
    fixture.workspace->retry();
    fixture.waitFor<PublishedState>();
    EXPECT_EQ(fixture.service->publishCount(), 1u);
}
