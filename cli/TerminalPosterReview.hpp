#pragma once

#include <atomic>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "app/MainQueue.hpp"
#include "app/PosterReviewModel.hpp"

namespace vorlen::cli {

// The poster review on a terminal, through the model's own actions (a publish's
// workspace, or a build's review): the countdown runs on the line; any line typed
// stops it; then a frame's number, the path of an image file or "none" changes the
// poster on screen, and an empty line confirms it. Everything runs on the main
// queue; a reader thread only hands over the lines typed and a tick for the countdown.
// The end of input confirms the poster on screen.
class TerminalPosterReview {
public:
    TerminalPosterReview(app::PosterReviewActions& review, app::MainQueue& queue, int input, std::FILE* output);
    ~TerminalPosterReview();
    TerminalPosterReview(const TerminalPosterReview&) = delete;
    TerminalPosterReview& operator=(const TerminalPosterReview&) = delete;

    // Follows the review on screen; call it on each change.
    void update();

    static std::string describe(const std::optional<Poster>& poster);
    // "Vorlen uses this poster in 12 s. Press Enter to choose. "
    static std::string countdownLine(bool hasPoster, int seconds);
    // The sampled frames by number, and what a line can say.
    static std::string menu(const std::vector<double>& sampleTimes);

private:
    void read();
    void onLine(const std::string& line);
    void onTick();
    void print(const std::string& text);

    app::PosterReviewActions& review_;
    app::MainQueue& queue_;
    int input_;
    std::FILE* output_;
    std::atomic<bool> reviewing_ = false;
    std::atomic<bool> stopping_ = false;
    bool menuShown_ = false;
    int secondsShown_ = -1;
    std::optional<std::string> posterShown_;
    std::optional<std::string> failureShown_;
    std::vector<std::string> deferred_;
    std::thread reader_;
};

}  // namespace vorlen::cli
