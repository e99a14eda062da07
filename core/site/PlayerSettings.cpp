#include "core/site/PlayerSettings.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "core/base/VorlenError.hpp"
#include "core/site/SiteSettings.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

namespace {

template <class Struct, class Value>
struct Field {
    const char* key;
    std::optional<Value> Struct::*member;
};

using Names = std::vector<std::string>;
using Numbers = std::vector<double>;

constexpr Field<PlayerUISettings, Names> uiNameLists[] = {
    {"controlPanelElements", &PlayerUISettings::controlPanelElements},
    {"topControlPanelElements", &PlayerUISettings::topControlPanelElements},
    {"overflowMenuButtons", &PlayerUISettings::overflowMenuButtons},
    {"contextMenuElements", &PlayerUISettings::contextMenuElements},
    {"bigButtons", &PlayerUISettings::bigButtons}};
constexpr Field<PlayerUISettings, Numbers> uiNumberLists[] = {
    {"playbackRates", &PlayerUISettings::playbackRates},
    {"fastForwardRates", &PlayerUISettings::fastForwardRates},
    {"rewindRates", &PlayerUISettings::rewindRates}};
constexpr Field<PlayerUISettings, bool> uiBooleans[] = {
    {"addSeekBar", &PlayerUISettings::addSeekBar},
    {"customContextMenu", &PlayerUISettings::customContextMenu},
    {"doubleClickForFullscreen", &PlayerUISettings::doubleClickForFullscreen},
    {"singleClickForPlayAndPause", &PlayerUISettings::singleClickForPlayAndPause},
    {"enableKeyboardPlaybackControls", &PlayerUISettings::enableKeyboardPlaybackControls},
    {"enableFullscreenOnRotation", &PlayerUISettings::enableFullscreenOnRotation},
    {"forceLandscapeOnFullscreen", &PlayerUISettings::forceLandscapeOnFullscreen},
    {"enableTooltips", &PlayerUISettings::enableTooltips},
    {"seekOnTaps", &PlayerUISettings::seekOnTaps},
    {"alwaysShowVolumeBar", &PlayerUISettings::alwaysShowVolumeBar},
    {"showUnbufferedStart", &PlayerUISettings::showUnbufferedStart},
    {"showRemainingTimeInPresentationTime", &PlayerUISettings::showRemainingTimeInPresentationTime},
    {"showUIOnPaused", &PlayerUISettings::showUIOnPaused},
    {"showBufferingSpinner", &PlayerUISettings::showBufferingSpinner}};
constexpr Field<PlayerUISettings, double> uiNumbers[] = {
    {"fadeDelay", &PlayerUISettings::fadeDelay},
    {"closeMenusDelay", &PlayerUISettings::closeMenusDelay},
    {"keyboardSeekDistance", &PlayerUISettings::keyboardSeekDistance},
    {"keyboardLargeSeekDistance", &PlayerUISettings::keyboardLargeSeekDistance},
    {"tapSeekDistance", &PlayerUISettings::tapSeekDistance},
    {"seekButtonDistance", &PlayerUISettings::seekButtonDistance}};
constexpr Field<SeekBarColors, std::string> seekBarColors[] = {
    {"base", &SeekBarColors::base},
    {"buffered", &SeekBarColors::buffered},
    {"played", &SeekBarColors::played},
    {"adBreaks", &SeekBarColors::adBreaks},
    {"chapters", &SeekBarColors::chapters}};
constexpr Field<VolumeBarColors, std::string> volumeBarColors[] = {
    {"base", &VolumeBarColors::base}, {"level", &VolumeBarColors::level}};
constexpr Field<PlayerColors, std::string> playerColors[] = {
    {"controls", &PlayerColors::controls},
    {"button_background", &PlayerColors::buttonBackground},
    {"fade", &PlayerColors::fade},
    {"menu_background", &PlayerColors::menuBackground},
    {"menu_text", &PlayerColors::menuText}};

template <class Value>
constexpr PlayerValueKind kindOf() {
    if constexpr (std::is_same_v<Value, bool>) return PlayerValueKind::boolean;
    else if constexpr (std::is_same_v<Value, double>) return PlayerValueKind::number;
    else if constexpr (std::is_same_v<Value, Numbers>) return PlayerValueKind::numbers;
    else if constexpr (std::is_same_v<Value, Names>) return PlayerValueKind::names;
    else return PlayerValueKind::color;
}

template <class Value>
bool holds(const Json& value) {
    auto all = [&](auto test) { return value.is_array() && std::all_of(value.begin(), value.end(), test); };
    if constexpr (std::is_same_v<Value, bool>) return value.is_boolean();
    else if constexpr (std::is_same_v<Value, double>) return value.is_number();
    else if constexpr (std::is_same_v<Value, Numbers>) return all([](const Json& each) { return each.is_number(); });
    else if constexpr (std::is_same_v<Value, Names>) return all([](const Json& each) { return each.is_string(); });
    else return value.is_string();
}

template <class Value>
const char* expected() {
    if constexpr (std::is_same_v<Value, bool>) return "true or false";
    else if constexpr (std::is_same_v<Value, double>) return "a number";
    else if constexpr (std::is_same_v<Value, Numbers>) return "a list of numbers";
    else if constexpr (std::is_same_v<Value, Names>) return "a list of names";
    else return "a text";
}

VorlenError wrongType(const std::string& path, const char* what) {
    return VorlenError::metadata(fmt::format("{} has a \u201c{}\u201d that is not {}.", SiteRules::playerKey, path, what));
}

// Reads one object of the file value by value; the first value of the wrong type
// fails, naming its path, and nothing past it is read.
class CheckedReader {
public:
    CheckedReader(const Json& object, std::string path) : object_(object), path_(std::move(path)) {}

