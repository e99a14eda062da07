#include "core/publish/Naming.hpp"

#include <gtest/gtest.h>

#include <map>

#include "testing/ContractCases.hpp"

namespace vorlen {
namespace {

TEST(NamingTest, ValidNamesAsThePageWorkerTellsThem) {
    for (const Json& entry : testing::contractCases("folder-names.json"))
        EXPECT_EQ(Naming::isValidName(entry.at("name").get<std::string>()), entry.at("valid").get<bool>()) << entry.at("name");
    EXPECT_EQ(Naming::invalidNameMessage("A B"),
              "“A B” is not a valid name: use lowercase letters, digits and single hyphens");
}

TEST(NamingTest, NamesFromTitles) {
    EXPECT_EQ(Naming::folderName("  Hello, World!  "), "hello-world");
    EXPECT_EQ(Naming::folderName("Straße über Ærø — Œuvre Þing"), "strasse-uber-aero-oeuvre-thing");
    EXPECT_EQ(Naming::folderName("ŁÓDŹ Đakovo Øresund İzmir ẞ"), "lodz-dakovo-oresund-izmir-ss");
    EXPECT_EQ(Naming::folderName("東京 2026"), "2026");
    EXPECT_EQ(Naming::folderName("東京"), "video");
    EXPECT_EQ(Naming::folderName("Привет мир"), "video") << "letters without an entry act as spaces";
    EXPECT_EQ(Naming::folderName(""), "video");
}

TEST(NamingTest, NamesFromFiles) {
    EXPECT_EQ(Naming::folderNameForFile("Summer Film 4K 1080p.mov"), "summer-film");
    EXPECT_EQ(Naming::folderNameForFile("trip_1920x1080_UHD_2160p.mp4"), "trip");
    EXPECT_EQ(Naming::folderNameForFile("talk 1080i hd sd.mkv"), "talk");
    // Words that only look like noise stay.
    EXPECT_EQ(Naming::folderNameForFile("12345p 99p 1920x10800 4kids.mp4"), "12345p-99p-1920x10800-4kids");
    EXPECT_EQ(Naming::folderNameForFile(".mov"), "mov") << "a name that is only an extension keeps it";
    EXPECT_EQ(Naming::folderNameForFile("notes.backup"), "notes-backup") << "six letters are no extension";
    EXPECT_EQ(Naming::folderNameForFile("1080p.mp4"), "video");
}

TEST(NamingTest, RandomParts) {
    std::map<char, int> seen;
    for (int i = 0; i < 500; ++i) {
        auto part = Naming::randomPart();
        ASSERT_EQ(part.size(), 8u);
        for (char c : part) ++seen[c];
    }
    EXPECT_EQ(seen.size(), 36u) << "every character of a-z0-9 appears in 4000 draws";
    EXPECT_TRUE(seen.begin()->first >= '0' && seen.rbegin()->first <= 'z');
    auto unlisted = Naming::unlistedName("talk");
    EXPECT_EQ(unlisted.substr(0, 5), "talk-");
    EXPECT_TRUE(Naming::isValidName(unlisted));
}

}  // namespace
}  // namespace vorlen
