#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vorlen {

using Json = nlohmann::json;
// For the few files whose keys keep the order they were written in.
using OrderedJson = nlohmann::ordered_json;

// Every JSON the system writes: keys sorted, "/" never escaped, invalid UTF-8 repaired.
std::string encodeJson(const Json& value, bool pretty = false);
// The same, with the keys in the order they were added.
std::string encodeOrderedJson(const OrderedJson& value, bool pretty = false);

// Parses text; throws nlohmann's parse error with its own description.
Json decodeJson(std::string_view text);

// Lenient readers: a field that is missing or does not decode gives the fallback,
// so one bad field never costs the others.
template <class T>
T fieldOr(const Json& object, const char* key, T fallback) {
    if (!object.is_object()) return fallback;
    auto found = object.find(key);
    if (found == object.end() || found->is_null()) return fallback;
    try {
        return found->get<T>();
    } catch (const nlohmann::json::exception&) {
        return fallback;
    }
}

template <class T>
std::optional<T> optionalField(const Json& object, const char* key) {
    if (!object.is_object()) return std::nullopt;
    auto found = object.find(key);
    if (found == object.end() || found->is_null()) return std::nullopt;
    try {
        return found->get<T>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

// A record's version check: "{key} has version {n}, from a newer version of Vorlen. ..."
std::string newerVersionMessage(const std::string& key, long long found, long long supported);

}  // namespace vorlen
