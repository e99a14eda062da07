#include "app/LocalSettings.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

using namespace vorlen;
using namespace vorlen::app;

namespace {

LocalSite sampleSite(const std::string& id) {
    SiteSummary settings;
    settings.accountID = "acc";
    settings.bucket = "videos";
    settings.mediaHost = Hostname::parse("media.example.com");
    settings.pageHost = Hostname::parse("watch.example.com");
    settings.homePage.isPublic = true;
    settings.embeds.sites = EmbedSettings::Sites::listed;
    settings.embeds.origins = {WebOrigin::parse("https://blog.example")};
    settings.audioLoudness = AudioLoudness::web;
    return LocalSite{SiteID{id}, settings, VideoVisibility::unlisted, "0.1.0", UploadLimit::megabits(40)};
}

}  // namespace

TEST(LocalSettingsTest, RoundTripsThroughTheFile) {
    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-settings-test-");
    DirectoryRemover remover(folder);
    LocalSettingsStore store(folder / "vorlen" / "settings.json");
    EXPECT_EQ(store.load(), LocalSettings{});

    LocalSettings settings;
    settings.sites = {sampleSite("a"), sampleSite("b")};
    settings.sites[1].settings.localFolder = "/srv/site";
    settings.defaultSite = SiteID{"b"};
    settings.uploadTuning = {ParallelUploads::two, UploadPartSize::mib32};
    settings.lastUploadRate = 1.5e6;
    settings.encodingSpeed = EncodingSpeed::quality;
    store.save(settings);
    EXPECT_EQ(store.load(), settings);
}

TEST(LocalSettingsTest, DamagedFieldsTakeTheirDefaultsAndKeepTheRest) {
    LocalSettings settings;
    settings.sites = {sampleSite("a")};
    Json json = settings.toJson();
    json["uploadTuning"] = {{"parallelUploads", 3}, {"partSize", 16}};
    json["encodingSpeed"] = "warp";
    json["lastUploadRate"] = "fast";
    json["defaultUploadLimit"] = {{"megabitsPerSecond", -2}};
    json["sites"].push_back({{"id", "broken"}, {"site", {{"bucket", 7}}}});
    auto read = LocalSettings::fromJson(json);
    ASSERT_EQ(read.sites.size(), 1u);
    EXPECT_EQ(read.sites[0], settings.sites[0]);
    EXPECT_EQ(read.uploadTuning, UploadTuning{});
    EXPECT_EQ(read.encodingSpeed, EncodingSpeed::balanced);
    EXPECT_EQ(read.lastUploadRate, std::nullopt);
    EXPECT_EQ(read.defaultUploadLimit, UploadLimit::unlimited());
}

TEST(LocalSettingsTest, EarlierSingleSiteFormMigratesOnce) {
    Json older = {{"site", sampleSite("x").settings.toJson()}, {"lastVisibility", "unlisted"}};
    auto settings = LocalSettings::fromJson(older);
    ASSERT_TRUE(settings.earlierSite);
    EXPECT_TRUE(settings.migrateEarlierSite());
    ASSERT_EQ(settings.sites.size(), 1u);
    EXPECT_EQ(settings.legacySite, settings.sites[0].id);
    EXPECT_EQ(settings.sites[0].lastVisibility, VideoVisibility::unlisted);
    EXPECT_FALSE(settings.migrateEarlierSite());
    EXPECT_FALSE(LocalSettings::fromJson(settings.toJson()).earlierSite);
}

TEST(LocalSettingsTest, UploadLimitsInBytesAndWords) {
    EXPECT_EQ(UploadLimit::megabits(8).bytesPerSecond(), 1000000u);
    EXPECT_EQ(UploadLimit::megabits(8).text(), "8 Mbit/s");
    EXPECT_EQ(UploadLimit::unlimited().bytesPerSecond(), 0u);
    EXPECT_EQ(UploadLimit::unlimited().text(), "Unlimited");
    EXPECT_EQ((UploadTuning{ParallelUploads::eight, UploadPartSize::mib5}).partBytes(), 5242880u);
}

TEST(LocalSettingsTest, ATypedLimitIsAWholeNumberOrUnlimited) {
    EXPECT_EQ(UploadLimit::parse("10"), UploadLimit::megabits(10));
    EXPECT_EQ(UploadLimit::parse(" 250 "), UploadLimit::megabits(250));
    EXPECT_EQ(UploadLimit::parse("Unlimited"), UploadLimit::unlimited());
    for (const char* typed : {"10abc", "", "0", "-5", "1e3", "2.5", "100001", "99999999999", "ten"}) {
        try {
            UploadLimit::parse(typed);
            ADD_FAILURE() << typed << " was taken";
        } catch (const VorlenError& error) {
            EXPECT_EQ(error.text(), fmt::format("\u201c{}\u201d is not an upload limit: give a whole number of Mbit/s "
                                                "from 1 to 100000, or \u201cunlimited\u201d.",
                                                typed));
        }
    }
}
