#pragma once

#include "shell/ScreenView.hpp"

class QLabel;

namespace vorlen::shell {

class DropZone;

// The start screen: a large drop zone that also opens the file chooser.
class StartView : public ScreenView {
public:
    explicit StartView(QWidget* parent = nullptr);
    void show(const app::LocalSite& site);
    QWidget* firstFocus() override;

    // Opens the chooser for a video and its subtitle files.
    void chooseFiles();

private:
    DropZone* dropZone_;
    QLabel* destination_;
};

}  // namespace vorlen::shell
