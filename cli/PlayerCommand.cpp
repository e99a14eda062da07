#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iostream>

#include <fmt/format.h>

#include "app/PlayerWords.hpp"
#include "app/SitePlayerSettings.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/PlayerElement.hpp"

namespace vorlen::cli {

namespace {

const char* const playerDefault = "(player default)";

std::string inQuotes(const std::string& text) { return "\u201c" + text + "\u201d"; }

Json::json_pointer pointerOf(const std::string& path) {
    std::string pointer = "/" + path;
    std::replace(pointer.begin(), pointer.end(), '.', '/');
    return Json::json_pointer(pointer);
}

std::string numberText(double number) { return fmt::format("{}", number); }

std::string listText(const Json& list, bool numbers) {
    std::string out;
    for (const Json& entry : list) {
        if (!out.empty()) out += ",";
        out += numbers ? numberText(entry.get<double>()) : entry.get<std::string>();
    }
    return out.empty() ? "(none)" : out;
}

std::string shownValue(const Json& settings, const PlayerSettingKey& key) {
    const auto pointer = pointerOf(key.path);
    if (!settings.contains(pointer)) return playerDefault;
    const Json& value = settings.at(pointer);
    switch (key.kind) {
        case PlayerValueKind::boolean: return value.get<bool>() ? "on" : "off";
        case PlayerValueKind::number: return numberText(value.get<double>());
        case PlayerValueKind::numbers: return listText(value, true);
        case PlayerValueKind::names: return listText(value, false);
        case PlayerValueKind::color: return value.get<std::string>();
    }
    return "";
}

std::vector<std::string> keyPaths() {
    std::vector<std::string> paths;
    for (const auto& key : PlayerSettings::keys()) paths.push_back(key.path);
    return paths;
}

const PlayerSettingKey& keyNamed(const std::string& path) {
    for (const auto& key : PlayerSettings::keys())
        if (key.path == path) return key;
    throw VorlenError::config(fmt::format("{} is not a player option. The options are {}.", inQuotes(path), joinedWithAnd(keyPaths())));
}

// Where the elements of a list stand; the context menu takes the overflow menu's elements.
std::int64_t placesOf(const std::string& path) {
    if (path == "ui.overflowMenuButtons" || path == "ui.contextMenuElements") return PlayerElement::Places::overflowMenu;
    if (path == "ui.bigButtons") return PlayerElement::Places::bigButtons;
    return PlayerElement::Places::controlBar;
}

std::vector<std::string> commaSeparated(const std::string& text) {
    std::vector<std::string> items;
    if (trimmedAsciiWhitespace(text).empty()) return items;
    std::size_t start = 0;
    while (true) {
        const auto comma = text.find(',', start);
        items.push_back(trimmedAsciiWhitespace(std::string_view(text).substr(start, comma - start)));
        if (comma == std::string::npos) return items;
        start = comma + 1;
    }
}

std::optional<double> numberFrom(const std::string& text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || text.empty() || !std::isfinite(number)) return std::nullopt;
    return number;
}

VorlenError badValue(const std::string& value, const PlayerSettingKey& key, const std::string& allowed) {
    return VorlenError::config(fmt::format("{} is not a value of {}. {}", inQuotes(value), key.path, allowed));
}

Json namesFrom(const std::string& text, const PlayerSettingKey& key) {
    const auto places = placesOf(key.path);
    Json names = Json::array();
    for (const auto& name : commaSeparated(text)) {
        const auto element = PlayerElement::named(name);
        if (!element || (element->places & places) != places) {
            std::vector<std::string> allowed;
            for (const auto& each : PlayerElement::inPlace(places)) allowed.emplace_back(each.name);
            throw badValue(name, key, fmt::format("Give element names separated by commas, from {}; or default.", joinedWithAnd(allowed)));
        }
        names.push_back(name);
    }
    return names;
}

// The value that a person typed for a key, in the form that the file holds.
Json parsedValue(const PlayerSettingKey& key, const std::string& text) {
    switch (key.kind) {
        case PlayerValueKind::boolean:
            if (text == "on" || text == "true") return true;
            if (text == "off" || text == "false") return false;
            throw badValue(text, key, "Give on or off (or true or false), or default.");
        case PlayerValueKind::number:
            if (auto number = numberFrom(text); number && *number >= 0) return *number;
            throw badValue(text, key, "Give a number of seconds, 0 or more, or default.");
        case PlayerValueKind::numbers: {
            const auto refused = [&] { return badValue(text, key, "Give numbers separated by commas, such as 1,1.5,2, or default."); };
            Json numbers = Json::array();
            for (const auto& item : commaSeparated(text)) {
                const auto number = numberFrom(item);
                if (!number) throw refused();
                numbers.push_back(*number);
            }
            if (numbers.empty()) throw refused();
            return numbers;
        }
        case PlayerValueKind::names: return namesFrom(text, key);
        case PlayerValueKind::color:
            if (isPlayerColor(text)) return text;
            throw badValue(text, key,
                           "Give a colour such as #1a2b3c, rgb(255, 255, 255), rgba(0, 0, 0, 0.5), hsl(0, 100%, 50%) or "
                           "white, or default.");
    }
    return nullptr;
}

void setValue(Json& settings, const PlayerSettingKey& key, const std::string& text) {
    const auto pointer = pointerOf(key.path);
    if (text != "default") {
        settings[pointer] = parsedValue(key, text);
    } else if (settings.contains(pointer)) {
        settings.at(pointer.parent_pointer()).erase(pointer.back());
    }
}

void save(const app::SitePlayerSettings& player, const PlayerSettings& settings, const std::optional<std::string>& etag) {
    try {
        player.save(settings, etag);
    } catch (const VorlenError& error) {
        if (!error.is<failure::Conflict>()) throw;
        throw VorlenError::config(app::PlayerWords::changedElsewhere);
    }
}

struct PlayerOptions {
    std::optional<std::string> site;
    std::string key;
    std::string value;
    bool yes = false;
};

app::SitePlayerSettings playerOf(AppContext& context, const app::LocalSite& site) {
    return app::SitePlayerSettings::open(site, context.secrets, context.model->endpoints());
}

int show(const PlayerOptions& options) {
    AppContext context;
    const auto& site = context.chosenSite(options.site);
    const auto settings = playerOf(context, site).current().settings.toJson();
    std::cout << fmt::format("The player options of the site {}:\n", inQuotes(site.id.value));
    for (const auto& key : PlayerSettings::keys()) std::cout << fmt::format("  {:<38} {}\n", key.path, shownValue(settings, key));
    return 0;
}

int set(const PlayerOptions& options) {
    const auto& key = keyNamed(options.key);
    AppContext context;
    const auto player = playerOf(context, context.chosenSite(options.site));
    const auto stored = player.current();
    auto json = stored.settings.toJson();
    setValue(json, key, options.value);
    auto settings = PlayerSettings::fromJson(json);
    const bool mutes = key.path == "autoplay" && settings.autoplay && !settings.muted;
    if (mutes) settings.muted = true;
    save(player, settings, stored.etag);

    std::cout << fmt::format("{} is now {}.\n", key.path, shownValue(settings.toJson(), key));
    if (mutes) std::cout << app::PlayerWords::mutedWithAutoplay << '\n';
    if (key.kind == PlayerValueKind::names)
        for (const auto& name : settings.toJson().value(pointerOf(key.path), Json::array()))
            if (!PlayerElement::named(name.get<std::string>())->appliesToVorlenVideos)
                std::cout << fmt::format("{} can do nothing for a video of this site.\n", inQuotes(name.get<std::string>()));
    std::cout << app::PlayerWords::saved << '\n';
    return 0;
}

int reset(const PlayerOptions& options) {
    AppContext context;
    const auto player = playerOf(context, context.chosenSite(options.site));
    const auto stored = player.current();
    if (!options.yes) {
        if (!isatty(STDIN_FILENO)) {
            std::cerr << "Nothing was reset: there is no terminal to ask on. To reset without a question, add --yes.\n";
            return 1;
        }
        std::cerr << app::PlayerWords::resetExplanation << '\n';
        if (!confirmed(app::PlayerWords::resetTitle)) {
            std::cerr << "Nothing was reset.\n";
            return 1;
        }
    }
    save(player, PlayerSettings{}, stored.etag);
    std::cout << "Every player option is back to the player's default.\n" << app::PlayerWords::saved << '\n';
    return 0;
}

std::string keysHelp() {
    std::string text;
    for (const auto& key : PlayerSettings::keys()) {
        const char* form = "";
        switch (key.kind) {
            case PlayerValueKind::boolean: form = "on or off"; break;
            case PlayerValueKind::number: form = "seconds"; break;
            case PlayerValueKind::numbers: form = "numbers, comma-separated"; break;
            case PlayerValueKind::names: form = "element names, comma-separated"; break;
            case PlayerValueKind::color: form = "a CSS colour"; break;
        }
        text += fmt::format("\n  {:<38} {}", key.path, form);
    }
    return text;
}

}  // namespace

