#pragma once

#include <map>
#include <memory>
#include <vector>

#include <QMainWindow>
#include <QPointer>

#include "app/AppModel.hpp"

class QComboBox;
class QLabel;
class QPushButton;
class QStackedWidget;

namespace vorlen::shell {

class BulkWindow;
class ConfirmView;
class FailedView;
class InspectingView;
class LibraryWindow;
class PageSettingsWindow;
class PosterReviewView;
class PublishedView;
class PublishingView;
class ScreenView;
class SettingsWindow;
class SetupWindow;
class StartView;
class VimeoWindow;

// The window of one site at a time: the screens of its workspace, a site
// picker when there are several, the settings, and a library window for each site.
class MainWindow : public QMainWindow {
public:
    MainWindow(app::AppModel& model, app::MainQueue& mainQueue);

    // The program's start: the current site, then the library windows open at the last quit.
    void start();
    void showSite(const app::SiteID& id);
    const std::shared_ptr<app::SiteWorkspace>& workspace() const { return workspace_; }
    SettingsWindow* openSettings();
    // The site's library window, made or brought to the front.
    LibraryWindow* openLibrary(const app::SiteID& id);
    // The site's bulk upload window with a spreadsheet opened in it, made or brought to the front.
    BulkWindow* openBulkUpload(const app::SiteID& id, const std::filesystem::path& sheet);
    // The site's Vimeo import window, made or brought to the front.
    VimeoWindow* openVimeoImport(const app::SiteID& id);
    // The site's page settings and viewers window, made or brought to the front; absent,
    // after telling why, when the site's bucket cannot be reached from here.
    PageSettingsWindow* openPageSettings(const app::SiteID& id);
    // The setup of a site in a Cloudflare account, which the window shows once it is complete.
    SetupWindow* openSetup();
    // The screen on show.
    ScreenView* currentView() const;
    // Files given to the program, as "Open With" does, go where dropped files go.
    void openFiles(const std::vector<std::filesystem::path>& files) { dropFiles(files); }

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void refresh();
    void showSites();
    void dropFiles(const std::vector<std::filesystem::path>& files);
    void workspaceChanged();
    // Another computer's batch run on the shown site, as a banner under the header.
    void showBatchRun();
    void siteSetUp(const app::SiteID& id);
    void chooseSheet();

    app::AppModel& model_;
    app::MainQueue& mainQueue_;
    std::shared_ptr<app::SiteWorkspace> workspace_;
    // Workspaces this window observes; a weak hold, so that a removed site's workspace can go.
    std::vector<std::weak_ptr<app::SiteWorkspace>> observed_;
    bool isWaitingToQuit_ = false;
    std::map<app::SiteID, QPointer<LibraryWindow>> libraries_;
    std::map<app::SiteID, QPointer<BulkWindow>> bulkUploads_;
    std::map<app::SiteID, QPointer<VimeoWindow>> vimeoImports_;
    std::map<app::SiteID, QPointer<PageSettingsWindow>> pageSettings_;
    ScreenView* shownView_ = nullptr;

    QComboBox* sitePicker_;
    QLabel* siteName_;
    QLabel* notice_;
    QLabel* batchRunNotice_;
    QPushButton* library_;
    QPushButton* bulkUpload_;
    QPushButton* vimeoImport_;
    QPushButton* pages_;
    QPushButton* settings_;
    QStackedWidget* stack_;
    StartView* start_;
    InspectingView* inspecting_;
    ConfirmView* confirm_;
    PublishingView* publishing_;
    PosterReviewView* review_;
    PublishedView* published_;
    FailedView* failed_;
};

}  // namespace vorlen::shell
