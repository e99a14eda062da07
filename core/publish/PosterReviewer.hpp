#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/publish/PosterProposal.hpp"
#include "core/publish/PosterReviewReply.hpp"
#include "core/publish/PosterSource.hpp"
#include "core/publish/Tools.hpp"

namespace vorlen {

// What a front end needs to show a review and answer it.
struct PosterReviewRequest {
    std::optional<Poster> selection;
    std::optional<std::string> selectionFailure;  // why no frame was chosen
    std::shared_ptr<PosterSource> frames;
    std::optional<Poster> current;  // the poster of the video being replaced
    std::shared_ptr<PosterReviewReply> reply;
};

// Lets a person change the proposed poster before the upload; when nobody
// answers within the time limit, the fallback stands.
struct PosterReviewer {
    Tools tools;
    std::optional<Poster> current;
    std::chrono::nanoseconds timeLimit = std::chrono::seconds(20);
    std::function<void(const PosterReviewRequest&)> onRequest;
    PosterReviewReply::TimerStart startTimer = PosterReviewReply::sleepingTimer();

    // The fallback: the selection, else the current poster, else none.
    PosterDecision fallback(const PosterProposal& proposal) const;

    // Blocks until the review is decided; fails with Cancelled when the calling
    // task is cancelled.
    std::optional<Poster> review(const PosterProposal& proposal) const;
};

}  // namespace vorlen
