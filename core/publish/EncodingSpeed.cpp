#include "core/publish/EncodingSpeed.hpp"

namespace vorlen {

std::string rawValue(EncodingSpeed speed) {
    switch (speed) {
        case EncodingSpeed::fast: return "fast";
        case EncodingSpeed::quality: return "quality";
        case EncodingSpeed::balanced: break;
    }
    return "balanced";
}

std::optional<EncodingSpeed> encodingSpeedFromRawValue(std::string_view text) {
    for (auto speed : {EncodingSpeed::fast, EncodingSpeed::balanced, EncodingSpeed::quality})
        if (rawValue(speed) == text) return speed;
    return std::nullopt;
}

EncodingSpeed encodingSpeedFromSettings(const Json& settings) {
    auto text = optionalField<std::string>(settings, "encodingSpeed");
    return text ? encodingSpeedFromRawValue(*text).value_or(EncodingSpeed::balanced) : EncodingSpeed::balanced;
}

}  // namespace vorlen
