#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include <fmt/format.h>

#include "app/Interrupts.hpp"
#include "app/LocalSettings.hpp"
#include "app/MainQueue.hpp"
#include "app/PosterReviewModel.hpp"
#include "cli/Commands.hpp"
#include "cli/TerminalPosterReview.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Publisher.hpp"
#include "core/publish/SoftwareEncoder.hpp"

namespace vorlen::cli {

namespace {

namespace fs = std::filesystem;

// Moves the finished folder to its place, across file systems if need be.
void moveFolder(const fs::path& from, const fs::path& to) {
    std::error_code error;
    fs::rename(from, to, error);
    if (!error) return;
    fs::copy(from, to, fs::copy_options::recursive);
}

// The review of a build at a terminal: the same model and terminal review as a
// publish's, made on the main queue when the build asks.
struct TerminalReview {
    app::PostedQueue& queue;
    ProgressPrinter& printer;
    std::shared_ptr<app::PosterReviewModel> model;
    std::optional<TerminalPosterReview> terminal;

    void show(const PosterReviewRequest& request) {
        printer.finish();
        terminal.reset();
        model = app::PosterReviewModel::make(request, queue, [this] { terminal->update(); });
        terminal.emplace(*model, queue, STDIN_FILENO, stderr);
        terminal->update();
    }
};

// "auto" chooses a frame, and on a terminal lets the person change it; "none"
// publishes without a poster; anything else is an image file to use.
PosterReview posterReview(const std::string& choice, const Tools& tools, TerminalReview& terminal) {
    if (choice == "none") return [](const PosterProposal&) { return std::optional<Poster>(); };
    if (choice != "auto") {
        // Read once now, so that an unreadable file fails before the encode.
        posterFromImage(choice, {1, 1});
        return [choice](const PosterProposal& proposal) {
            return std::optional<Poster>(posterFromImage(choice, proposal.maximumSize));
        };
    }
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDERR_FILENO) != 1) return {};
    return [tools, &terminal](const PosterProposal& proposal) {
        PosterReviewer reviewer;
        reviewer.tools = tools;
        reviewer.onRequest = [&terminal](const PosterReviewRequest& request) {
            terminal.queue.post([&terminal, request] { terminal.show(request); });
        };
        return reviewer.review(proposal);
    };
}

}  // namespace

void registerBuildCommand(CommandRegistry& registry) {
    struct Options {
        std::string file;
        std::string out;
        std::optional<std::string> title;
        std::string loudness = "original";
        std::optional<std::string> speed;
        std::string poster = "auto";
    };
    auto options = std::make_shared<Options>();
    auto* command = registry.app.add_subcommand(
        "build", "Encode and package a video into a folder that is ready to upload.");
    command->add_option("FILE", options->file, "the source video file")->required();
    command->add_option("--out", options->out, "the folder to make (absent or empty)")->required();
    command->add_option("--title", options->title, "the video's title (default: from the file name)");
    command->add_option("--loudness", options->loudness, "audio loudness: original, web or broadcast")
        ->check(CLI::IsMember({"original", "web", "broadcast"}));
    command->add_option("--speed", options->speed, "encoding speed: fast, balanced or quality (default: this computer's setting)")
        ->check(CLI::IsMember({"fast", "balanced", "quality"}));
    command->add_option("--poster", options->poster,
                        "auto (choose a frame; on a terminal, review it), none, or an image file");
    registry.add(command, [options] {
        fs::path out = options->out;
        if (fs::exists(out) && !(fs::is_directory(out) && fs::is_empty(out)))
            throw VorlenError::config(fmt::format("“{}” already exists and is not an empty folder", out.string()));

        auto speed = options->speed ? *encodingSpeedFromRawValue(*options->speed) : app::LocalSettingsStore::standard().load().encodingSpeed;
        Publisher publisher;
        publisher.tools = Tools::locate();
        publisher.encoder = std::make_shared<SoftwareEncoder>(speed);
        publisher.workRoot = defaultWorkRoot();
        auto loudness = *audioLoudnessFromRawValue(options->loudness);
        ProgressPrinter printer;
        app::PostedQueue queue;
        TerminalReview terminal{queue, printer, nullptr, std::nullopt};
        auto review = posterReview(options->poster, publisher.tools, terminal);

        // The build runs on a task while this thread runs the review's main queue.
        std::optional<VideoDetails> details;
        auto build = Task<std::shared_ptr<BuiltFolder>>::spawn([&] {
            auto inspection = publisher.inspect(options->file);
            details.emplace(options->title ? *options->title : trimmed(inspection.suggestedTitle), std::nullopt,
                            std::nullopt, VideoVisibility::publicVideo);
            return publisher.build(inspection, *details, loudness, std::nullopt, std::ref(printer), review);
        });
        std::shared_ptr<BuiltFolder> built;
        try {
            app::Interrupts::Listener interrupts([&build] { build.cancel(); });
            built = queue.runWhile(build);
        } catch (...) {
            printer.finish();
            throw;
        }
        terminal.terminal.reset();
        printer.finish();
        if (fs::exists(out)) fs::remove(out);
        fs::create_directories(fs::absolute(out).parent_path());
        moveFolder(built->directory(), out);
        std::cout << fmt::format("Built \u201c{}\u201d: {} files, {} bytes, in {}\n", details->title(), built->allFiles().size(),
                                 built->byteCount(), out.string());
        if (built->built().poster || !built->built().posterSelectionError)
            std::cout << fmt::format("Poster: {}\n", TerminalPosterReview::describe(built->built().poster));
        else
            std::cout << fmt::format("No poster: {}\n", describe(built->built().posterSelectionError));
        return 0;
    });
}

}  // namespace vorlen::cli
