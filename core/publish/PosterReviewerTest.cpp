#include "core/publish/PosterReviewer.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {
namespace {

using namespace std::chrono_literals;
using vips::VImage;

Poster posterOf(double grey, std::optional<double> time) {
    startVips();
    auto image = (VImage::black(64, 36, VImage::option()->set("bands", 3)) + grey)
                     .cast(VIPS_FORMAT_UCHAR)
                     .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    return makePoster(image, time);
}

// A reviewer whose timer rings when the test says so, and that keeps the request it showed.
class PosterReviewerTest : public ::testing::Test {
protected:
    PosterReviewerTest() {
        reviewer_.tools = Tools{"/nonexistent/ffmpeg", "/nonexistent/ffprobe", "/nonexistent/packager"};
        reviewer_.timeLimit = 20s;
        reviewer_.startTimer = [this](BootClock::time_point, std::function<void()> fire) {
            ring_ = std::move(fire);
            return std::function<void()>([] {});
        };
    }

    PosterProposal proposal(std::variant<Poster, std::exception_ptr> selection) {
        return {std::move(selection), "/videos/clip.mp4", 110, PosterProposal::maximumSizeFor(720)};
    }

    // Runs the review, answering through `answer` once the request is out.
    std::optional<Poster> review(const PosterProposal& proposal,
                                 const std::function<void(const PosterReviewRequest&)>& answer) {
        reviewer_.onRequest = [&](const PosterReviewRequest& request) {
            request_ = request;
            answer(request);
        };
        return reviewer_.review(proposal);
    }

    PosterReviewer reviewer_;
    std::function<void()> ring_;
    PosterReviewRequest request_;
};

TEST_F(PosterReviewerTest, SilenceFallsBackToTheSelectionThenTheCurrentPosterThenNone) {
    auto selected = posterOf(100, 11);
    auto current = posterOf(200, 30);
    auto failed = std::make_exception_ptr(VorlenError::source("Could not read a frame from clip.mp4."));
    auto silence = [&](const PosterReviewRequest&) { ring_(); };

    reviewer_.current = current;
    EXPECT_EQ(review(proposal(selected), silence)->name, selected.name);
    EXPECT_EQ(request_.frames->sampleTimes().size(), 12u);
    EXPECT_DOUBLE_EQ(request_.frames->sampleTimes().front(), 11);
    EXPECT_EQ(request_.reply->countdown().length, 20s);

    EXPECT_EQ(review(proposal(failed), silence)->name, current.name);
    EXPECT_EQ(request_.selectionFailure, "Could not read a frame from clip.mp4.");

    reviewer_.current.reset();
    EXPECT_FALSE(review(proposal(failed), silence).has_value());
}

TEST_F(PosterReviewerTest, ThePersonCanPickAnImageFileOrNoPoster) {
    auto folder = makeUniqueDirectory(std::filesystem::temp_directory_path(), "poster-review-test-");
    DirectoryRemover remover(folder);
    auto big = (VImage::black(2000, 1000, VImage::option()->set("bands", 3)) + 50)
                   .cast(VIPS_FORMAT_UCHAR)
                   .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    big.write_to_file((folder / "mine.png").c_str());

    auto picked = review(proposal(posterOf(100, 11)), [&](const PosterReviewRequest& request) {
        request.reply->hold();
        auto image = request.frames->image(folder / "mine.png");
        ring_();  // a timer that fires after the hold changes nothing
        request.reply->answer(PosterDecision::of(image), false);
    });
    ASSERT_TRUE(picked.has_value());
    EXPECT_EQ(picked->size(), (PixelSize{1280, 640}));  // within the top rendition's 1280 by 720
    EXPECT_FALSE(picked->time.has_value());

    auto none = review(proposal(posterOf(100, 11)), [&](const PosterReviewRequest& request) {
        request.reply->answer(PosterDecision::noPoster(), false);
    });
    EXPECT_FALSE(none.has_value());
}

TEST_F(PosterReviewerTest, AnAnswerMustComeFromThisVideo) {
    auto stranger = posterOf(10, 3);
    try {
        review(proposal(posterOf(100, 11)), [&](const PosterReviewRequest& request) {
            request.reply->answer(PosterDecision::of(stranger), false);
        });
        FAIL() << "no failure";
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "“" + stranger.name + "” does not come from this video.");
    }
}

}  // namespace
}  // namespace vorlen
