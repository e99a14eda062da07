#pragma once

#include <array>

#include "shell/ScreenView.hpp"

class QLabel;
class QProgressBar;
class QPushButton;

namespace vorlen::shell {

// A running publish: its stage, progress, time left, speeds, and Stop.
class PublishingView : public ScreenView {
public:
    explicit PublishingView(QWidget* parent = nullptr);
    void show(const app::PublishingState& state);
    QWidget* firstFocus() override;

private:
    QLabel* heading_;
    QLabel* folder_;
    std::array<QLabel*, 4> steps_{};
    QLabel* stage_;
    QProgressBar* progress_;
    QLabel* timeLeft_;
    QLabel* encodeSpeed_;
    QLabel* uploadRate_;
    QLabel* uploaded_;
    QLabel* stopping_;
    QPushButton* stop_;
};

}  // namespace vorlen::shell
