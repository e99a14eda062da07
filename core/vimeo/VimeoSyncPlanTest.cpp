#include "core/vimeo/VimeoSyncPlan.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

VimeoVideo video(const std::string& id, const std::string& privacy, bool isReady = true) {
    VimeoVideo made;
    made.id = id;
    made.title = "Video " + id;
    made.privacy = VimeoPrivacy::fromRawValue(privacy);
    made.isReady = isReady;
    made.file = VimeoFile{"source", "source", std::nullopt, std::nullopt};
    return made;
}

TEST(VimeoSyncPlanTest, TheReferenceAloneLinksAVideoToItsFolder) {
    const std::vector<BulkBucketFolder> folders{
        {"harbour", " vimeo:1 ", true, AudioLoudness::web},
        {"renamed", "my own reference", true, AudioLoudness::broadcast},  // was vimeo:2 until a person changed it
        {"unfinished", "vimeo:3", false, std::nullopt},
    };
    const auto plan = VimeoSyncPlan::make({}, {video("1", "anybody"), video("2", "anybody"), video("3", "nobody"),
                                               video("4", "anybody", false)},
                                          {}, folders, AudioLoudness::broadcast);
    ASSERT_EQ(plan.entries.size(), 4u);
    EXPECT_EQ(plan.entries[0].decision, VimeoSyncDecision(vimeoDecision::Imported{"harbour"}));
    EXPECT_TRUE(plan.hasDifferentAudioLoudness(plan.entries[0]));
    EXPECT_EQ(plan.entries[1].decision, VimeoSyncDecision(vimeoDecision::Available{VideoVisibility::publicVideo}));
    EXPECT_EQ(plan.entries[2].decision, VimeoSyncDecision(vimeoDecision::Available{VideoVisibility::unlisted}))
        << "an unfinished folder is no import";
    EXPECT_EQ(plan.entries[3].decision, VimeoSyncDecision(vimeoDecision::NotReady{}));
}

TEST(VimeoSyncPlanTest, TheDefaultSelectionLeavesOutWhatLimitsViewersUnlessTheRuleTakesIt) {
    const auto plan = VimeoSyncPlan::make({}, {video("1", "anybody"), video("2", "nobody"), video("3", "password"),
                                               video("4", "disable"), video("5", "followers")},
                                          {}, {}, AudioLoudness::broadcast);
    const auto selected = [&](const VimeoSelectionRule& rule) {
        std::string ids;
        for (const auto& entry : plan.entries)
            if (VimeoSyncPlan::selectedByDefault(entry, false, rule)) ids += entry.video.id;
        return ids;
    };
    EXPECT_EQ(selected({false, false}), "14");
    EXPECT_EQ(selected({true, false}), "1245") << "a privacy this version does not know counts as private";
    EXPECT_EQ(selected({false, true}), "134");

    auto withoutFile = plan.entries[0];
    withoutFile.video.file.reset();
    EXPECT_FALSE(VimeoSyncPlan::canBeSelected(withoutFile, false));
    EXPECT_TRUE(VimeoSyncPlan::canBeSelected(withoutFile, true)) << "a local file stands in for the download";
}

}  // namespace
}  // namespace vorlen
