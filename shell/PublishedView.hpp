#pragma once

#include "shell/ScreenView.hpp"

class QLabel;
class QLineEdit;
class QPushButton;

namespace vorlen::shell {

// A published video: its addresses, each with a copy button, and the page in the browser.
class PublishedView : public ScreenView {
public:
    explicit PublishedView(QWidget* parent = nullptr);
    void show(const app::PublishedState& state);
    QWidget* firstFocus() override;

private:
    struct Link {
        QLineEdit* address;
        QPushButton* copy;
    };
    QLabel* summary_;
    QLabel* localHint_;
    Link page_, embed_, media_, hls_, dash_;
    QPushButton* open_;
    QPushButton* another_;
};

}  // namespace vorlen::shell
