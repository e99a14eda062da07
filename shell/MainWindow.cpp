#include "shell/MainWindow.hpp"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

#include "app/SetupWords.hpp"
#include "shell/Appearance.hpp"
#include "shell/BulkWindow.hpp"
#include "shell/ConfirmView.hpp"
#include "shell/DropZone.hpp"
#include "shell/FailedView.hpp"
#include "shell/InspectingView.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/LibraryWindow.hpp"
#include "shell/PageSettingsWindow.hpp"
#include "shell/PosterReviewView.hpp"
#include "shell/PublishedView.hpp"
#include "shell/PublishingView.hpp"
#include "shell/SecretPrompt.hpp"
#include "shell/SettingsWindow.hpp"
#include "shell/SetupWindow.hpp"
#include "shell/StartView.hpp"
#include "shell/VimeoWindow.hpp"

namespace vorlen::shell {

MainWindow::MainWindow(app::AppModel& model, app::MainQueue& mainQueue) : model_(model), mainQueue_(mainQueue) {
    setWindowTitle("Vorlen");
    setAcceptDrops(true);
    resize(960, 720);
    setMinimumSize(880, 640);

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto* header = new QWidget(central);
    header->setAttribute(Qt::WA_StyledBackground);
    setRole(header, "header");
    auto* headerLayout = new QHBoxLayout(header);
    headerLayout->setContentsMargins(24, 10, 16, 10);
    headerLayout->setSpacing(10);
    auto* brand = new QLabel("Vorlen", header);
    setRole(brand, "brand");
    headerLayout->addWidget(brand);
    siteName_ = new QLabel(header);
    setRole(siteName_, "secondary");
    headerLayout->addWidget(siteName_);
    sitePicker_ = new QComboBox(header);
    sitePicker_->setAccessibleName("Site");
    sitePicker_->setMinimumWidth(160);
    headerLayout->addWidget(sitePicker_);
    notice_ = new QLabel(header);
    setRole(notice_, "error");
    headerLayout->addWidget(notice_, 1, Qt::AlignRight);
    library_ = new QPushButton("Library", header);
    library_->setAccessibleName("Library");
    library_->setAutoDefault(true);
    headerLayout->addWidget(library_);
    bulkUpload_ = new QPushButton("Bulk Upload\u2026", header);
    bulkUpload_->setAccessibleName("Bulk Upload");
    bulkUpload_->setAutoDefault(true);
    headerLayout->addWidget(bulkUpload_);
    vimeoImport_ = new QPushButton("Import from Vimeo\u2026", header);
    vimeoImport_->setAccessibleName("Import from Vimeo");
    vimeoImport_->setAutoDefault(true);
    headerLayout->addWidget(vimeoImport_);
    pages_ = new QPushButton("Page Settings", header);
    pages_->setAccessibleName("Page Settings");
    pages_->setAutoDefault(true);
    headerLayout->addWidget(pages_);
    settings_ = new QPushButton("Settings", header);
    settings_->setAccessibleName("Settings");
    settings_->setAutoDefault(true);
    headerLayout->addWidget(settings_);
    layout->addWidget(header);
    batchRunNotice_ = new QLabel(central);
    batchRunNotice_->setObjectName("batchRunNotice");
    batchRunNotice_->setWordWrap(true);
    batchRunNotice_->hide();
    setRole(batchRunNotice_, "banner");
    layout->addWidget(batchRunNotice_);

    auto* body = new QWidget(central);
    auto* bodyLayout = new QVBoxLayout(body);
    bodyLayout->setContentsMargins(32, 24, 32, 24);
    stack_ = new QStackedWidget(body);
    bodyLayout->addWidget(stack_);
    start_ = new StartView;
    inspecting_ = new InspectingView;
    confirm_ = new ConfirmView;
    publishing_ = new PublishingView;
    review_ = new PosterReviewView(mainQueue);
    published_ = new PublishedView;
    failed_ = new FailedView;
    for (ScreenView* view : std::initializer_list<ScreenView*>{start_, inspecting_, confirm_, publishing_, review_, published_, failed_})
        stack_->addWidget(view);
    layout->addWidget(body, 1);
    setCentralWidget(central);

    auto drop = [this](const std::vector<std::filesystem::path>& files) { dropFiles(files); };
    start_->onFiles = drop;
    confirm_->onFiles = drop;

    QObject::connect(library_, &QPushButton::clicked, this, [this] { openLibrary(workspace_->id()); });
    QObject::connect(bulkUpload_, &QPushButton::clicked, this, &MainWindow::chooseSheet);
    QObject::connect(vimeoImport_, &QPushButton::clicked, this, [this] { openVimeoImport(workspace_->id()); });
    QObject::connect(pages_, &QPushButton::clicked, this, [this] { openPageSettings(workspace_->id()); });
    QObject::connect(settings_, &QPushButton::clicked, this, [this] { openSettings(); });
    QObject::connect(sitePicker_, &QComboBox::activated, this, [this](int index) {
        app::SiteID id{sitePicker_->itemData(index).toString().toStdString()};
        model_.changeSettings([&](app::LocalSettings& settings) { settings.defaultSite = id; });
        showSite(id);
    });
    auto* settingsKey = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma), this);
    QObject::connect(settingsKey, &QShortcut::activated, this, [this] { openSettings(); });
    auto* quitKey = new QShortcut(QKeySequence::Quit, this);
    QObject::connect(quitKey, &QShortcut::activated, this, &QWidget::close);
    auto* openKey = new QShortcut(QKeySequence::Open, this);
    QObject::connect(openKey, &QShortcut::activated, this, [this] {
        if (currentView() == start_) start_->chooseFiles();
    });
}

