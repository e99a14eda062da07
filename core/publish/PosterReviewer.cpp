#include "core/publish/PosterReviewer.hpp"

#include "core/base/VorlenError.hpp"

namespace vorlen {

PosterDecision PosterReviewer::fallback(const PosterProposal& proposal) const {
    if (auto* selected = std::get_if<Poster>(&proposal.selection)) return PosterDecision::of(*selected);
    if (current) return PosterDecision::of(*current);
    return PosterDecision::noPoster();
}

std::optional<Poster> PosterReviewer::review(const PosterProposal& proposal) const {
    auto source = std::make_shared<PosterSource>(FrameReader(tools), proposal, current);
    auto reply = PosterReviewReply::start(fallback(proposal), timeLimit, startTimer);

    PosterReviewRequest request{source->selection(), std::nullopt, source, current, reply};
    if (auto* failure = std::get_if<std::exception_ptr>(&proposal.selection))
        request.selectionFailure = *failure ? describe(*failure) : "no frame was chosen";
    if (onRequest) onRequest(request);

    auto decision = reply->decision();
    if (!decision.poster) return std::nullopt;
    auto poster = source->poster(decision.poster->name);
    if (!poster) throw VorlenError::source("“" + decision.poster->name + "” does not come from this video.");
    return poster;
}

}  // namespace vorlen
