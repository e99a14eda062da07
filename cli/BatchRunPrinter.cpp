#include "cli/BatchRunPrinter.hpp"

#include <iostream>

#include <fmt/format.h>

#include "app/BulkWords.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

std::string outcomeText(const BulkRowOutcome& outcome) {
    return std::visit(
        [](const auto& ended) -> std::string {
            using Ended = std::decay_t<decltype(ended)>;
            if constexpr (std::is_same_v<Ended, bulkOutcome::Published>)
                return "published " + ended.location.pageURL;
            else if constexpr (std::is_same_v<Ended, bulkOutcome::Replaced>)
                return "re-imported " + ended.location.pageURL + (ended.problem ? " (" + *ended.problem + ")" : "");
            else if constexpr (std::is_same_v<Ended, bulkOutcome::Skipped>)
                return "skipped: already in the bucket (" + ended.location.folder + ")";
            else
                return "failed: " + ended.message;
        },
        outcome);
}

void BatchRunPrinter::operator()(const BatchSnapshot& snapshot, const ItemName& itemName) {
    std::lock_guard lock(mutex_);
    heardAny_ = true;
    const std::string left =
        snapshot.eta ? fmt::format("  (about {} left in all)", clockText(*snapshot.eta)) : std::string();
    for (const auto& [item, outcome] : snapshot.results) {
        if (!ended_.insert(item).second) continue;
        std::cerr << fmt::format("{}: {}{}\n", itemName(item), outcomeText(outcome), left);
    }
    for (const auto& active : snapshot.activeItems) {
        const bool encoding = active.phase == BatchPhase::building && active.progress;
        const bool downloading = active.phase == BatchPhase::downloading && active.downloadFraction;
        const auto step = encoding      ? int(active.progress->stage) * 100 + int(active.progress->stageFraction * 10)
                          : downloading ? int(*active.downloadFraction * 10)
                                        : -1;
        auto& [shownPhase, shownStep] = shown_[active.item];
        if (shownPhase == active.phase && shownStep == step) continue;
        shownPhase = active.phase;
        shownStep = step;
        std::string line = itemName(active.item) + ": ";
        line += encoding ? progressLine(*active.progress) : app::BulkWords::phase(active.phase);
        if (downloading) line += fmt::format(" {}%", int(*active.downloadFraction * 100));
        if (active.folder) line += fmt::format(" \u201c{}\u201d", *active.folder);
        std::cerr << line << left << '\n';
    }
}

bool BatchRunPrinter::heardAny() {
    std::lock_guard lock(mutex_);
    return heardAny_;
}

}  // namespace vorlen::cli
