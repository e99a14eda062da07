#include "core/publish/PosterChoice.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

#include "core/base/VorlenError.hpp"
#include "core/publish/PosterHeuristicScorer.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {
namespace {

using vips::VImage;

VImage flat(double grey, int width = 320, int height = 180) {
    startVips();
    return (VImage::black(width, height, VImage::option()->set("bands", 3)) + grey).cast(VIPS_FORMAT_UCHAR).copy(
        VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

// Left half at `low`, right half at `high`.
VImage split(double low, double high) {
    auto left = flat(low, 160, 180);
    auto right = flat(high, 160, 180);
    return left.join(right, VIPS_DIRECTION_HORIZONTAL);
}

PosterCandidate candidate(double time, double mean, double variance, std::optional<PosterFrameScore> score = {}) {
    return {time, {mean, variance}, score};
}

TEST(PosterChoiceTest, MeasuresGreyStatisticsAndUsability) {
    auto black = PosterChoice::statistics(flat(0));
    EXPECT_DOUBLE_EQ(black.mean, 0);
    EXPECT_DOUBLE_EQ(black.variance, 0);
    EXPECT_FALSE(PosterChoice::isUsable(black));

    auto halves = PosterChoice::statistics(split(0, 255));
    EXPECT_NEAR(halves.mean, 0.5, 0.01);
    EXPECT_NEAR(halves.variance, 0.25, 0.01);
    EXPECT_TRUE(PosterChoice::isUsable(halves));

    // A transparent frame counts as white, not black.
    auto clear = (VImage::black(64, 64, VImage::option()->set("bands", 4))).cast(VIPS_FORMAT_UCHAR).copy(
        VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    EXPECT_NEAR(PosterChoice::statistics(clear).mean, 1, 0.01);

    EXPECT_FALSE(PosterChoice::isUsable({0.079, 0.1}));
    EXPECT_TRUE(PosterChoice::isUsable({0.08, 0.0016}));
    EXPECT_FALSE(PosterChoice::isUsable({0.5, 0.0015}));
    EXPECT_TRUE(PosterChoice::isUsable({0.92, 0.01}));
    EXPECT_FALSE(PosterChoice::isUsable({0.921, 0.01}));
}

TEST(PosterChoiceTest, FallsBackOnVarianceWhenNothingIsUsable) {
    // A fade to black: every frame too dark, the least flat one still wins.
    std::vector<PosterCandidate> fade{candidate(3, 0.05, 0.001), candidate(1, 0.07, 0.004),
                                      candidate(2, 0.06, 0.004), candidate(4, 0.01, 0.0)};
    EXPECT_EQ(PosterChoice::choose(fade), 1);
    EXPECT_EQ(PosterChoice::choose({}), std::nullopt);
}

TEST(PosterChoiceTest, PicksTheBestScoreWithAFaceBonusAndTheEarlierOfEquals) {
    std::vector<PosterCandidate> scored{
        candidate(5, 0.5, 0.05, PosterFrameScore{0.6, 0}),
        candidate(2, 0.5, 0.01, PosterFrameScore{0.55, 1}),  // 0.65 with the bonus
        candidate(1, 0.01, 0.2),                              // unusable, never a winner here
        candidate(4, 0.5, 0.04, PosterFrameScore{0.65, 0}),
    };
    EXPECT_EQ(PosterChoice::choose(scored), 2);

    std::vector<PosterCandidate> byVariance{candidate(7, 0.5, 0.04), candidate(6, 0.5, 0.04, PosterFrameScore{0.9, 3}),
                                            candidate(8, 0.5, 0.03)};
    EXPECT_EQ(PosterChoice::choose(byVariance), 6);  // one usable frame lacks a score
}

// Fails on a chosen call; counts how often it was asked.
class FailingScorer : public PosterFrameScorer {
public:
    explicit FailingScorer(int failingCall, bool cancel = false) : failingCall_(failingCall), cancel_(cancel) {}
    PosterFrameScore score(const vips::VImage&) override {
        if (++calls == failingCall_) {
            if (cancel_) throw Cancelled();
            throw std::runtime_error("no scores today");
        }
        return {0.1 * calls, 0};
    }
    int calls = 0;

private:
    int failingCall_;
    bool cancel_;
};

TEST(PosterChoiceTest, AScorerThatFailsAtTheThirdFrameGivesTheVarianceChoice) {
    auto scorer = std::make_shared<FailingScorer>(3);
    PosterChoice::Evaluator evaluator{scorer};
    std::vector<PosterCandidate> candidates;
    candidates.push_back(evaluator.evaluate(1, split(40, 200)));
    candidates.push_back(evaluator.evaluate(2, flat(0)));  // unusable: the scorer is not asked
    candidates.push_back(evaluator.evaluate(3, split(10, 250)));
    candidates.push_back(evaluator.evaluate(4, split(60, 180)));
    candidates.push_back(evaluator.evaluate(5, split(0, 255)));
    candidates.push_back(evaluator.evaluate(6, split(70, 170)));

    EXPECT_TRUE(evaluator.scorerFailed);
    EXPECT_EQ(scorer->calls, 3);
    EXPECT_TRUE(candidates[0].score.has_value());
    EXPECT_FALSE(candidates[4].score.has_value());
    EXPECT_EQ(PosterChoice::choose(candidates), 5);  // the greatest variance among the usable frames
}

TEST(PosterChoiceTest, CancellationInTheScorerPassesThrough) {
    PosterChoice::Evaluator evaluator{std::make_shared<FailingScorer>(1, true)};
    EXPECT_THROW(evaluator.evaluate(1, split(40, 200)), Cancelled);
    EXPECT_FALSE(evaluator.scorerFailed);
}

TEST(PosterChoiceTest, HeuristicScorerPrefersASharpColourfulFrame) {
    startVips();
    auto noise = VImage::gaussnoise(320, 180, VImage::option()->set("mean", 128)->set("sigma", 50));
    auto colourful = VImage::bandjoin(std::vector<VImage>{noise, noise.rot180(), noise.fliphor()})
                         .cast(VIPS_FORMAT_UCHAR)
                         .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    auto soft = colourful.colourspace(VIPS_INTERPRETATION_B_W).gaussblur(6).colourspace(VIPS_INTERPRETATION_sRGB);

    PosterHeuristicScorer scorer;
    auto sharp = PosterHeuristicScorer::measure(colourful);
    auto blurred = PosterHeuristicScorer::measure(soft);
    auto grey = PosterHeuristicScorer::measure(flat(128));
    EXPECT_GT(sharp.sharpness, blurred.sharpness);
    EXPECT_GT(sharp.colourfulness, blurred.colourfulness);
    EXPECT_NEAR(grey.contrast, 0, 1e-9);
    EXPECT_LT(PosterHeuristicScorer::measure(flat(5)).exposure, grey.exposure);

    auto best = scorer.score(colourful);
    EXPECT_GT(best.aesthetics, scorer.score(soft).aesthetics);
    EXPECT_GT(best.aesthetics, scorer.score(flat(128)).aesthetics);
    EXPECT_LE(best.aesthetics, 1.0);
    EXPECT_EQ(best.faceCount, 0);
}

}  // namespace
}  // namespace vorlen
