#include "app/PosterReviewModel.hpp"

namespace vorlen::app {

std::shared_ptr<PosterReviewModel> PosterReviewModel::make(PosterReviewRequest request, MainQueue& mainQueue,
                                                           std::function<void()> onChange) {
    return std::shared_ptr<PosterReviewModel>(new PosterReviewModel(std::move(request), mainQueue, std::move(onChange)));
}

PosterReviewModel::PosterReviewModel(PosterReviewRequest request, MainQueue& mainQueue, std::function<void()> onChange)
    : mainQueue_(mainQueue), onChange_(std::move(onChange)) {
    review_.poster = request.selection ? request.selection : request.current;
    review_.request = std::move(request);
}

// Dropping the task cancels a load still running and waits for it.
PosterReviewModel::~PosterReviewModel() { loading_.reset(); }

const PosterReviewScreen* PosterReviewModel::posterReview() const {
    return review_.request.reply && review_.request.reply->isOpen() ? &review_ : nullptr;
}

void PosterReviewModel::hold() {
    review_.request.reply->hold();
    review_.isCountingDown = false;
}

void PosterReviewModel::show(std::optional<Poster> poster) {
    hold();
    // A choice made now outdates a pick still loading and the words of one that failed.
    ++loadGeneration_;
    loading_.reset();
    review_.poster = std::move(poster);
    review_.imageStatus = PosterReviewScreen::Idle{};
    onChange_();
}

void PosterReviewModel::holdCountdown() {
    hold();
    onChange_();
}

void PosterReviewModel::load(std::function<Poster(PosterSource&)> read) {
    if (!review_.request.frames) return;
    hold();
    review_.imageStatus = PosterReviewScreen::Loading{};
    onChange_();
    std::uint64_t generation = ++loadGeneration_;
    auto frames = review_.request.frames;
    std::weak_ptr<PosterReviewModel> weak = weak_from_this();
    loading_.reset();
    loading_.emplace(Task<void>::spawn([this, weak, generation, frames, read] {
        std::optional<Poster> poster;
        std::string failure;
        try {
            poster = read(*frames);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        mainQueue_.post([weak, generation, poster, failure] {
            auto self = weak.lock();
            // Only the last pick counts.
            if (!self || generation != self->loadGeneration_) return;
            if (poster) {
                self->review_.poster = poster;
                self->review_.imageStatus = PosterReviewScreen::Idle{};
            } else {
                self->review_.imageStatus = PosterReviewScreen::Failed{failure};
            }
            self->onChange_();
        });
    }));
}

void PosterReviewModel::pickPosterFrame(double seconds) {
    load([seconds](PosterSource& source) { return source.frame(seconds); });
}

void PosterReviewModel::pickPosterImage(const std::filesystem::path& file) {
    load([file](PosterSource& source) { return source.image(file); });
}

void PosterReviewModel::useCurrentPoster() { show(review_.request.current); }

void PosterReviewModel::publishWithoutPoster() { show(std::nullopt); }

void PosterReviewModel::confirmPoster() {
    loading_.reset();
    review_.request.reply->answer(review_.poster ? PosterDecision::of(*review_.poster) : PosterDecision::noPoster(), false);
}

}  // namespace vorlen::app
