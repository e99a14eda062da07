#include "app/UploadSettings.hpp"

#include <charconv>

#include <fmt/format.h>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::app {

std::string UploadLimit::text() const {
    return megabitsPerSecond ? fmt::format("{} Mbit/s", *megabitsPerSecond) : "Unlimited";
}

std::uint64_t UploadLimit::bytesPerSecond() const {
    if (!megabitsPerSecond || *megabitsPerSecond <= 0) return 0;
    return static_cast<std::uint64_t>(double(*megabitsPerSecond) * 1000000.0 * 0.125);
}

UploadLimit UploadLimit::parse(std::string_view text) {
    std::string given = trimmedAsciiWhitespace(text);
    if (asciiLowercased(given) == "unlimited") return unlimited();
    int value = 0;
    auto [end, error] = std::from_chars(given.data(), given.data() + given.size(), value);
    if (given.empty() || error != std::errc() || end != given.data() + given.size() || value < 1 || value > largestMegabits)
        throw VorlenError::config(fmt::format(
            "\u201c{}\u201d is not an upload limit: give a whole number of Mbit/s from 1 to {}, or \u201cunlimited\u201d.",
            text, largestMegabits));
    return megabits(value);
}

Json UploadLimit::toJson() const {
    if (megabitsPerSecond) return {{"megabitsPerSecond", *megabitsPerSecond}};
    return {{"unlimited", Json::object()}};
}

std::optional<UploadLimit> UploadLimit::fromJson(const Json& json) {
    if (!json.is_object()) return std::nullopt;
    if (json.contains("unlimited")) return unlimited();
    auto value = optionalField<int>(json, "megabitsPerSecond");
    if (!value || *value < 1) return std::nullopt;
    return megabits(*value);
}

Json UploadTuning::toJson() const {
    return {{"parallelUploads", static_cast<int>(parallelUploads)}, {"partSize", static_cast<int>(partSize)}};
}

std::optional<UploadTuning> UploadTuning::fromJson(const Json& json) {
    auto parallel = optionalField<int>(json, "parallelUploads");
    auto part = optionalField<int>(json, "partSize");
    if (!parallel || !part) return std::nullopt;
    UploadTuning tuning;
    switch (*parallel) {
        case 1: case 2: case 4: case 8: tuning.parallelUploads = static_cast<ParallelUploads>(*parallel); break;
        default: return std::nullopt;
    }
    switch (*part) {
        case 5: case 8: case 16: case 32: tuning.partSize = static_cast<UploadPartSize>(*part); break;
        default: return std::nullopt;
    }
    return tuning;
}

}  // namespace vorlen::app
