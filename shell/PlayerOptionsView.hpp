#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QWidget>

#include "app/PageSettingsModel.hpp"

class QCheckBox;
class QLabel;
class QListWidget;
class QPushButton;

namespace vorlen::shell {

// The player's options of a site being edited: its controls, its colours,
// autoplay, muted and loop, with a preview of the player as edited.
class PlayerOptionsView : public QWidget {
public:
    explicit PlayerOptionsView(std::shared_ptr<app::PageSettingsModel> model, QWidget* parent = nullptr);

    void show(const app::PageSettingsModel& model);
    QListWidget* controls(app::PlayerControlList list) const;

    // Opens the preview's page; by default in the person's browser.
    std::function<void(const QString&)> openPage;

private:
    struct ColorRow {
        QPushButton* swatch;
        QLabel* value;
        QPushButton* reset;
    };

    QListWidget* addControlList(app::PlayerControlList list);
    void chooseColor(const app::PlayerColorChoice& choice);
    void confirmReset();

    std::shared_ptr<app::PageSettingsModel> model_;
    QListWidget* controlBar_;
    QListWidget* overflowMenu_;
    QCheckBox* autoplay_;
    QCheckBox* muted_;
    QCheckBox* loop_;
    std::vector<ColorRow> colors_;
    QPushButton* preview_;
    QPushButton* reset_;
    QPushButton* save_;
};

}  // namespace vorlen::shell
