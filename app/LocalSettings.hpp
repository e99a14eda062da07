#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/SiteStorage.hpp"
#include "app/UploadSettings.hpp"
#include "app/VimeoSelection.hpp"
#include "core/base/Json.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/publish/EncodingSpeed.hpp"
#include "core/publish/VideoDetails.hpp"
#include "core/site/SiteSettings.hpp"

namespace vorlen::app {

// `vorlen preview` serves a local site's pages and media on this loopback port unless told otherwise.
inline constexpr int localPreviewPort = 8787;

// What this computer keeps of a site (the summary of its settings file that the
// screens show, and where its bucket is). A site is an R2 bucket, or, for a local
// site, a folder on disk.
struct SiteSummary {
    std::string accountID;
    std::string bucket;
    std::string folderPath;
    Hostname mediaHost;
    Hostname pageHost;
    std::string pagePath;
    HomePageSettings homePage;
    EmbedSettings embeds;
    std::vector<WebOrigin> mediaOrigins;
    std::optional<std::string> mediaZoneID;
    AudioLoudness audioLoudness = AudioLoudness::broadcast;
    // A local site's folder bucket.
    std::optional<std::filesystem::path> localFolder;
    // Another S3 service in place of R2 (a server of one's own, tests).
    std::optional<std::string> s3Endpoint;

    bool isLocal() const { return localFolder.has_value(); }
    // The summary of a site's settings file and this computer's record of where it is.
    static SiteSummary from(const vorlen::SiteSettings& core, std::string accountID, std::string bucket);
    Json toJson() const;
    static std::optional<SiteSummary> fromJson(const Json& json);
    bool operator==(const SiteSummary&) const = default;
};

struct LocalSite {
    SiteID id;
    SiteSummary settings;
    VideoVisibility lastVisibility = VideoVisibility::publicVideo;
    std::optional<std::string> lastCheckedAppVersion;
    UploadLimit uploadLimit;
    bool operator==(const LocalSite&) const = default;
};

// The settings of this computer: sites, preferences, the last upload rate.
// Every field is read on its own: a value that does not decode takes its
// default and never costs the others.
struct LocalSettings {
    std::vector<LocalSite> sites;
    std::optional<SiteID> unfinishedSetup;
    std::optional<SiteID> legacySite;
    std::optional<SiteID> defaultSite;
    UploadLimit defaultUploadLimit;
    UploadTuning uploadTuning;
    std::optional<double> lastUploadRate;
    std::vector<SiteID> lastOpenLibraries;
    EncodingSpeed encodingSpeed = EncodingSpeed::balanced;
    // Each site's choices of its Vimeo account, under the site's vimeoSelectionsKey.
    std::map<std::string, VimeoSelection> vimeoSelections;
    // The one site of the older single-site form, read only; migrateEarlierSite() adopts it.
    std::optional<LocalSite> earlierSite;

    // Makes the earlier form's site a site of the list, under a new id, marked as the
    // legacy site whose secrets may still stand under the old names. True when it did.
    bool migrateEarlierSite();

    Json toJson() const;
    static LocalSettings fromJson(const Json& json);

    const LocalSite* site(const SiteID& id) const;

    bool operator==(const LocalSettings&) const = default;
};

// The settings file, $XDG_CONFIG_HOME/vorlen/settings.json, written atomically on every change.
class LocalSettingsStore {
public:
    explicit LocalSettingsStore(std::filesystem::path file) : file_(std::move(file)) {}
    static LocalSettingsStore standard();

    LocalSettings load() const;
    void save(const LocalSettings& settings) const;
    const std::filesystem::path& file() const { return file_; }

private:
    std::filesystem::path file_;
};

}  // namespace vorlen::app
