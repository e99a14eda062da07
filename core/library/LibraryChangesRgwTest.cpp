#include "core/library/Library.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "testing/FailureText.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using testing::Fault;
using testing::failureOf;
using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;

const VideoDetails holiday("Holiday", std::nullopt, std::nullopt, VideoVisibility::publicVideo);

// A published folder made of small objects, changed through a proxy that sees every request.
class LibraryChangesRgwTest : public ::testing::Test {
protected:
    LibraryChangesRgwTest()
        : direct_(RgwServer::shared().makeBucket()),
          proxy_(RgwServer::shared().endpoint(), RgwServer::shared().credentials()) {
        const auto bucket = RgwServer::shared().client(direct_->location().bucket, proxy_.endpoint());
        UploadOptions options;
        options.maxRetries = 0;
        library_ = Library{Destination{bucket, "videos/", "rgw"}, bucket->location(), options, nullptr};
    }

    void publish(const std::string& folder, std::optional<VideoMetadata> record) {
        for (const auto* file : {"v_720/001.mp4", "a_stereo/001.mp4", "poster-0a1b2c3d.jpg", "poster.jpg", "v_720.m3u8",
                                 "a_stereo.m3u8", "manifest.mpd", "master.m3u8"})
            direct_->put("videos/" + folder + "/" + file, RequestBody::bytes(file), {});
        if (record) direct_->put("videos/" + folder + "/video.json", RequestBody::bytes(record->encoded()), {});
    }
    VideoMetadata record() const {
        const auto time = parseIso8601("2026-01-01T00:00:00Z").value();
        return VideoMetadata{holiday, PosterFile{"poster-0a1b2c3d.jpg", {16, 9}}, 4.0, PixelSize{1280, 720}, time, time,
                             AudioTrack{}, std::nullopt};
    }
    std::vector<std::string> keys(const std::string& folder) const { return direct_->listKeys("videos/" + folder + "/"); }
    // The writes seen since the start, as "PUT key" (a copy too) or "POST delete".
    std::vector<std::string> writes() const {
        std::vector<std::string> seen;
        for (const auto& request : proxy_.requests()) {
            const auto key = request.target.find("/videos/");
            if (request.method == "PUT" && key != std::string::npos) seen.push_back("PUT " + request.target.substr(key + 1));
            else if (request.method == "POST" || request.method == "DELETE") seen.push_back(request.method + " delete");
        }
        return seen;
    }

    std::shared_ptr<S3Bucket> direct_;
    FaultProxy proxy_;
    Library library_;
};

TEST_F(LibraryChangesRgwTest, RecordsAreWrittenOnlyWhereTheyCanBeTrusted) {
    publish("first-version", std::nullopt);
    const auto saved = library_.saveDetails(library_.video("first-version"), holiday);
    EXPECT_EQ(library_.video("first-version"), saved);
    EXPECT_EQ(saved.metadata()->details.title(), "Holiday");

    direct_->put("videos/newer/video.json",
                 RequestBody::bytes(R"({"version":2,"title":"T","created":"2025-01-01T00:00:00Z","updated":"2025-01-01T00:00:00Z"})"), {});
    direct_->put("videos/newer/master.m3u8", RequestBody::bytes("x"), {});
    EXPECT_EQ(failureOf([&] { library_.saveDetails(library_.video("newer"), holiday); }),
              "cannot change \u201cnewer\u201d: video.json has version 2, from a newer version of Vorlen. This app reads "
              "version 1. Update the app.");
    direct_->put("videos/media-only/v_720/001.mp4", RequestBody::bytes("x"), {});
    EXPECT_EQ(failureOf([&] { library_.saveDetails(library_.video("media-only"), holiday); }),
              "\u201cmedia-only\u201d has no video: it has no video.json and no playlist");
    EXPECT_EQ(direct_->object("videos/newer/video.json")->find("\"version\":2"), 1u);
}

TEST_F(LibraryChangesRgwTest, OfTwoComputersChangingOneRecordTheSecondIsToldAndNothingIsLost) {
    publish("holiday", record());
    const auto here = library_.video("holiday"), there = library_.video("holiday");
    const auto saved = library_.saveDetails(here, VideoDetails("Here", std::nullopt, std::nullopt, VideoVisibility::publicVideo));
    EXPECT_EQ(library_.video("holiday"), saved);  // the tag that the write answered is the record's
    try {
        library_.saveDetails(there, VideoDetails("There", std::nullopt, std::nullopt, VideoVisibility::publicVideo));
        ADD_FAILURE() << "the second change went through";
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Conflict>()) << error.what();
    }
    EXPECT_EQ(library_.video("holiday").metadata()->details.title(), "Here");
    // Read again, the change goes through.
    EXPECT_EQ(library_.saveDetails(library_.video("holiday"), VideoDetails("There", std::nullopt, std::nullopt,
                                                                            VideoVisibility::publicVideo))
                  .metadata()->details.title(),
              "There");
}

