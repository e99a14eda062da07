#pragma once

#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>

#include "core/publish/Poster.hpp"
#include "core/publish/PosterFrameScorer.hpp"
#include "core/publish/PosterProposal.hpp"
#include "core/publish/Tools.hpp"

namespace vorlen {

// The poster of a build: the one chosen, or why there is none. A poster that
// could not be chosen never fails the build.
struct PosterOutcome {
    std::optional<Poster> poster;
    std::exception_ptr selectionError;

    // Chooses a frame of the poster rendition; only cancellation is thrown.
    static PosterOutcome select(const Tools& tools, const std::filesystem::path& rendition, double duration,
                                const std::shared_ptr<PosterFrameScorer>& scorer);

    // What the review is offered; image files may be as large as the top rendition.
    PosterProposal proposal(const std::filesystem::path& rendition, double duration, std::int64_t topHeight) const;
};

// Writes the poster under its content name and again as poster.jpg.
void writePosterFiles(const std::filesystem::path& folder, const Poster& poster);

}  // namespace vorlen
