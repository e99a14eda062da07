#include "app/AppModel.hpp"

#include <atomic>
#include <cstdlib>
#include <thread>
#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"

using namespace vorlen;
using namespace vorlen::app;

namespace {

// A publish that runs until it is stopped, then takes a while to clean up.
class StoppablePublish final : public PublishService {
public:
    std::atomic<bool> started{false};
    std::atomic<bool> cleanedUp{false};

    VideoInspection inspect(const fs::path& file) override {
        VideoInspection inspection;
        inspection.source = file;
        inspection.suggestedName = "holiday";
        inspection.suggestedTitle = "Holiday";
        return inspection;
    }
    VideoSubtitle readSubtitle(const fs::path& file) override { return VideoSubtitle{file, "en", 1}; }
    ResolvedFolder resolveFolder(const std::string& name, const BucketAccess&) override { return {name, name, name + "/"}; }
    VideoReplacement replace(const ReplaceRequest&, const std::function<void(const JobProgress&)>&) override {
        throw std::runtime_error("not replaced here");
    }
    PublishedVideo publish(const PublishRequest&, const std::function<void(const PublishEvent&)>&) override {
        started = true;
        try {
            for (;;) sleepFor(std::chrono::seconds(1));
        } catch (const Cancelled&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            cleanedUp = true;
            throw;
        }
    }
};

struct Fixture {
    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-app-test-");
    DirectoryRemover remover{folder};
    PostedQueue queue;
    std::shared_ptr<FileSecretStore> secrets = std::make_shared<FileSecretStore>(folder / "secrets.json");

    Fixture() { ::setenv("XDG_DATA_HOME", (folder / "data").c_str(), 1); }
    AppModel model() {
        return AppModel(LocalSettingsStore(folder / "settings.json"), {secrets, [](const LocalSite&, std::shared_ptr<RateLimiter>) { return nullptr; }}, queue);
    }
};

}  // namespace

TEST(AppModelTest, FirstUseMakesTheLocalSiteWithASettingsFileTheWorkerCanRead) {
    Fixture fixture;
    auto model = fixture.model();
    EXPECT_EQ(model.currentSite(), std::nullopt);
    SiteID id = model.ensureSite();
    EXPECT_EQ(id.value, "local");
    EXPECT_EQ(model.ensureSite(), id);

    fs::path root = fixture.folder / "data" / "vorlen" / "local-site";
    FolderBucket bucket(root);
    auto settings = SiteSettings::readRequired(bucket);
    EXPECT_EQ(settings.pageHost.name, "localhost");
    EXPECT_EQ(settings.mediaHost.name, "media.localhost");
    EXPECT_EQ(settings.siteTemplate, SiteTemplate::automatic);
    EXPECT_EQ(settings.worker.name, "vorlen-local");

    // A second computer model reads the same settings file.
    auto again = fixture.model();
    ASSERT_EQ(again.settings().sites.size(), 1u);
    EXPECT_EQ(again.settings().sites[0].settings.localFolder, root);
    EXPECT_THROW(again.addLocalSite("other", root), VorlenError);
}

TEST(AppModelTest, RemovingASiteForgetsItsSecretsAndDefault) {
    Fixture fixture;
    auto model = fixture.model();
    R2SiteForm site{"0123456789abcdef", "films", "media.example.com", "watch.example.com", "", "", std::nullopt};
    SiteID id = model.addR2Site(site, R2Credentials{"t", "AK", "SK", std::nullopt});
    EXPECT_THROW(model.addR2Site(site, R2Credentials{"t", "AK", "SK", std::nullopt}), VorlenError);
    model.changeSettings([&](LocalSettings& s) { s.defaultSite = id; });
    EXPECT_TRUE(fixture.secrets->read(SiteStorage(id).credentialsItem));
    model.removeSite(id);
    EXPECT_FALSE(fixture.secrets->read(SiteStorage(id).credentialsItem));
    EXPECT_EQ(fixture.model().settings().defaultSite, std::nullopt);
    EXPECT_TRUE(fixture.model().settings().sites.empty());
}

TEST(AppModelTest, QuitStopsARunningPublishAndWaitsForItsCleanUp) {
    Fixture fixture;
    auto service = std::make_shared<StoppablePublish>();
    AppModel model(LocalSettingsStore(fixture.folder / "settings.json"),
                   {fixture.secrets, [&](const LocalSite&, std::shared_ptr<RateLimiter>) { return service; }}, fixture.queue);
    EXPECT_FALSE(model.isSetupRunning());
    auto workspace = model.workspace(model.ensureSite());
    EXPECT_FALSE(model.isJobRunning());
    workspace->drop({"/v/holiday.mov"});
    EXPECT_TRUE(model.isJobRunning());
    fixture.queue.runUntil([&] { return workspace->screen().as<ConfirmState>() != nullptr; });
    workspace->confirmPublish();
    while (!service->started) std::this_thread::sleep_for(std::chrono::milliseconds(1));

    model.quit();
    EXPECT_TRUE(model.isQuitting());
    EXPECT_TRUE(model.isJobRunning());
    fixture.queue.runUntil([&] { return !model.isJobRunning(); });
    EXPECT_TRUE(service->cleanedUp);
    EXPECT_TRUE(workspace->screen().as<Screen::Start>());
}

TEST(AppModelTest, ANewUploadLimitReachesTheSiteLimiterAndOutlivesASaveOfTheSite) {
    Fixture fixture;
    auto service = std::make_shared<StoppablePublish>();
    std::shared_ptr<RateLimiter> limiter;
    AppModel model(LocalSettingsStore(fixture.folder / "settings.json"),
                   {fixture.secrets,
                    [&](const LocalSite&, std::shared_ptr<RateLimiter> given) {
                        limiter = given;
                        return service;
                    }},
                   fixture.queue);
    SiteID id = model.ensureSite();
    model.setUploadLimit(id, UploadLimit::megabits(8));
    auto workspace = model.workspace(id);
    ASSERT_TRUE(limiter);
    EXPECT_EQ(limiter->bytesPerSecond(), 1000000u);

    model.setUploadLimit(id, UploadLimit::megabits(16));
    EXPECT_EQ(limiter->bytesPerSecond(), 2000000u);
    EXPECT_EQ(workspace->local().uploadLimit, UploadLimit::megabits(16));
    model.setUploadLimit(id, UploadLimit::unlimited());
    EXPECT_EQ(limiter->bytesPerSecond(), 0u);
    EXPECT_EQ(LocalSettingsStore(fixture.folder / "settings.json").load().site(id)->uploadLimit, UploadLimit::unlimited());
}
