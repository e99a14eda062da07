#include <iostream>

#include <fmt/format.h>

#include "app/BatchRunService.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/SetupToken.hpp"

namespace vorlen::cli {

void registerRunsCommand(CommandRegistry& registry) {
    auto site = std::make_shared<std::optional<std::string>>();
    auto* runs = registry.app.add_subcommand(
        "runs", "Tell whether a batch run (a bulk upload or a Vimeo sync) holds the site, from which computer, and when "
                "that computer last reported to the bucket. A run that has not reported for 5 minutes holds nothing.");
    runs->add_option("--site", *site, "the site's ID (see `vorlen sites`)");
    registry.add(runs, [site] {
        AppContext context;
        const auto id = chosenSite(*context.model, *site);
        const auto workspace = context.model->workspace(id);
        const auto run = workspace->services().batchRuns->activeRun(workspace->access());
        if (!run) {
            std::cout << fmt::format("No batch run holds the site \u201c{}\u201d.\n", id.value);
            return 0;
        }
        std::cout << run->message() << '\n'
                  << fmt::format("Its computer last reported to the bucket at {}.\n", formatIso8601(run->updated));
        return 0;
    });
}

}  // namespace vorlen::cli
