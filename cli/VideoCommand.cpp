#include <unistd.h>

#include <iostream>

#include <fmt/format.h>

#include "app/LibraryEntry.hpp"
#include "app/LibraryWords.hpp"
#include "app/MediaCachePurge.hpp"
#include "app/Screen.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/SetupToken.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Dates.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "app/Interrupts.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/SubtitleLanguage.hpp"

namespace vorlen::cli {

namespace {

// One site's library as the video commands change it: every change reads the
// folder afresh, and the catalogue follows each change before the command ends.
class SiteVideos {
public:
    explicit SiteVideos(const std::optional<std::string>& site)
        : id_(chosenSite(*context_.model, site)), workspace_(context_.model->workspace(id_)),
          service_(workspace_->services().library.library), access_(workspace_->access()) {}

    const app::SiteSummary& site() const { return access_.site; }
    app::LibraryService& service() { return *service_; }
    // A replacement as a publish of this computer goes: the site's loudness, this computer's upload settings.
    VideoReplacement replace(const LibraryVideo& video, const std::filesystem::path& file,
                                  const std::function<void(const PublishProgress&)>& onProgress) {
        const auto& settings = context_.model->settings();
        return workspace_->services().publish->replace(
            app::ReplaceRequest{file, video.folder, access_, site().audioLoudness, settings.uploadTuning, settings.lastUploadRate},
            onProgress);
    }
    const app::BucketAccess& access() const { return access_; }

    // The video that a folder name or a page address names; a folder with neither record nor playlist is none.
    LibraryVideo video(const std::string& folderOrLink) {
        const auto folder = app::folderOfLink(site(), folderOrLink);
        if (!folder || !Naming::isValidName(*folder))
            throw VorlenError::config(fmt::format("\u201c{}\u201d is not a video of the site \u201c{}\u201d.", folderOrLink, id_.value));
        auto found = service_->video(access_, *folder);
        if (!found.isComplete && std::holds_alternative<LibraryVideo::Missing>(found.metadataFile))
            throw VorlenError::config(fmt::format("The site \u201c{}\u201d has no video \u201c{}\u201d.", id_.value, *folder));
        return found;
    }
    app::LibraryEntry entry(LibraryVideo video) const { return app::LibraryEntry::from(std::move(video), site()); }
    // A record that this version cannot read is never changed: it may hold what this version would destroy.
    app::LibraryEntry changeable(const LibraryVideo& video) const {
        auto found = entry(video);
        if (found.problem)
            throw VorlenError::config(fmt::format(
                "Vorlen cannot change \u201c{}\u201d\nVorlen cannot read the video.json of a video, its edit window is "
                "open, or a different change of it runs now ({})",
                found.title, *found.problem));
        return found;
    }

