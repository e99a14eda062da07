#pragma once

#include <optional>

#include "core/base/Json.hpp"

namespace vorlen {

// A record's key that may be absent or null; present, it must have the right type.
template <class T>
void readOptional(const Json& json, const char* key, std::optional<T>& field) {
    auto found = json.find(key);
    if (found == json.end() || found->is_null()) {
        field.reset();
        return;
    }
    field = found->get<T>();
}

// Writes the key only when the field has a value.
template <class T>
void writeOptional(Json& json, const char* key, const std::optional<T>& field) {
    if (field) json[key] = *field;
}

}  // namespace vorlen
