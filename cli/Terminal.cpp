#include "cli/Terminal.hpp"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include <fmt/format.h>

#include "app/Interrupts.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

std::string progressLine(const PublishProgress& progress) {
    std::string line = fmt::format("{:<10} {:3.0f}%", displayName(progress.stage), progress.stageFraction * 100);
    if (progress.stageETA) line += fmt::format("  {} left", clockText(*progress.stageETA));
    if (progress.encodeSpeed) line += fmt::format("  {:.2f}× realtime", *progress.encodeSpeed);
    return line;
}

ProgressPrinter::ProgressPrinter() : terminal_(::isatty(STDERR_FILENO) == 1) {}

void ProgressPrinter::operator()(const PublishProgress& progress) {
    auto line = progressLine(progress);
    if (terminal_) {
        std::string padding(lastLength_ > line.size() ? lastLength_ - line.size() : 0, ' ');
        std::fprintf(stderr, "\r%s%s", line.c_str(), padding.c_str());
        std::fflush(stderr);
        lastLength_ = line.size();
        return;
    }
    int tenth = static_cast<int>(progress.stageFraction * 10);
    int stage = static_cast<int>(progress.stage);
    if (tenth == lastTenth_ && stage == lastStage_) return;
    lastTenth_ = tenth;
    lastStage_ = stage;
    std::fprintf(stderr, "%s\n", line.c_str());
}

void ProgressPrinter::finish() {
    if (terminal_ && lastLength_ > 0) std::fprintf(stderr, "\n");
    lastLength_ = 0;
}

std::optional<std::string> readSecretLine(const std::string& prompt) {
    if (!::isatty(STDIN_FILENO)) return std::nullopt;
    std::cerr << prompt << std::flush;
    termios saved{};
    ::tcgetattr(STDIN_FILENO, &saved);
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    std::string line;
    bool read = false;
    {
        // Ctrl-C gives the terminal its echo back before the process ends.
        app::Interrupts::Listener interrupted([saved] {
            ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
            ::_exit(130);
        });
        read = static_cast<bool>(std::getline(std::cin, line));
    }
    ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    std::cerr << '\n';
    if (!read) return std::nullopt;
    return line;
}

bool confirmed(const std::string& question) {
    if (!isatty(STDIN_FILENO)) return false;
    std::cerr << question << " [y/N] " << std::flush;
    std::string answer;
    return std::getline(std::cin, answer) && (answer == "y" || answer == "Y" || answer == "yes");
}

}  // namespace vorlen::cli