    // The home page follows the change; a failure here costs the change nothing.
    void rebuildCatalog() {
        try {
            workspace_->services().library.catalog->rebuild(access_);
        } catch (const std::exception& error) {
            std::cerr << "The site's home page could not be updated: " << error.what() << '\n';
        }
    }
    // A purge that fails is told with the words of its case. When this computer's R2
    // API Token may not purge, the site's sealed account token does, asked for once.
    void purge(const std::string& folderPrefix, bool posterOnly, const std::string& title, const std::string& message) {
        try {
            app::purgeWithToken(
                purgeToken_,
                [this]() -> std::optional<std::string> {
                    auto store = context_.model->setupTokens(id_, [](const app::PassphraseRequest& request) {
                        return readSecretLine(fmt::format("To {}, give the passphrase of its sealed copy: ", request.reason));
                    });
                    if (!store.hasToken()) return std::nullopt;
                    return store.token(app::SetupTokenPurpose::purgeCache);
                },
                [&](const std::optional<std::string>& account) { service_->purge(access_, folderPrefix, posterOnly, account); });
        } catch (const std::exception& error) {
            std::cerr << title << "\n" << message << error.what() << '\n';
        }
    }

private:
    AppContext context_;
    app::SiteID id_;
    std::shared_ptr<app::SiteWorkspace> workspace_;
    std::shared_ptr<app::LibraryService> service_;
    app::BucketAccess access_;
    app::PurgeToken purgeToken_;
};

void showVideo(SiteVideos& videos, const LibraryVideo& video) {
    const auto entry = videos.entry(video);
    const auto links = app::linksFor(videos.site(), video.folder);
    std::cout << "Folder:      " << video.folder << '\n';
    if (entry.problem) {
        std::cout << "Record:      unreadable: " << *entry.problem << '\n';
    } else if (const auto* metadata = video.metadata()) {
        const auto& details = metadata->details;
        std::cout << "Title:       " << entry.title << '\n';
        if (details.reference()) std::cout << "Reference:   " << *details.reference() << '\n';
        if (details.description()) std::cout << "Description: " << *details.description() << '\n';
        std::cout << "Visibility:  " << rawValue(details.visibility()) << '\n';
        if (metadata->duration) std::cout << "Duration:    " << clockText(*metadata->duration) << '\n';
        if (metadata->size) std::cout << fmt::format("Size:        {}x{}\n", metadata->size->width, metadata->size->height);
        if (metadata->poster) std::cout << "Poster:      " << links.media << metadata->poster->name << '\n';
        std::cout << "Published:   " << formatIso8601(metadata->created) << '\n'
                  << "Changed:     " << formatIso8601(metadata->updated) << '\n';
    } else {
        std::cout << "Record:      none (a folder of the first version of Vorlen; `vorlen video edit` gives it one)\n";
    }
    std::cout << "Playable:    " << (video.isComplete ? "yes" : "no: its master.m3u8 is missing") << '\n'
              << "Page:        " << links.page << '\n'
              << "Embed:       " << links.embed << '\n'
              << "HLS:         " << links.hls << '\n'
              << "DASH:        " << links.dash << '\n';
}

struct EditOptions {
    std::optional<std::string> site;
    std::string folder;
    std::optional<std::string> title;
    std::optional<std::string> description;
    std::optional<std::string> reference;
};

int editVideo(const EditOptions& options) {
    SiteVideos videos(options.site);
    const auto video = videos.video(options.folder);
    videos.changeable(video);
    const auto* metadata = video.metadata();
    const VideoDetails current =
        metadata ? metadata->details : VideoDetails(video.folder, std::nullopt, std::nullopt, VideoVisibility::publicVideo);
    // An empty text removes a reference or a description.
    auto optionalText = [](const std::optional<std::string>& given, const std::optional<std::string>& now) {
        return given ? (given->empty() ? std::nullopt : std::optional<std::string_view>(*given))
                     : (now ? std::optional<std::string_view>(*now) : std::nullopt);
    };
    const VideoDetails details(options.title.value_or(current.title()), optionalText(options.reference, current.reference()),
                               optionalText(options.description, current.description()), current.visibility());
    if (metadata && details == current) {
        std::cout << "Nothing to change.\n";
        return 0;
    }
    const auto saved = videos.service().saveDetails(videos.access(), video, details);
    videos.rebuildCatalog();
    std::cout << fmt::format("Saved the details of \u201c{}\u201d. Its link stays: {}\n", videos.entry(saved).title,
                             app::linksFor(videos.site(), saved.folder).page)
              << app::LibraryWords::pagesCatchUp << '\n';
    return 0;
}

int changeVisibility(const std::optional<std::string>& site, const std::string& folder, const std::string& visibility) {
    SiteVideos videos(site);
    const auto video = videos.video(folder);
    const auto wanted = videoVisibilityFromRawValue(visibility).value();
    const auto entry = videos.changeable(video);
    if (entry.visibility == wanted) {
        std::cout << fmt::format("\u201c{}\u201d is {} already: {}\n", entry.title, visibility, entry.page);
        return 0;
    }
    const auto moved = videos.service().changeVisibility(videos.access(), video, wanted);
    videos.rebuildCatalog();
    std::cout << fmt::format("\u201c{}\u201d is {} now, under a new link: {}\n", entry.title, visibility,
                             app::linksFor(videos.site(), moved.video.folder).page)
              << "The old link stops working.\n";
    int status = 0;
    if (moved.oldFolderFailure) {
        std::cerr << app::LibraryWords::oldFolderRemainsTitle(entry.title) << '\n'
                  << app::LibraryWords::oldFolderRemains(video.folder, *moved.oldFolderFailure) << '\n';
        status = 1;
    } else {
        videos.purge(video.prefix, false, app::LibraryWords::oldFilesInCacheTitle(entry.title),
                     app::LibraryWords::oldFilesInCache(""));
    }
    return status;
}

int deleteVideos(const std::optional<std::string>& site, const std::vector<std::string>& folders, bool yes) {
    SiteVideos videos(site);
    int status = 0;
    for (const auto& folder : folders) {
        try {
            const auto video = videos.video(folder);
            const auto entry = videos.changeable(video);
            if (!yes && !confirmed(fmt::format("Delete \u201c{}\u201d ({}) from the site? Its link stops working.", entry.title, entry.page))) {
                std::cerr << fmt::format("\u201c{}\u201d stays: nothing was deleted. (--yes deletes without asking.)\n", entry.title);
                status = 1;
                continue;
            }
            try {
                videos.service().remove(videos.access(), video);
            } catch (const Cancelled&) {
                throw;
            } catch (const std::exception& error) {
                std::cerr << app::LibraryWords::deleteRefusedTitle(entry.title) << '\n' << error.what() << '\n';
                status = 1;
                continue;
            }
            std::cout << fmt::format("Deleted \u201c{}\u201d.\n", entry.title);
            videos.purge(video.prefix, false, app::LibraryWords::oldFilesInCacheTitle(entry.title),
                         app::LibraryWords::oldFilesInCache(""));
        } catch (const Cancelled&) {
            throw;
        } catch (const VorlenError& error) {
            std::cerr << error.what() << '\n';
            status = 1;
        }
    }
    videos.rebuildCatalog();
    return status;
}

int changePoster(const std::optional<std::string>& site, const std::string& folder, const std::optional<std::string>& image,
                 std::optional<double> frame) {
    if (image.has_value() == frame.has_value())
        throw VorlenError::config("Give the poster as an image file or as a time in the video with --frame, one of the two.");
    SiteVideos videos(site);
    const auto video = videos.video(folder);
    const auto title = videos.changeable(video).title;
    PosterChange changed;
    try {
        changed = image ? videos.service().changePoster(videos.access(), video, *image)
                        : videos.service().changePosterToFrame(videos.access(), video, *frame);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        std::cerr << app::LibraryWords::posterRefusedTitle(title) << '\n' << error.what() << '\n';
        return 1;
    }
    videos.rebuildCatalog();
    const auto links = app::linksFor(videos.site(), changed.video.folder);
    std::cout << fmt::format("\u201c{}\u201d has a new poster: {}{}\n", title, links.media, changed.video.metadata()->poster->name)
              << app::LibraryWords::posterNote << '\n';
    if (changed.oldPosterFailure)
        std::cerr << "Vorlen could not delete the old poster file: " << *changed.oldPosterFailure << '\n';
    videos.purge(video.prefix, true, app::LibraryWords::oldPosterInCacheTitle(title), app::LibraryWords::posterNote);
    return 0;
}

int replaceVideo(const std::optional<std::string>& site, const std::string& folder, const std::string& file) {
    SiteVideos videos(site);
    const auto video = videos.video(folder);
    const auto title = videos.changeable(video).title;
    std::cerr << fmt::format("Replacing the video of \u201c{}\u201d with {}\n", title, file);
    ProgressPrinter printer;
    std::optional<VideoReplacement> replaced;
    try {
        // A stop before the switch removes the new files; from the switch on, the replacement ends.
        app::Interrupts::run([&] { replaced = videos.replace(video, file, [&](const PublishProgress& progress) { printer(progress); }); },
                             app::Interrupts::bucketCleanupHint);
    } catch (const Cancelled&) {
        printer.finish();
        std::cerr << fmt::format("Stopped: \u201c{}\u201d plays the video it had.\n", title);
        return 130;
    } catch (const std::exception& error) {
        printer.finish();
        std::cerr << fmt::format("Vorlen cannot change \u201c{}\u201d\n{}\n", title, error.what());
        return 1;
    }
    printer.finish();
    videos.rebuildCatalog();
    std::cout << fmt::format("\u201c{}\u201d plays the new video. Its link, details and poster stay: {}\n", title,
                             app::linksFor(videos.site(), video.folder).page)
              << app::LibraryWords::pagesCatchUp << '\n';
    const auto notes = replaced->notes();
    for (const auto& note : notes) std::cerr << note << '\n';
    videos.purge(video.prefix, false, app::LibraryWords::oldVideoInCacheTitle(title), app::LibraryWords::oldVideoInCache(""));
    return notes.empty() ? 0 : 1;
}

struct AudioOptions {
    std::optional<std::string> site;
    std::vector<std::string> folders;
    std::optional<std::string> file;
    std::optional<std::string> loudness;
};

// One video after another, each told on a line of its own; a stop ends the run.
int reimportAudio(const AudioOptions& options) {
    if (options.file && options.folders.size() != 1) {
        std::cerr << "--file gives the audio of one video: name exactly one folder.\n";
        return 2;
    }
    SiteVideos videos(options.site);
    const auto loudness = options.loudness ? *audioLoudnessFromRawValue(*options.loudness) : videos.site().audioLoudness;
    const auto file = options.file ? std::optional<std::filesystem::path>(*options.file) : std::nullopt;
    std::cerr << app::LibraryWords::audioReimportWarning << '\n';
    int status = 0;
    bool anyChanged = false;
    for (const auto& folder : options.folders) {
        std::string title = folder;
        ProgressPrinter printer;
        try {
            const auto video = videos.video(folder);
            title = videos.changeable(video).title;
            std::cerr << fmt::format("Re-importing the audio of \u201c{}\u201d from {}\n", title,
                                     file ? file->string() : "its published audio");
            std::optional<AudioReplacement> replaced;
            app::Interrupts::run(
                [&] {
                    replaced = videos.service().reimportAudio(videos.access(), video, file, loudness,
                                                              [&](const PublishProgress& progress) { printer(progress); });
                },
                app::Interrupts::bucketCleanupHint);
            printer.finish();
            anyChanged = true;
            std::cout << fmt::format("{}: the new audio plays, at {} loudness\n", folder, rawValue(loudness));
            for (const auto& note : replaced->notes()) {
                std::cerr << note << '\n';
                status = 1;
            }
            videos.purge(video.prefix, false, app::LibraryWords::oldAudioInCacheTitle(title), app::LibraryWords::oldAudioInCache(""));
        } catch (const Cancelled&) {
            printer.finish();
            std::cerr << fmt::format("Stopped: \u201c{}\u201d plays the audio it had.\n", title);
            status = 130;
            break;
        } catch (const std::exception& error) {
            printer.finish();
            std::cout << fmt::format("{}: not changed: {}\n", folder, error.what());
            status = 1;
        }
    }
    if (anyChanged) videos.rebuildCatalog();
    return status;
}

std::string trackLine(const PublishedSubtitle& track) {
    const char* kind = track.kind == SubtitleTrack::Kind::captions        ? "captions"
                       : track.kind == SubtitleTrack::Kind::autoGenerated ? "auto-generated"
                                                                          : "subtitles";
    return fmt::format("{}  {}  {}  ({})", track.language.empty() ? "und" : track.language, track.name, kind, track.baseName);
}

struct SubtitleOptions {
    std::optional<std::string> site;
    std::string folder;
    std::string file;               // add
    std::optional<std::string> language;
    bool captions = false;
    std::string remove;             // a language or a track's name in the folder
};

int changeSubtitles(const SubtitleOptions& options, bool adds) {
    SiteVideos videos(options.site);
    const auto video = videos.video(options.folder);
    const auto title = videos.changeable(video).title;
    SubtitleChange change;
    if (adds) {
        const auto language = options.language.value_or(
            SubtitleLanguage::fromFileName(options.file).value_or(SubtitleLanguage::currentLanguage()));
        change.added.push_back(SubtitleTrack{options.file, language,
                                             options.captions ? SubtitleTrack::Kind::captions : SubtitleTrack::Kind::subtitles});
    } else {
        for (const auto& track : videos.service().subtitles(videos.access(), video))
            if (asciiLowercased(track.language) == asciiLowercased(options.remove) || track.baseName == options.remove)
                change.removed.insert(track.baseName);
        if (change.removed.empty())
            throw VorlenError::config(fmt::format("\u201c{}\u201d has no subtitles in \u201c{}\u201d.", title, options.remove));
    }
    SubtitleChangeResult result;
    try {
        result = videos.service().changeSubtitles(videos.access(), video, change);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        std::cerr << fmt::format("Vorlen cannot change \u201c{}\u201d\n{}\n", title, error.what());
        return 1;
    }
    std::cout << fmt::format("Saved the subtitles of \u201c{}\u201d: {}\n", title, app::linksFor(videos.site(), video.folder).page);
    for (const auto& track : result.subtitles) std::cout << "  " << trackLine(track) << '\n';
    if (result.subtitles.empty()) std::cout << "  (no subtitles now)\n";
    std::cout << "The player shows them at the next load of the page, in a few minutes.\n";
    int status = 0;
    if (result.oldFilesFailure) {
        std::cerr << app::LibraryWords::oldSubtitlesStayTitle(title) << '\n'
                  << app::LibraryWords::oldSubtitlesStay(*result.oldFilesFailure) << '\n';
        status = 1;
    }
    if (!change.removed.empty())
        videos.purge(video.prefix, false, app::LibraryWords::oldSubtitlesInCacheTitle(title),
                     app::LibraryWords::oldSubtitlesInCache(""));
    return status;
}

}  // namespace

void registerVideoCommands(CommandRegistry& registry) {
    auto* video = registry.app.add_subcommand(
        "video", "Show or change one published video, named by its folder or its page address.");
    video->require_subcommand(1);

    auto site = std::make_shared<std::optional<std::string>>();
    auto folder = std::make_shared<std::string>();
    auto* show = video->add_subcommand("show", "Show a video's record and links.");
    show->add_option("FOLDER", *folder, "the video's folder name or page address")->required();
    show->add_option("--site", *site, "the site's ID (see `vorlen sites`)");
    registry.add(show, [site, folder] {
        SiteVideos videos(*site);
        showVideo(videos, videos.video(*folder));
        return 0;
    });

    auto edit = std::make_shared<EditOptions>();
    auto* editCommand = video->add_subcommand(
        "edit", "Change a video's title, description or reference. The link stays; an empty text removes a "
                "description or a reference.");
    editCommand->add_option("FOLDER", edit->folder, "the video's folder name or page address")->required();
    editCommand->add_option("--site", edit->site, "the site's ID (see `vorlen sites`)");
    editCommand->add_option("--title", edit->title, "the new title");
    editCommand->add_option("--description", edit->description, "the new description");
    editCommand->add_option("--reference", edit->reference, "your own reference for the video");
    registry.add(editCommand, [edit] { return editVideo(*edit); });

    auto visibilitySite = std::make_shared<std::optional<std::string>>();
    auto visibilityFolder = std::make_shared<std::string>();
    auto visibility = std::make_shared<std::string>();
    auto* visibilityCommand = video->add_subcommand(
        "visibility", "Make a video public or unlisted. The link changes: an unlisted video's link holds a random "
                      "part, so that nobody finds it from its title.");
    visibilityCommand->add_option("FOLDER", *visibilityFolder, "the video's folder name or page address")->required();
    visibilityCommand->add_option("VISIBILITY", *visibility, "public or unlisted")
        ->required()
        ->check(CLI::IsMember({"public", "unlisted"}));
    visibilityCommand->add_option("--site", *visibilitySite, "the site's ID (see `vorlen sites`)");
    registry.add(visibilityCommand, [visibilitySite, visibilityFolder, visibility] {
        return changeVisibility(*visibilitySite, *visibilityFolder, *visibility);
    });

    auto deleteSite = std::make_shared<std::optional<std::string>>();
    auto deleteFolders = std::make_shared<std::vector<std::string>>();
    auto yes = std::make_shared<bool>(false);
    auto* deleteCommand = video->add_subcommand(
        "delete", "Delete videos from the site: their playlists go first, so they stop playing at once. Asks for each "
                  "one on a terminal.");
    deleteCommand->add_option("FOLDER", *deleteFolders, "folder names or page addresses")->required();
    deleteCommand->add_option("--site", *deleteSite, "the site's ID (see `vorlen sites`)");
    deleteCommand->add_flag("--yes", *yes, "delete without asking");
    registry.add(deleteCommand, [deleteSite, deleteFolders, yes] { return deleteVideos(*deleteSite, *deleteFolders, *yes); });

    auto posterSite = std::make_shared<std::optional<std::string>>();
    auto posterFolder = std::make_shared<std::string>();
    auto posterFile = std::make_shared<std::optional<std::string>>();
    auto posterFrame = std::make_shared<std::optional<double>>();
    auto* posterCommand = video->add_subcommand(
        "poster", "Give a video a new poster: an image file, or the video's own frame at a time with --frame.");
    posterCommand->add_option("FOLDER", *posterFolder, "the video's folder name or page address")->required();
    posterCommand->add_option("FILE", *posterFile, "a JPEG, PNG, WebP or other image file")->check(CLI::ExistingFile);
    posterCommand->add_option("--frame", *posterFrame, "the time of the frame in the video, in seconds")
        ->check(CLI::NonNegativeNumber);
    posterCommand->add_option("--site", *posterSite, "the site's ID (see `vorlen sites`)");
    registry.add(posterCommand, [posterSite, posterFolder, posterFile, posterFrame] {
        return changePoster(*posterSite, *posterFolder, *posterFile, *posterFrame);
    });

    auto replaceSite = std::make_shared<std::optional<std::string>>();
    auto replaceFolder = std::make_shared<std::string>();
    auto replaceFile = std::make_shared<std::string>();
    auto* replaceCommand = video->add_subcommand(
        "replace", "Replace the file behind a published video. The link, the details, the subtitles and the poster "
                   "stay; people who watch meanwhile see no break. Ctrl-C before the switch leaves the video as it was.");
    replaceCommand->add_option("FOLDER", *replaceFolder, "the video's folder name or page address")->required();
    replaceCommand->add_option("FILE", *replaceFile, "the new video file")->required()->check(CLI::ExistingFile);
    replaceCommand->add_option("--site", *replaceSite, "the site's ID (see `vorlen sites`)");
    registry.add(replaceCommand, [replaceSite, replaceFolder, replaceFile] {
        return replaceVideo(*replaceSite, *replaceFolder, *replaceFile);
    });

    auto audio = std::make_shared<AudioOptions>();
    auto* audioCommand = video->add_subcommand(
        "audio", "Give published videos new audio, encoded at a loudness; the picture stays as it is. Without --file "
                 "each video's own published audio is encoded again, so many videos get a new loudness at once. A "
                 "person who is watching can see an error; a new load of the page fixes it, in at most 5 minutes.");
    audioCommand->add_option("FOLDER", audio->folders, "folder names or page addresses")->required();
    audioCommand->add_option("--file", audio->file, "the file to take the audio from, for one video")->check(CLI::ExistingFile);
    audioCommand->add_option("--loudness", audio->loudness, "original, web or broadcast (default: the site's)")
        ->check(CLI::IsMember({"original", "web", "broadcast"}));
    audioCommand->add_option("--site", audio->site, "the site's ID (see `vorlen sites`)");
    registry.add(audioCommand, [audio] { return reimportAudio(*audio); });

    auto subtitles = std::make_shared<SubtitleOptions>();
    auto* subtitlesCommand = video->add_subcommand(
        "subtitles", "Show, add or remove the subtitle tracks of a published video.");
    subtitlesCommand->add_option("FOLDER", subtitles->folder, "the video's folder name or page address")->required();
    subtitlesCommand->add_option("--site", subtitles->site, "the site's ID (see `vorlen sites`)");
    auto* addCommand = subtitlesCommand->add_subcommand("add", "Add a WebVTT or SubRip file as a track.");
    addCommand->add_option("FILE", subtitles->file, "a .vtt or .srt file")->required()->check(CLI::ExistingFile);
    addCommand->add_option("--language", subtitles->language,
                           "its language, such as en or pt-BR (default: from a name like film.de.srt, else yours)");
    addCommand->add_flag("--captions", subtitles->captions, "the track describes sounds too, for people who cannot hear");
    auto* removeCommand = subtitlesCommand->add_subcommand("remove", "Remove the tracks of a language.");
    removeCommand->add_option("LANGUAGE", subtitles->remove, "the language code of the tracks, or a track's name")->required();
    registry.add(subtitlesCommand, [subtitles] {
        SiteVideos videos(subtitles->site);
        const auto video = videos.video(subtitles->folder);
        const auto tracks = videos.service().subtitles(videos.access(), video);
        for (const auto& track : tracks) std::cout << trackLine(track) << '\n';
        if (tracks.empty()) std::cout << "No subtitles.\n";
        return 0;
    });
    // After their parent: the last parsed command is the one asked for.
    registry.add(addCommand, [subtitles] { return changeSubtitles(*subtitles, true); });
    registry.add(removeCommand, [subtitles] { return changeSubtitles(*subtitles, false); });
}

}  // namespace vorlen::cli
