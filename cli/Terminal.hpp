#pragma once

#include <functional>
#include <optional>
#include <string>

#include "core/publish/PublishProgress.hpp"

namespace vorlen::cli {

// Asks on the terminal for a line that is not echoed; absent without a terminal or at end of input.
std::optional<std::string> readSecretLine(const std::string& prompt);

// Asks a yes-or-no question on the terminal; no without a terminal.
bool confirmed(const std::string& question);

// "encoding  42%  1:05 left  1.8× realtime"
std::string progressLine(const PublishProgress& progress);

// Writes progress to standard error: one rewritten line on a terminal, else a
// line per stage and per tenth.
class ProgressPrinter {
public:
    ProgressPrinter();
    void operator()(const PublishProgress& progress);
    // Ends the rewritten line.
    void finish();

private:
    bool terminal_;
    int lastTenth_ = -1;
    int lastStage_ = -1;
    std::size_t lastLength_ = 0;
};

}  // namespace vorlen::cli