TEST_F(LibraryChangesRgwTest, AMoveTakesTheNameFirstAndMakesTheNewLinkPlayableLast) {
    publish("holiday", record());
    publish("taken", record());
    const auto video = library_.video("holiday");
    EXPECT_EQ(failureOf([&] { library_.move(video, "taken", holiday); }), "\u201ctaken\u201d exists already");
    EXPECT_EQ(failureOf([&] { library_.move(video, "Not-Canonical", holiday); }),
              "\u201cNot-Canonical\u201d is not a canonical folder name");
    EXPECT_TRUE(writes().empty());

    const VideoDetails unlisted("Holiday", std::nullopt, std::nullopt, VideoVisibility::unlisted);
    const auto moved = library_.move(video, "holiday-k2x9w4ab", unlisted);
    EXPECT_FALSE(moved.oldFolderFailure);
    EXPECT_TRUE(keys("holiday").empty());
    EXPECT_EQ(keys("holiday-k2x9w4ab").size(), 9u);
    EXPECT_EQ(library_.video("holiday-k2x9w4ab"), moved.video);
    EXPECT_EQ(moved.video.metadata()->details.visibility(), VideoVisibility::unlisted);

    const auto seen = writes();
    ASSERT_GE(seen.size(), 9u);
    EXPECT_EQ(seen.front(), "PUT videos/holiday-k2x9w4ab/video.json");
    EXPECT_EQ(seen[8], "PUT videos/holiday-k2x9w4ab/master.m3u8");  // the last of eight copies
    // The old folder then goes, its playlist first.
    EXPECT_EQ(std::vector<std::string>(seen.begin() + 9, seen.end()), std::vector<std::string>(4, "POST delete"));
}

TEST_F(LibraryChangesRgwTest, AMoveWhoseCopyFailsLeavesTheSourceAsItWasAndTakesTheTargetAway) {
    publish("holiday", record());
    const auto before = keys("holiday");
    proxy_.setPolicy([](const ProxyRequest& request) {
        return request.method == "PUT" && request.target.find("/videos/holiday-k2x9w4ab/master.m3u8") != std::string::npos
                   ? Fault::respond(500, "<Error><Code>InternalError</Code></Error>")
                   : Fault::none();
    });
    EXPECT_NE(failureOf([&] { library_.move(library_.video("holiday"), "holiday-k2x9w4ab", holiday); }), "no failure");
    EXPECT_TRUE(keys("holiday-k2x9w4ab").empty());
    EXPECT_EQ(keys("holiday"), before);
    EXPECT_EQ(library_.read().size(), 1u);
}

TEST_F(LibraryChangesRgwTest, ADeletionThatStopsHalfwayLeavesAFolderThatIsListedAndNotPlayable) {
    publish("holiday", record());
    int deletions = 0;
    proxy_.setPolicy([&](const ProxyRequest& request) {
        if (request.method == "POST" && request.target.find("delete") != std::string::npos && ++deletions > 1)
            return Fault::respond(403, "<Error><Code>AccessDenied</Code></Error>");
        return Fault::none();
    });
    EXPECT_NE(failureOf([&] { library_.remove(library_.video("holiday")); }), "no failure");
    const auto left = library_.read();
    ASSERT_EQ(left.size(), 1u);
    EXPECT_FALSE(left[0].isComplete);
    EXPECT_TRUE(left[0].metadata());

    proxy_.setPolicy([](const ProxyRequest&) { return Fault::none(); });
    library_.remove(left[0]);
    EXPECT_TRUE(keys("holiday").empty());
}

TEST_F(LibraryChangesRgwTest, ANewPosterReplacesTheOldOneAfterTheRecordNamesIt) {
    publish("holiday", record());
    const Poster poster{"new-poster-bytes", "poster-99887766.jpg", 320, 180, 1.0};
    const auto changed = library_.changePoster(library_.video("holiday"), poster);
    EXPECT_FALSE(changed.oldPosterFailure);
    EXPECT_EQ(changed.video.metadata()->poster, (PosterFile{"poster-99887766.jpg", {320, 180}}));
    EXPECT_EQ(direct_->object("videos/holiday/poster.jpg"), "new-poster-bytes");
    EXPECT_FALSE(direct_->info("videos/holiday/poster-0a1b2c3d.jpg"));
    const auto seen = writes();
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[2], "PUT videos/holiday/video.json");
}

}  // namespace
}  // namespace vorlen
