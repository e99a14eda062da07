#include "core/publish/PosterOutcome.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/publish/PosterHeuristicScorer.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen {
namespace {

TEST(PosterOutcomeTest, AFailedChoiceIsKeptAndOfferedForReview) {
    auto outcome = PosterOutcome::select(Tools::locate(), "/nonexistent/v_1080.mp4", 12,
                                         std::make_shared<PosterHeuristicScorer>());
    EXPECT_FALSE(outcome.poster.has_value());
    ASSERT_TRUE(outcome.selectionError);
    EXPECT_TRUE(describe(outcome.selectionError).starts_with("Could not read a frame from v_1080.mp4: ffmpeg failed"));

    auto proposal = outcome.proposal("/nonexistent/v_1080.mp4", 12, 1080);
    EXPECT_EQ(std::get<std::exception_ptr>(proposal.selection), outcome.selectionError);
    EXPECT_EQ(proposal.maximumSize, (PixelSize{1920, 1080}));
}

TEST(PosterOutcomeTest, CancellationIsNotAPosterFailure) {
    testing::ClipFolder clips;
    auto clip = clips.make("clip.mp4", testing::lavfiVideo(320, 180, 2) + " -c:v libx264 -preset ultrafast");
    auto scope = CancellationScope::makeRoot();
    scope->cancel();
    ScopeBinding binding(scope);
    EXPECT_THROW(PosterOutcome::select(Tools::locate(), clip, 2, std::make_shared<PosterHeuristicScorer>()), Cancelled);
}

TEST(PosterOutcomeTest, ThePosterIsWrittenUnderItsNameAndAsPosterJpg) {
    testing::ClipFolder clips;
    auto clip = clips.make("clip.mp4", testing::lavfiVideo(320, 180, 2) + " -c:v libx264 -preset ultrafast");
    auto outcome = PosterOutcome::select(Tools::locate(), clip, 2, std::make_shared<PosterHeuristicScorer>());
    ASSERT_TRUE(outcome.poster.has_value());
    writePosterFiles(clips.path(), *outcome.poster);
    EXPECT_EQ(readFile(clips.path() / outcome.poster->name), outcome.poster->jpeg);
    EXPECT_EQ(readFile(clips.path() / "poster.jpg"), outcome.poster->jpeg);
    EXPECT_EQ(std::get<Poster>(outcome.proposal(clip, 2, 180).selection).name, outcome.poster->name);
}

}  // namespace
}  // namespace vorlen
