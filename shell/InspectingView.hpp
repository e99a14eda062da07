#pragma once

#include "shell/ScreenView.hpp"

class QLabel;
class QPushButton;

namespace vorlen::shell {

// While ffprobe reads the dropped file.
class InspectingView : public ScreenView {
public:
    explicit InspectingView(QWidget* parent = nullptr);
    void show(const app::Screen::Inspecting& state);
    QWidget* firstFocus() override;

private:
    QLabel* file_;
    QPushButton* stop_;
};

}  // namespace vorlen::shell
