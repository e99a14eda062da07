#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/LocalSettings.hpp"
#include "app/R2Credentials.hpp"
#include "app/UploadSettings.hpp"
#include "core/library/VideoReplacement.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/publish/PosterReviewer.hpp"
#include "core/publish/PublishProgress.hpp"
#include "core/publish/VideoDetails.hpp"

namespace vorlen {
class BuiltFolder;
}

namespace vorlen::app {

namespace fs = std::filesystem;

// The publish service's own view of an inspected source.
struct VideoInspection {
    struct Picture {
        std::int64_t width = 0;
        std::int64_t height = 0;
        double framesPerSecond = 0;
        bool isHDR = false;
    };
    fs::path source;
    std::string suggestedName;
    std::string suggestedTitle;
    Picture picture;
    double duration = 0;
    std::optional<std::int64_t> audioChannels;
    std::vector<std::string> rungs;
    std::vector<std::string> audioRenditions;
    std::uint64_t estimatedBytes = 0;
};

struct VideoSubtitle {
    fs::path file;
    std::string language;  // BCP 47
    std::int64_t cueCount = 0;
};

struct ResolvedFolder {
    std::string requestedName;
    std::string name;
    std::string prefix;
};

// What a publish needs to reach a site's bucket.
struct BucketAccess {
    SiteSummary site;
    std::optional<R2Credentials> credentials;  // a local site has none
};

// A finished build, kept by the application so that a retry uploads the same files.
using BuiltVideo = std::shared_ptr<BuiltFolder>;

// A job reports the publish's own progress, as it comes.
using JobProgress = PublishProgress;
using JobStage = PublishProgress::Stage;

struct PublishRequest {
    fs::path source;
    std::string name;
    // The person chose the name rather than taking the suggestion: when another
    // computer takes the folder first, the publish fails instead of moving on.
    bool isNameTyped = false;
    VideoDetails details{"", std::nullopt, std::nullopt, VideoVisibility::publicVideo};
    AudioLoudness audioLoudness = AudioLoudness::broadcast;
    BucketAccess access;
    std::optional<double> expectedUploadRate;
    std::chrono::nanoseconds posterReviewTimeLimit = std::chrono::seconds(20);
    UploadTuning uploadTuning;
    BuiltVideo built;
    std::vector<VideoSubtitle> subtitles;
};

struct PublishEvent {
    struct Folder { ResolvedFolder folder; };
    struct Progress { JobProgress progress; };
    struct ReviewPoster { PosterReviewRequest request; };
    struct Built { BuiltVideo built; };
    struct UploadLog { std::vector<std::string> lines; };
    std::variant<Folder, Progress, ReviewPoster, Built, UploadLog> value;
};

struct PublishedVideo {
    std::string folderPrefix;
    std::string hlsKey;
    std::string dashKey;
    std::int64_t fileCount = 0;
    std::uint64_t uploadedBytes = 0;
    std::optional<double> uploadRate;
};

// A new file for a published video: its link, details and poster stay.
struct ReplaceRequest {
    fs::path source;
    std::string folder;
    BucketAccess access;
    AudioLoudness audioLoudness = AudioLoudness::broadcast;
    UploadTuning uploadTuning;
    std::optional<double> expectedUploadRate;
};

// Inspecting, resolving a folder and publishing, for one site. Calls block and
// run on a task of the caller; events reach onEvent in order, on the service's thread.
class PublishService {
public:
    virtual ~PublishService() = default;
    virtual VideoInspection inspect(const fs::path& file) = 0;
    virtual VideoSubtitle readSubtitle(const fs::path& file) = 0;
    virtual ResolvedFolder resolveFolder(const std::string& name, const BucketAccess& access) = 0;
    virtual PublishedVideo publish(const PublishRequest& request, const std::function<void(const PublishEvent&)>& onEvent) = 0;
    // Encodes the file and switches the published video to it; the target's
    // manifests are read before the encoding, so another computer's change meanwhile
    // stops the switch.
    virtual VideoReplacement replace(const ReplaceRequest& request, const std::function<void(const JobProgress&)>& onProgress) = 0;
};

}  // namespace vorlen::app
