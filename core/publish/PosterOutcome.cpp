#include "core/publish/PosterOutcome.hpp"

#include "core/base/Files.hpp"
#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/publish/FrameReader.hpp"

namespace vorlen {

PosterOutcome PosterOutcome::select(const Tools& tools, const std::filesystem::path& rendition, double duration,
                                    const std::shared_ptr<PosterFrameScorer>& scorer) {
    try {
        return {FrameReader(tools).chooseFrame(rendition, duration, scorer), nullptr};
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        log().warn("no poster was chosen: {}", error.what());
        return {std::nullopt, std::current_exception()};
    }
}

PosterProposal PosterOutcome::proposal(const std::filesystem::path& rendition, double duration,
                                       std::int64_t topHeight) const {
    PosterProposal proposal;
    if (poster)
        proposal.selection = *poster;
    else
        proposal.selection = selectionError;
    proposal.video = rendition;
    proposal.duration = duration;
    proposal.maximumSize = PosterProposal::maximumSizeFor(topHeight);
    return proposal;
}

void writePosterFiles(const std::filesystem::path& folder, const Poster& poster) {
    writeFileAtomically(folder / poster.name, poster.jpeg);
    writeFileAtomically(folder / "poster.jpg", poster.jpeg);
}

}  // namespace vorlen
