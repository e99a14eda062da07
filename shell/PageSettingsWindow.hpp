#pragma once

#include <memory>

#include <QWidget>

#include "app/PageSettingsModel.hpp"
#include "app/ViewersModel.hpp"

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTabWidget;

namespace vorlen::shell {

class PlayerOptionsView;
class ViewersView;

// The pages of one site in a window of their own: the player's options, the
// fonts, a linked stylesheet, and the viewers of a private site.
class PageSettingsWindow : public QWidget {
public:
    PageSettingsWindow(std::shared_ptr<app::PageSettingsModel> pages, std::shared_ptr<app::ViewersModel> viewers,
                       QWidget* parent);

    QTabWidget* tabs() const { return tabs_; }
    PlayerOptionsView* player() const { return player_; }
    ViewersView* viewers() const { return viewersView_; }
    void addFontFiles();
    void addGoogleFamily();

protected:
    // A preview serves only while its window is open.
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* fontsTab();
    QWidget* stylesheetTab();
    void pagesChanged();
    void viewersChanged();
    // The working indicator and the words of the model on show.
    void showStatus();

    std::shared_ptr<app::PageSettingsModel> pages_;
    std::shared_ptr<app::ViewersModel> viewers_;
    QTabWidget* tabs_;
    PlayerOptionsView* player_;
    ViewersView* viewersView_;

    QLabel* hostedFont_;
    QLabel* fontUses_;
    QPushButton* addFonts_;
    QPushButton* addGoogleFont_;
    QPushButton* removeFonts_;

    QLineEdit* stylesheet_;
    QPushButton* readStylesheet_;
    QLabel* stylesheetRead_;
    QPushButton* link_;
    QLabel* linked_;
    QPushButton* removeStylesheets_;

    QProgressBar* working_;
    QLabel* problem_;
    QLabel* notice_;
};

}  // namespace vorlen::shell
