#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/Json.hpp"
#include "core/cloudflare/SemanticVersion.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/site/Hostname.hpp"

namespace vorlen {

class Bucket;

// The keys a site reserves in its bucket; all lie under "_vorlen/".
namespace SiteRules {
inline constexpr const char* settingsKey = "_vorlen/site.json";
inline constexpr const char* playerKey = "_vorlen/player.json";
inline constexpr const char* templateKey = "_vorlen/template.html";
inline constexpr const char* catalogKey = "_vorlen/catalog.json";
inline constexpr const char* viewersFolder = "_vorlen/viewers/";
inline constexpr const char* batchRunKey = "_vorlen/batch-run.json";
}  // namespace SiteRules

enum class SiteTemplate { automatic, light, dark, custom };

struct HomePageSettings {
    enum class Sort { newest, oldest, title };
    enum class PosterSize { small, medium, large };
    bool isPublic = false;
    std::string title;
    bool showsSearch = true;
    Sort sort = Sort::newest;
    PosterSize posterSize = PosterSize::medium;
    bool operator==(const HomePageSettings&) const = default;
};

struct EmbedSettings {
    enum class Sites { any, listed, noSite };
    Sites sites = Sites::noSite;
    std::vector<WebOrigin> origins;
    bool operator==(const EmbedSettings&) const = default;
};

struct DeployedWorker {
    std::string name;
    SemanticVersion version;
    bool operator==(const DeployedWorker&) const = default;
};

struct HostedFont {
    std::string family;
    std::string folder;
    bool operator==(const HostedFont&) const = default;
};

struct SiteFonts {
    std::optional<HostedFont> hosted;
    std::optional<std::string> text;
    std::optional<std::string> headings;
    std::optional<std::string> tooltips;
    bool isEmpty() const { return !hosted && !text && !headings && !tooltips; }
    bool operator==(const SiteFonts&) const = default;
};

struct SiteStylesheet {
    std::string url;
    std::vector<std::string> origins;
    std::vector<std::string> families;
    bool operator==(const SiteStylesheet&) const = default;
};

// The settings of a site, as "_vorlen/site.json" holds them for every computer and the page Worker.
struct SiteSettings {
    static constexpr int formatVersion = 1;

    std::string path;
    std::string pagePath;
    Hostname mediaHost;
    Hostname pageHost;
    SiteTemplate siteTemplate = SiteTemplate::automatic;
    EmbedSettings embeds;
    std::vector<WebOrigin> mediaOrigins;
    HomePageSettings homePage;
    DeployedWorker worker;
    std::optional<std::string> mediaZoneID;
    SiteFonts fonts;
    std::vector<SiteStylesheet> stylesheets;
    AudioLoudness audioLoudness = AudioLoudness::broadcast;
    // Every page needs a viewer signed in with a passkey (see SiteViewers).
    bool isPrivate = false;

    bool operator==(const SiteSettings&) const = default;

    // Forgiving where a later version may have added values, strict where a site cannot do without.
    static SiteSettings fromJson(const Json& json);
    // The file's text; text that is not JSON fails as a `metadata` failure too.
    static SiteSettings decoded(std::string_view text);
    Json toJson() const;
    // Pretty, sorted keys, unescaped slashes: equal content gives equal bytes.
    std::string encoded() const;

    // The settings in a bucket, or nothing when it has none.
    static std::optional<SiteSettings> read(Bucket& bucket);
    // Fails with "The bucket has no _vorlen/site.json. Set up the site first." when absent.
    static SiteSettings readRequired(Bucket& bucket);
    void write(Bucket& bucket) const;
};

std::string rawValue(SiteTemplate value);
std::optional<SiteTemplate> siteTemplateFromRawValue(std::string_view text);

}  // namespace vorlen
