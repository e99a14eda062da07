#include "core/library/Library.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/library/Catalog.hpp"
#include "testing/FaultProxy.hpp"
#include "testing/RgwServer.hpp"

namespace vorlen {
namespace {

using testing::FaultProxy;
using testing::ProxyRequest;
using testing::RgwServer;

std::string record(const std::string& title, VideoVisibility visibility = VideoVisibility::publicVideo) {
    const auto time = parseIso8601("2026-03-01T10:00:00Z").value();
    return VideoMetadata{VideoDetails(title, std::nullopt, std::nullopt, visibility), PosterFile{"poster-0a1b2c3d.jpg", {16, 9}},
                         42.5, PixelSize{1280, 720}, time, time, AudioTrack{}, std::nullopt}
        .encoded();
}

// Every test reads a fresh bucket on this binary's server, through a proxy that counts.
class LibraryRgwTest : public ::testing::Test {
protected:
    LibraryRgwTest()
        : direct_(RgwServer::shared().makeBucket()),
          proxy_(RgwServer::shared().endpoint(), RgwServer::shared().credentials()),
          cacheFolder_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-library-")) {}
    ~LibraryRgwTest() override { std::filesystem::remove_all(cacheFolder_); }

    Library library(const std::string& prefix = {}) {
        const auto bucket = RgwServer::shared().client(direct_->location().bucket, proxy_.endpoint());
        return Library{Destination{bucket, prefix, "rgw"}, bucket->location(), UploadOptions{}, cache_};
    }
    void put(const std::string& key, const std::string& body = "x") { direct_->put(key, RequestBody::bytes(body), {}); }

    std::size_t requests(const std::string& method, bool listing) const {
        const auto seen = proxy_.requests();
        return std::count_if(seen.begin(), seen.end(), [&](const ProxyRequest& request) {
            return request.method == method && (request.target.find("list-type=2") != std::string::npos) == listing;
        });
    }
    std::size_t lists() const { return requests("GET", true); }
    std::size_t fetches() const { return requests("GET", false); }

    std::shared_ptr<S3Bucket> direct_;
    FaultProxy proxy_;
    std::filesystem::path cacheFolder_;
    std::shared_ptr<LibraryCache> cache_ = LibraryCache::inFolder(cacheFolder_);
};

TEST_F(LibraryRgwTest, AnEmptyBucketCostsOneListRequest) {
    EXPECT_TRUE(library().read().empty());
    EXPECT_EQ(lists(), 1u);
    EXPECT_EQ(fetches(), 0u);
}

TEST_F(LibraryRgwTest, OnlyFoldersWithARecordOrAPlaylistAreVideos) {
    put("videos/done/video.json", record("Done"));
    put("videos/done/master.m3u8");
    put("videos/done/v_720/001.mp4");
    put("videos/first-version/master.m3u8");
    put("videos/uploading/video.json", record("Uploading"));
    put("videos/leftover/v_720/001.mp4");
    put("videos/stray.txt");
    put("videos/Upper/master.m3u8");
    put("videos/two--hyphens/master.m3u8");
    put("videos/_vorlen/site.json", "{}");
    put("videos/newer/video.json", R"({"version":2,"title":"T","created":"2025-01-01T00:00:00Z","updated":"2025-01-01T00:00:00Z"})");
    put("videos/newer/master.m3u8");
    put("videos/broken/video.json", "{");
    put("videos/broken/master.m3u8");
    put("elsewhere/video.json", record("Elsewhere"));

    const auto videos = library("videos/").read();
    std::vector<std::string> folders;
    for (const auto& video : videos) folders.push_back(video.folder);
    EXPECT_EQ(folders, (std::vector<std::string>{"broken", "done", "first-version", "newer", "uploading"}));

    EXPECT_EQ(videos[1].metadata()->details.title(), "Done");
    EXPECT_TRUE(videos[1].isComplete);
    EXPECT_EQ(videos[1].prefix, "videos/done/");
    EXPECT_EQ(videos[2].metadataFile, LibraryVideo::MetadataFile{LibraryVideo::Missing{}});
    EXPECT_TRUE(videos[2].isComplete);
    EXPECT_EQ(videos[3].metadataFile,
              LibraryVideo::MetadataFile{LibraryVideo::Unreadable{
                  "video.json has version 2, from a newer version of Vorlen. This app reads version 1. Update the app."}});
    EXPECT_TRUE(videos[0].isUnreadable());
    EXPECT_FALSE(videos[4].isComplete);

    // The catalogue leaves out what plays nothing and what it cannot know.
    const auto entries = Catalog::entriesFrom(videos);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].title, "Done");
    EXPECT_EQ(entries[1].title, "first-version");
}

TEST_F(LibraryRgwTest, ASecondReadingFetchesOnlyChangedRecordsAndListsInRanges) {
    std::vector<std::string> keys;
    for (int i = 0; i < 120; ++i) {
        const auto folder = fmt::format("clip-{:03}", i);
        keys.push_back(folder + "/video.json");
        keys.push_back(folder + "/master.m3u8");
    }
    forEachInWindow(keys.size(), 16, [&](std::size_t index) {
        put(keys[index], keys[index].ends_with(".json") ? record(keys[index].substr(0, 8)) : "x");
    });

    const auto first = library().read();
    ASSERT_EQ(first.size(), 120u);
    EXPECT_EQ(fetches(), 120u);
    EXPECT_EQ(lists(), 1u);  // with nothing cached, one sequential range

    put("clip-057/video.json", record("Changed"));
    const auto listsBefore = lists(), fetchesBefore = fetches();
    // A fresh cache object reads the file that the first reading left.
    cache_ = LibraryCache::inFolder(cacheFolder_);
    const auto second = library().read();
    EXPECT_EQ(fetches() - fetchesBefore, 1u);
    EXPECT_EQ(lists() - listsBefore, 2u);  // 120 cached folders cut the listing in two
    ASSERT_EQ(second.size(), 120u);
    EXPECT_EQ(second[57].metadata()->details.title(), "Changed");
    EXPECT_EQ(second[58], first[58]);

    const auto cached = cache_->cachedVideos(direct_->location(), "");
    ASSERT_TRUE(cached);
    EXPECT_EQ(*cached, second);
    EXPECT_FALSE(cache_->cachedVideos(direct_->location(), "other/"));
}

TEST_F(LibraryRgwTest, TheCatalogueGoesToTheBucketsRoot) {
    put("videos/a/video.json", record("Unlisted one", VideoVisibility::unlisted));
    put("videos/a/master.m3u8");
    rebuildCatalog(library("videos/"));
    const auto stored = direct_->taggedObject(Catalog::key);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->data, R"({
  "version": 1,
  "videos": [
    {
      "created": "2026-03-01T10:00:00Z",
      "duration": 42.5,
      "folder": "a",
      "height": 720,
      "poster": "poster-0a1b2c3d.jpg",
      "title": "Unlisted one",
      "updated": "2026-03-01T10:00:00Z",
      "visibility": "unlisted",
      "width": 1280
    }
  ]
})");
}

}  // namespace
}  // namespace vorlen
