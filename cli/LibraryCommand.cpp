#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

#include <fmt/format.h>

#include "app/LibraryExport.hpp"
#include "app/LibraryModel.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/SetupToken.hpp"
#include "cli/Terminal.hpp"
#include "core/base/VorlenError.hpp"
#include "core/base/Json.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

namespace {

struct LibraryOptions {
    std::optional<std::string> site;
    bool json = false;
    std::string order = "newest";
    bool refresh = false;
    std::optional<std::string> exportTo;
};

Json jsonOf(const app::LibraryEntry& entry) {
    return Json{{"folder", entry.folder()},
                {"title", entry.title},
                {"visibility", entry.visibility ? Json(rawValue(*entry.visibility)) : Json(nullptr)},
                {"duration", entry.duration ? Json(*entry.duration) : Json(nullptr)},
                {"complete", entry.video.isComplete},
                {"record", rawValue(entry.record)},
                {"page", entry.page}};
}

std::size_t displayWidth(const std::string& text) { return toUtf32(text).size(); }

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, displayWidth(text)), ' ');
}

// One aligned line a video: folder, title, visibility, duration, whether it plays, page.
void printEntries(const std::vector<app::LibraryEntry>& entries) {
    std::size_t folderWidth = 0, titleWidth = 0;
    for (const auto& entry : entries) {
        folderWidth = std::max(folderWidth, displayWidth(entry.folder()));
        titleWidth = std::max(titleWidth, std::min<std::size_t>(displayWidth(entry.title), 48));
    }
    for (const auto& entry : entries) {
        if (entry.problem) {
            std::cout << padded(entry.folder(), folderWidth) << "  unreadable: " << *entry.problem << '\n';
            continue;
        }
        std::cout << padded(entry.folder(), folderWidth) << "  " << padded(entry.title, titleWidth) << "  "
                  << padded(rawValue(*entry.visibility), 8) << "  "
                  << padded(entry.duration ? clockText(*entry.duration) : "-", 8) << "  "
                  << padded(entry.video.isComplete ? "complete" : "incomplete", 10) << "  " << entry.page << '\n';
    }
    std::cout << fmt::format("{} video{}\n", entries.size(), entries.size() == 1 ? "" : "s");
}

// Progress of the reading on standard error: a rewritten line on a terminal, nothing otherwise.
class ReadProgressLine {
public:
    void show(const std::optional<LibraryReadProgress>& progress) {
        if (!terminal_ || !progress) return;
        const auto text = std::visit(
            [](const auto& value) -> std::string {
                using T = std::decay_t<decltype(value)>;
                if constexpr (std::is_same_v<T, LibraryReadProgress::Listing>)
                    return fmt::format("Listing the bucket: {} folders", value.folders);
                else
                    return fmt::format("Reading video.json files: {} of {}", value.read, value.total);
            },
            progress->value);
        std::cerr << '\r' << padded(text, width_) << std::flush;
        width_ = std::max(width_, text.size());
    }
    void finish() {
        if (terminal_ && width_) std::cerr << '\r' << std::string(width_, ' ') << '\r' << std::flush;
    }

private:
    bool terminal_ = isatty(STDERR_FILENO);
    std::size_t width_ = 0;
};

int runLibrary(const LibraryOptions& options) {
    AppContext context;
    const auto site = chosenSite(*context.model, options.site);
    auto workspace = context.model->workspace(site);
    if (options.refresh) workspace->services().library.library->clearCache();
    const auto order = options.order == "title" ? app::LibraryOrder::title : app::LibraryOrder::newest;
    auto& library = workspace->library();

    ReadProgressLine progress;
    bool printedCached = false;
    library.onChange([&] {
        const auto& listing = library.listing();
        if (!options.json && listing && !listing->isCurrent && !printedCached) {
            printedCached = true;
            progress.finish();
            std::cout << "From this computer's last reading:\n";
            printEntries(app::arrangedEntries(listing->entries, order));
            std::cout << std::flush;
        }
        progress.show(library.refreshProgress());
    });
    library.refresh();
    context.queue.runUntil([&] { return !library.isRefreshing(); });
    progress.finish();
    if (library.refreshFailure()) throw std::runtime_error(*library.refreshFailure());

    const auto entries = app::arrangedEntries(library.listing()->entries, order);
    if (options.exportTo) {
        try {
            const auto written = app::LibraryExport::write(entries, *options.exportTo);
            std::cerr << fmt::format("Wrote {} videos to {}\n", entries.size(), written.string());
        } catch (const std::exception& error) {
            throw VorlenError::config(fmt::format("{}\n{}", app::LibraryExport::failureTitle, error.what()));
        }
        return 0;
    }
    if (options.json) {
        Json array = Json::array();
        for (const auto& entry : entries) array.push_back(jsonOf(entry));
        std::cout << encodeJson(array, true) << '\n';
        return 0;
    }
    if (printedCached) std::cout << "\nThe site now:\n";
    printEntries(entries);
    return 0;
}

}  // namespace

void registerLibraryCommands(CommandRegistry& registry) {
    auto options = std::make_shared<LibraryOptions>();
    auto* library = registry.app.add_subcommand(
        "library",
        "List the videos published on a site: this computer's last list at once, then the site's current list once "
        "the bucket is read.");
    library->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
    library->add_flag("--json", options->json,
                      "print only the current list, as one JSON array of objects with the keys folder, title, "
                      "visibility (\"public\", \"unlisted\", or null when the record is unreadable), duration (seconds "
                      "or null), complete (true or false), record (\"valid\", \"missing\" or \"unreadable\") and page");
    library->add_option("--order", options->order, "newest (first) or title (default: newest)")
        ->check(CLI::IsMember({"newest", "title"}));
    library->add_flag("--refresh", options->refresh,
                      "forget this computer's copy of the list and its thumbnails, and read every video.json again");
    library->add_option("--export", options->exportTo,
                        "write the current list as a CSV spreadsheet to this file (or as \"Vorlen videos.csv\" into "
                        "this folder): Title, Reference, Description, Existing folder, Visibility, Duration, Published, "
                        "Page, Problem; a bulk sheet reads the first four back");
    registry.add(library, [options] { return runLibrary(*options); });

    auto site = std::make_shared<std::optional<std::string>>();
    auto* catalog = registry.app.add_subcommand("catalog", "The catalogue that the site's home page and lists are built from.");
    catalog->require_subcommand(1);
    auto* rebuild = catalog->add_subcommand("rebuild", "Read the library and write the catalogue again.");
    rebuild->add_option("--site", *site, "the site's ID (see `vorlen sites`)");
    registry.add(rebuild, [site] {
        AppContext context;
        const auto id = chosenSite(*context.model, *site);
        auto workspace = context.model->workspace(id);
        workspace->services().library.catalog->rebuild(workspace->access());
        std::cout << fmt::format("Rebuilt the catalogue of the site \u201c{}\u201d.\n", id.value);
        return 0;
    });
}

}  // namespace vorlen::cli
