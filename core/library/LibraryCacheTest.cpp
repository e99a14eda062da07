#include "core/library/LibraryCache.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"

namespace vorlen {
namespace {

class LibraryCacheTest : public ::testing::Test {
protected:
    LibraryCacheTest() : folder_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-cache-")) {}
    ~LibraryCacheTest() override { std::filesystem::remove_all(folder_); }

    std::filesystem::path folder_;
    const BucketLocation location_{"account", "bucket"};
};

TEST_F(LibraryCacheTest, AListCountsOnlyForItsOwnBucketAndVersion) {
    const StoredLibraryList list{"account", "bucket", "videos/",
                                 {{"a", true, LibraryFolderRecord::MetadataCopy{"tag", "{not json"}}, {"b", true, std::nullopt}}};
    LibraryCache::inFolder(folder_ / "site")->store(list, 0);

    const auto reopened = LibraryCache::inFolder(folder_ / "site");
    EXPECT_EQ(reopened->list(location_, "videos/"), list);
    EXPECT_FALSE(reopened->list({"account", "other"}, "videos/"));
    EXPECT_FALSE(reopened->list({"other", "bucket"}, "videos/"));
    EXPECT_FALSE(reopened->list(location_, ""));

    const auto videos = reopened->cachedVideos(location_, "videos/");
    ASSERT_TRUE(videos);
    ASSERT_EQ(videos->size(), 2u);
    EXPECT_TRUE((*videos)[0].isUnreadable());
    EXPECT_EQ((*videos)[1].prefix, "videos/b/");

    auto json = readFile(folder_ / "site" / "library-videos.json");
    json.replace(json.find("\"version\":1"), 11, "\"version\":2");
    writeFileAtomically(folder_ / "site" / "library-videos.json", json);
    EXPECT_FALSE(LibraryCache::inFolder(folder_ / "site")->list(location_, "videos/"));
    writeFileAtomically(folder_ / "site" / "library-videos.json", "garbage");
    EXPECT_FALSE(LibraryCache::inFolder(folder_ / "site")->cachedVideos(location_, "videos/"));
}

TEST_F(LibraryCacheTest, AFileThatCannotBeWrittenKeepsTheListInMemory) {
    writeFileAtomically(folder_ / "file", "");
    const auto cache = LibraryCache::inFolder(folder_ / "file");  // its folder is a file
    cache->store({"account", "bucket", "", {{"a", true, std::nullopt}}}, 0);
    EXPECT_TRUE(cache->list(location_, ""));
}

TEST_F(LibraryCacheTest, AReadingThatBeganBeforeAClearStoresNothing) {
    const auto cache = LibraryCache::inFolder(folder_ / "site");
    const auto generation = cache->generation();
    cache->clear();
    cache->store({"account", "bucket", "", {{"a", true, std::nullopt}}}, generation);
    EXPECT_FALSE(cache->list(location_, ""));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "site" / "library-videos.json"));
}

}  // namespace
}  // namespace vorlen
