#include <cstdlib>
#include <iostream>

#include <fmt/format.h>

#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/Terminal.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

namespace {

std::optional<std::string> fromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (!value || !*value) return std::nullopt;
    return std::string(value);
}

// Secrets never come as arguments, which other users of the computer can see:
// the token's value or the S3 keys come from the environment, else the token from the terminal.
app::R2Credentials r2Credentials(const std::string& tokenID) {
    auto accessKeyID = fromEnvironment("VORLEN_ACCESS_KEY_ID");
    auto secretAccessKey = fromEnvironment("VORLEN_SECRET_ACCESS_KEY");
    if (accessKeyID && secretAccessKey) return {tokenID, *accessKeyID, *secretAccessKey, std::nullopt};
    auto token = fromEnvironment("VORLEN_R2_TOKEN");
    if (!token) token = readSecretLine("The value of the R2 API Token: ");
    if (!token || token->empty())
        throw VorlenError::config(
            "Give the value of the R2 API Token in VORLEN_R2_TOKEN or on the terminal, or its S3 keys in "
            "VORLEN_ACCESS_KEY_ID and VORLEN_SECRET_ACCESS_KEY.");
    if (tokenID.empty()) throw VorlenError::config("Give the ID of the R2 API Token with --token-id.");
    return app::R2Credentials::fromToken(tokenID, *token);
}

void listSites(app::AppModel& model) {
    auto current = model.currentSite();
    if (model.settings().sites.empty()) std::cout << "No sites yet. `vorlen publish` makes the local site.\n";
    for (const auto& site : model.settings().sites) {
        const auto& s = site.settings;
        std::string where = s.isLocal() ? "local folder " + s.localFolder->string() : "R2 bucket " + s.bucket + " of account " + s.accountID;
        std::cout << fmt::format("{} {}  pages on {}, media on {}, {}, upload limit {}\n", current == site.id ? "*" : " ",
                                 site.id.value, s.pageHost.name, s.mediaHost.name, where, site.uploadLimit.text());
    }
}

}  // namespace

void registerSitesCommand(CommandRegistry& registry) {
    auto* command = registry.app.add_subcommand("sites", "List this computer's sites, add or join one, or remove one.");
    registry.add(command, [] {
        AppContext context;
        listSites(*context.model);
        return 0;
    });

    struct LocalOptions {
        std::string name;
        std::string folder;
    };
    auto local = std::make_shared<LocalOptions>();
    auto* addLocal = command->add_subcommand("add-local", "Add a site whose bucket is a folder on this computer.");
    addLocal->add_option("NAME", local->name, "the site's name")->required();
    addLocal->add_option("DIR", local->folder, "the folder")->required();
    registry.add(addLocal, [local] {
        AppContext context;
        auto id = context.model->addLocalSite(local->name, local->folder);
        std::cout << fmt::format("Added the local site \u201c{}\u201d.\n", id.value);
        return 0;
    });

    struct R2Options {
        app::R2SiteForm site;
        std::string tokenID;
    };
    auto r2 = std::make_shared<R2Options>();
    auto* addR2 = command->add_subcommand(
        "add-r2",
        "Add a site set up elsewhere. The R2 API Token's value comes from VORLEN_R2_TOKEN or the terminal; "
        "S3 keys may come instead from VORLEN_ACCESS_KEY_ID and VORLEN_SECRET_ACCESS_KEY.");
    addR2->add_option("--account", r2->site.accountID, "the Cloudflare account ID")->required();
    addR2->add_option("--bucket", r2->site.bucket, "the R2 bucket")->required();
    addR2->add_option("--media-host", r2->site.mediaHost, "the bucket's hostname")->required();
    addR2->add_option("--page-host", r2->site.pageHost, "the pages' hostname")->required();
    addR2->add_option("--path", r2->site.path, "the folder of the videos in the bucket");
    addR2->add_option("--page-path", r2->site.pagePath, "the path of the pages on their host");
    addR2->add_option("--token-id", r2->tokenID, "the ID of the R2 API Token");
    addR2->add_option("--endpoint", r2->site.s3Endpoint, "another S3 service in place of R2");
    registry.add(addR2, [r2] {
        auto credentials = r2Credentials(r2->tokenID);
        AppContext context;
        auto id = context.model->addR2Site(r2->site, credentials);
        std::cout << fmt::format("Added the site \u201c{}\u201d.\n", id.value);
        return 0;
    });

    auto* join = command->add_subcommand(
        "join", "Join a site with a setup code from its owner; the code comes from VORLEN_SETUP_CODE or the terminal.");
    registry.add(join, [] {
        auto text = fromEnvironment("VORLEN_SETUP_CODE");
        if (!text) text = readSecretLine("The setup code (it is not shown): ");
        if (!text || text->empty()) throw VorlenError::config("Give the setup code in VORLEN_SETUP_CODE or on the terminal.");
        const auto code = SetupCode::parse(*text);
        AppContext context;
        auto id = context.model->joinSite(code);
        const auto& site = context.model->site(id).settings;
        std::cout << fmt::format("Joined the site “{}”: pages on {}, media on {}.\n", id.value, site.pageHost.name,
                                 site.mediaHost.name);
        return 0;
    });

    auto removeID = std::make_shared<std::string>();
    auto* remove = command->add_subcommand("remove", "Forget a site and its secrets on this computer; the bucket stays.");
    remove->add_option("ID", *removeID, "the site's ID")->required();
    registry.add(remove, [removeID] {
        AppContext context;
        const app::SiteSummary site = context.model->site(app::SiteID{*removeID}).settings;
        context.model->removeSite(app::SiteID{*removeID});
        std::cout << fmt::format("Removed the site \u201c{}\u201d from this computer.\n", *removeID);
        if (!site.isLocal() && !site.s3Endpoint)
            std::cout << fmt::format(
                "The Cloudflare account is left as it is: the bucket \u201c{}\u201d with its videos, the page Worker, "
                "the hostnames {} and {}, and this computer's R2 API Token stay. Revoke the token in the dashboard if "
                "this computer should not publish any more.\n",
                site.bucket, site.pageHost.name, site.mediaHost.name);
        return 0;
    });
}

