#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace vorlen {

// Where a publish stands, for a progress bar and a time left.
struct PublishProgress {
    enum class Stage { encoding, packaging, reviewingPoster, uploading };

    Stage stage = Stage::encoding;
    double stageFraction = 0;
    std::optional<double> stageETA;  // seconds
    std::optional<double> totalETA;  // seconds
    std::optional<double> encodeSpeed;  // media seconds per wall-clock second
    std::uint64_t uploadedBytes = 0;
    std::uint64_t uploadTotalBytes = 0;
    std::optional<double> uploadRate;  // bytes a second

    bool operator==(const PublishProgress&) const = default;
};

// "encoding", "packaging", "reviewing poster", "uploading"
std::string displayName(PublishProgress::Stage stage);

using ProgressHandler = std::function<void(const PublishProgress&)>;

}  // namespace vorlen
