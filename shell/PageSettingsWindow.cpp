#include "shell/PageSettingsWindow.hpp"

#include <QCloseEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/PageFontWords.hpp"
#include "core/base/Text.hpp"
#include "shell/Format.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/PlayerOptionsView.hpp"
#include "shell/ViewersView.hpp"
#include "shell/WindowParts.hpp"

namespace vorlen::shell {

namespace {

using namespace windowParts;

QString quotedAll(const std::vector<std::string>& names) {
    std::vector<std::string> quoted;
    for (const auto& name : names) quoted.push_back(format::quoted(text(name)).toStdString());
    return text(joinedWithAnd(quoted));
}

// What a stylesheet loads and declares, as the person sees it before and after linking it.
QString stylesheetText(const SiteStylesheet& sheet) {
    QString words = text(sheet.url) + "\nLoads from " + (sheet.origins.empty() ? "no other address" : text(joinedWithAnd(sheet.origins))) + ".";
    words += sheet.families.empty() ? "\nDeclares no font family." : "\nDeclares " + quotedAll(sheet.families) + ".";
    return words;
}

QVBoxLayout* tabLayout(QWidget* tab) {
    auto* layout = new QVBoxLayout(tab);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(10);
    return layout;
}

}  // namespace

PageSettingsWindow::PageSettingsWindow(std::shared_ptr<app::PageSettingsModel> pages,
                                       std::shared_ptr<app::ViewersModel> viewers, QWidget* parent)
    : QWidget(parent, Qt::Window), pages_(std::move(pages)), viewers_(std::move(viewers)) {
    setObjectName("pageSettings");
    setWindowTitle("Page Settings");
    resize(1040, 740);
    setMinimumSize(820, 600);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 12);
    tabs_ = new QTabWidget;
    tabs_->setAccessibleName("Page settings");
    player_ = new PlayerOptionsView(pages_);
    viewersView_ = new ViewersView(viewers_);
    tabs_->addTab(player_, "Player");
    tabs_->addTab(fontsTab(), "Fonts");
    tabs_->addTab(stylesheetTab(), "Stylesheet");
    tabs_->addTab(viewersView_, "Viewers");
    layout->addWidget(tabs_, 1);

    auto* status = new QHBoxLayout;
    working_ = new QProgressBar;
    working_->setRange(0, 0);
    working_->setMaximumWidth(120);
    working_->setAccessibleName("Working");
    status->addWidget(working_);
    problem_ = label("error", "Problem");
    notice_ = label("secondary", "Notice");
    // A failure's words may name a <link> element: they show as they are.
    problem_->setTextFormat(Qt::PlainText);
    status->addWidget(problem_, 1);
    status->addWidget(notice_, 1);
    layout->addLayout(status);
    QObject::connect(tabs_, &QTabWidget::currentChanged, this, &PageSettingsWindow::showStatus);

    QPointer<PageSettingsWindow> window(this);
    pages_->onChange([window] {
        if (window) window->pagesChanged();
    });
    viewers_->onChange([window] {
        if (window) window->viewersChanged();
    });
    pagesChanged();
    viewersChanged();
    pages_->load();
    viewers_->load();
}

QWidget* PageSettingsWindow::fontsTab() {
    auto* tab = new QWidget;
    auto* layout = tabLayout(tab);
    auto* heading = label("heading", "Hosted font heading");
    heading->setText("Hosted font");
    hostedFont_ = label(nullptr, "Hosted font");
    fontUses_ = label("secondary", "Font uses");
    auto* note = label("secondary", "Fonts note");
    note->setText("Add the font files of one family: WOFF2, WOFF, OTF or TTF, one file for each weight and style. Vorlen "
                  "keeps them in the bucket, and the pages use them for the text and the headings.");
    layout->addWidget(heading);
    layout->addWidget(hostedFont_);
    layout->addWidget(fontUses_);
    layout->addWidget(note);
    // The sources of a hosted font, side by side.
    auto* sources = new QHBoxLayout;
    addFonts_ = button("Add Font Files\u2026", "primary");
    addFonts_->setAccessibleName("Add Font Files");
    sources->addWidget(addFonts_);
    addGoogleFont_ = button("Copy from Google Fonts\u2026");
    addGoogleFont_->setAccessibleName("Copy from Google Fonts");
    sources->addWidget(addGoogleFont_);
    sources->addStretch(1);
    removeFonts_ = button("Remove\u2026");
    removeFonts_->setAccessibleName("Remove Fonts");
    sources->addWidget(removeFonts_);
    layout->addLayout(sources);
    layout->addStretch(1);
    QObject::connect(addFonts_, &QPushButton::clicked, this, &PageSettingsWindow::addFontFiles);
    QObject::connect(addGoogleFont_, &QPushButton::clicked, this, &PageSettingsWindow::addGoogleFamily);
    QObject::connect(removeFonts_, &QPushButton::clicked, this, [this] {
        libraryDialogs::confirm(this, text(app::PageFontWords::removeTitle), text(app::PageFontWords::removeExplanation),
                                "Remove", [this] { pages_->removeFonts(); });
    });
    return tab;
}

