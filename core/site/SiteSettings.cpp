#include "core/site/SiteSettings.hpp"

#include <fmt/format.h>

#include "core/base/VorlenError.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

namespace {

template <class Enum, std::size_t N>
std::optional<Enum> enumFrom(const Json& value, const std::pair<Enum, const char*> (&names)[N]) {
    if (!value.is_string()) return std::nullopt;
    for (auto& [item, name] : names)
        if (value.get<std::string>() == name) return item;
    return std::nullopt;
}

template <class Enum, std::size_t N>
const char* nameOf(Enum item, const std::pair<Enum, const char*> (&names)[N]) {
    for (auto& [each, name] : names)
        if (each == item) return name;
    return "";
}

constexpr std::pair<SiteTemplate, const char*> templateNames[] = {
    {SiteTemplate::automatic, "auto"}, {SiteTemplate::light, "light"}, {SiteTemplate::dark, "dark"}, {SiteTemplate::custom, "custom"}};
constexpr std::pair<HomePageSettings::Sort, const char*> sortNames[] = {
    {HomePageSettings::Sort::newest, "newest"}, {HomePageSettings::Sort::oldest, "oldest"}, {HomePageSettings::Sort::title, "title"}};
constexpr std::pair<HomePageSettings::PosterSize, const char*> posterSizeNames[] = {
    {HomePageSettings::PosterSize::small, "small"}, {HomePageSettings::PosterSize::medium, "medium"},
    {HomePageSettings::PosterSize::large, "large"}};
constexpr std::pair<EmbedSettings::Sites, const char*> embedSiteNames[] = {
    {EmbedSettings::Sites::any, "any"}, {EmbedSettings::Sites::listed, "listed"}, {EmbedSettings::Sites::noSite, "none"}};

const Json& required(const Json& json, const char* key) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null())
        throw VorlenError::metadata(fmt::format("{} has no \u201c{}\u201d.", SiteRules::settingsKey, key));
    return *found;
}

Hostname requiredHost(const Json& json, const char* key) {
    const Json& value = required(json, key);
    if (!value.is_string()) throw VorlenError::metadata(fmt::format("{} has no \u201c{}\u201d.", SiteRules::settingsKey, key));
    return Hostname::parse(value.get<std::string>());
}

// Origins that do not parse, and repeats, drop away in silence.
std::vector<WebOrigin> origins(const Json& json, const char* key) {
    std::vector<WebOrigin> out;
    auto found = json.find(key);
    if (found == json.end() || !found->is_array()) return out;
    for (const Json& entry : *found) {
        if (!entry.is_string()) continue;
        auto origin = WebOrigin::strict(entry.get<std::string>());
        if (origin && std::find(out.begin(), out.end(), *origin) == out.end()) out.push_back(*origin);
    }
    return out;
}

// A folder path is read by its rule, so that no file can point the videos or the
// pages anywhere that the rule would refuse.
std::string folderPath(const Json& json, const char* key) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) return "";
    if (!found->is_string())
        throw VorlenError::metadata(fmt::format("{} has no valid \u201c{}\u201d.", SiteRules::settingsKey, key));
    return SiteFolder::normalisedPath(found->get<std::string>());
}

std::vector<std::string> strings(const Json& json, const char* key) {
    const Json& list = json.at(key);
    std::vector<std::string> out;
    for (const Json& entry : list) out.push_back(entry.get<std::string>());
    return out;
}

}  // namespace

std::string rawValue(SiteTemplate value) { return nameOf(value, templateNames); }

std::optional<SiteTemplate> siteTemplateFromRawValue(std::string_view text) { return enumFrom(Json(text), templateNames); }

