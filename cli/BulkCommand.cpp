#include <iostream>
#include <map>
#include <mutex>
#include <set>

#include <fmt/format.h>

#include "app/BulkService.hpp"
#include "app/BulkWords.hpp"
#include "app/Interrupts.hpp"
#include "app/SetupWords.hpp"
#include "cli/AppContext.hpp"
#include "cli/BatchRunPrinter.hpp"
#include "cli/Commands.hpp"
#include "cli/SetupToken.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

namespace {

namespace fs = std::filesystem;

struct BulkOptions {
    std::string sheet;
    std::optional<std::string> site;
    std::map<app::BulkColumnRole, std::string> columns;
    std::string reimport = "skip";
    bool yes = false;
};

const std::map<std::string, ReimportMode> reimportModes{
    {"skip", ReimportMode::skip}, {"video", ReimportMode::videoAndAudio}, {"audio", ReimportMode::audioOnly}};

std::string roleName(app::BulkColumnRole role) {
    std::string name = app::label(role);
    name[0] = char(std::tolower(name[0]));
    return name;
}

// The columns named on the command line, else the ones named like the roles.
BulkColumnMapping chosenMapping(const BulkSheet& sheet, const std::map<app::BulkColumnRole, std::string>& named) {
    auto choice = app::BulkColumnChoice::byLabels(sheet);
    for (const auto& [role, name] : named) {
        choice[role] = sheet.column(name);
        if (!choice[role])
            throw VorlenError::config(
                fmt::format("The spreadsheet has no column \u201c{}\u201d for the {}.", name, roleName(role)));
    }
    const auto mapping = choice.mapping();
    if (!mapping)
        throw VorlenError::config("The spreadsheet has no column \u201cFile\u201d. Name the column with the paths of the "
                                  "videos with --file-column NAME.");
    return *mapping;
}

void showMapping(const BulkSheetFile& file, const BulkColumnMapping& mapping) {
    auto choice = app::BulkColumnChoice{mapping.file, mapping.title, mapping.reference, mapping.description,
                                        mapping.existingFolder};
    std::cout << fmt::format("Spreadsheet: {}\n", file.input.string());
    for (const auto role : app::bulkColumnRoles) {
        const auto& column = choice[role];
        std::cout << fmt::format("  {:<16} {}\n", std::string(app::label(role)) + ":",
                                 column ? fmt::format("\u201c{}\u201d (column {})", column->name, column->index + 1)
                                        : std::string("none"));
    }
    std::cout << app::BulkWords::origin(file.source, file.output) << '\n';
    const auto plan = file.plan(mapping);
    std::cout << fmt::format("Rows: {}, done earlier: {}, to publish: {}\n", plan.rowCount + plan.newRowCount,
                             plan.doneCount, plan.rowCount + plan.newRowCount - plan.doneCount);
    if (plan.newRowCount > 0) std::cout << app::BulkWords::newRows(plan.newRowCount) << '\n';
}

int runBulk(const BulkOptions& options) {
    AppContext context;
    auto& model = *context.model;
    const auto id = chosenSite(model, options.site);
    auto workspace = model.workspace(id);
    const auto& bulk = workspace->services().bulk;
    if (!bulk) throw VorlenError::config("This site has no bulk upload.");

    BulkSheetFile file;
    BulkColumnMapping mapping;
    try {
        file = bulk->open(options.sheet);
        mapping = chosenMapping(file.sheet, options.columns);
        showMapping(file, mapping);
    } catch (const std::exception& error) {
        std::cerr << app::BulkWords::cannotOpen << '\n' << error.what() << '\n';
        return 1;
    }
    if (!options.yes && !confirmed("Publish the rows that are not done?")) {
        std::cerr << "Nothing was published. To start without a question, add --yes.\n";
        return 1;
    }

    app::BulkRunRequest request;
    request.input = options.sheet;
    request.mapping = mapping;
    request.reimport = reimportModes.at(options.reimport);
    request.access = workspace->access();
    request.expectedUploadRate = model.settings().lastUploadRate;
    request.uploadTuning = model.settings().uploadTuning;
    request.computerName = app::defaultComputerName();

    BatchRunPrinter printer;
    app::BulkRunReport report;
    // The home page lists what the catalogue holds: it follows what was published, also after a stop.
    auto rebuildCatalog = [&] {
        try {
            workspace->services().library.catalog->rebuild(request.access);
        } catch (const std::exception& error) {
            std::cerr << "The site's home page could not be updated: " << error.what() << '\n';
        }
    };
    try {
        app::Interrupts::run([&] { report = bulk->run(request, [&](const BulkProgress& progress) {
                                 printer(progress.snapshot, [&](std::int64_t item) {
                                     const auto& row = (*progress.items)[item];
                                     return fmt::format("Row {} \u201c{}\u201d", row.index + 1,
                                                        row.title ? *row.title
                                                        : row.file ? row.file->filename().string()
                                                                   : std::string());
                                 });
                             }); },
                             app::Interrupts::bucketCleanupHint);
        rebuildCatalog();
    } catch (const Cancelled&) {
        rebuildCatalog();
        std::cerr << "Stopped. The results file keeps each finished row: "
                  << BulkSheetFile::outputPath(options.sheet).string()
                  << "\nTo continue, run the same command again.\n";
        return 130;
    } catch (const std::exception& error) {
        std::cerr << (printer.heardAny() ? app::BulkWords::stoppedTitle : app::BulkWords::didNotStart) << '\n'
                  << error.what() << '\n';
        return 1;
    }
    const auto& counts = report.result.snapshot.counts;
    std::cout << fmt::format("Published: {}, re-imported: {}, skipped: {}, failed: {}\n", counts.published,
                             counts.replaced, counts.skipped, counts.failed)
              << "Results: " << report.output.string() << '\n';
    if (counts.alreadyDone > 0) std::cout << app::BulkWords::doneEarlier(counts.alreadyDone) << '\n';
    if (report.addedRowCount > 0) std::cout << app::BulkWords::addedRows(report.addedRowCount) << '\n';
    return counts.failed > 0 ? 1 : 0;
}

}  // namespace