QWidget* PageSettingsWindow::stylesheetTab() {
    auto* tab = new QWidget;
    auto* layout = tabLayout(tab);
    auto* note = label("secondary", "Stylesheet note");
    note->setTextFormat(Qt::PlainText);
    note->setText("Link a stylesheet after the pages' own styles, for example a font service's: paste its <link> element "
                  "or its address. Vorlen reads it first and shows what it loads; it must use https.");
    layout->addWidget(note);
    auto* entry = new QHBoxLayout;
    stylesheet_ = new QLineEdit;
    stylesheet_->setAccessibleName("Stylesheet");
    stylesheet_->setPlaceholderText("https://\u2026 or <link rel=\"stylesheet\" href=\"https://\u2026\">");
    readStylesheet_ = button("Read");
    entry->addWidget(stylesheet_, 1);
    entry->addWidget(readStylesheet_);
    layout->addLayout(entry);
    stylesheetRead_ = label(nullptr, "Stylesheet read");
    stylesheetRead_->setTextFormat(Qt::PlainText);
    layout->addWidget(stylesheetRead_);
    auto* linkRow = new QHBoxLayout;
    link_ = button("Link", "primary");
    linkRow->addWidget(link_);
    linkRow->addStretch(1);
    layout->addLayout(linkRow);
    auto* heading = label("heading", "Linked heading");
    heading->setText("Linked stylesheets");
    linked_ = label(nullptr, "Linked stylesheets");
    linked_->setTextFormat(Qt::PlainText);
    layout->addWidget(heading);
    layout->addWidget(linked_);
    auto* removeRow = new QHBoxLayout;
    removeStylesheets_ = button("Remove\u2026");
    removeStylesheets_->setAccessibleName("Remove Stylesheets");
    removeRow->addStretch(1);
    removeRow->addWidget(removeStylesheets_);
    layout->addLayout(removeRow);
    layout->addStretch(1);

    QObject::connect(readStylesheet_, &QPushButton::clicked, this,
                     [this] { pages_->readStylesheet(stylesheet_->text().toStdString()); });
    QObject::connect(stylesheet_, &QLineEdit::returnPressed, readStylesheet_, &QPushButton::click);
    // What was read belongs to the text as it was read.
    QObject::connect(stylesheet_, &QLineEdit::textEdited, this, [this] {
        if (pages_->readStylesheet()) pages_->forgetStylesheet();
    });
    QObject::connect(link_, &QPushButton::clicked, this, [this] { pages_->linkStylesheet(); });
    QObject::connect(removeStylesheets_, &QPushButton::clicked, removeFonts_, &QPushButton::click);
    return tab;
}

void PageSettingsWindow::addFontFiles() {
    auto* dialog = new QFileDialog(this, "Choose Font Files");
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilters({"Fonts (*.woff2 *.woff *.otf *.ttf)", "All files (*)"});
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::filesSelected, this, [this](const QStringList& files) {
        std::vector<std::filesystem::path> paths;
        for (const auto& file : files) paths.emplace_back(file.toStdString());
        pages_->addFontFiles(paths);
    });
    dialog->open();
}

void PageSettingsWindow::addGoogleFamily() {
    auto* dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle("Copy a Font from Google Fonts");
    dialog->setLabelText("The family's name, as fonts.google.com writes it:");
    QObject::connect(dialog, &QInputDialog::textValueSelected, this, [this](const QString& family) {
        if (!family.trimmed().isEmpty()) pages_->addGoogleFamily(family.trimmed().toStdString());
    });
    dialog->open();
}

void PageSettingsWindow::pagesChanged() {
    player_->show(*pages_);
    const bool isFree = pages_->isLoaded() && !pages_->isWorking();
    const auto& current = pages_->fonts();
    const auto* fonts = current ? &current->fonts : nullptr;
    if (fonts && fonts->hosted)
        hostedFont_->setText(format::quoted(text(fonts->hosted->family)) + " in " + text(fonts->hosted->folder) + "/");
    else
        hostedFont_->setText(text(app::PageFontWords::ownFonts));
    QStringList uses;
    if (fonts)
        for (const auto& [use, family] : {std::pair{"Text", &fonts->text}, {"Headings", &fonts->headings}, {"Tooltips", &fonts->tooltips}})
            if (*family) uses << QString(use) + ": " + format::quoted(text(**family));
    fontUses_->setText(uses.join(" \u00b7 "));
    fontUses_->setVisible(!uses.isEmpty());
    const bool hasFonts = current && (!current->fonts.isEmpty() || !current->stylesheets.empty());
    addFonts_->setEnabled(isFree);
    addGoogleFont_->setEnabled(isFree);
    removeFonts_->setEnabled(isFree && hasFonts);
    removeStylesheets_->setEnabled(isFree && current && !current->stylesheets.empty());

    const auto& read = pages_->readStylesheet();
    stylesheetRead_->setText(read ? stylesheetText(*read) : QString());
    stylesheetRead_->setVisible(read.has_value());
    link_->setEnabled(isFree && read);
    readStylesheet_->setEnabled(isFree);
    QStringList sheets;
    if (current)
        for (const auto& sheet : current->stylesheets) sheets << stylesheetText(sheet);
    linked_->setText(sheets.isEmpty() ? "None." : sheets.join("\n\n"));
    showStatus();
}

void PageSettingsWindow::viewersChanged() {
    viewersView_->show(*viewers_);
    showStatus();
}

void PageSettingsWindow::showStatus() {
    const bool onViewers = tabs_->currentWidget() == viewersView_;
    working_->setVisible(onViewers ? viewers_->isWorking() : pages_->isWorking() || pages_->isPreparingPreview());
    const auto& problem = onViewers ? viewers_->problem() : pages_->problem();
    problem_->setText(problem ? text(*problem) : QString());
    problem_->setVisible(problem.has_value());
    const auto& notice = pages_->notice();
    notice_->setText(!onViewers && notice ? text(*notice) : QString());
    notice_->setVisible(!onViewers && notice);
}

void PageSettingsWindow::closeEvent(QCloseEvent* event) {
    pages_->stopPreview();
    QWidget::closeEvent(event);
}

}  // namespace vorlen::shell