    template <class Value>
    std::optional<Value> read(const char* key) const {
        auto found = object_.find(key);
        if (found == object_.end() || found->is_null()) return std::nullopt;
        if (!holds<Value>(*found)) throw wrongType(pathOf(key), expected<Value>());
        return found->get<Value>();
    }

    std::optional<CheckedReader> object(const char* key) const {
        auto found = object_.find(key);
        if (found == object_.end() || found->is_null()) return std::nullopt;
        if (!found->is_object()) throw wrongType(pathOf(key), "a group of settings");
        return CheckedReader(*found, pathOf(key));
    }

private:
    std::string pathOf(const char* key) const { return path_.empty() ? key : path_ + "." + key; }

    const Json& object_;
    std::string path_;
};

template <class Struct, class Value, std::size_t N>
void readFields(const CheckedReader& reader, Struct& into, const Field<Struct, Value> (&table)[N]) {
    for (const auto& field : table) into.*field.member = reader.read<Value>(field.key);
}

template <class Struct, class Value, std::size_t N>
void writeFields(Json& out, const Struct& from, const Field<Struct, Value> (&table)[N]) {
    for (const auto& field : table)
        if (const auto& value = from.*field.member) out[field.key] = *value;
}

template <class Struct, class Value, std::size_t N>
void addKeys(std::vector<PlayerSettingKey>& keys, const std::string& prefix, const Field<Struct, Value> (&table)[N]) {
    for (const auto& field : table) keys.push_back({prefix + field.key, kindOf<Value>()});
}

// A colour group with no colour is left out, as if it were absent.
template <class Group, std::size_t N>
std::optional<Group> colorGroup(const std::optional<CheckedReader>& reader, const Field<Group, std::string> (&table)[N]) {
    if (!reader) return std::nullopt;
    Group group;
    readFields(*reader, group, table);
    if (group == Group{}) return std::nullopt;
    return group;
}

template <class Group, std::size_t N>
void writeColorGroup(Json& out, const char* key, const std::optional<Group>& group, const Field<Group, std::string> (&table)[N]) {
    if (!group) return;
    Json colors = Json::object();
    writeFields(colors, *group, table);
    if (!colors.empty()) out[key] = colors;
}

}  // namespace

