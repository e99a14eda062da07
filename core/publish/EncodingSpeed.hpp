#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/base/Json.hpp"

namespace vorlen {

// How much CPU time this computer spends for quality; a setting of the computer.
enum class EncodingSpeed { fast, balanced, quality };

// "fast", "balanced", "quality"
std::string rawValue(EncodingSpeed speed);
std::optional<EncodingSpeed> encodingSpeedFromRawValue(std::string_view text);

// "encodingSpeed" of a settings object; anything missing or unknown is balanced.
EncodingSpeed encodingSpeedFromSettings(const Json& settings);

}  // namespace vorlen