void registerPlayerCommands(CommandRegistry& registry) {
    auto options = std::make_shared<PlayerOptions>();
    auto* command = registry.app.add_subcommand(
        "player", "Show or change the options of the site's video player (its controls, their colours, autoplay), "
                  "kept in the bucket as _vorlen/player.json. The pages use them from their next load; an option "
                  "that is not set leaves the player's own default, which can depend on the viewer's device.");
    command->require_subcommand(1);

    auto* showCommand = command->add_subcommand(
        "show", "Print every player option with its value, or \u201c(player default)\u201d where the player's own default is in force.");
    showCommand->add_option("--site", options->site, "the site (by default the current one)");
    registry.add(showCommand, [options] { return show(*options); });

    auto* setCommand = command->add_subcommand(
        "set", "Set one player option, named by its JSON path, and save it. Booleans take on or off (or true or false); "
               "lists take comma-separated values (an empty text for an empty list); the value default removes the "
               "option, so that the player's own default applies. Turning autoplay on turns muted on, since browsers "
               "start a video by itself only when its sound is off. The options:" + keysHelp());
    setCommand->add_option("KEY", options->key, "the option, such as ui.controlPanelElements or colors.controls")->required();
    setCommand->add_option("VALUE", options->value, "its value, or default")->required();
    setCommand->add_option("--site", options->site, "the site (by default the current one)");
    registry.add(setCommand, [options] { return set(*options); });

    auto* resetCommand = command->add_subcommand(
        "reset", "Reset every player option to the player's default. Asks first on a terminal; without one, only "
                 "--yes resets.");
    resetCommand->add_option("--site", options->site, "the site (by default the current one)");
    resetCommand->add_flag("--yes", options->yes, "reset without asking");
    registry.add(resetCommand, [options] { return reset(*options); });
}

}  // namespace vorlen::cli
