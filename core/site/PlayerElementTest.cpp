#include "core/site/PlayerElement.hpp"

#include <gtest/gtest.h>

#include "core/site/PlayerUISettings.hpp"

using namespace vorlen;

TEST(PlayerElementTest, TheTableHoldsEveryElementOnceInItsOrder) {
    const auto all = PlayerElement::all();
    ASSERT_EQ(all.size(), 46u);
    EXPECT_EQ(all.front().name, "play_pause");
    EXPECT_EQ(all.back().name, "ad_statistics");
    for (std::size_t i = 0; i < all.size(); ++i)
        for (std::size_t j = i + 1; j < all.size(); ++j) EXPECT_NE(all[i].name, all[j].name);
}

TEST(PlayerElementTest, LookupByNameGivesTheRowOrNothing) {
    EXPECT_EQ(PlayerElement::named("captions-settings"), (PlayerElement{"captions-settings", "Subtitle settings", 3, true}));
    EXPECT_EQ(PlayerElement::named("queue"), (PlayerElement{"queue", "Playlist", 3, false}));
    EXPECT_FALSE(PlayerElement::named("hologram"));
    EXPECT_FALSE(PlayerElement::named("Play_Pause"));
}

TEST(PlayerElementTest, ThePlacesOfAnElementHoldEveryBitAsked) {
    auto names = [](std::int64_t places) {
        std::vector<std::string_view> out;
        for (const auto& element : PlayerElement::inPlace(places)) out.push_back(element.name);
        return out;
    };
    using Places = PlayerElement::Places;
    EXPECT_EQ(names(Places::bigButtons | Places::overflowMenu), (std::vector<std::string_view>{"mute", "remote", "picture_in_picture", "loop"}));
    EXPECT_EQ(names(Places::controlBar).size(), 41u);
    EXPECT_EQ(names(Places::overflowMenu).size(), 29u);
    EXPECT_EQ(names(Places::bigButtons).size(), 15u);
}

TEST(PlayerElementTest, TheDefaultListsKeepElementsOfNoUseInTheirPlace) {
    const auto defaults = PlayerUISettings::desktopDefaults();
    const auto& bar = defaults.controlPanelElements.value();
    EXPECT_EQ(bar[1], "skip_previous");
    EXPECT_FALSE(PlayerElement::named(bar[1])->appliesToVorlenVideos);
    for (const auto& name : bar) EXPECT_TRUE(PlayerElement::named(name)->places & PlayerElement::Places::controlBar) << name;
    for (const auto& name : defaults.overflowMenuButtons.value())
        EXPECT_TRUE(PlayerElement::named(name)->places & PlayerElement::Places::overflowMenu) << name;
    EXPECT_EQ(defaults.bigButtons, std::vector<std::string>{});
    EXPECT_FALSE(defaults.fadeDelay);
}
