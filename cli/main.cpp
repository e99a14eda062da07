#include <cstdio>
#include <filesystem>
#include <iostream>

#include "app/AppModel.hpp"
#include "app/Interrupts.hpp"
#include "app/SiteStorage.hpp"
#include "core/base/Log.hpp"
#include "cli/Commands.hpp"
#include "core/base/VorlenError.hpp"
#include "shell/DesktopApp.hpp"

namespace vorlen::cli {

int reportFailure(const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}

// The Worker bundle travels beside the program and is deployed as it is, so its
// version is read where it lies.
std::string versionText() {
    std::string text = std::string("vorlen ") + VORLEN_VERSION + "\nWorker bundle ";
    try {
        return text + vorlen::app::bundledWorkerVersion().text();
    } catch (const std::exception& error) {
        return text + "unreadable: " + error.what();
    }
}

// Each command lives in its own file and registers here.
void registerCommands(CommandRegistry& registry);

}  // namespace vorlen::cli

int main(int argc, char** argv) {
    using namespace vorlen::cli;
    // Before any thread starts, so that every thread inherits the blocked interrupts.
    vorlen::app::Interrupts::install();
    vorlen::logToFile(vorlen::app::userStateFolder() / "vorlen.log");
    CLI::App app{"Vorlen publishes your videos into your own Cloudflare account.", "vorlen"};
    app.set_version_flag("--version", versionText, "Print the version of the program and of its page Worker bundle, and exit");
    app.require_subcommand(0, 1);
    app.footer(
        "For tests and local stand-ins only: VORLEN_CLOUDFLARE_API, VORLEN_R2_STORAGE ({account} stands for the "
        "account ID), VORLEN_CLOUDFLARE_DASHBOARD, VORLEN_VIMEO_API and VORLEN_GOOGLE_FONTS replace the services' "
        "addresses; VORLEN_CONNECT_TO (comma-separated HOST:443:127.0.0.1:PORT, as curl's --connect-to) sends "
        "connections elsewhere, and VORLEN_CA_FILE names a certificate authority trusted besides the system's.");
    CommandRegistry registry{app, {}};
    registerCommands(registry);
    auto* gui = app.add_subcommand("gui", "Open the window; the same as no command at all on a desktop. Files given "
                                          "(a video, with its subtitle files) go to the publish screen, as a drop does.");
    std::vector<std::string> guiFiles;
    gui->add_option("FILE", guiFiles, "a video to publish, and its subtitle files")->check(CLI::ExistingFile);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    // A nested command is registered after its parent, so the last parsed one is the one asked for.
    for (auto entry = registry.commands.rbegin(); entry != registry.commands.rend(); ++entry) {
        auto& [command, handler] = *entry;
        if (command->parsed()) {
            try {
                return handler();
            } catch (const vorlen::Cancelled&) {
                return 130;
            } catch (const std::exception& error) {
                return reportFailure(error);
            }
        }
    }
    if (gui->parsed() || vorlen::shell::hasDisplay()) {
        std::vector<std::filesystem::path> files;
        for (const auto& file : guiFiles) files.push_back(std::filesystem::absolute(file));
        return vorlen::shell::runDesktop(argc, argv, files);
    }
    std::cout << app.help();
    return 0;
}
