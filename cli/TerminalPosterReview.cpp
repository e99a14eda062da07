#include "cli/TerminalPosterReview.hpp"

#include <poll.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

std::string TerminalPosterReview::describe(const std::optional<Poster>& poster) {
    if (!poster) return "no poster";
    auto size = fmt::format("{}, {}\u00d7{}", poster->name, poster->width, poster->height);
    if (poster->time) return fmt::format("the frame at {:.1f} s ({})", *poster->time, size);
    return fmt::format("an image file ({})", size);
}

std::string TerminalPosterReview::countdownLine(bool hasPoster, int seconds) {
    return fmt::format("{}{} s. Press Enter to choose. ",
                       hasPoster ? "Vorlen uses this poster in " : "Vorlen publishes without a poster in ", seconds);
}

std::string TerminalPosterReview::menu(const std::vector<double>& sampleTimes) {
    std::string text = "Frames:";
    for (std::size_t i = 0; i < sampleTimes.size(); ++i) text += fmt::format(" {}) {:.1f} s", i + 1, sampleTimes[i]);
    return text + "\nType a frame's number, the path of an image file, or \"none\" for no poster; "
                  "an empty line publishes what is shown.\n";
}

TerminalPosterReview::TerminalPosterReview(app::PosterReviewActions& review, app::MainQueue& queue, int input,
                                           std::FILE* output)
    : review_(review), queue_(queue), input_(input), output_(output) {
    reader_ = std::thread([this] { read(); });
}

TerminalPosterReview::~TerminalPosterReview() {
    stopping_ = true;
    reader_.join();
}

void TerminalPosterReview::print(const std::string& text) {
    std::fputs(text.c_str(), output_);
    std::fflush(output_);
}

// Lines and ticks reach the main queue only while a review stands.
void TerminalPosterReview::read() {
    std::string pending;
    bool ended = false;
    while (!stopping_) {
        pollfd ready{input_, POLLIN, 0};
        bool readable = !ended && ::poll(&ready, 1, 250) > 0;
        if (ended) ::usleep(250'000);
        if (readable) {
            char buffer[512];
            auto count = ::read(input_, buffer, sizeof buffer);
            if (count > 0) {
                pending.append(buffer, std::size_t(count));
            } else {
                // The end of input (Ctrl-D) ends a line begun and confirms what is shown.
                ended = true;
                if (!pending.empty() && !pending.ends_with('\n')) pending += '\n';
                pending += '\n';
            }
        }
        if (!reviewing_) {
            pending.clear();  // typed before the review: not meant for it
            continue;
        }
        for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            queue_.post([this, line = pending.substr(0, end)] { onLine(line); });
            pending.erase(0, end + 1);
        }
        queue_.post([this] { onTick(); });
    }
}

void TerminalPosterReview::update() {
    const auto* review = review_.posterReview();
    if (!review) {
        if (reviewing_) print("\n");
        reviewing_ = false;
        menuShown_ = false;
        secondsShown_ = -1;
        posterShown_.reset();
        failureShown_.reset();
        deferred_.clear();
        return;
    }
    if (!reviewing_) {
        reviewing_ = true;
        print("\n");  // past the progress line
        const auto& request = review->request;
        if (request.selection)
            print("Poster: " + describe(request.selection) + "\n");
        else
            print("Vorlen could not choose a frame. " + request.selectionFailure.value_or("") + "\n");
    }
    if (review->isCountingDown) return onTick();
    if (!menuShown_) {
        menuShown_ = true;
        print("\n" + menu(review->request.frames ? review->request.frames->sampleTimes() : std::vector<double>{}));
    }
    if (std::holds_alternative<app::PosterReviewScreen::Loading>(review->imageStatus)) return;
    if (auto* failed = std::get_if<app::PosterReviewScreen::Failed>(&review->imageStatus)) {
        if (failureShown_ != failed->message) print(failed->message + "\n> ");
        failureShown_ = failed->message;
    } else {
        failureShown_.reset();
        auto shown = describe(review->poster);
        if (posterShown_ != shown) print("Poster: " + shown + "\n> ");
        posterShown_ = shown;
    }
    if (!deferred_.empty()) {
        queue_.post([this, line = deferred_.front()] { onLine(line); });
        deferred_.erase(deferred_.begin());
    }
}

void TerminalPosterReview::onTick() {
    const auto* review = review_.posterReview();
    if (!review && reviewing_) return update();  // answered by its timer
    if (!review || !review->isCountingDown) return;
    auto left = std::chrono::duration<double>(review->request.reply->countdown().deadline - BootClock::now()).count();
    int seconds = std::max(0, int(std::ceil(left)));
    if (seconds != secondsShown_) print("\r" + countdownLine(review->poster.has_value(), seconds));
    secondsShown_ = seconds;
}

void TerminalPosterReview::onLine(const std::string& line) {
    const auto* review = review_.posterReview();
    if (!review) return;
    if (review->isCountingDown) return review_.holdCountdown();
    // A line typed while a picked image loads waits for it, so that Enter confirms what then shows.
    if (std::holds_alternative<app::PosterReviewScreen::Loading>(review->imageStatus)) return deferred_.push_back(line);
    auto choice = trimmed(line);
    if (choice.empty()) return review_.confirmPoster();
    if (choice == "none") return review_.publishWithoutPoster();
    std::vector<double> times;
    if (review->request.frames) times = review->request.frames->sampleTimes();
    char* end = nullptr;
    long number = std::strtol(choice.c_str(), &end, 10);
    if (*end == '\0' && number >= 1 && std::size_t(number) <= times.size())
        return review_.pickPosterFrame(times[std::size_t(number) - 1]);
    review_.pickPosterImage(choice);
}

}  // namespace vorlen::cli
