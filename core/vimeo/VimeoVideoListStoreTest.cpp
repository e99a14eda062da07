#include "core/vimeo/VimeoVideoListStore.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"

namespace vorlen {
namespace {

class VimeoVideoListStoreTest : public ::testing::Test {
protected:
    std::filesystem::path folder = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vimeo-store-");
    void TearDown() override { std::filesystem::remove_all(folder); }
};

TEST_F(VimeoVideoListStoreTest, KeepsTheListForTheTokenThatReadItOnly) {
    VimeoVideo full;
    full.id = "1";
    full.title = "Harbour";
    full.duration = 61.5;
    full.created = parseIso8601("2024-03-01T10:00:00Z");
    full.privacy = VimeoPrivacy::fromRawValue("something new");
    full.isReady = true;
    full.file = VimeoFile{"source", "1080p", std::nullopt, std::nullopt};
    full.textTrackCount = 2;
    full.subtitles = VimeoSubtitleSummary{{"en", "de"}, true};
    full.folderName = "Trips";
    full.isInColdStorage = true;
    VimeoVideo bare;
    bare.id = "2";
    bare.title = "Bare";
    bare.privacy = VimeoPrivacy::fromRawValue("anybody");
    const VimeoStoredList list{{"42", "Ada", std::nullopt, "plus"}, *parseIso8601("2024-03-02T10:00:00Z"), {full, bare}};

    const VimeoVideoListStore store(folder);
    store.save("token-a", list);
    EXPECT_EQ(store.load("token-a"), list);
    EXPECT_EQ(readFile(folder / "vimeo-videos.json").find("token-a"), std::string::npos);
    EXPECT_EQ(store.load("token-b"), std::nullopt);
    store.clear();
    EXPECT_EQ(store.load("token-a"), std::nullopt);
}

TEST_F(VimeoVideoListStoreTest, AnUnreadableOrNewerFileIsNoList) {
    const VimeoVideoListStore store(folder);
    writeFileAtomically(folder / "vimeo-videos.json", "{not json");
    EXPECT_EQ(store.load("t"), std::nullopt);
    store.save("t", {{"1", "A", std::nullopt, std::nullopt}, *parseIso8601("2024-03-02T10:00:00Z"), {}});
    auto text = readFile(folder / "vimeo-videos.json");
    text.replace(text.find("\"version\":1"), 11, "\"version\":2");
    writeFileAtomically(folder / "vimeo-videos.json", text);
    EXPECT_EQ(store.load("t"), std::nullopt);
}

}  // namespace
}  // namespace vorlen
