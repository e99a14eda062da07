#include "cli/PosterPrompt.hpp"

#include <poll.h>
#include <unistd.h>

#include <cmath>

#include <fmt/format.h>

#include "core/base/Task.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

std::string PosterPrompt::describe(const std::optional<Poster>& poster) {
    if (!poster) return "no poster";
    auto size = fmt::format("{}, {}×{}", poster->name, poster->width, poster->height);
    if (poster->time) return fmt::format("the frame at {:.1f} s ({})", *poster->time, size);
    return fmt::format("an image file ({})", size);
}

std::string PosterPrompt::countdownLine(bool hasPoster, int seconds) {
    return fmt::format("{}{} s. Press Enter to choose. ",
                       hasPoster ? "Vorlen uses this poster in " : "Vorlen publishes without a poster in ", seconds);
}

std::string PosterPrompt::menu(const std::vector<double>& sampleTimes) {
    std::string text = "Frames:";
    for (std::size_t i = 0; i < sampleTimes.size(); ++i) text += fmt::format(" {}) {:.1f} s", i + 1, sampleTimes[i]);
    return text + "\nType a frame's number, the path of an image file, or \"none\" for no poster; "
                  "an empty line publishes what is shown.\n";
}

void PosterPrompt::print(const std::string& text) {
    std::fputs(text.c_str(), output_);
    std::fflush(output_);
}

PosterPrompt::Read PosterPrompt::readLine(std::string& line) {
    for (;;) {
        auto end = pending_.find('\n');
        if (end != std::string::npos) {
            line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return Read::line;
        }
        if (ended_) {
            if (pending_.empty()) return Read::end;
            line = std::exchange(pending_, {});
            return Read::line;
        }
        pollfd ready{input_, POLLIN, 0};
        if (::poll(&ready, 1, 250) <= 0) return Read::idle;
        char buffer[512];
        auto count = ::read(input_, buffer, sizeof buffer);
        if (count <= 0)
            ended_ = true;
        else
            pending_.append(buffer, std::size_t(count));
    }
}

// True when the person stopped the countdown while the review was still open.
bool PosterPrompt::countDown(const PosterReviewRequest& request) {
    const auto& reply = *request.reply;
    int shown = -1;
    while (reply.isOpen() && !isCancelled()) {
        auto left = std::chrono::duration<double>(reply.countdown().deadline - BootClock::now()).count();
        int seconds = std::max(0, int(std::ceil(left)));
        if (seconds != shown) {
            print("\r" + countdownLine(request.selection.has_value(), seconds));
            shown = seconds;
        }
        std::string line;
        auto read = readLine(line);
        if (read == Read::idle) continue;
        request.reply->hold();
        print("\n");
        return read == Read::line && request.reply->isOpen();
    }
    print("\n");
    return false;
}

void PosterPrompt::choose(const PosterReviewRequest& request) {
    std::optional<Poster> onScreen = request.selection ? request.selection : request.current;
    const auto& times = request.frames->sampleTimes();
    print(menu(times));
    for (;;) {
        print(fmt::format("Poster: {}\n> ", describe(onScreen)));
        std::string line;
        Read read = Read::idle;
        while (read == Read::idle) {
            if (isCancelled() || !request.reply->isOpen()) return;
            read = readLine(line);
        }
        auto choice = trimmed(line);
        if (read == Read::end || choice.empty()) {
            request.reply->answer(onScreen ? PosterDecision::of(*onScreen) : PosterDecision::noPoster(), false);
            return;
        }
        try {
            char* end = nullptr;
            long number = std::strtol(choice.c_str(), &end, 10);
            if (choice == "none")
                onScreen.reset();
            else if (*end == '\0' && number >= 1 && std::size_t(number) <= times.size())
                onScreen = request.frames->frame(times[std::size_t(number) - 1]);
            else
                onScreen = request.frames->image(choice);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            print(fmt::format("{}\n", error.what()));
        }
    }
}

void PosterPrompt::operator()(const PosterReviewRequest& request) {
    if (request.selection)
        print(fmt::format("Poster: {}\n", describe(request.selection)));
    else
        print(fmt::format("Vorlen could not choose a frame. {}\n", request.selectionFailure.value_or("")));
    if (countDown(request)) choose(request);
}

}  // namespace vorlen::cli
