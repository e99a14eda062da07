#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "app/MainQueue.hpp"
#include "app/Screen.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// What a person can do on a poster review, whoever shows it: the workspace's
// review screen, or a build at a terminal.
class PosterReviewActions {
public:
    virtual ~PosterReviewActions() = default;
    // The review on screen; nothing while none stands.
    virtual const PosterReviewScreen* posterReview() const = 0;
    virtual void holdCountdown() = 0;
    virtual void pickPosterFrame(double seconds) = 0;
    virtual void pickPosterImage(const std::filesystem::path& file) = 0;
    virtual void useCurrentPoster() = 0;
    virtual void publishWithoutPoster() = 0;
    // Answers the review with the poster on screen.
    virtual void confirmPoster() = 0;
};

// One poster review on the main thread: the poster on screen, the countdown, and
// a picked frame or image file, which loads on a task of its own and comes back
// through the main queue. Any action but confirming holds the countdown.
class PosterReviewModel final : public PosterReviewActions, public std::enable_shared_from_this<PosterReviewModel> {
public:
    // onChange hears of every change, on the main thread.
    static std::shared_ptr<PosterReviewModel> make(PosterReviewRequest request, MainQueue& mainQueue,
                                                   std::function<void()> onChange);
    ~PosterReviewModel() override;

    const PosterReviewScreen& review() const { return review_; }
    // Nothing once the review is answered, by the person or by its timer.
    const PosterReviewScreen* posterReview() const override;
    void holdCountdown() override;
    void pickPosterFrame(double seconds) override;
    void pickPosterImage(const std::filesystem::path& file) override;
    void useCurrentPoster() override;
    void publishWithoutPoster() override;
    void confirmPoster() override;

private:
    PosterReviewModel(PosterReviewRequest request, MainQueue& mainQueue, std::function<void()> onChange);
    void hold();
    void show(std::optional<Poster> poster);
    void load(std::function<Poster(PosterSource&)> read);

    PosterReviewScreen review_;
    MainQueue& mainQueue_;
    std::function<void()> onChange_;
    std::optional<Task<void>> loading_;
    std::uint64_t loadGeneration_ = 0;
};

}  // namespace vorlen::app
