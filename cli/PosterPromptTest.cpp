#include "cli/PosterPrompt.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen::cli {
namespace {

using namespace std::chrono_literals;

Poster posterOf(double grey, std::optional<double> time) {
    startVips();
    auto image = (vips::VImage::black(64, 36, vips::VImage::option()->set("bands", 3)) + grey)
                     .cast(VIPS_FORMAT_UCHAR)
                     .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
    return makePoster(image, time);
}

// A review answered through the prompt from what the test types into a pipe.
class PosterPromptTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(::pipe(pipe_), 0);
        output_ = std::tmpfile();
        reviewer_.tools = Tools{"/nonexistent/ffmpeg", "/nonexistent/ffprobe", "/nonexistent/packager"};
        reviewer_.startTimer = [this](BootClock::time_point, std::function<void()> fire) {
            ring_ = std::move(fire);
            return std::function<void()>([] {});
        };
        reviewer_.onRequest = PosterPrompt(pipe_[0], output_);
    }
    void TearDown() override {
        ::close(pipe_[0]);
        if (pipe_[1] >= 0) ::close(pipe_[1]);
        std::fclose(output_);
    }

    void type(const std::string& text, bool close = false) {
        ASSERT_EQ(::write(pipe_[1], text.data(), text.size()), ssize_t(text.size()));
        if (close) {
            ::close(pipe_[1]);
            pipe_[1] = -1;
        }
    }

    std::string shown() {
        std::fflush(output_);
        std::rewind(output_);
        std::string text;
        char buffer[4096];
        while (auto count = std::fread(buffer, 1, sizeof buffer, output_)) text.append(buffer, count);
        return text;
    }

    PosterProposal proposal(std::variant<Poster, std::exception_ptr> selection) {
        return {std::move(selection), "/nonexistent/clip.mp4", 10, {1280, 720}};
    }

    int pipe_[2] = {-1, -1};
    std::FILE* output_ = nullptr;
    PosterReviewer reviewer_;
    std::function<void()> ring_;
};

TEST_F(PosterPromptTest, ChoicesChangeWhatIsShownUntilAnEmptyLine) {
    // Stop the countdown, try a frame that cannot be read, then no poster, then confirm.
    type("\n2\nnone\n\n");
    auto poster = reviewer_.review(proposal(posterOf(100, 1)));
    EXPECT_FALSE(poster.has_value());
    auto text = shown();
    EXPECT_NE(text.find("Vorlen uses this poster in 20 s."), std::string::npos) << text;
    EXPECT_NE(text.find("2) 1.5 s"), std::string::npos) << text;
    EXPECT_NE(text.find("ffmpeg"), std::string::npos) << text;  // the failed pick's own words
    EXPECT_NE(text.find("Poster: no poster"), std::string::npos) << text;
}

TEST_F(PosterPromptTest, AnImageFileThenTheEndOfInputPublishesIt) {
    auto folder = makeUniqueDirectory(std::filesystem::temp_directory_path(), "poster-prompt-test-");
    DirectoryRemover remover(folder);
    auto picture = posterOf(50, std::nullopt);
    writeFileAtomically(folder / "mine.jpg", picture.jpeg);

    auto failed = std::make_exception_ptr(VorlenError::source("Could not read a frame from clip.mp4."));
    type("\n" + (folder / "mine.jpg").string() + "\n", true);
    auto poster = reviewer_.review(proposal(failed));
    ASSERT_TRUE(poster.has_value());
    EXPECT_EQ(poster->size(), (PixelSize{64, 36}));
    auto text = shown();
    EXPECT_NE(text.find("Vorlen could not choose a frame. Could not read a frame from clip.mp4."), std::string::npos);
    EXPECT_NE(text.find("Vorlen publishes without a poster in 20 s."), std::string::npos) << text;
}

TEST_F(PosterPromptTest, TheTimerEndsTheCountdown) {
    auto selected = posterOf(100, 1);
    std::thread timer([&] {
        while (!ring_) std::this_thread::sleep_for(1ms);
        ring_();
    });
    auto poster = reviewer_.review(proposal(selected));
    timer.join();
    ASSERT_TRUE(poster.has_value());
    EXPECT_EQ(poster->name, selected.name);
}

}  // namespace
}  // namespace vorlen::cli
