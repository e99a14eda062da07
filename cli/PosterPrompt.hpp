#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "core/publish/PosterReviewer.hpp"

namespace vorlen::cli {

// The poster review on a terminal. It shows the proposed poster and counts
// down; any line typed stops the countdown, and the person then keeps the
// poster, picks another of the sampled frames by number, gives an image file,
// or types "none" to publish without a poster. An empty line confirms.
class PosterPrompt {
public:
    PosterPrompt(int input, std::FILE* output) : input_(input), output_(output) {}

    // Returns once the review is answered, by the person or by the timer, or
    // when the calling task is cancelled.
    void operator()(const PosterReviewRequest& request);

    static std::string describe(const std::optional<Poster>& poster);
    // "Vorlen uses this poster in 12 s. Press Enter to choose. "
    static std::string countdownLine(bool hasPoster, int seconds);
    // The sampled frames by number, and what a line can say.
    static std::string menu(const std::vector<double>& sampleTimes);

private:
    enum class Read { line, idle, end };
    // Waits up to a quarter of a second for a whole line.
    Read readLine(std::string& line);
    void print(const std::string& text);
    bool countDown(const PosterReviewRequest& request);
    void choose(const PosterReviewRequest& request);

    int input_;
    std::FILE* output_;
    std::string pending_;
    bool ended_ = false;
};

}  // namespace vorlen::cli