void registerBulkCommand(CommandRegistry& registry) {
    auto options = std::make_shared<BulkOptions>();
    auto* bulk = registry.app.add_subcommand(
        "bulk",
        "Publish the videos that a spreadsheet (CSV or TSV) lists, one row each. Vorlen never writes to the "
        "spreadsheet: it writes the result of each row to a copy beside it, \"<name> (published).<ext>\", as soon as "
        "the row changes, so that running the same command again goes on where a run stopped. It shows which column "
        "plays which part (by default the columns named File, Title, Reference, Description and Existing folder, in "
        "any case) and the counts of the plan, and asks before it starts. A row whose reference is in the bucket "
        "already is skipped. Only one batch run can hold a site at a time, from any computer. " +
            app::Interrupts::bucketCleanupHelp + " The results file keeps each finished row.");
    bulk->add_option("SHEET", options->sheet, "the spreadsheet")->required();
    bulk->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
    const std::pair<const char*, app::BulkColumnRole> columnFlags[] = {
        {"--file-column", app::BulkColumnRole::file},
        {"--title-column", app::BulkColumnRole::title},
        {"--reference-column", app::BulkColumnRole::reference},
        {"--description-column", app::BulkColumnRole::description},
        {"--folder-column", app::BulkColumnRole::existingFolder}};
    for (const auto& [flag, role] : columnFlags) {
        bulk->add_option_function<std::string>(
                flag, [options, role](const std::string& name) { options->columns[role] = name; },
                std::string(app::helpText(role)))
            ->type_name("NAME");
    }
    bulk->add_option("--reimport", options->reimport,
                     "for rows whose video the site has: skip (the default), video (re-import video and audio) or "
                     "audio (re-import the audio only)")
        ->check(CLI::IsMember({"skip", "video", "audio"}));
    bulk->add_flag("--yes", options->yes, "start without asking");
    registry.add(bulk, [options] { return runBulk(*options); });
}

}  // namespace vorlen::cli
