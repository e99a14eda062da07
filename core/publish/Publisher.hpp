#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "core/base/Dates.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/publish/BuiltFolder.hpp"
#include "core/publish/Inspection.hpp"
#include "core/publish/PosterFrameScorer.hpp"
#include "core/publish/PosterProposal.hpp"
#include "core/publish/PublishProgress.hpp"
#include "core/publish/Tools.hpp"
#include "core/publish/VideoDetails.hpp"
#include "core/publish/VideoEncoder.hpp"

namespace vorlen {

// Turns a source file into a finished video folder on the local disk.
struct Publisher {
    Tools tools;
    std::shared_ptr<const VideoEncoder> encoder;
    std::filesystem::path workRoot;
    std::uint64_t maxChunkBytes = 268'435'456;
    std::optional<double> expectedUploadRate;  // bytes a second
    std::shared_ptr<PosterFrameScorer> posterScorer;  // the heuristic scorer when absent

    static constexpr double segmentSeconds = 6;

    Inspection inspect(const std::filesystem::path& source) const;

    // Encodes, packages, chooses a poster and writes video.json. With a review the
    // poster is whatever the review returns. Any failure or cancellation removes
    // the work directory before it reaches the caller; a poster that cannot be
    // chosen is no failure.
    std::shared_ptr<BuiltFolder> build(const Inspection& inspection, const VideoDetails& details,
                                       AudioLoudness audioLoudness, std::optional<SystemTime> created,
                                       const ProgressHandler& onProgress, const PosterReview& review = {}) const;
};

// $TMPDIR/vorlen, or /tmp/vorlen.
std::filesystem::path defaultWorkRoot();

// <workRoot>/<name>-<milliseconds since 1970>-<8 random hex digits>
std::filesystem::path workDirectoryPath(const std::filesystem::path& workRoot, const std::string& name);

}  // namespace vorlen