void MainWindow::start() {
    showSite(model_.ensureSite());
    show();
    // A copy: opening a window moves its site to the end of the list.
    const auto open = model_.openLibraries();
    for (const auto& id : open)
        if (model_.settings().site(id)) openLibrary(id);
}

void MainWindow::showSite(const app::SiteID& id) {
    workspace_ = model_.workspace(id);
    std::erase_if(observed_, [](const auto& observed) { return observed.expired(); });
    bool isObserved = std::any_of(observed_.begin(), observed_.end(), [&](const auto& observed) { return observed.lock() == workspace_; });
    if (!isObserved) {
        observed_.push_back(workspace_);
        QPointer<MainWindow> window(this);
        workspace_->onChange([window] {
            if (window) window->workspaceChanged();
        });
        workspace_->batchRunWatch().onChange([window] {
            if (window) window->showBatchRun();
        });
    }
    for (ScreenView* view : std::initializer_list<ScreenView*>{start_, inspecting_, confirm_, publishing_, review_, published_, failed_})
        view->bind(workspace_);
    showSites();
    bulkUpload_->setVisible(workspace_->services().bulk != nullptr);
    vimeoImport_->setVisible(workspace_->services().vimeo != nullptr);
    pages_->setVisible(workspace_->services().pageSettings && workspace_->services().viewers);
    refresh();
    showBatchRun();
}

void MainWindow::showSites() {
    const auto& sites = model_.settings().sites;
    sitePicker_->clear();
    for (const auto& site : sites) sitePicker_->addItem(QString::fromStdString(site.id.value), QString::fromStdString(site.id.value));
    if (workspace_) sitePicker_->setCurrentIndex(sitePicker_->findData(QString::fromStdString(workspace_->id().value)));
    bool several = sites.size() > 1;
    sitePicker_->setVisible(several);
    siteName_->setVisible(!several && workspace_);
    if (workspace_) siteName_->setText(QString::fromStdString(workspace_->id().value));
}

ScreenView* MainWindow::currentView() const { return static_cast<ScreenView*>(stack_->currentWidget()); }

void MainWindow::workspaceChanged() {
    refresh();
    if (isWaitingToQuit_ && !model_.isJobRunning()) QTimer::singleShot(0, this, &QWidget::close);
}