void registerSettingsCommand(CommandRegistry& registry) {
    struct Options {
        std::optional<int> parallelUploads;
        std::optional<int> partSize;
        std::optional<std::string> limit;
        std::optional<std::string> site;
        std::optional<std::string> defaultSite;
        std::optional<std::string> encodingSpeed;
    };
    auto options = std::make_shared<Options>();
    auto* command = registry.app.add_subcommand("settings", "Show or change how this computer uploads and encodes.");
    command->add_option("--parallel-uploads", options->parallelUploads, "requests at the same time: 1, 2, 4 or 8")
        ->check(CLI::IsMember({1, 2, 4, 8}));
    command->add_option("--part-size", options->partSize, "MiB in a part of a larger file: 5, 8, 16 or 32")
        ->check(CLI::IsMember({5, 8, 16, 32}));
    command->add_option("--limit", options->limit, "upload limit of a site in Mbit/s, or \"unlimited\"");
    command->add_option("--site", options->site, "the site whose limit changes (default: the current site)");
    command->add_option("--default-site", options->defaultSite, "the site to use when none is named");
    command->add_option("--encoding-speed", options->encodingSpeed, "fast, balanced or quality")
        ->check(CLI::IsMember({"fast", "balanced", "quality"}));
    registry.add(command, [options] {
        AppContext context;
        auto& model = *context.model;
        std::optional<app::UploadLimit> limit;
        if (options->limit) limit = app::UploadLimit::parse(*options->limit);
        std::optional<app::SiteID> limitSite = options->site ? app::SiteID{*options->site} : model.currentSite();
        if (limit && !limitSite) throw VorlenError::config("There is no site to set the limit of.");
        if (options->defaultSite) model.site(app::SiteID{*options->defaultSite});
        model.changeSettings([&](app::LocalSettings& settings) {
            if (options->parallelUploads) settings.uploadTuning.parallelUploads = static_cast<app::ParallelUploads>(*options->parallelUploads);
            if (options->partSize) settings.uploadTuning.partSize = static_cast<app::UploadPartSize>(*options->partSize);
            if (options->encodingSpeed) settings.encodingSpeed = *encodingSpeedFromRawValue(*options->encodingSpeed);
            if (options->defaultSite) settings.defaultSite = app::SiteID{*options->defaultSite};
        });
        if (limit) model.setUploadLimit(*limitSite, *limit);
        const auto& settings = model.settings();
        std::cout << fmt::format("Parallel uploads: {}\nPart size:        {} MiB\nEncoding speed:   {}\nDefault site:     {}\n",
                                 settings.uploadTuning.concurrency(), static_cast<int>(settings.uploadTuning.partSize),
                                 rawValue(settings.encodingSpeed), model.currentSite() ? model.currentSite()->value : "none");
        for (const auto& site : settings.sites) std::cout << fmt::format("Upload limit of {}: {}\n", site.id.value, site.uploadLimit.text());
        std::cout << app::uploadTuningExplanation << '\n';
        return 0;
    });
}

}  // namespace vorlen::cli
