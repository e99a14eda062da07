#include "core/site/PlayerColors.hpp"

#include <gtest/gtest.h>

#include "testing/ContractCases.hpp"

using namespace vorlen;

TEST(PlayerColorsTest, AcceptsTheColoursThatThePagesPutIntoTheirStyle) {
    for (const Json& entry : vorlen::testing::contractCases("player-colors.json")) {
        const auto input = entry["input"].get<std::string>();
        EXPECT_EQ(isPlayerColor(input), entry["valid"].get<bool>()) << input;
    }
}

TEST(PlayerColorsTest, EveryDefaultColourIsOneThePagesAccept) {
    const auto seekBar = SeekBarColors::defaults();
    const auto player = PlayerColors::defaults();
    for (const auto& color : {seekBar.base, seekBar.buffered, seekBar.played, seekBar.adBreaks, seekBar.chapters, player.controls,
                              player.buttonBackground, player.fade, player.menuBackground, player.menuText})
        EXPECT_TRUE(color && isPlayerColor(*color)) << color.value_or("absent");
}
