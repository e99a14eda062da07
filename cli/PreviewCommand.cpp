#include <iostream>

#include <fmt/format.h>

#include "app/AppModel.hpp"
#include "cli/AppContext.hpp"
#include "app/Interrupts.hpp"
#include "cli/Commands.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/ToolRunner.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen::cli {

namespace {

namespace fs = std::filesystem;

fs::path nodeProgram() {
    for (const char* candidate : {"/usr/bin/node", "/usr/local/bin/node"})
        if (fs::exists(candidate)) return candidate;
    throw VorlenError::config("cannot find node, which runs the page Worker for a preview");
}

// The page addresses of the site's videos: folders that hold a video.json.
std::vector<std::string> videoPages(FolderBucket& bucket, const std::string& origin, const app::SiteSummary& site) {
    std::vector<std::string> pages;
    std::string prefix = site.folderPath.empty() ? "" : site.folderPath + "/";
    for (const auto& key : bucket.listKeys(prefix)) {
        if (!key.ends_with("/video.json") || key.starts_with("_vorlen/")) continue;
        std::string folder = key.substr(prefix.size(), key.size() - prefix.size() - std::string("/video.json").size());
        if (folder.find('/') != std::string::npos) continue;
        pages.push_back(origin + "/" + (site.pagePath.empty() ? "" : site.pagePath + "/") + folder);
    }
    return pages;
}

}  // namespace

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
        const app::LocalSite* site = context.model->settings().site(id);
        if (!site) throw VorlenError::config(fmt::format("There is no site \u201c{}\u201d on this computer.", id.value));
        if (!site->settings.isLocal())
            throw VorlenError::config(fmt::format("\u201c{}\u201d is not a local site: its pages are on {}.", id.value,
                                                  site->settings.pageHost.name));
        FolderBucket bucket(*site->settings.localFolder);
        fs::path server = app::bundledWorkerDirectory() / "dev" / "serve.mjs";
        app::Interrupts::run([&] {
            ToolRunner::run("node", nodeProgram(),
                            {server.string(), site->settings.localFolder->string(), "--port", std::to_string(options->port)},
                            [&](const std::string& line) {
                                Json ready;
                                try {
                                    ready = decodeJson(line);
                                } catch (const Json::exception&) {
                                    std::cerr << line << '\n';
                                    return;
                                }
                                std::string page = fieldOr<std::string>(ready, "page", "");
                                std::cout << "Serving the site \u201c" << id.value << "\u201d: pages on " << page << ", media on "
                                          << fieldOr<std::string>(ready, "media", "") << ". Stop with Ctrl-C.\n";
                                for (const auto& address : videoPages(bucket, page, site->settings)) std::cout << "  " << address << '\n';
                                std::cout.flush();
                            });
        });
        return 0;
    });
}

}  // namespace vorlen::cli
