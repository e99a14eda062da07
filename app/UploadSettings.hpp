#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "core/base/Json.hpp"

namespace vorlen::app {

// The person's upload speed limit for a site.
struct UploadLimit {
    std::optional<int> megabitsPerSecond;  // nothing: unlimited

    static UploadLimit unlimited() { return {}; }
    static UploadLimit megabits(int value) { return {value}; }
    // What a person typed: a whole number of Mbit/s, or "unlimited". Anything
    // else ("10abc", "0", "1e3") fails with a sentence that says what to give.
    static UploadLimit parse(std::string_view text);
    static constexpr int largestMegabits = 100000;
    std::string text() const;             // "<n> Mbit/s" or "Unlimited"
    std::uint64_t bytesPerSecond() const;  // 0 means no limit
    Json toJson() const;
    static std::optional<UploadLimit> fromJson(const Json& json);
    bool operator==(const UploadLimit&) const = default;
};

enum class ParallelUploads { one = 1, two = 2, four = 4, eight = 8 };
enum class UploadPartSize { mib5 = 5, mib8 = 8, mib16 = 16, mib32 = 32 };

// How this computer uploads: requests at once and the size of a part.
struct UploadTuning {
    ParallelUploads parallelUploads = ParallelUploads::four;
    UploadPartSize partSize = UploadPartSize::mib16;

    int concurrency() const { return static_cast<int>(parallelUploads); }
    std::uint64_t partBytes() const { return std::uint64_t(static_cast<int>(partSize)) * 1024 * 1024; }
    Json toJson() const;
    static std::optional<UploadTuning> fromJson(const Json& json);
    bool operator==(const UploadTuning&) const = default;
};

// The settings screen's words for the two tuning values.
inline constexpr const char* uploadTuningExplanation =
    "Vorlen sends this many requests at the same time, and it sends a larger file in parts of this size. Try lower "
    "values if uploads fail with a lost connection. A change applies when the next upload starts.";

}  // namespace vorlen::app