void MainWindow::refresh() {
    if (!workspace_) return;
    const auto& screen = workspace_->screen();
    ScreenView* view = nullptr;
    if (auto* state = screen.as<app::Screen::Inspecting>()) {
        inspecting_->show(*state);
        view = inspecting_;
    } else if (auto* state = screen.as<app::ConfirmState>()) {
        confirm_->show(*state);
        view = confirm_;
    } else if (auto* state = screen.as<app::PublishingState>()) {
        publishing_->show(*state);
        view = publishing_;
    } else if (auto* state = screen.as<app::PosterReviewState>()) {
        review_->show(*state);
        view = review_;
    } else if (auto* state = screen.as<app::PublishedState>()) {
        published_->show(*state);
        view = published_;
    } else if (auto* state = screen.as<app::Failure>()) {
        failed_->show(*state);
        view = failed_;
    } else {
        start_->show(workspace_->local());
        view = start_;
    }
    stack_->setCurrentWidget(view);
    sitePicker_->setEnabled(!screen.isActive());
    if (view != shownView_) {
        shownView_ = view;
        notice_->clear();
        if (QWidget* focus = view->firstFocus()) focus->setFocus(Qt::OtherFocusReason);
    }
}

void MainWindow::showBatchRun() {
    const auto& run = workspace_->batchRunWatch().run();
    batchRunNotice_->setText(run ? QString::fromStdString(run->message()) : QString());
    batchRunNotice_->setVisible(run.has_value());
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (QWidget* focus = currentView()->firstFocus()) focus->setFocus(Qt::ActiveWindowFocusReason);
}

void MainWindow::dropFiles(const std::vector<std::filesystem::path>& files) {
    if (workspace_->drop(files)) {
        notice_->clear();
        return;
    }
    bool hasVideo = std::any_of(files.begin(), files.end(), [](const auto& file) { return !app::isSubtitleFile(file); });
    auto refusal = workspace_->videoRefusal();
    notice_->setText(QString::fromStdString(refusal && (hasVideo || workspace_->screen().isActive())
                                                ? *refusal
                                                : "Drop subtitle files together with their video."));
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (localFiles(event->mimeData()).empty()) return event->ignore();
    event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    auto files = localFiles(event->mimeData());
    if (files.empty()) return event->ignore();
    event->acceptProposedAction();
    dropFiles(files);
}

SettingsWindow* MainWindow::openSettings() {
    auto* settings = new SettingsWindow(model_, workspace_->id(), this);
    settings->setAttribute(Qt::WA_DeleteOnClose);
    settings->onSitesChanged = [this] {
        for (const auto& [id, library] : std::map(libraries_))
            if (library && !model_.settings().site(id)) library->close();
        if (!model_.settings().site(workspace_->id()))
            showSite(model_.ensureSite());
        else
            showSites();
    };
    settings->onSiteSetUp = [this](const app::SiteID& id) { siteSetUp(id); };
    settings->open();
    return settings;
}

LibraryWindow* MainWindow::openLibrary(const app::SiteID& id) {
    QPointer<LibraryWindow>& library = libraries_[id];
    if (!library) {
        library = new LibraryWindow(model_.workspace(id), this);
        library->setAttribute(Qt::WA_DeleteOnClose);
        // When this computer's R2 API Token may not purge the cache, the sealed account token does.
        model_.workspace(id)->library().accountToken = [window = QPointer<MainWindow>(this), id]() -> std::optional<std::string> {
            if (!window) throw Cancelled();
            return sealedTokenForPurge(window, window->model_, id);
        };
        library->onClosed = [this, id] {
            // Deleted later: opening the site's library before then makes a new window.
            libraries_.erase(id);
            // A quit closes the window too, and then it opens again at the next start.
            if (!model_.isQuitting()) model_.setLibraryOpen(id, false);
        };
        model_.setLibraryOpen(id, true);
    }
    library->show();
    library->raise();
    library->activateWindow();
    return library;
}