const std::vector<PlayerSettingKey>& PlayerSettings::keys() {
    static const std::vector<PlayerSettingKey> all = [] {
        std::vector<PlayerSettingKey> out{{"autoplay", PlayerValueKind::boolean},
                                          {"muted", PlayerValueKind::boolean},
                                          {"loop", PlayerValueKind::boolean}};
        addKeys(out, "ui.", uiNameLists);
        addKeys(out, "ui.", uiNumberLists);
        addKeys(out, "ui.seekBarColors.", seekBarColors);
        addKeys(out, "ui.volumeBarColors.", volumeBarColors);
        addKeys(out, "ui.", uiBooleans);
        addKeys(out, "ui.", uiNumbers);
        addKeys(out, "colors.", playerColors);
        return out;
    }();
    return all;
}

PlayerSettings PlayerSettings::fromJson(const Json& json) {
    const std::string key = SiteRules::playerKey;
    if (!json.is_object()) throw VorlenError::metadata(fmt::format("{} is not a JSON object.", key));
    const CheckedReader file(json, "");
    auto version = json.find("version");
    if (version == json.end() || !version->is_number_integer())
        throw VorlenError::metadata(fmt::format("{} has no \u201cversion\u201d.", key));
    auto number = version->get<long long>();
    if (number < 1) throw VorlenError::metadata(fmt::format("{} has version {}, which is not valid.", key, number));
    if (number > formatVersion) throw VorlenError::metadata(newerVersionMessage(key, number, formatVersion));

    PlayerSettings settings;
    settings.autoplay = file.read<bool>("autoplay").value_or(false);
    settings.muted = file.read<bool>("muted").value_or(false);
    settings.loop = file.read<bool>("loop").value_or(false);
    if (auto ui = file.object("ui")) {
        readFields(*ui, settings.ui, uiNameLists);
        readFields(*ui, settings.ui, uiNumberLists);
        settings.ui.seekBarColors = colorGroup(ui->object("seekBarColors"), seekBarColors);
        settings.ui.volumeBarColors = colorGroup(ui->object("volumeBarColors"), volumeBarColors);
        readFields(*ui, settings.ui, uiBooleans);
        readFields(*ui, settings.ui, uiNumbers);
    }
    settings.colors = colorGroup(file.object("colors"), playerColors);
    return settings;
}

PlayerSettings PlayerSettings::decoded(std::string_view text) {
    Json json;
    try {
        json = decodeJson(text);
    } catch (const Json::exception& error) {
        throw VorlenError::metadata(fmt::format("{} is not valid JSON: {}", SiteRules::playerKey, error.what()));
    }
    return fromJson(json);
}

Json PlayerSettings::toJson() const {
    Json json = {{"version", formatVersion}, {"autoplay", autoplay}, {"muted", muted}, {"loop", loop}};
    Json uiJson = Json::object();
    writeFields(uiJson, ui, uiNameLists);
    writeFields(uiJson, ui, uiNumberLists);
    writeColorGroup(uiJson, "seekBarColors", ui.seekBarColors, seekBarColors);
    writeColorGroup(uiJson, "volumeBarColors", ui.volumeBarColors, volumeBarColors);
    writeFields(uiJson, ui, uiBooleans);
    writeFields(uiJson, ui, uiNumbers);
    if (!uiJson.empty()) json["ui"] = uiJson;
    writeColorGroup(json, "colors", colors, playerColors);
    return json;
}

std::string PlayerSettings::encoded() const {
    const Json json = toJson();
    OrderedJson file = {{"version", formatVersion}};
    for (const auto& [key, value] : json.items()) file[key] = value;
    return encodeOrderedJson(file, true);
}

PlayerSettings::Stored PlayerSettings::read(Bucket& bucket) {
    auto object = bucket.taggedObject(SiteRules::playerKey);
    if (!object) return {};
    return {decoded(object->data), object->etag};
}

void PlayerSettings::write(Bucket& bucket, const std::optional<std::string>& readETag) const {
    bucket.put(SiteRules::playerKey, RequestBody::bytes(encoded()), ObjectHeaders{"application/json", "no-cache", {}},
               readETag ? WriteCondition::unchanged(*readETag) : WriteCondition::absent());
}

}  // namespace vorlen
