#include "cli/TerminalPosterReview.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <mutex>
#include <thread>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
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

// A review answered through the terminal review from what the test types into a
// pipe, with the model and the main queue that a build uses.
class TerminalPosterReviewTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(::pipe(pipe_), 0);
        output_ = std::tmpfile();
        reviewer_.tools = Tools{"/nonexistent/ffmpeg", "/nonexistent/ffprobe", "/nonexistent/packager"};
        reviewer_.startTimer = [this](BootClock::time_point, std::function<void()> fire) {
            std::lock_guard lock(mutex_);
            ring_ = std::move(fire);
            return std::function<void()>([] {});
        };
    }
    void TearDown() override {
        ::close(pipe_[0]);
        if (pipe_[1] >= 0) ::close(pipe_[1]);
        std::fclose(output_);
    }

    // Runs a review; once it shows, `typed` goes into the input, which ends there when `close` says so.
    std::optional<Poster> review(const PosterProposal& proposal, const std::string& typed, bool close = false) {
        app::PostedQueue queue;
        std::shared_ptr<app::PosterReviewModel> model;
        std::optional<TerminalPosterReview> terminal;
        reviewer_.onRequest = [&](const PosterReviewRequest& request) {
            queue.post([&, request] {
                model = app::PosterReviewModel::make(request, queue, [&] { terminal->update(); });
                terminal.emplace(*model, queue, pipe_[0], output_);
                terminal->update();
                type(typed, close);
            });
        };
        auto task = Task<std::optional<Poster>>::spawn([&] { return reviewer_.review(proposal); });
        auto poster = queue.runWhile(task);
        terminal.reset();
        return poster;
    }

    void type(const std::string& text, bool close) {
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
    std::mutex mutex_;
    std::function<void()> ring_;
};

TEST_F(TerminalPosterReviewTest, ChoicesChangeWhatIsShownUntilAnEmptyLine) {
    // Stop the countdown, try a frame that cannot be read, then no poster, then confirm.
    auto poster = review(proposal(posterOf(100, 1)), "\n2\nnone\n\n");
    EXPECT_FALSE(poster.has_value());
    auto text = shown();
    EXPECT_NE(text.find("Vorlen uses this poster in 20 s."), std::string::npos) << text;
    EXPECT_NE(text.find("2) 1.5 s"), std::string::npos) << text;
    EXPECT_NE(text.find("ffmpeg"), std::string::npos) << text;  // the failed pick's own words
    EXPECT_NE(text.find("Poster: no poster"), std::string::npos) << text;
}

TEST_F(TerminalPosterReviewTest, AnImageFileThenTheEndOfInputPublishesIt) {
    auto folder = makeUniqueDirectory(std::filesystem::temp_directory_path(), "poster-review-test-");
    DirectoryRemover remover(folder);
    auto picture = posterOf(50, std::nullopt);
    writeFileAtomically(folder / "mine.jpg", picture.jpeg);

    auto failed = std::make_exception_ptr(VorlenError::source("Could not read a frame from clip.mp4."));
    auto poster = review(proposal(failed), "\n" + (folder / "mine.jpg").string(), true);
    ASSERT_TRUE(poster.has_value());
    EXPECT_EQ(poster->size(), (PixelSize{64, 36}));
    auto text = shown();
    EXPECT_NE(text.find("Vorlen could not choose a frame. Could not read a frame from clip.mp4."), std::string::npos);
    EXPECT_NE(text.find("Vorlen publishes without a poster in 20 s."), std::string::npos) << text;
}

TEST_F(TerminalPosterReviewTest, TheTimerEndsTheCountdown) {
    auto selected = posterOf(100, 1);
    std::thread timer([&] {
        for (;;) {
            {
                std::lock_guard lock(mutex_);
                if (ring_) break;
            }
            std::this_thread::sleep_for(1ms);
        }
        ring_();
    });
    auto poster = review(proposal(selected), "");
    timer.join();
    ASSERT_TRUE(poster.has_value());
    EXPECT_EQ(poster->name, selected.name);
}

}  // namespace
}  // namespace vorlen::cli
