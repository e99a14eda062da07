#pragma once

#include <functional>
#include <optional>

#include <QDialog>

#include "app/AppModel.hpp"

class QComboBox;
class QListWidget;
class QPushButton;
class QSpinBox;
class QTabWidget;

namespace vorlen::shell {

class SetupWindow;

// This computer's settings: how it uploads, and its sites.
class SettingsWindow : public QDialog {
public:
    SettingsWindow(app::AppModel& model, app::SiteID site, QWidget* parent = nullptr);

    // The site list changed: added, removed.
    std::function<void()> onSitesChanged;
    // A setup from this window has set up a site completely.
    std::function<void(const app::SiteID&)> onSiteSetUp;

    QTabWidget* tabs() const { return tabs_; }
    QListWidget* siteList() const { return sites_; }
    void addLocalSite();
    void addR2Site();
    void removeSite();
    void joinSite();
    void inviteCollaborator();
    SetupWindow* setUpSite();
    // Asks for the Account API Token (its sealed copy's passphrase, or the token) and checks the selected site.
    SetupWindow* checkSite();
    std::optional<app::SiteID> selectedSite() const;
    void enableSiteButtons();

private:
    void showSites();
    void showUploads();
    void report(const std::exception& error);

    app::AppModel& model_;
    app::SiteID site_;
    QTabWidget* tabs_;
    QComboBox* parallelUploads_;
    QComboBox* partSize_;
    QSpinBox* limit_;
    QListWidget* sites_;
    QPushButton* remove_;
    QPushButton* invite_;
    QPushButton* check_;
};

}  // namespace vorlen::shell
