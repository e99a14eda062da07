#pragma once

#include <array>
#include <memory>

#include "app/FrameChooser.hpp"
#include "shell/ScreenView.hpp"

class QLabel;
class QPushButton;
class QSlider;
class QTimer;
class QToolButton;

namespace vorlen::shell {

// The poster review: the proposed frame large, the countdown, other frames as
// thumbnails and a slider, an image file, or no poster at all.
class PosterReviewView : public ScreenView {
public:
    PosterReviewView(app::MainQueue& mainQueue, QWidget* parent = nullptr);
    void show(const app::PosterReviewState& state);
    QWidget* firstFocus() override;

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void showCountdown();
    void showThumbnails();
    void chooseImage();

    app::MainQueue& mainQueue_;
    std::shared_ptr<app::FrameChooser> chooser_;
    std::shared_ptr<PosterReviewReply> reply_;
    std::optional<double> posterTime_;
    bool hasPoster_ = false;

    QLabel* countdown_;
    QPushButton* stopCountdown_;
    QLabel* selectionFailure_;
    QLabel* poster_;
    QLabel* imageStatus_;
    QSlider* position_;
    QLabel* positionText_;
    std::array<QToolButton*, 12> thumbnails_{};
    QLabel* framesProblem_;
    QPushButton* useCurrent_;
    QPushButton* withoutPoster_;
    QPushButton* chooseImage_;
    QPushButton* stop_;
    QPushButton* confirm_;
    QTimer* tick_;
    QTimer* pickDelay_;
};

}  // namespace vorlen::shell
