#include <iostream>
#include <unistd.h>

#include <fmt/format.h>

#include "app/Interrupts.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/Terminal.hpp"
#include "cli/TerminalPosterReview.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

namespace {

namespace fs = std::filesystem;

struct PublishOptions {
    std::string file;
    std::optional<std::string> site;
    std::optional<std::string> name;
    std::optional<std::string> title;
    std::optional<std::string> reference;
    std::optional<std::string> description;
    bool unlisted = false;
    std::vector<std::string> subtitles;
    std::optional<std::string> loudness;
    std::string poster = "auto";
};

int runPublish(const PublishOptions& options) {
    AppContext context;
    auto& model = *context.model;
    app::SiteID site = options.site ? app::SiteID{*options.site} : model.ensureSite();
    auto workspace = model.workspace(site);
    auto& queue = context.queue;
    bool stopped = false;
    // Ctrl-C and SIGTERM are the person's stop, delivered on the main queue.
    app::Interrupts::Listener interrupts([&] {
        queue.post([&] {
            stopped = true;
            workspace->stop();
        });
    });

    ProgressPrinter printer;
    workspace->onChange([&] {
        auto* job = workspace->screen().as<app::PublishingState>();
        if (!job || !job->progress) return;
        printer(*job->progress);
        // From the first upload on, a stop has the bucket to clean up.
        if (job->progress->stage == app::JobStage::uploading) interrupts.setCleanupHint(app::Interrupts::bucketCleanupHint);
    });

    std::vector<fs::path> dropped{options.file};
    for (const auto& subtitle : options.subtitles) dropped.emplace_back(subtitle);
    if (!workspace->drop(dropped)) throw VorlenError::config(app::SettingsError::busy);
    auto settled = [&] { return !workspace->screen().as<app::Screen::Inspecting>(); };
    queue.runUntil(settled);

    if (auto* failure = workspace->screen().as<app::Failure>()) {
        std::cerr << failure->title << ": " << failure->message << '\n';
        return 1;
    }
    if (workspace->screen().as<app::Screen::Start>()) return 130;

    workspace->editConfirm([&](app::ConfirmState& confirm) {
        if (options.name) {
            confirm.name = *options.name;
            confirm.isNameTyped = true;
        }
        if (options.title) confirm.title = *options.title;
        if (options.reference) confirm.reference = *options.reference;
        if (options.description) confirm.description = *options.description;
        if (options.unlisted) confirm.visibility = VideoVisibility::unlisted;
        if (options.loudness) confirm.audioLoudness.selection = *audioLoudnessFromRawValue(*options.loudness);
    });
    queue.runUntil([&] {
        auto* confirm = workspace->screen().as<app::ConfirmState>();
        return !confirm || !std::holds_alternative<app::ConfirmState::Checking>(confirm->nameStatus) || stopped;
    });
    if (stopped) return 130;
    const auto& confirm = *workspace->screen().as<app::ConfirmState>();
    if (auto* unavailable = std::get_if<app::ConfirmState::Unavailable>(&confirm.nameStatus)) {
        std::cerr << unavailable->message << '\n';
        return 1;
    }
    std::cerr << fmt::format("Publishing \u201c{}\u201d to the site \u201c{}\u201d\n", confirm.title, site.value);
    workspace->confirmPublish();

    // A person at a terminal reviews the poster; otherwise the review ends at once with
    // the proposal, no poster, or the image file given.
    std::optional<TerminalPosterReview> terminalReview;
    if (options.poster == "auto" && ::isatty(STDIN_FILENO) && ::isatty(STDERR_FILENO)) {
        terminalReview.emplace(*workspace, queue, STDIN_FILENO, stderr);
        workspace->onChange([&] { terminalReview->update(); });
    }
    bool reviewed = false;
    auto answerReview = [&] {
        auto* review = workspace->screen().as<app::PosterReviewState>();
        if (!review) return;
        if (!reviewed) {
            reviewed = true;
            if (options.poster == "auto") return workspace->confirmPoster();
            if (options.poster == "none") {
                workspace->publishWithoutPoster();
                return workspace->confirmPoster();
            }
            return workspace->pickPosterImage(options.poster);
        }
        if (auto* failed = std::get_if<app::PosterReviewState::Failed>(&review->imageStatus)) {
            std::cerr << failed->message << " Vorlen keeps the proposed poster.\n";
            workspace->confirmPoster();
        } else if (std::holds_alternative<app::PosterReviewState::Idle>(review->imageStatus)) {
            workspace->confirmPoster();
        }
    };
    // Answered from the queue, not inside the workspace's own change.
    if (!terminalReview)
        workspace->onChange([&] {
            if (workspace->screen().as<app::PosterReviewState>()) queue.post(answerReview);
        });
    queue.runUntil([&] {
        const auto& screen = workspace->screen();
        return screen.as<app::PublishedState>() || screen.as<app::Failure>() || screen.as<app::Screen::Start>();
    });
    printer.finish();

    const auto& screen = workspace->screen();
    if (auto* published = screen.as<app::PublishedState>()) {
        std::cout << fmt::format("Published {} files, {} bytes.\n", published->video.fileCount, published->video.uploadedBytes);
        std::cout << "Page:  " << published->links.page << '\n'
                  << "Embed: " << published->links.embed << '\n'
                  << "Media: " << published->links.media << '\n'
                  << "HLS:   " << published->links.hls << '\n'
                  << "DASH:  " << published->links.dash << '\n';
        // The home page lists what the catalogue holds: bring it up to date before the command ends.
        auto& catalog = workspace->catalog();
        queue.runUntil([&] { return !catalog.isBusy(); });
        if (catalog.failure()) std::cerr << "The site's home page could not be updated: " << *catalog.failure() << '\n';
        return 0;
    }
    if (auto* failure = screen.as<app::Failure>()) {
        std::cerr << failure->title << ": " << failure->message << '\n';
        if (!failure->uploadLog.empty()) {
            std::cerr << "The upload log:\n";
            for (const auto& line : failure->uploadLog) std::cerr << "  " << line << '\n';
        }
        return 1;
    }
    std::cerr << "Stopped. Vorlen deleted what it had uploaded.\n";
    return 130;
}

}  // namespace

void registerPublishCommand(CommandRegistry& registry) {
    auto options = std::make_shared<PublishOptions>();
    auto* command = registry.app.add_subcommand("publish", "Publish a video to a site (the local site when none is set up).");
    command->footer(app::Interrupts::bucketCleanupHelp +
                    " A name given with --name is kept: when another computer takes it meanwhile, the publish fails "
                    "and nothing of the other's is touched.");
    command->add_option("FILE", options->file, "the video file")->required()->check(CLI::ExistingFile);
    command->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
    command->add_option("--name", options->name, "the folder name (default: from the file name)");
    command->add_option("--title", options->title, "the title (default: from the file name)");
    command->add_option("--reference", options->reference, "your own reference for the video");
    command->add_option("--description", options->description, "the description: text with bold, italics and links");
    command->add_flag("--unlisted", options->unlisted, "reachable by its link only");
    command->add_option("--subtitles", options->subtitles, "a WebVTT or SubRip file; may be given again")->check(CLI::ExistingFile);
    command->add_option("--loudness", options->loudness, "audio loudness: original, web or broadcast (default: the site's)")
        ->check(CLI::IsMember({"original", "web", "broadcast"}));
    command->add_option("--poster", options->poster, "auto, none, or an image file");
    registry.add(command, [options] { return runPublish(*options); });
}

}  // namespace vorlen::cli
