#include "core/library/Library.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <mutex>
#include <set>
#include <thread>

#include "core/base/Files.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

std::vector<std::string> names(std::size_t count) {
    std::vector<std::string> result;
    for (std::size_t i = 0; i < count; ++i) result.push_back(fmt::format("v{:05}", i));
    return result;
}

// A folder bucket that notes the threads that fetch its objects.
class ThreadNotingBucket : public FolderBucket {
public:
    using FolderBucket::FolderBucket;
    std::optional<TaggedObject> taggedObject(const std::string& key) override {
        {
            std::lock_guard lock(mutex_);
            threads_.insert(std::this_thread::get_id());
        }
        return FolderBucket::taggedObject(key);
    }
    std::size_t threadCount() const {
        std::lock_guard lock(mutex_);
        return threads_.size();
    }

private:
    mutable std::mutex mutex_;
    std::set<std::thread::id> threads_;
};

TEST(LibraryTest, RecordsAreFetchedOnNoMoreThreadsThanTheReadConcurrency) {
    // An ended task's thread holds its stack until the reading ends: one per record grew a
    // reading of 10,000 videos past 200 MB.
    const auto root = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-library-");
    auto bucket = std::make_shared<ThreadNotingBucket>(root);
    for (const auto& name : names(120)) {
        bucket->put(name + "/video.json", RequestBody::bytes("{}"), {});
        bucket->put(name + "/master.m3u8", RequestBody::bytes("#EXTM3U\n"), {});
    }
    UploadOptions options;
    options.readConcurrency = 4;
    const Library library{Destination{bucket, "", "folder"}, BucketLocation{"", "bucket"}, options, nullptr};
    EXPECT_EQ(library.read().size(), 120u);
    EXPECT_LE(bucket->threadCount(), 4u);
    std::filesystem::remove_all(root);
}

TEST(LibraryTest, CachedFoldersCutTheListingIntoRangesOfAtLeastFifty) {
    EXPECT_TRUE(Library::rangeBoundaries(names(49), "", 32).empty());
    EXPECT_EQ(Library::rangeBoundaries(names(100), "p/", 32), (std::vector<std::string>{"p/v00050/"}));
    EXPECT_EQ(Library::rangeBoundaries(names(449), "", 32).size(), 7u);
    const auto large = Library::rangeBoundaries(names(10000), "", 32);
    EXPECT_EQ(large.size(), 7u);
    EXPECT_EQ(large.front(), "v01250/");
    EXPECT_EQ(Library::rangeBoundaries(names(10000), "", 4).size(), 3u);
    EXPECT_TRUE(Library::rangeBoundaries(names(10000), "", 1).empty());
}

class LibraryThumbnailTest : public ::testing::Test {
protected:
    LibraryThumbnailTest() : root_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-thumbnails-")) {}
    ~LibraryThumbnailTest() override { std::filesystem::remove_all(root_); }

    std::filesystem::path root_;
    std::shared_ptr<LibraryCache> cache_ = LibraryCache::inFolder(root_ / "cache");
};

TEST_F(LibraryThumbnailTest, APosterBecomesASmallThumbnailOnce) {
    testing::ClipFolder clips;
    const auto poster = clips.make("poster.jpg", testing::lavfiVideo(1280, 720, 1) + " -frames:v 1");
    auto bucket = std::make_shared<FolderBucket>(root_ / "bucket");
    bucket->put("clip/poster-0a1b2c3d.jpg", RequestBody::bytes(readFile(poster)), {});
    const auto time = wallNow();
    const LibraryVideo video{"clip", "clip/",
                             LibraryVideo::Valid{{VideoDetails("Clip", std::nullopt, std::nullopt, VideoVisibility::publicVideo),
                                                  PosterFile{"poster-0a1b2c3d.jpg", {1280, 720}}, 1.0, std::nullopt, time,
                                                  time, std::nullopt, std::nullopt}},
                             true, std::nullopt};
    const Library library{Destination{bucket, "", "folder"}, BucketLocation{"", "bucket"}, UploadOptions{}, cache_};

    const auto made = library.thumbnail(video, 160);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->parent_path(), root_ / "cache" / "poster-thumbnails");
    EXPECT_EQ(checkPosterJpeg(readFile(*made)), (PixelSize{160, 90}));
    bucket->remove("clip/poster-0a1b2c3d.jpg");
    EXPECT_EQ(library.thumbnail(video, 160), made);  // from the file, without the bucket

    cache_->clear();
    EXPECT_FALSE(std::filesystem::exists(*made));
}

TEST_F(LibraryThumbnailTest, AClearDuringABuildLeavesNoFile) {
    const auto slot = cache_->thumbnailSlot({"account", "bucket"}, "clip/poster.jpg");
    ASSERT_TRUE(slot);
    cache_->clear();
    EXPECT_FALSE(slot->store("jpeg"));
    EXPECT_FALSE(std::filesystem::exists(slot->file()));
    EXPECT_FALSE(cache_->thumbnail({"account", "bucket"}, "clip/poster.jpg"));
    EXPECT_TRUE(cache_->thumbnailSlot({"account", "bucket"}, "clip/poster.jpg")->store("jpeg"));
}

}  // namespace
}  // namespace vorlen
