#pragma once

#include "shell/ScreenView.hpp"

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace vorlen::shell {

// The facts of the inspected video and the fields of its publish.
class ConfirmView : public ScreenView {
public:
    explicit ConfirmView(QWidget* parent = nullptr);
    void show(const app::ConfirmState& state);
    QWidget* firstFocus() override;


private:
    void publish();
    void chooseSubtitles();

    QLabel* fileName_;
    QLabel* facts_;
    QLabel* renditions_;
    QLabel* audio_;
    QLabel* estimate_;
    QLineEdit* name_;
    QLabel* nameStatus_;
    QLineEdit* title_;
    QLineEdit* reference_;
    QPlainTextEdit* description_;
    QComboBox* visibility_;
    QComboBox* loudness_;
    QListWidget* subtitles_;
    QLabel* subtitleProblem_;
    QPushButton* addSubtitles_;
    QPushButton* cancel_;
    QPushButton* publish_;
};

}  // namespace vorlen::shell
