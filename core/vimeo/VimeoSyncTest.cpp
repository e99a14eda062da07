#include "core/vimeo/VimeoSync.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/publish/SoftwareEncoder.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/LocalVimeo.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

using namespace std::chrono_literals;
using testing::LocalVimeo;
namespace fs = std::filesystem;

// Videos of the local Vimeo imported into a folder bucket with real clips.
class VimeoSyncTest : public ::testing::Test {
protected:
    VimeoSyncTest() {
        bucket_ = std::make_shared<FolderBucket>(clips_.path() / "bucket");
        sync_.api = api(vimeo().token());
        sync_.publisher.tools = Tools::locate();
        sync_.publisher.encoder = std::make_shared<SoftwareEncoder>(EncodingSpeed::fast);
        sync_.publisher.workRoot = clips_.path() / "work";
        sync_.publisher.destination = Destination{bucket_, "", "folder"};
        sync_.library = Library{sync_.publisher.destination, BucketLocation{"", "bucket"}, sync_.publisher.upload, nullptr};
        sync_.pageBase = "https://videos.example.com/";
        sync_.computerName = "Studio";
        sync_.downloader = std::make_shared<FileDownloader>(std::make_shared<HttpClient>(),
                                                            RetryPolicy{3, std::chrono::duration<double>(0.01)});
        sync_.workRoot = clips_.path() / "downloads";
        sync_.recordInterval = 1s;
    }

    static LocalVimeo& vimeo() { return LocalVimeo::shared(); }
    static std::shared_ptr<VimeoAPI> api(const std::string& token) {
        Endpoints endpoints;
        endpoints.vimeoAPI = vimeo().api();
        return std::make_shared<VimeoAPI>(token, std::make_shared<HttpClient>(), endpoints,
                                          RetryPolicy{2, std::chrono::duration<double>(0.01)});
    }
    VimeoSyncItem item(const std::string& id, std::optional<fs::path> file = std::nullopt) {
        auto video = sync_.api->video(id).video;
        return VimeoSyncItem{0, video, VideoVisibility::publicVideo, std::move(file), false};
    }
    VimeoSyncResult run(std::vector<VimeoSyncItem> items) {
        for (std::size_t index = 0; index < items.size(); ++index) items[index].index = std::int64_t(index);
        return sync_.run(std::move(items), {});
    }
    // The media requests of one video's downloads.
    static std::vector<Json> downloads(const std::string& id) {
        std::vector<Json> found;
        for (const auto& request : vimeo().requests())
            if (request["path"].get<std::string>().find("/" + id + "_") != std::string::npos) found.push_back(request);
        return found;
    }
    Json record(const std::string& folder) const { return decodeJson(*bucket_->object(folder + "/video.json")); }
    std::string failure(const VimeoSyncResult& result, std::int64_t item) const {
        const auto* failed = std::get_if<bulkOutcome::Failed>(&result.snapshot.results.at(item));
        return failed ? failed->message : "not failed";
    }

    testing::ClipFolder clips_;
    std::shared_ptr<FolderBucket> bucket_;
    VimeoSync sync_;
};

TEST_F(VimeoSyncTest, VideosComeWithTheirFactsFromALocalOriginalOrAResumedDownloadAndOnlyOnce) {
    const auto original = clips_.make("Città di notte.mp4", testing::lavfiVideo(320, 180, 2) +
                                                                 " -c:v libx264 -preset ultrafast -pix_fmt yuv420p");
    vimeo().admin("set-video", {{"id", "900000005"}, {"brokenTracks", true}});
    vimeo().admin("cut-downloads", {{"count", 1}});
    const auto result = run({item("900000001"), item("900000003", original), item("900000005")});
    vimeo().admin("set-video", {{"id", "900000005"}, {"brokenTracks", false}});

    ASSERT_EQ(result.snapshot.counts.published, 3) << failure(result, 0) << failure(result, 1) << failure(result, 2);
    const auto harbour = record("harbour-at-dawn");
    EXPECT_EQ(harbour["title"], "Harbour at Dawn");
    EXPECT_EQ(harbour["reference"], "vimeo:900000001");
    EXPECT_EQ(harbour["description"], "Boats leave the harbour before sunrise.");
    EXPECT_EQ(harbour["created"], "2025-06-01T08:00:00Z");
    const auto master = *bucket_->object("harbour-at-dawn/master.m3u8");
    EXPECT_NE(master.find("URI=\"sub_en.m3u8\""), std::string::npos) << master;
    EXPECT_NE(master.find("URI=\"sub_fr.m3u8\""), std::string::npos) << master;
    EXPECT_EQ(master.find("autogen"), std::string::npos) << "the track made from the sound stays out";
    EXPECT_FALSE(harbour["poster"].contains("time")) << "the Vimeo thumbnail, not a frame of the video";
    const auto harbourDownloads = downloads("900000001");
    ASSERT_EQ(harbourDownloads.size(), 2u) << "cut short once, then resumed";
    EXPECT_TRUE(harbourDownloads[1]["range"].get<std::string>().starts_with("bytes="));

    EXPECT_TRUE(downloads("900000003").empty()) << "the local original is preferred";
    EXPECT_EQ(record("citta-di-notte")["reference"], "vimeo:900000003");

    const auto orchard = record("orchard-in-spring");
    EXPECT_EQ(orchard["description"],
              "Blossom time in the orchard. More at [https://example.com/orchard](https://example.com/orchard).");
    EXPECT_EQ(bucket_->object("orchard-in-spring/master.m3u8")->find("SUBTITLES"), std::string::npos);
    EXPECT_EQ(result.subtitleProblems.at("900000005").find("Vorlen could not import the \u201cen\u201d subtitles: "), 0u);
    EXPECT_TRUE(fs::is_empty(sync_.workRoot)) << "each item's downloads go when it ends";

    const auto again = run({item("900000001"), item("900000005")});
    EXPECT_EQ(again.snapshot.counts.skipped, 2);
}

TEST_F(VimeoSyncTest, AnItemThatCannotBeImportedFailsAloneInItsOwnWords) {
    auto changed = item("900000002");
    changed.video.privacy = VimeoPrivacy::fromRawValue("anybody");
    vimeo().admin("set-video", {{"id", "900000003"}, {"claimedSize", 5e13}});
    const auto result = run({changed, item("900000004", clips_.path() / "moved away.mp4"), item("900000003")});
    vimeo().admin("set-video", {{"id", "900000003"}, {"claimedSize", nullptr}});

    EXPECT_EQ(failure(result, 0),
              "The privacy of this video on Vimeo changed after Vorlen read the list of videos. Refresh the list, then "
              "check the video and select it again.");
    EXPECT_EQ(failure(result, 1),
              "Vorlen cannot read the file \u201cmoved away.mp4\u201d. Check that it is still in its folder.");
    EXPECT_EQ(failure(result, 2).find("There is not enough free disk space for this video. It needs about 100.0 TB, and "
                                      "the disk has "),
              0u)
        << failure(result, 2);
    EXPECT_TRUE(downloads("900000003").empty()) << "nothing is fetched that cannot fit";

    sync_.api = api(LocalVimeo::publicPrivateToken);
    EXPECT_EQ(failure(run({item("900000001")}), 0),
              "Vimeo gives no file of this video to download. Check that the token has the \u201cVideo Files\u201d "
              "scope, and that the plan of the Vimeo account allows downloads.");
    EXPECT_FALSE(bucket_->object("harbour-at-dawn/video.json"));
}

}  // namespace
}  // namespace vorlen
