#include "core/library/Catalog.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

TEST(CatalogTest, EntriesComeFromCompleteVideosWithAKnownRecord) {
    const auto time = wallNow();
    const VideoMetadata untitled{VideoDetails("", std::nullopt, std::string_view("About"), VideoVisibility::unlisted),
                                 std::nullopt, std::nullopt, std::nullopt, time, time, std::nullopt, std::nullopt};
    const std::vector<LibraryVideo> videos{
        {"zeta", "zeta/", LibraryVideo::Valid{untitled}, true, {}},
        {"alpha", "alpha/", LibraryVideo::Missing{}, true, {}},
        {"beta", "beta/", LibraryVideo::Unreadable{"no"}, true, {}},
        {"gamma", "gamma/", LibraryVideo::Valid{untitled}, false, {}},
    };
    const auto entries = Catalog::entriesFrom(videos);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0], (Catalog::Entry{"alpha", "alpha", {}, {}, {}, {}, {}, {}, VideoVisibility::publicVideo}));
    EXPECT_EQ(entries[1].title, "zeta");
    EXPECT_EQ(entries[1].description, "About");
    EXPECT_EQ(entries[1].visibility, VideoVisibility::unlisted);

    EXPECT_EQ(Catalog{}.encoded(), "{\n  \"version\": 1,\n  \"videos\": []\n}");
    EXPECT_EQ(Catalog{{entries[0]}}.encoded().find("description"), std::string::npos);
}

}  // namespace
}  // namespace vorlen
