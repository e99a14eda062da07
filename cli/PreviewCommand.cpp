#include <iostream>

#include "app/AppModel.hpp"
#include "app/Interrupts.hpp"
#include "app/LocalPreview.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"

namespace vorlen::cli {

void registerPreviewCommand(CommandRegistry& registry) {
    struct Options {
        std::optional<std::string> site;
        int port = app::localPreviewPort;
    };
    auto options = std::make_shared<Options>();
    auto* command = registry.app.add_subcommand(
        "preview", "Serve a local site on this computer: its pages on localhost, its media on media.localhost.");
    command->add_option("--site", options->site, "the local site's ID (default: the current site)");
    command->add_option("--port", options->port, "the loopback port (default: 8787)")->check(CLI::Range(1, 65535));
    registry.add(command, [options] {
        AppContext context;
        app::SiteID id = options->site ? app::SiteID{*options->site} : context.model->ensureSite();
        const app::LocalSite site = context.model->site(id);
        app::Interrupts::run([&] {
            app::LocalPreview::run(
                site, options->port,
                [&](const app::LocalPreview::Serving& serving) {
                    std::cout << "Serving the site \u201c" << id.value << "\u201d: pages on " << serving.pageOrigin
                              << ", media on " << serving.mediaOrigin << ". Stop with Ctrl-C.\n";
                    for (const auto& page : serving.pages) std::cout << "  " << page << '\n';
                    std::cout.flush();
                },
                [](const std::string& line) { std::cerr << line << '\n'; });
        });
        return 0;
    });
}

}  // namespace vorlen::cli
