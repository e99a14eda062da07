#include "app/PosterReviewModel.hpp"

#include <gtest/gtest.h>

#include "testing/MediaClip.hpp"

using namespace vorlen;
using namespace vorlen::app;

// The person's last choice is what shows: a pick that fails says so until the
// next choice, and a pick that loads after a newer choice is dropped.
TEST(PosterReviewModelTest, TheLastChoiceStandsAndAnswersTheReview) {
    vorlen::testing::ClipFolder clips;
    auto clip = clips.make("clip.mp4", vorlen::testing::lavfiVideo(320, 180, 2) + " -c:v libx264 -pix_fmt yuv420p");
    PosterProposal proposal{std::exception_ptr(), clip, 2.0, {320, 180}};
    PosterReviewRequest request;
    request.frames = std::make_shared<PosterSource>(FrameReader(Tools::locate()), proposal, std::nullopt);
    request.reply = PosterReviewReply::start(PosterDecision::noPoster(), std::chrono::seconds(20),
                                             [](BootClock::time_point, std::function<void()>) { return std::function<void()>([] {}); });
    PostedQueue queue;
    int changes = 0;
    auto model = PosterReviewModel::make(request, queue, [&] { ++changes; });
    ASSERT_EQ(model->posterReview(), &model->review());
    EXPECT_TRUE(model->review().isCountingDown);

    model->pickPosterImage(clips.path() / "missing.jpg");
    EXPECT_FALSE(model->review().isCountingDown);
    queue.runUntil([&] { return std::holds_alternative<PosterReviewScreen::Failed>(model->review().imageStatus); });
    model->publishWithoutPoster();
    EXPECT_TRUE(std::holds_alternative<PosterReviewScreen::Idle>(model->review().imageStatus));

    model->pickPosterFrame(1.0);
    model->publishWithoutPoster();
    queue.drain();
    EXPECT_FALSE(model->review().poster) << "a pick that loaded after a newer choice showed";

    model->pickPosterFrame(1.5);
    queue.runUntil([&] { return std::holds_alternative<PosterReviewScreen::Idle>(model->review().imageStatus); });
    ASSERT_TRUE(model->review().poster);
    EXPECT_EQ(model->review().poster->time, 1.5);
    model->confirmPoster();
    EXPECT_EQ(model->posterReview(), nullptr);
    auto decision = request.reply->decision();
    ASSERT_TRUE(decision.poster);
    EXPECT_EQ(decision.poster->time, 1.5);
    EXPECT_GT(changes, 0);
}
