#include "core/site/Viewer.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "core/base/Crypto.hpp"
#include "core/base/Json.hpp"
#include "core/base/Random.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

bool isLowercaseHex(std::string_view text, std::size_t length) {
    return text.size() == length &&
           std::all_of(text.begin(), text.end(), [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

SystemTime dateAt(const Json& object, const char* key) {
    const auto& value = object.at(key);
    const auto text = value.is_string() ? value.get<std::string>() : value.dump();
    const auto parsed = parseIso8601(text);
    if (!value.is_string() || !parsed) throw VorlenError::metadata(fmt::format("\u201c{}\u201d is not an ISO 8601 date", text));
    return *parsed;
}

std::string stringAt(const Json& object, const char* key) {
    const auto& value = object.at(key);
    if (!value.is_string()) throw VorlenError::metadata(fmt::format("{} is not a string", key));
    return value.get<std::string>();
}

std::int64_t versionOf(const Json& json) {
    const auto found = json.find("version");
    if (found == json.end() || !found->is_number_integer())
        throw VorlenError::metadata("The viewer file has no version.");
    return found->get<std::int64_t>();
}

}  // namespace

ViewerID ViewerID::make() {
    std::string bytes(16, '\0');
    secureRandomBytes(bytes.data(), bytes.size());
    return ViewerID{hex(bytes)};
}

ViewerID ViewerID::parse(std::string_view text) {
    if (!isLowercaseHex(text, 32)) throw VorlenError::config(fmt::format("\u201c{}\u201d is not a viewer ID.", text));
    return ViewerID{std::string(text)};
}

std::string Viewer::encoded() const {
    Json json{{"version", version}, {"name", name}, {"created", formatIso8601(created)}};
    if (const auto* invite = std::get_if<ViewerInvite>(&access)) {
        json["invite"] = Json{{"hash", invite->hash}, {"expires", formatIso8601(invite->expires)}};
    } else {
        const auto& passkey = std::get<ViewerPasskey>(access);
        json["passkey"] = Json{{"id", passkey.credentialID},
                               {"publicKey", passkey.publicKey},
                               {"transports", passkey.transports},
                               {"created", formatIso8601(passkey.created)}};
    }
    return encodeJson(json, true);  // nlohmann's objects keep their keys sorted
}

bool Viewer::isNewer(std::string_view bytes) {
    try {
        const auto json = decodeJson(bytes);
        return json.is_object() && versionOf(json) > version;
    } catch (const std::exception&) {
        return false;
    }
}

Viewer Viewer::decoded(std::string_view bytes) {
    Json json;
    try {
        json = decodeJson(bytes);
    } catch (const std::exception& error) {
        throw VorlenError::metadata(std::string("The viewer file is not JSON: ") + error.what());
    }
    if (!json.is_object()) throw VorlenError::metadata("The viewer file is not a JSON object.");
    const auto fileVersion = versionOf(json);
    if (fileVersion > version)
        throw VorlenError::metadata(fmt::format("The viewer file has version {}, from a newer version of Vorlen. This app "
                                                "reads version {}. Update the app.",
                                                fileVersion, version));
    if (fileVersion < 1) throw VorlenError::metadata(fmt::format("The viewer file has version {}, which is not valid.", fileVersion));
    try {
        Viewer viewer;
        viewer.name = stringAt(json, "name");
        if (trimmed(viewer.name).empty()) throw VorlenError::metadata("the name is blank");
        viewer.created = dateAt(json, "created");
        const bool hasInvite = json.contains("invite");
        if (hasInvite == json.contains("passkey"))
            throw VorlenError::metadata("the file must have an invite or a passkey, not both");
        if (hasInvite) {
            const auto& invite = json.at("invite");
            ViewerInvite made{stringAt(invite, "hash"), dateAt(invite, "expires")};
            if (!isLowercaseHex(made.hash, 64)) throw VorlenError::metadata("the hash is not a lowercase hex SHA-256");
            viewer.access = made;
        } else {
            const auto& passkey = json.at("passkey");
            ViewerPasskey made{stringAt(passkey, "id"), stringAt(passkey, "publicKey"), {}, dateAt(passkey, "created")};
            for (const auto& transport : passkey.at("transports")) made.transports.push_back(transport.get<std::string>());
            viewer.access = made;
        }
        return viewer;
    } catch (const nlohmann::json::exception& error) {
        throw VorlenError::metadata(std::string("The viewer file lacks a field or has one of the wrong type: ") + error.what());
    }
}

}  // namespace vorlen
