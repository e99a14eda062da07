#include "core/publish/FrameReader.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/PosterChoice.hpp"
#include "core/publish/PosterHeuristicScorer.hpp"
#include "core/publish/ToolRunner.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

// Clips made once for the whole suite, each a few seconds at 10 frames a second.
class FrameReaderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        tools_ = new Tools(Tools::locate());
        folder_ = new fs::path(makeUniqueDirectory(fs::temp_directory_path(), "frame-reader-test-"));
        // Frame n has the grey level 16 + 6n; keyframes every 1.5 s.
        make("counter.mp4", "nullsrc=size=64x64:rate=10:duration=3,geq=lum='16+6*N':cb=128:cr=128",
             {"-qp", "0", "-g", "15"});
        make("fade.mp4",
             "testsrc2=size=320x180:rate=10:duration=8,colorlevels=romax=0.15:gomax=0.15:bomax=0.15,"
             "fade=t=out:st=0:d=8");
        make("fade-in.mp4", "testsrc2=size=320x180:rate=10:duration=8,fade=t=in:st=0:d=8:color=gray");
        make("bars.mp4", "smptebars=size=320x180:rate=10:duration=8", {"-qp", "0"});  // lossless: equal frames
        make("phone.mp4", "testsrc2=size=320x180:rate=10:duration=4");
        ToolRunner::run("ffmpeg", tools_->ffmpeg,
                        {"-nostdin", "-y", "-i", (*folder_ / "phone.mp4").string(), "-c", "copy",
                         "-metadata:s:v:0", "rotate=-90", (*folder_ / "rotated.mp4").string()});
    }
    static void TearDownTestSuite() {
        fs::remove_all(*folder_);
        delete folder_;
        delete tools_;
    }

    static void make(const std::string& name, const std::string& source, std::vector<std::string> extra = {}) {
        std::vector<std::string> arguments{"-nostdin", "-y", "-f", "lavfi", "-i", source,
                                           "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        arguments.push_back((*folder_ / name).string());
        ToolRunner::run("ffmpeg", tools_->ffmpeg, arguments);
    }

    static fs::path clip(const std::string& name) { return *folder_ / name; }
    static FrameReader reader() { return FrameReader(*tools_); }

    static Tools* tools_;
    static fs::path* folder_;
};

Tools* FrameReaderTest::tools_ = nullptr;
fs::path* FrameReaderTest::folder_ = nullptr;

// The grey level of frame n of the counter clip, after the move from video range to full range.
double counterLevel(int frame) { return 6.0 * frame * 255 / 219; }

// Scores 1, 1/2, 1/3, ... so that without a failure the first usable frame wins.
class DecliningScorer : public PosterFrameScorer {
public:
    explicit DecliningScorer(int failingCall) : failingCall_(failingCall) {}
    PosterFrameScore score(const vips::VImage&) override {
        if (++calls_ == failingCall_) throw std::runtime_error("scorer broke");
        return {1.0 / calls_, 0};
    }

private:
    int failingCall_;
    int calls_ = 0;
};

TEST_F(FrameReaderTest, ReadsExactFramesBetweenKeyframesInOneRun) {
    auto frames = reader().frames(clip("counter.mp4"), {1.05, 0.0, 2.0, 60.0, -1.0});
    ASSERT_EQ(frames.size(), 5u);
    ASSERT_TRUE(frames[0].image && frames[1].image && frames[2].image);
    // 1.05 s lies between the keyframes at 0 and 1.5 s: the next frame, number 11, not a keyframe.
    EXPECT_NEAR(frames[0].image->avg(), counterLevel(11), 3);
    EXPECT_NEAR(frames[1].image->avg(), counterLevel(0), 3);
    EXPECT_NEAR(frames[2].image->avg(), counterLevel(20), 3);
    EXPECT_EQ(frames[0].image->width(), 64);

    EXPECT_FALSE(frames[3].image);
    EXPECT_EQ(describe(frames[3].error), "counter.mp4 has no frame at 60.0 s.");
    EXPECT_EQ(describe(frames[4].error), "-1.0 s is not a valid frame time.");
}

