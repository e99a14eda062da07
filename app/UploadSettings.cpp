#include "app/UploadSettings.hpp"

#include <fmt/format.h>

namespace vorlen::app {

std::string UploadLimit::text() const {
    return megabitsPerSecond ? fmt::format("{} Mbit/s", *megabitsPerSecond) : "Unlimited";
}

std::uint64_t UploadLimit::bytesPerSecond() const {
    if (!megabitsPerSecond || *megabitsPerSecond <= 0) return 0;
    return static_cast<std::uint64_t>(double(*megabitsPerSecond) * 1000000.0 * 0.125);
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
