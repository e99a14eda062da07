#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/PublishService.hpp"

namespace vorlen::app {

struct SubtitleFileList {
    std::vector<VideoSubtitle> files;
    std::optional<std::string> problem;
};

struct AudioLoudnessChoice {
    AudioLoudness siteDefault = AudioLoudness::broadcast;
    AudioLoudness selection = AudioLoudness::broadcast;
};

struct ConfirmState {
    struct Resolved { ResolvedFolder folder; };
    struct Unavailable { std::string message; };
    struct Invalid {};
    struct Checking {};
    using NameStatus = std::variant<Resolved, Unavailable, Invalid, Checking>;

    VideoInspection inspection;
    std::string name;
    bool isNameTyped = false;  // the person chose the name rather than taking the suggestion
    NameStatus nameStatus = Checking{};
    std::string title;
    std::string reference;
    std::string description;
    VideoVisibility visibility = VideoVisibility::publicVideo;
    std::string randomPart;  // fixed for the life of the state
    SubtitleFileList subtitleFiles;
    AudioLoudnessChoice audioLoudness;

    // The folder name asked for: an unlisted video's name carries the random part.
    std::string folderName() const;
};

struct PublishingState {
    PublishRequest request;
    std::optional<ResolvedFolder> folder;
    std::optional<JobProgress> progress;
    bool isStopping = false;
    BuiltVideo built;
    std::vector<std::string> uploadLog;
};

// A poster review as a screen shows it.
struct PosterReviewScreen {
    struct Idle {};
    struct Loading {};
    struct Failed { std::string message; };
    using ImageStatus = std::variant<Idle, Loading, Failed>;

    PosterReviewRequest request;
    std::optional<Poster> poster;  // what the person has on screen
    bool isCountingDown = true;
    ImageStatus imageStatus = Idle{};
};

// The review of a publish's poster, with the publish kept inside.
struct PosterReviewState : PosterReviewScreen {
    PublishingState job;
};

struct VideoLinks {
    std::string page;
    std::string embed;
    std::string media;
    std::string hls;
    std::string dash;
};

struct PublishedState {
    PublishedVideo video;
    VideoLinks links;
    bool isReplacement = false;
};

struct Failure {
    std::string title;
    std::string message;
    std::optional<PublishRequest> retry;
    std::vector<std::string> uploadLog;
};

struct Screen {
    struct Inspecting { std::filesystem::path file; };
    struct Start {};
    using Value = std::variant<Inspecting, ConfirmState, PublishingState, PosterReviewState, PublishedState, Failure, Start>;
    Value value = Start{};

    // While an active screen stands, no new video can start.
    bool isActive() const {
        return std::holds_alternative<Inspecting>(value) || std::holds_alternative<ConfirmState>(value) ||
               std::holds_alternative<PublishingState>(value) || std::holds_alternative<PosterReviewState>(value);
    }
    template <class T> T* as() { return std::get_if<T>(&value); }
    template <class T> const T* as() const { return std::get_if<T>(&value); }
};

// The addresses of a video: its page and embed on the page host, its folder on the media host.
// A local site's links point at `vorlen preview` on previewPort.
VideoLinks linksFor(const SiteSummary& site, const std::string& folderName, int previewPort = localPreviewPort);

// The folder that a page or embed address of the site names, or the text itself
// when it is no address; absent for an address of another site.
std::optional<std::string> folderOfLink(const SiteSummary& site, std::string_view text);

// Subtitle files are known by their extension: .vtt and .srt, in any case.
bool isSubtitleFile(const std::filesystem::path& file);

}  // namespace vorlen::app
