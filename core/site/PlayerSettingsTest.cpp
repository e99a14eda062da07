#include "core/site/PlayerSettings.hpp"

#include <gtest/gtest.h>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"
#include "testing/FailureText.hpp"

using namespace vorlen;
using vorlen::testing::failureOf;

namespace {

class PlayerSettingsTest : public ::testing::Test {
protected:
    void putFile(const std::string& text) {
        bucket.put("_vorlen/player.json", RequestBody::bytes(text), ObjectHeaders{"application/json", "no-cache", {}});
    }

    fs::path root = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-player-");
    DirectoryRemover remover{root};
    FolderBucket bucket{root};
};

}  // namespace

TEST_F(PlayerSettingsTest, AnAbsentFileOrOneWithOnlyItsVersionGivesTheDefaults) {
    auto absent = PlayerSettings::read(bucket);
    EXPECT_EQ(absent.settings, PlayerSettings{});
    EXPECT_FALSE(absent.etag);

    putFile(R"({"version": 1})");
    auto bare = PlayerSettings::read(bucket);
    EXPECT_EQ(bare.settings, PlayerSettings{});
    EXPECT_TRUE(bare.etag);
    EXPECT_EQ(PlayerSettings::decoded(R"({"version": 1, "ui": {}, "colors": {}, "later": [1]})"), PlayerSettings{});
}

TEST_F(PlayerSettingsTest, WritesVersionFirstAndOnlyWhatWasChanged) {
    PlayerSettings settings;
    settings.autoplay = settings.muted = true;
    settings.ui.fadeDelay = 2.5;
    settings.ui.seekBarColors = SeekBarColors{};
    settings.ui.seekBarColors->played = "rgb(255, 0, 0)";
    settings.colors = PlayerColors{};
    settings.colors->buttonBackground = "#102030";
    settings.write(bucket, std::nullopt);

    const auto text = bucket.object("_vorlen/player.json").value();
    EXPECT_EQ(text.rfind("{\n  \"version\": 1,", 0), 0u) << text;
    const auto expected = decodeJson(R"json({"version": 1, "autoplay": true, "muted": true, "loop": false,
        "ui": {"fadeDelay": 2.5, "seekBarColors": {"played": "rgb(255, 0, 0)"}}, "colors": {"button_background": "#102030"}})json");
    EXPECT_EQ(decodeJson(text), expected);
    const auto record = decodeJson(readFile(root / ".meta" / (sha256Hex("_vorlen/player.json") + ".json")));
    EXPECT_EQ(record["contentType"], "application/json");
    EXPECT_EQ(record["cacheControl"], "no-cache");
    EXPECT_EQ(PlayerSettings::read(bucket).settings, settings);
}

TEST_F(PlayerSettingsTest, NamesOfNoKnownElementSurviveAReadAndAWrite) {
    putFile(R"({"version": 1, "ui": {"controlPanelElements": ["play_pause", "hologram", "fullscreen"], "bigButtons": []}})");
    auto stored = PlayerSettings::read(bucket);
    stored.settings.loop = true;
    stored.settings.write(bucket, stored.etag);

    const auto again = PlayerSettings::read(bucket).settings;
    EXPECT_EQ(again.ui.controlPanelElements, (std::vector<std::string>{"play_pause", "hologram", "fullscreen"}));
    EXPECT_EQ(again.ui.bigButtons, std::vector<std::string>{});
    EXPECT_TRUE(again.loop);
}

TEST_F(PlayerSettingsTest, AValueOfTheWrongTypeFailsNamingItsKey) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"version": 1, "autoplay": "yes"})", "_vorlen/player.json has a \u201cautoplay\u201d that is not true or false."},
        {R"({"version": 1, "ui": {"fadeDelay": "soon"}})", "_vorlen/player.json has a \u201cui.fadeDelay\u201d that is not a number."},
        {R"({"version": 1, "ui": {"overflowMenuButtons": ["quality", 3]}})",
         "_vorlen/player.json has a \u201cui.overflowMenuButtons\u201d that is not a list of names."},
        {R"({"version": 1, "ui": {"seekBarColors": {"played": 255}}})",
         "_vorlen/player.json has a \u201cui.seekBarColors.played\u201d that is not a text."},
        {R"({"version": 1, "colors": ["red"]})", "_vorlen/player.json has a \u201ccolors\u201d that is not a group of settings."},
        {R"({"version": 1, "ui": {"playbackRates": 2}})", "_vorlen/player.json has a \u201cui.playbackRates\u201d that is not a list of numbers."},
    };
    for (const auto& [text, failure] : cases) {
        SCOPED_TRACE(text);
        try {
            PlayerSettings::decoded(text);
            ADD_FAILURE() << "read";
        } catch (const VorlenError& error) {
            EXPECT_TRUE(error.is<failure::Metadata>());
            EXPECT_EQ(error.text(), failure);
        }
    }
}

TEST_F(PlayerSettingsTest, AFileOfANewerVersionOrOfNoJsonIsRefused) {
    putFile(R"({"version": 2, "autoplay": true})");
    EXPECT_EQ(failureOf([&] { PlayerSettings::read(bucket); }),
              "_vorlen/player.json has version 2, from a newer version of Vorlen. This app reads version 1. Update the app.");
    EXPECT_EQ(failureOf([&] { PlayerSettings::decoded(R"({"version": 0})"); }), "_vorlen/player.json has version 0, which is not valid.");
    EXPECT_EQ(failureOf([&] { PlayerSettings::decoded("{"); }).rfind("_vorlen/player.json is not valid JSON", 0), 0u);
}

TEST_F(PlayerSettingsTest, AWriteOverAFileChangedSinceItWasReadFailsAsAConflict) {
    auto first = PlayerSettings::read(bucket);
    auto other = PlayerSettings::read(bucket);
    first.settings.loop = true;
    first.settings.write(bucket, first.etag);

    other.settings.muted = true;
    try {
        other.settings.write(bucket, other.etag);
        FAIL() << "written over another computer's change";
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Conflict>());
    }
    auto now = PlayerSettings::read(bucket);
    EXPECT_TRUE(now.settings.loop);
    EXPECT_FALSE(now.settings.muted);

    now.settings.muted = true;
    now.settings.write(bucket, now.etag);
    EXPECT_TRUE(PlayerSettings::read(bucket).settings.muted);
}

TEST_F(PlayerSettingsTest, EveryKeyRoundTripsUnderItsPath) {
    PlayerSettings settings;
    Json json = settings.toJson();
    for (const auto& key : PlayerSettings::keys()) {
        Json value;
        switch (key.kind) {
            case PlayerValueKind::boolean: value = true; break;
            case PlayerValueKind::number: value = 1.5; break;
            case PlayerValueKind::numbers: value = {1, 2}; break;
            case PlayerValueKind::names: value = {"spacer"}; break;
            case PlayerValueKind::color: value = "#abc"; break;
        }
        std::string pointer = "/" + key.path;
        std::replace(pointer.begin(), pointer.end(), '.', '/');
        json[Json::json_pointer(pointer)] = value;
    }
    const auto read = PlayerSettings::fromJson(json);
    EXPECT_EQ(read.toJson(), json);
    EXPECT_EQ(PlayerSettings::keys().size(), 3u + 5 + 3 + 5 + 2 + 14 + 6 + 5);
}
