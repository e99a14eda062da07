#include "cli/TerminalPosterReview.hpp"

#include <poll.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>

#include "cli/PosterPrompt.hpp"
#include "core/base/Clock.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

TerminalPosterReview::TerminalPosterReview(app::SiteWorkspace& workspace, app::MainQueue& queue, int input,
                                           std::FILE* output)
    : workspace_(workspace), queue_(queue), input_(input), output_(output) {
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
            if (count <= 0)
                ended = true;
            else
                pending.append(buffer, std::size_t(count));
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
    const auto* review = workspace_.screen().as<app::PosterReviewState>();
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
            print("Poster: " + PosterPrompt::describe(request.selection) + "\n");
        else
            print("Vorlen could not choose a frame. " + request.selectionFailure.value_or("") + "\n");
    }
    if (review->isCountingDown) return onTick();
    if (!menuShown_) {
        menuShown_ = true;
        print("\n" + PosterPrompt::menu(review->request.frames ? review->request.frames->sampleTimes() : std::vector<double>{}));
    }
    if (std::holds_alternative<app::PosterReviewState::Loading>(review->imageStatus)) return;
    if (auto* failed = std::get_if<app::PosterReviewState::Failed>(&review->imageStatus)) {
        if (failureShown_ != failed->message) print(failed->message + "\n> ");
        failureShown_ = failed->message;
    } else {
        failureShown_.reset();
        auto shown = PosterPrompt::describe(review->poster);
        if (posterShown_ != shown) print("Poster: " + shown + "\n> ");
        posterShown_ = shown;
    }
    if (!deferred_.empty()) {
        queue_.post([this, line = deferred_.front()] { onLine(line); });
        deferred_.erase(deferred_.begin());
    }
}

void TerminalPosterReview::onTick() {
    const auto* review = workspace_.screen().as<app::PosterReviewState>();
    if (!review || !review->isCountingDown) return;
    auto left = std::chrono::duration<double>(review->request.reply->countdown().deadline - BootClock::now()).count();
    int seconds = std::max(0, int(std::ceil(left)));
    if (seconds != secondsShown_) print("\r" + PosterPrompt::countdownLine(review->poster.has_value(), seconds));
    secondsShown_ = seconds;
}

void TerminalPosterReview::onLine(const std::string& line) {
    const auto* review = workspace_.screen().as<app::PosterReviewState>();
    if (!review) return;
    if (review->isCountingDown) return workspace_.holdCountdown();
    // A line typed while a picked image loads waits for it, so that Enter confirms what then shows.
    if (std::holds_alternative<app::PosterReviewState::Loading>(review->imageStatus)) return deferred_.push_back(line);
    auto choice = trimmed(line);
    if (choice.empty()) return workspace_.confirmPoster();
    if (choice == "none") return workspace_.publishWithoutPoster();
    std::vector<double> times;
    if (review->request.frames) times = review->request.frames->sampleTimes();
    char* end = nullptr;
    long number = std::strtol(choice.c_str(), &end, 10);
    if (*end == '\0' && number >= 1 && std::size_t(number) <= times.size())
        return workspace_.pickPosterFrame(times[std::size_t(number) - 1]);
    workspace_.pickPosterImage(choice);
}

}  // namespace vorlen::cli
