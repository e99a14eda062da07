#include "app/LocalSettings.hpp"

#include "core/base/Files.hpp"
#include "core/base/Log.hpp"

namespace vorlen::app {

namespace {

Json siteSettingsCoreForm(const SiteSummary& settings) {
    vorlen::SiteSettings core;
    core.homePage = settings.homePage;
    core.embeds = settings.embeds;
    return core.toJson();
}

std::vector<SiteID> siteIDs(const Json& json, const char* key) {
    std::vector<SiteID> ids;
    auto found = json.find(key);
    if (found == json.end() || !found->is_array()) return ids;
    for (const Json& entry : *found)
        if (entry.is_string()) ids.push_back(SiteID{entry.get<std::string>()});
    return ids;
}

std::optional<SiteID> siteID(const Json& json, const char* key) {
    auto value = optionalField<std::string>(json, key);
    return value ? std::optional<SiteID>(SiteID{*value}) : std::nullopt;
}

}  // namespace

SiteSummary SiteSummary::from(const vorlen::SiteSettings& core, std::string accountID, std::string bucket) {
    return SiteSummary{std::move(accountID), std::move(bucket), core.path, core.mediaHost, core.pageHost,
                        core.pagePath, core.homePage, core.embeds, core.mediaOrigins, core.mediaZoneID,
                        core.audioLoudness, std::nullopt, std::nullopt};
}

Json SiteSummary::toJson() const {
    Json core = siteSettingsCoreForm(*this);
    Json origins = Json::array();
    for (auto& origin : mediaOrigins) origins.push_back(origin.text);
    Json json = {{"accountID", accountID},       {"bucket", bucket},
                 {"folderPath", folderPath},     {"mediaHost", mediaHost.name},
                 {"pageHost", pageHost.name},    {"pagePath", pagePath},
                 {"homePage", core["home_page"]}, {"embeds", core["embeds"]},
                 {"mediaOrigins", origins},      {"audioLoudness", rawValue(audioLoudness)}};
    if (mediaZoneID) json["mediaZoneID"] = *mediaZoneID;
    if (localFolder) json["localFolder"] = localFolder->string();
    if (s3Endpoint) json["s3Endpoint"] = *s3Endpoint;
    return json;
}

std::optional<SiteSummary> SiteSummary::fromJson(const Json& json) {
    auto accountID = optionalField<std::string>(json, "accountID");
    auto bucket = optionalField<std::string>(json, "bucket");
    auto mediaHost = Hostname::normalised(fieldOr<std::string>(json, "mediaHost", ""));
    auto pageHost = Hostname::normalised(fieldOr<std::string>(json, "pageHost", ""));
    if (!accountID || !bucket || !mediaHost || !pageHost) return std::nullopt;
    // The nested values share the settings file's readers, forgiving as they are there.
    Json core = {{"version", 1},
                 {"media_host", mediaHost->name},
                 {"page_host", pageHost->name},
                 {"template", "auto"},
                 {"worker", {{"name", "-"}, {"version", "0.0.0"}}},
                 {"media_origins", json.value("mediaOrigins", Json::array())},
                 {"audio_loudness", json.value("audioLoudness", Json())}};
    if (auto home = json.find("homePage"); home != json.end()) core["home_page"] = *home;
    if (auto embeds = json.find("embeds"); embeds != json.end() && embeds->is_object() && embeds->contains("sites"))
        core["embeds"] = *embeds;
    vorlen::SiteSettings parsed;
    try {
        parsed = vorlen::SiteSettings::fromJson(core);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    SiteSummary settings = from(parsed, *accountID, *bucket);
    settings.folderPath = fieldOr<std::string>(json, "folderPath", "");
    settings.pagePath = fieldOr<std::string>(json, "pagePath", "");
    settings.mediaZoneID = optionalField<std::string>(json, "mediaZoneID");
    if (auto folder = optionalField<std::string>(json, "localFolder")) settings.localFolder = *folder;
    settings.s3Endpoint = optionalField<std::string>(json, "s3Endpoint");
    return settings;
}

Json LocalSettings::toJson() const {
    Json siteList = Json::array();
    for (const auto& site : sites) {
        Json entry = {{"id", site.id.value},
                      {"site", site.settings.toJson()},
                      {"lastVisibility", rawValue(site.lastVisibility)},
                      {"uploadLimit", site.uploadLimit.toJson()}};
        if (site.lastCheckedAppVersion) entry["lastCheckedAppVersion"] = *site.lastCheckedAppVersion;
        siteList.push_back(entry);
    }
    Json libraries = Json::array();
    for (const auto& id : lastOpenLibraries) libraries.push_back(id.value);
    Json json = {{"sites", siteList},
                 {"defaultUploadLimit", defaultUploadLimit.toJson()},
                 {"uploadTuning", uploadTuning.toJson()},
                 {"lastOpenLibraries", libraries},
                 {"encodingSpeed", rawValue(encodingSpeed)}};
    if (unfinishedSetup) json["unfinishedSetup"] = unfinishedSetup->value;
    if (legacySite) json["legacySite"] = legacySite->value;
    if (defaultSite) json["defaultSite"] = defaultSite->value;
    if (lastUploadRate) json["lastUploadRate"] = *lastUploadRate;
    if (!vimeoSelections.empty()) {
        Json selections = Json::object();
        for (const auto& [key, selection] : vimeoSelections) selections[key] = selection.toJson();
        json["vimeoSelections"] = selections;
    }
    return json;
}

LocalSettings LocalSettings::fromJson(const Json& json) {
    LocalSettings settings;
    if (!json.is_object()) return settings;
    if (auto list = json.find("sites"); list != json.end() && list->is_array()) {
        for (const Json& entry : *list) {
            auto id = optionalField<std::string>(entry, "id");
            auto site = entry.is_object() && entry.contains("site") ? SiteSummary::fromJson(entry["site"]) : std::nullopt;
            if (!id || !site) continue;
            LocalSite local{SiteID{*id}, *site, VideoVisibility::publicVideo, std::nullopt, UploadLimit{}};
            local.lastVisibility = videoVisibilityFromRawValue(fieldOr<std::string>(entry, "lastVisibility", ""))
                                       .value_or(VideoVisibility::publicVideo);
            local.lastCheckedAppVersion = optionalField<std::string>(entry, "lastCheckedAppVersion");
            local.uploadLimit = UploadLimit::fromJson(entry.value("uploadLimit", Json())).value_or(UploadLimit{});
            settings.sites.push_back(std::move(local));
        }
    }
    settings.unfinishedSetup = siteID(json, "unfinishedSetup");
    settings.legacySite = siteID(json, "legacySite");
    settings.defaultSite = siteID(json, "defaultSite");
    settings.defaultUploadLimit = UploadLimit::fromJson(json.value("defaultUploadLimit", Json())).value_or(UploadLimit{});
    settings.uploadTuning = UploadTuning::fromJson(json.value("uploadTuning", Json())).value_or(UploadTuning{});
    settings.lastUploadRate = optionalField<double>(json, "lastUploadRate");
    settings.lastOpenLibraries = siteIDs(json, "lastOpenLibraries");
    if (auto selections = json.find("vimeoSelections"); selections != json.end() && selections->is_object())
        for (const auto& [key, selection] : selections->items())
            settings.vimeoSelections.emplace(key, VimeoSelection::fromJson(selection));
    if (json.contains("site")) {
        if (auto earlier = SiteSummary::fromJson(json["site"])) {
            LocalSite site{SiteID{}, *earlier, VideoVisibility::publicVideo, std::nullopt, UploadLimit{}};
            site.lastVisibility = videoVisibilityFromRawValue(fieldOr<std::string>(json, "lastVisibility", ""))
                                      .value_or(VideoVisibility::publicVideo);
            site.lastCheckedAppVersion = optionalField<std::string>(json, "lastCheckedAppVersion");
            settings.earlierSite = site;
        }
    }
    settings.encodingSpeed =
        encodingSpeedFromSettings(json);
    return settings;
}

bool LocalSettings::migrateEarlierSite() {
    if (!earlierSite) return false;
    LocalSite site = *earlierSite;
    site.id = SiteID::make();
    site.uploadLimit = defaultUploadLimit;
    sites.push_back(site);
    legacySite = site.id;
    earlierSite.reset();
    log().info("Migration: the single site of the older settings became site {}.", site.id.value);
    return true;
}

const LocalSite* LocalSettings::site(const SiteID& id) const {
    for (const auto& site : sites)
        if (site.id == id) return &site;
    return nullptr;
}

LocalSettingsStore LocalSettingsStore::standard() { return LocalSettingsStore(userConfigFolder() / "settings.json"); }

LocalSettings LocalSettingsStore::load() const {
    std::error_code missing;
    if (!std::filesystem::exists(file_, missing)) return {};
    try {
        return LocalSettings::fromJson(decodeJson(readFile(file_)));
    } catch (const std::exception& error) {
        log().error("The settings file {} cannot be read ({}); starting from the defaults.", file_.string(), error.what());
        return {};
    }
}

void LocalSettingsStore::save(const LocalSettings& settings) const {
    std::filesystem::create_directories(file_.parent_path());
    writeFileAtomically(file_, encodeJson(settings.toJson(), true));
}

}  // namespace vorlen::app