SiteSettings SiteSettings::fromJson(const Json& json) {
    const std::string key = SiteRules::settingsKey;
    if (!json.is_object()) throw VorlenError::metadata(fmt::format("{} is not a JSON object.", key));
    const Json& version = required(json, "version");
    if (!version.is_number_integer()) throw VorlenError::metadata(fmt::format("{} has no \u201cversion\u201d.", key));
    auto number = version.get<long long>();
    if (number < 1) throw VorlenError::metadata(fmt::format("{} has version {}, which is not valid.", key, number));
    if (number > formatVersion) throw VorlenError::metadata(newerVersionMessage(key, number, formatVersion));

    SiteSettings settings;
    settings.path = folderPath(json, "path");
    settings.pagePath = folderPath(json, "page_path");
    settings.mediaHost = requiredHost(json, "media_host");
    settings.pageHost = requiredHost(json, "page_host");
    auto siteTemplate = enumFrom(required(json, "template"), templateNames);
    if (!siteTemplate) throw VorlenError::metadata(fmt::format("{} has an unknown \u201ctemplate\u201d.", key));
    settings.siteTemplate = *siteTemplate;

    const Json& worker = required(json, "worker");
    if (!worker.is_object() || !worker.contains("name") || !worker["name"].is_string() || !worker.contains("version") ||
        !worker["version"].is_string())
        throw VorlenError::metadata(fmt::format("{} has no valid \u201cworker\u201d.", key));
    settings.worker = DeployedWorker{worker["name"].get<std::string>(), SemanticVersion::parse(worker["version"].get<std::string>())};

    if (auto embeds = json.find("embeds"); embeds != json.end() && !embeds->is_null()) {
        auto sites = embeds->is_object() ? enumFrom(embeds->value("sites", Json()), embedSiteNames) : std::nullopt;
        if (!sites) throw VorlenError::metadata(fmt::format("{} has no valid \u201cembeds\u201d.", key));
        settings.embeds = EmbedSettings{*sites, origins(*embeds, "origins")};
    }
    settings.mediaOrigins = origins(json, "media_origins");

    if (auto home = json.find("home_page"); home != json.end() && home->is_object()) {
        HomePageSettings defaults;
        settings.homePage.isPublic = fieldOr(*home, "public", defaults.isPublic);
        settings.homePage.title = fieldOr(*home, "title", defaults.title);
        settings.homePage.showsSearch = fieldOr(*home, "search", defaults.showsSearch);
        settings.homePage.sort = enumFrom(home->value("sort", Json()), sortNames).value_or(defaults.sort);
        settings.homePage.posterSize = enumFrom(home->value("poster_size", Json()), posterSizeNames).value_or(defaults.posterSize);
    }
    settings.mediaZoneID = optionalField<std::string>(json, "media_zone_id");

    if (auto fonts = json.find("fonts"); fonts != json.end() && fonts->is_object()) {
        if (auto hosted = fonts->find("hosted"); hosted != fonts->end() && hosted->is_object()) {
            auto family = optionalField<std::string>(*hosted, "family");
            auto folder = optionalField<std::string>(*hosted, "folder");
            if (family && folder) settings.fonts.hosted = HostedFont{*family, *folder};
        }
        settings.fonts.text = optionalField<std::string>(*fonts, "text");
        settings.fonts.headings = optionalField<std::string>(*fonts, "headings");
        settings.fonts.tooltips = optionalField<std::string>(*fonts, "tooltips");
    }
    if (auto sheets = json.find("stylesheets"); sheets != json.end() && sheets->is_array()) {
        for (const Json& entry : *sheets) {
            try {
                settings.stylesheets.push_back(
                    SiteStylesheet{entry.at("url").get<std::string>(), strings(entry, "origins"), strings(entry, "families")});
            } catch (const Json::exception&) {
                // An entry this version cannot read is left out; the others stay.
            }
        }
    }
    settings.audioLoudness = audioLoudnessFromRawValue(fieldOr<std::string>(json, "audio_loudness", "")).value_or(AudioLoudness::broadcast);
    settings.isPrivate = fieldOr(json, "private", false);
    return settings;
}

Json SiteSettings::toJson() const {
    auto originTexts = [](const std::vector<WebOrigin>& list) {
        Json out = Json::array();
        for (auto& origin : list) out.push_back(origin.text);
        return out;
    };
    Json json = {
        {"version", formatVersion},
        {"path", path},
        {"page_path", pagePath},
        {"media_host", mediaHost.name},
        {"page_host", pageHost.name},
        {"template", rawValue(siteTemplate)},
        {"embeds", {{"sites", nameOf(embeds.sites, embedSiteNames)}, {"origins", originTexts(embeds.origins)}}},
        {"media_origins", originTexts(mediaOrigins)},
        {"home_page",
         {{"public", homePage.isPublic},
          {"title", homePage.title},
          {"search", homePage.showsSearch},
          {"sort", nameOf(homePage.sort, sortNames)},
          {"poster_size", nameOf(homePage.posterSize, posterSizeNames)}}},
        {"worker", {{"name", worker.name}, {"version", worker.version.text()}}},
        {"audio_loudness", rawValue(audioLoudness)},
    };
    if (mediaZoneID) json["media_zone_id"] = *mediaZoneID;
    // Left out of a public site's file, so that its bytes stay as they were.
    if (isPrivate) json["private"] = true;
    if (!fonts.isEmpty()) {
        Json out = Json::object();
        if (fonts.hosted) out["hosted"] = {{"family", fonts.hosted->family}, {"folder", fonts.hosted->folder}};
        if (fonts.text) out["text"] = *fonts.text;
        if (fonts.headings) out["headings"] = *fonts.headings;
        if (fonts.tooltips) out["tooltips"] = *fonts.tooltips;
        json["fonts"] = out;
    }
    if (!stylesheets.empty()) {
        Json out = Json::array();
        for (auto& sheet : stylesheets) out.push_back({{"url", sheet.url}, {"origins", sheet.origins}, {"families", sheet.families}});
        json["stylesheets"] = out;
    }
    return json;
}

std::string SiteSettings::encoded() const { return encodeJson(toJson(), true); }

SiteSettings SiteSettings::decoded(std::string_view text) {
    Json json;
    try {
        json = decodeJson(text);
    } catch (const Json::exception& error) {
        throw VorlenError::metadata(fmt::format("{} is not valid JSON: {}", SiteRules::settingsKey, error.what()));
    }
    return fromJson(json);
}

std::optional<SiteSettings> SiteSettings::read(Bucket& bucket) {
    auto data = bucket.object(SiteRules::settingsKey);
    if (!data) return std::nullopt;
    return decoded(*data);
}

SiteSettings SiteSettings::readRequired(Bucket& bucket) {
    if (auto settings = read(bucket)) return *settings;
    throw VorlenError::config("The bucket has no _vorlen/site.json. Set up the site first.");
}

void SiteSettings::write(Bucket& bucket) const {
    bucket.put(SiteRules::settingsKey, RequestBody::bytes(encoded()), ObjectHeaders{"application/json", "no-cache", {}});
}

}  // namespace vorlen
