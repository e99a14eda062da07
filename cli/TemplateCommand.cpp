#include <filesystem>
#include <iostream>

#include <fmt/format.h>

#include "app/SiteTemplates.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "core/base/Files.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/BuiltInTemplate.hpp"
#include "core/site/PageTemplateReview.hpp"

namespace vorlen::cli {

namespace {

struct ChosenSite {
    app::LocalSite site;
    app::SiteTemplates templates;
};

ChosenSite chosenSite(AppContext& context, const std::optional<std::string>& siteOption) {
    const auto& site = context.chosenSite(siteOption);
    return {site, app::SiteTemplates::open(site, context.secrets, context.model->endpoints())};
}

std::string inQuotes(const std::string& text) { return "\u201c" + text + "\u201d"; }

std::string describeCustom(const CustomTemplateFile& file) {
    std::string text = "The custom template";
    if (file.sourceName) text += " " + inQuotes(*file.sourceName);
    text += fmt::format(" has {}", fileSizeText(static_cast<std::uint64_t>(file.size)));
    if (file.imported) text += ", imported " + formatIso8601(*file.imported);
    return text + ".";
}

void printReview(const PageTemplate& page) {
    if (page.unknownPlaceholders.empty()) return;
    std::cout << PageTemplateReview::reviewTitle << '\n' << PageTemplateReview::unknownNotice << '\n';
    for (const auto& unknown : page.unknownPlaceholders) std::cout << "  " << PageTemplateReview::shownAsWritten(unknown) << '\n';
    std::cout << PageTemplateReview::placeholderRule() << '\n';
}

}  // namespace

void registerTemplateCommands(CommandRegistry& registry) {
    auto shownSite = std::make_shared<std::optional<std::string>>();
    auto* command = registry.app.add_subcommand(
        "template", "Show which page template a site uses; check, choose or export a template. The page Worker "
                    "fills {{title}}, {{head}}, {{player}}, {{description}}, {{site}} and {{visibility}} on every page "
                    "load; {{head}} and {{player}} are required.");
    command->add_option("--site", *shownSite, "the site (by default the current one)");
    registry.add(command, [shownSite] {
        AppContext context;
        auto chosen = chosenSite(context, *shownSite);
        const auto current = chosen.templates.current();
        std::cout << fmt::format("The site {} uses the {} template.\n", inQuotes(chosen.site.id.value), rawValue(current.design));
        if (current.custom) std::cout << describeCustom(*current.custom) << '\n';
        return 0;
    });

    auto checkedFile = std::make_shared<std::string>();
    auto* check = command->add_subcommand(
        "check", "Check a page template file as `vorlen template set` does, and list texts that look like "
                 "placeholders but are none. Changes nothing.");
    check->add_option("FILE", *checkedFile, "the template, UTF-8 HTML of 256 KiB at most")->required()->check(CLI::ExistingFile);
    registry.add(check, [checkedFile] {
        const fs::path file = *checkedFile;
        auto page = PageTemplate::inspectedFile(file);
        printReview(page);
        page.requireComplete();
        std::cout << fmt::format("{} passes the check.\n", inQuotes(file.filename().string()));
        return 0;
    });

    struct SetOptions {
        std::string choice;
        std::optional<std::string> site;
    };
    auto set = std::make_shared<SetOptions>();
    auto* setCommand = command->add_subcommand(
        "set", "Choose the site's page template. A file is checked first (one that fails changes nothing), "
               "kept in the bucket as the custom template, and used from the pages' next load. auto, light and "
               "dark are the built-in designs; custom goes back to the custom template that the bucket holds.");
    setCommand->add_option("TEMPLATE", set->choice, "a template file (./auto for a file of that name), or auto, light, dark or custom")
        ->required();
    setCommand->add_option("--site", set->site, "the site (by default the current one)");
    registry.add(setCommand, [set] {
        AppContext context;
        auto chosen = chosenSite(context, set->site);
        const auto site = inQuotes(chosen.site.id.value);
        if (auto design = siteTemplateFromRawValue(set->choice)) {
            chosen.templates.choose(*design);
            std::cout << fmt::format("The site {} now uses {} template.\n", site,
                                     *design == SiteTemplate::custom ? "its custom" : "the " + rawValue(*design));
            return 0;
        }
        const fs::path file = set->choice;
        if (!fs::is_regular_file(file))
            throw VorlenError::config(fmt::format("There is no file {}. Give a template file, or auto, light, dark or custom.",
                                                  inQuotes(set->choice)));
        printReview(chosen.templates.importFile(file));
        std::cout << fmt::format("The site {} now uses the custom template {}.\n", site, inQuotes(file.filename().string()));
        return 0;
    });

    struct ExportOptions {
        std::string design;
        std::string file;
    };
    auto exported = std::make_shared<ExportOptions>();
    auto* exportCommand = command->add_subcommand(
        "export", "Write a built-in template to a file, to start a custom template from.");
    exportCommand->add_option("TEMPLATE", exported->design, "auto, light or dark")->required()->check(CLI::IsMember({"auto", "light", "dark"}));
    exportCommand->add_option("FILE", exported->file, "the file to write; one that exists is replaced")->required();
    registry.add(exportCommand, [exported] {
        const auto design = *siteTemplateFromRawValue(exported->design);
        writeFileAtomically(exported->file, builtInTemplateText(app::bundledWorkerDirectory(), design));
        std::cout << fmt::format("Wrote the {} template to {}.\n", exported->design, exported->file);
        return 0;
    });
}

}  // namespace vorlen::cli