TEST_F(FrameReaderTest, AFadeToBlackStillGetsItsLeastFlatFrame) {
    auto times = PosterChoice::samplingTimes(8);
    for (const auto& frame : reader().frames(clip("fade.mp4"), times, 480))
        ASSERT_FALSE(PosterChoice::isUsable(PosterChoice::statistics(*frame.image))) << frame.time;

    auto poster = reader().chooseFrame(clip("fade.mp4"), 8, std::make_shared<PosterHeuristicScorer>());
    EXPECT_EQ(poster.time, times.front());
    EXPECT_EQ(poster.size(), (PixelSize{320, 180}));
    EXPECT_EQ(checkPosterJpeg(poster.jpeg), poster.size());
}

TEST_F(FrameReaderTest, AScorerThatFailsAtTheThirdFrameLeavesTheChoiceToVariance) {
    auto times = PosterChoice::samplingTimes(8);
    // Fading in from grey, the frames grow less flat: the last one has the greatest variance.
    auto scored = reader().chooseFrame(clip("fade-in.mp4"), 8, std::make_shared<DecliningScorer>(0));
    auto failed = reader().chooseFrame(clip("fade-in.mp4"), 8, std::make_shared<DecliningScorer>(3));
    EXPECT_LT(*scored.time, times.back());
    EXPECT_EQ(failed.time, times.back());
}

TEST_F(FrameReaderTest, EqualFramesGiveTheEarliestTime) {
    auto poster = reader().chooseFrame(clip("bars.mp4"), 8, std::make_shared<PosterHeuristicScorer>());
    EXPECT_EQ(poster.time, PosterChoice::samplingTimes(8).front());
}

TEST_F(FrameReaderTest, ARotatedPhoneClipGivesAnUprightPoster) {
    auto upright = reader().frame(clip("phone.mp4"), 1.0);
    auto turned = reader().frame(clip("rotated.mp4"), 1.0);
    EXPECT_EQ(upright.size(), (PixelSize{320, 180}));
    EXPECT_EQ(turned.size(), (PixelSize{180, 320}));
    // The same picture turned a quarter clockwise: its top-left corner was the bottom-left one.
    auto original = vips::VImage::new_from_buffer(upright.jpeg, "");
    auto rotated = vips::VImage::new_from_buffer(turned.jpeg, "");
    auto expected = original.rot(VIPS_ANGLE_D90);
    EXPECT_LT((rotated.cast(VIPS_FORMAT_FLOAT) - expected.cast(VIPS_FORMAT_FLOAT)).abs().avg(), 8);
    auto sampled = reader().chooseFrame(clip("rotated.mp4"), 4, std::make_shared<PosterHeuristicScorer>());
    EXPECT_EQ(sampled.size(), (PixelSize{180, 320}));
}

TEST_F(FrameReaderTest, FailuresNameTheFile) {
    auto text = [](const std::function<void()>& action) {
        try {
            action();
        } catch (const VorlenError& error) {
            return error.text();
        }
        return std::string("no failure");
    };
    auto scorer = std::make_shared<PosterHeuristicScorer>();
    EXPECT_EQ(text([&] { reader().chooseFrame(clip("bars.mp4"), 0, scorer); }), "bars.mp4 has no duration.");
    EXPECT_EQ(text([&] { reader().chooseFrame(clip("bars.mp4"), INFINITY, scorer); }), "bars.mp4 has no duration.");
    auto missing = text([&] { reader().chooseFrame(clip("missing.mp4"), 8, scorer); });
    EXPECT_TRUE(missing.starts_with("Could not read a frame from missing.mp4: ffmpeg failed: exit status: ")) << missing;
    EXPECT_TRUE(missing.ends_with(".")) << missing;
}

}  // namespace
}  // namespace vorlen
