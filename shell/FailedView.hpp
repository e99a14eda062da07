#pragma once

#include "shell/ScreenView.hpp"

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace vorlen::shell {

// A failure in its own words, Retry when the job can run again, and the upload log.
class FailedView : public ScreenView {
public:
    explicit FailedView(QWidget* parent = nullptr);
    void show(const app::Failure& failure);
    QWidget* firstFocus() override;

private:
    QLabel* title_;
    QLabel* message_;
    QLabel* logTitle_;
    QPlainTextEdit* log_;
    QPushButton* copyLog_;
    QPushButton* done_;
    QPushButton* retry_;
};

}  // namespace vorlen::shell
