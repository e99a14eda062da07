#include "core/storage/UploadOptions.hpp"

#include <fmt/format.h>

namespace vorlen {

std::uint64_t UploadLimit::bytesPerSecond() const {
    auto* megabits = std::get_if<MegabitsPerSecond>(&value);
    if (!megabits || megabits->value <= 0) return 0;
    return static_cast<std::uint64_t>(static_cast<double>(megabits->value) * 1000000.0 * 0.125);
}

std::string UploadLimit::displayText() const {
    auto* megabits = std::get_if<MegabitsPerSecond>(&value);
    return megabits ? fmt::format("{} Mbit/s", megabits->value) : "Unlimited";
}

UploadOptions uploadOptions(const UploadTuning& tuning) {
    UploadOptions options;
    options.concurrency = static_cast<std::int64_t>(tuning.parallelUploads);
    options.partSize = static_cast<std::uint64_t>(tuning.partSize) * 1024 * 1024;
    return options;
}

}  // namespace vorlen