void MainWindow::chooseSheet() {
    auto* dialog = new QFileDialog(this, "Choose a Spreadsheet");
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters({"Spreadsheets (*.csv *.tsv *.txt)", "All files (*)"});
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::fileSelected, this, [this, id = workspace_->id()](const QString& file) {
        openBulkUpload(id, file.toStdString());
    });
    dialog->open();
}

BulkWindow* MainWindow::openBulkUpload(const app::SiteID& id, const std::filesystem::path& sheet) {
    QPointer<BulkWindow>& bulk = bulkUploads_[id];
    if (!bulk) {
        auto workspace = model_.workspace(id);
        bulk = new BulkWindow(workspace->bulkUpload(), this);
        bulk->setAttribute(Qt::WA_DeleteOnClose);
        bulk->setWindowTitle(QString::fromStdString(id.value) + " \u2014 Bulk Upload");
    }
    bulk->open(sheet);
    return bulk;
}

VimeoWindow* MainWindow::openVimeoImport(const app::SiteID& id) {
    QPointer<VimeoWindow>& vimeo = vimeoImports_[id];
    if (!vimeo) {
        vimeo = new VimeoWindow(model_.workspace(id)->vimeoSync(), this);
        vimeo->setAttribute(Qt::WA_DeleteOnClose);
        vimeo->setWindowTitle(QString::fromStdString(id.value) + " \u2014 Import from Vimeo");
        // A new window shows the account as it is now; a sync that goes on keeps its screen.
        vimeo->model().open();
    }
    vimeo->show();
    vimeo->raise();
    vimeo->activateWindow();
    return vimeo;
}

PageSettingsWindow* MainWindow::openPageSettings(const app::SiteID& id) {
    QPointer<PageSettingsWindow>& pages = pageSettings_[id];
    if (!pages) {
        const auto workspace = model_.workspace(id);
        try {
            pages = new PageSettingsWindow(workspace->pageSettings(), workspace->viewers(), this);
        } catch (const std::exception& error) {
            libraryDialogs::tell(this, "Vorlen Cannot Open the Page Settings", QString::fromStdString(error.what()));
            return nullptr;
        }
        pages->setAttribute(Qt::WA_DeleteOnClose);
        pages->setWindowTitle(QString::fromStdString(id.value) + " \u2014 Page Settings");
    }
    pages->show();
    pages->raise();
    pages->activateWindow();
    return pages;
}

SetupWindow* MainWindow::openSetup() {
    auto* setup = new SetupWindow(model_, this);
    setup->onRunEnded = [this](const app::SiteID& id, bool isComplete) {
        if (isComplete) siteSetUp(id);
        else showSites();
    };
    setup->open();
    return setup;
}

void MainWindow::siteSetUp(const app::SiteID& id) {
    model_.changeSettings([&](app::LocalSettings& settings) { settings.defaultSite = id; });
    showSite(id);
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (!model_.isQuitting()) {
        if (model_.isSetupRunning()) {
            QMessageBox ask(QMessageBox::Warning, "Quit During Setup?",
                            "Vorlen is setting up your site. If you quit now, the setup stops before it is complete. When you "
                            "set up again, Vorlen finds the steps that are already complete.",
                            QMessageBox::NoButton, this);
            ask.addButton(QMessageBox::Cancel);
            auto* quit = ask.addButton("Quit", QMessageBox::DestructiveRole);
            ask.setDefaultButton(QMessageBox::Cancel);
            ask.exec();
            if (ask.clickedButton() != quit) return event->ignore();
        }
        model_.quit();
    }
    // A stopped publish removes what it uploaded; the window stays until that is done.
    if (model_.isJobRunning()) {
        isWaitingToQuit_ = true;
        return event->ignore();
    }
    event->accept();
    // A copy, since each window leaves the map as it closes.
    for (const auto& [id, library] : std::map(libraries_))
        if (library) library->close();
}

}  // namespace vorlen::shell
