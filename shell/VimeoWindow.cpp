#include "shell/VimeoWindow.hpp"

#include <algorithm>

#include <QAbstractTableModel>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QVBoxLayout>

#include "app/VimeoWords.hpp"
#include "shell/Appearance.hpp"
#include "shell/Format.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/RunTable.hpp"
#include "shell/WindowParts.hpp"

namespace vorlen::shell {

namespace {

using namespace windowParts;

QString visibilityName(VideoVisibility visibility) {
    return visibility == VideoVisibility::publicVideo ? "Public" : "Unlisted";
}

// Where the video stands in the site, and on Vimeo when that holds it back.
QString siteText(const app::VimeoPlanEntry& entry) {
    QStringList words;
    if (entry.folder) words << "Imported as " + format::quoted(text(*entry.folder));
    if (entry.hasDifferentAudioLoudness) words << "different audio loudness";
    if (!entry.isReady) words << app::VimeoWords::notReady;
    if (entry.isInColdStorage) words << app::VimeoWords::coldStorage;
    return words.join(" \u00b7 ");
}

QString fileText(const app::VimeoPlanEntry& entry) {
    if (entry.fileMatchText) return text(*entry.fileMatchText);
    // A file chosen by hand shows while it is read, and when it cannot be.
    if (const auto& file = entry.localFile ? entry.localFile : entry.choice.file)
        return format::quoted(text(file->filename().string()));
    return entry.vimeoFile ? "From Vimeo" : "No file";
}

// A video's title and length.
RunTable::Cells cellsOf(const std::vector<VimeoSyncItem>& items) {
    return [&items](std::int64_t item) -> std::optional<QStringList> {
        if (item < 0 || std::size_t(item) >= items.size()) return std::nullopt;
        const auto& video = items[std::size_t(item)].video;
        return QStringList{text(video.title), video.duration ? format::clock(*video.duration) : QString()};
    };
}

// The visibility of a row, chosen in place from the two that a site has.
class VisibilityDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem&, const QModelIndex&) const override {
        auto* choice = new QComboBox(parent);
        choice->setAccessibleName("Visibility");
        for (const auto visibility : {VideoVisibility::publicVideo, VideoVisibility::unlisted})
            choice->addItem(visibilityName(visibility), int(visibility));
        // A choice is taken as soon as it is made.
        QObject::connect(choice, &QComboBox::activated, choice, [this, choice] {
            emit const_cast<VisibilityDelegate*>(this)->commitData(choice);
            emit const_cast<VisibilityDelegate*>(this)->closeEditor(choice);
        });
        return choice;
    }
    void setEditorData(QWidget* editor, const QModelIndex& index) const override {
        auto* choice = static_cast<QComboBox*>(editor);
        choice->setCurrentIndex(choice->findData(index.data(Qt::EditRole)));
    }
    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override {
        model->setData(index, static_cast<QComboBox*>(editor)->currentData(), Qt::EditRole);
    }
};

}  // namespace

// The videos of the account that pass the filter and the search.
class VimeoWindow::Videos : public QAbstractTableModel {
public:
    enum Column { import, title, created, duration, privacy, visibility, site, file, columns };

    explicit Videos(app::VimeoSyncModel& model, QObject* parent) : QAbstractTableModel(parent), model_(model) {}

    void setEntries(std::vector<app::VimeoPlanEntry> entries) {
        // The same rows change in place, so that the person's place in a long list stays.
        const bool sameRows = std::equal(entries.begin(), entries.end(), entries_.begin(), entries_.end(),
                                         [](const auto& one, const auto& other) { return one.id == other.id; });
        if (sameRows && !entries_.empty()) {
            entries_ = std::move(entries);
            emit dataChanged(index(0, 0), index(rowCount({}) - 1, columns - 1));
            return;
        }
        beginResetModel();
        entries_ = std::move(entries);
        endResetModel();
    }
    const app::VimeoPlanEntry* entry(const QModelIndex& index) const {
        return index.isValid() ? &entries_[std::size_t(index.row())] : nullptr;
    }

    int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : int(entries_.size()); }
    int columnCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : columns; }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
        if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
        static const char* const names[] = {"Import", "Title", "Created", "Duration", "On Vimeo", "Visibility", "In the Site", "File"};
        return section < columns ? QVariant(names[section]) : QVariant();
    }

    Qt::ItemFlags flags(const QModelIndex& index) const override {
        auto flags = QAbstractTableModel::flags(index);
        const auto& row = entries_[std::size_t(index.row())];
        const bool canChange = row.canBeSelected || row.canBeReimported;
        if (index.column() == import) {
            flags |= Qt::ItemIsUserCheckable;
            flags.setFlag(Qt::ItemIsEnabled, canChange);
        }
        if (index.column() == visibility && canChange) flags |= Qt::ItemIsEditable;
        return flags;
    }

    QVariant data(const QModelIndex& index, int role) const override {
        const auto& row = entries_[std::size_t(index.row())];
        const int column = index.column();
        if (role == Qt::CheckStateRole && column == import) return row.isSelected ? Qt::Checked : Qt::Unchecked;
        if (role == Qt::EditRole && column == visibility) return int(row.visibility);
        if (role == Qt::ToolTipRole) {
            if (column == privacy && row.limitsViewers) return VimeoSyncPlan::limitedViewersNotice;
            if (column == site) return siteText(row);
            if (column == file) return fileText(row);
            if (column == title) return text(row.id);
        }
        if (role == Qt::ForegroundRole && column == privacy && row.limitsViewers) return Colors::of(currentColorScheme()).error;
        if (role != Qt::DisplayRole) return {};
        switch (column) {
            case title: return text(row.title);
            case created: return row.created ? format::date(*row.created) : QString();
            case duration: return row.duration ? format::clock(*row.duration) : QString();
            case privacy: return text(row.privacy);
            case visibility: return visibilityName(row.visibility);
            case site: return siteText(row);
            case file: return fileText(row);
            default: return {};
        }
    }

    bool setData(const QModelIndex& index, const QVariant& value, int role) override {
        const auto& row = entries_[std::size_t(index.row())];
        if (role == Qt::CheckStateRole && index.column() == import) {
            model_.setSelected(row.id, value.toInt() == Qt::Checked);
            return true;
        }
        if (role == Qt::EditRole && index.column() == visibility) {
            model_.setVisibility(row.id, VideoVisibility(value.toInt()));
            return true;
        }
        return false;
    }

private:
    app::VimeoSyncModel& model_;
    std::vector<app::VimeoPlanEntry> entries_;
};

VimeoWindow::VimeoWindow(std::shared_ptr<app::VimeoSyncModel> model, QWidget* parent)
    : QWidget(parent, Qt::Window), model_(std::move(model)), pages_(new QStackedWidget), messagePage_(pages_) {
    setObjectName("vimeo");
    setWindowTitle("Import from Vimeo");
    resize(1100, 720);
    setMinimumSize(760, 540);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 16);
    layout->setSpacing(12);
    layout->addWidget(pages_, 1);

    auto* tokenLayout = addPage(pages_, tokenPage_);
    auto* tokenTitle = label("heading", "Title");
    tokenTitle->setText(app::VimeoWords::tokenTitle);
    auto* tokenNote = label("secondary", "Token note");
    tokenNote->setText(app::VimeoWords::tokenNote);
    token_ = new QLineEdit;
    token_->setEchoMode(QLineEdit::Password);
    token_->setAccessibleName("Personal Access Token");
    token_->setPlaceholderText("Personal access token");
    readAccount_ = button("Read the Account", "primary");
    auto* tokenRow = new QHBoxLayout;
    tokenRow->addWidget(token_, 1);
    tokenRow->addWidget(readAccount_);
    for (auto* part : {tokenTitle, tokenNote}) tokenLayout->addWidget(part);
    tokenLayout->addLayout(tokenRow);
    tokenLayout->addStretch(1);

    auto* planLayout = addPage(pages_, planPage_);
    account_ = label("heading", "Account");
    planLayout->addWidget(account_);
    auto* tools = new QHBoxLayout;
    filter_ = new QComboBox;
    filter_->setAccessibleName("Filter");
    for (const auto filter : app::vimeoPlanFilters) filter_->addItem(app::VimeoWords::filterName(filter));
    search_ = new QLineEdit;
    search_->setAccessibleName("Search");
    search_->setPlaceholderText("Search");
    search_->setClearButtonEnabled(true);
    refresh_ = button("Refresh");
    forgetToken_ = button("Forget Token");
    tools->addWidget(filter_);
    tools->addWidget(search_, 1);
    tools->addWidget(refresh_);
    tools->addWidget(forgetToken_);
    planLayout->addLayout(tools);
    auto* rule = new QHBoxLayout;
    selectByDefault_ = button("Default Selection");
    selectByDefault_->setToolTip(app::VimeoWords::defaultSelection);
    includePrivate_ = new QCheckBox(app::VimeoWords::includePrivate);
    includePassword_ = new QCheckBox(app::VimeoWords::includePassword);
    includeAutoGenerated_ = new QCheckBox(app::VimeoWords::includeAutoGenerated);
    rule->addWidget(selectByDefault_);
    for (auto* box : {includePrivate_, includePassword_, includeAutoGenerated_}) {
        box->setAccessibleName(box->text());
        rule->addWidget(box);
    }
    rule->addStretch(1);
    planLayout->addLayout(rule);
    videoRows_ = new Videos(*model_, this);
    videos_ = table("Videos");
    videos_->setModel(videoRows_);
    videos_->setSelectionMode(QAbstractItemView::SingleSelection);
    videos_->setItemDelegateForColumn(Videos::visibility, new VisibilityDelegate(videos_));
    videos_->setEditTriggers(QAbstractItemView::AllEditTriggers);
    auto* header = videos_->horizontalHeader();
    const std::pair<int, int> widths[] = {{Videos::import, 56},   {Videos::title, 240},   {Videos::created, 100},
                                          {Videos::duration, 70}, {Videos::privacy, 120}, {Videos::visibility, 90},
                                          {Videos::site, 180}};
    for (const auto& [column, width] : widths) header->resizeSection(column, width);
    planLayout->addWidget(videos_, 1);
    empty_ = label("secondary", "Empty");
    empty_->setAlignment(Qt::AlignCenter);
    planLayout->addWidget(empty_, 1);
    auto* fileTools = new QHBoxLayout;
    chooseFolder_ = button("Choose Folder\u2026");
    chooseFolder_->setToolTip("The folder of the files that you downloaded from Vimeo");
    chooseFile_ = button("Choose File\u2026");
    chooseFile_->setToolTip("The file of the selected video");
    files_ = label("secondary", "Files");
    fileTools->addWidget(chooseFolder_);
    fileTools->addWidget(chooseFile_);
    fileTools->addWidget(files_, 1);
    planLayout->addLayout(fileTools);

    auto* runLayout = addPage(pages_, runPage_);
    runTitle_ = label("heading", "Title");
    counts_ = label(nullptr, "Counts");
    estimate_ = label("secondary", "Estimate");
    report_ = label("secondary", "Report");
    for (auto* part : {runTitle_, counts_, estimate_, report_}) runLayout->addWidget(part);
    itemRows_ = new RunTable({"Video", "Duration", "Status"}, app::VimeoWords::phase, this);
    items_ = table("Videos in the sync");
    items_->setModel(itemRows_);
    items_->horizontalHeader()->resizeSection(0, 300);
    items_->horizontalHeader()->resizeSection(1, 90);
    runLayout->addWidget(items_, 1);

    auto* buttons = new QHBoxLayout;
    selected_ = label(nullptr, "Selected");
    tryAgain_ = button("Try Again");
    otherToken_ = button("Enter Another Token");
    back_ = button("Back to the Videos");
    close_ = button("Close");
    stop_ = button("Stop");
    start_ = button("Start", "primary");
    start_->setDefault(true);
    buttons->addWidget(selected_, 1);
    for (auto* part : {otherToken_, tryAgain_, back_, close_, stop_, start_}) buttons->addWidget(part);
    layout->addLayout(buttons);

    auto* sync = model_.get();
    QObject::connect(readAccount_, &QPushButton::clicked, this, [this] {
        model_->saveToken(token_->text().toStdString());
        token_->clear();
    });
    QObject::connect(token_, &QLineEdit::returnPressed, readAccount_, &QPushButton::click);
    QObject::connect(filter_, &QComboBox::activated, this,
                     [sync](int index) { sync->setFilter(app::vimeoPlanFilters[index]); });
    QObject::connect(search_, &QLineEdit::textChanged, this,
                     [sync](const QString& words) { sync->setSearch(words.toStdString()); });
    QObject::connect(refresh_, &QPushButton::clicked, this, [sync] { sync->refresh(); });
    for (auto* forget : {forgetToken_, otherToken_})
        QObject::connect(forget, &QPushButton::clicked, this, [sync] { sync->forgetToken(); });
    QObject::connect(selectByDefault_, &QPushButton::clicked, this, [sync] { sync->selectByDefault(); });
    auto changeRule = [this, sync] {
        sync->setRule({includePrivate_->isChecked(), includePassword_->isChecked()});
    };
    QObject::connect(includePrivate_, &QCheckBox::clicked, this, changeRule);
    QObject::connect(includePassword_, &QCheckBox::clicked, this, changeRule);
    QObject::connect(includeAutoGenerated_, &QCheckBox::clicked, this,
                     [sync](bool includes) { sync->setIncludesAutoGeneratedSubtitles(includes); });
    QObject::connect(chooseFolder_, &QPushButton::clicked, this, &VimeoWindow::chooseFolder);
    QObject::connect(chooseFile_, &QPushButton::clicked, this, &VimeoWindow::chooseFile);
    QObject::connect(videos_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
                     [this] { chooseFile_->setEnabled(videoRows_->entry(videos_->currentIndex()) != nullptr); });
    for (auto* reopen : {tryAgain_, back_})
        QObject::connect(reopen, &QPushButton::clicked, this, [sync] { sync->open(); });
    QObject::connect(start_, &QPushButton::clicked, this, [this] { tell(model_->start()); });
    QObject::connect(stop_, &QPushButton::clicked, this, &VimeoWindow::confirmStop);
    QObject::connect(close_, &QPushButton::clicked, this, &QWidget::close);
    auto* closeKey = new QShortcut(QKeySequence::Close, this);
    QObject::connect(closeKey, &QShortcut::activated, this, &QWidget::close);

    QPointer<VimeoWindow> window(this);
    model_->onChange([window] {
        if (window) window->modelChanged();
    });
    modelChanged();
}

void VimeoWindow::tell(const std::optional<app::VimeoProblem>& problem) {
    if (problem) libraryDialogs::tell(this, text(problem->title), text(problem->message));
}

void VimeoWindow::confirmStop() {
    libraryDialogs::confirm(this, app::VimeoWords::stopQuestion, app::VimeoWords::stopExplanation, "Stop",
                            [this] { model_->stop(); });
}

void VimeoWindow::closeEvent(QCloseEvent* event) {
    if (!model_->isRunning()) return QWidget::closeEvent(event);
    event->ignore();
    if (!model_->as<app::VimeoRunState>()->isStopping) confirmStop();
}

void VimeoWindow::chooseFolder() {
    auto* dialog = new QFileDialog(this, "Choose the Folder of the Downloaded Videos");
    dialog->setFileMode(QFileDialog::Directory);
    dialog->setOption(QFileDialog::ShowDirsOnly);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::fileSelected, this,
                     [this](const QString& folder) { model_->chooseFolder(folder.toStdString()); });
    dialog->open();
}

void VimeoWindow::chooseFile() {
    const auto* entry = videoRows_->entry(videos_->currentIndex());
    if (!entry) return;
    libraryDialogs::chooseFile(this, "Choose the File of " + format::quoted(text(entry->title)), {"All files (*)"},
                               [this, id = entry->id](const std::filesystem::path& file) { model_->chooseFile(id, file); });
}

void VimeoWindow::modelChanged() {
    const auto& phase = model_->phase();
    for (auto* part : {otherToken_, tryAgain_, back_, stop_, start_}) part->hide();
    close_->show();
    selected_->clear();
    if (std::holds_alternative<app::vimeoPhase::Opening>(phase))
        messagePage_.show("Opening the Vimeo Account\u2026", QString());
    else if (std::holds_alternative<app::vimeoPhase::NeedsToken>(phase))
        pages_->setCurrentWidget(tokenPage_);
    else if (const auto* reading = std::get_if<app::vimeoPhase::Reading>(&phase))
        messagePage_.show("Reading the Vimeo Account\u2026",
                    reading->progress ? text(app::VimeoWords::reading(*reading->progress)) : QString());
    else if (std::holds_alternative<app::vimeoPhase::Planning>(phase))
        messagePage_.show("Reading the Site\u2026", QString());
    else if (const auto* unreadable = std::get_if<app::vimeoPhase::Unreadable>(&phase)) {
        messagePage_.show(text(unreadable->problem.title), text(unreadable->problem.message));
        tryAgain_->show();
        // A token that Vimeo refuses is replaced from here.
        otherToken_->setVisible(unreadable->problem.title == app::VimeoWords::cannotRead);
    } else if (const auto* failed = std::get_if<app::vimeoPhase::Failed>(&phase)) {
        messagePage_.show(text(failed->problem.title), text(failed->problem.message));
        back_->show();
    } else if (const auto* plan = std::get_if<app::VimeoPlanState>(&phase))
        showPlan(*plan);
    else if (const auto* run = std::get_if<app::VimeoRunState>(&phase))
        showRun(*run);
    else if (const auto* end = std::get_if<app::VimeoEndState>(&phase))
        showEnd(*end);
}

void VimeoWindow::showPlan(const app::VimeoPlanState& plan) {
    start_->show();
    const auto videoCount = std::int64_t(plan.plan.entries.size());
    account_->setText(text(plan.plan.account.name) + "  \u00b7  " + format::counted(videoCount, "video") +
                      "  \u00b7  read " + format::date(plan.plan.readAt));
    filter_->setCurrentIndex(int(std::find(std::begin(app::vimeoPlanFilters), std::end(app::vimeoPlanFilters), plan.filter) -
                                 std::begin(app::vimeoPlanFilters)));
    if (search_->text().toStdString() != plan.search) search_->setText(text(plan.search));
    includePrivate_->setChecked(plan.rule.includesPrivateVideos);
    includePassword_->setChecked(plan.rule.includesPasswordVideos);
    includeAutoGenerated_->setChecked(plan.selection.includesAutoGeneratedSubtitles);

    std::vector<app::VimeoPlanEntry> shown;
    for (const auto* entry : plan.shownEntries()) shown.push_back(*entry);
    const bool canChooseAny = std::any_of(shown.begin(), shown.end(), [](const app::VimeoPlanEntry& entry) {
        return entry.canBeSelected || entry.canBeReimported;
    });
    videos_->setVisible(!shown.empty());
    empty_->setVisible(shown.empty());
    empty_->setText(text(plan.emptyText()));
    videoRows_->setEntries(std::move(shown));
    chooseFile_->setEnabled(videoRows_->entry(videos_->currentIndex()) != nullptr);

    QStringList notes;
    if (plan.scan) notes << text(app::VimeoWords::scanning(plan.scan->inspected, plan.scan->found));
    else if (plan.selection.folder) notes << "Files from " + format::quoted(text(plan.selection.folder->string()));
    if (plan.fileProblem) notes << text(*plan.fileProblem);
    if (!canChooseAny && videoRows_->rowCount({}) > 0) notes << app::VimeoWords::cannotSelect;
    files_->setText(notes.join('\n'));
    chooseFolder_->setEnabled(!plan.scan);
    const auto selected = plan.selectedCount();
    selected_->setText(text(app::VimeoWords::selected(selected)));
    start_->setEnabled(selected > 0);
    pages_->setCurrentWidget(planPage_);
}

void VimeoWindow::showRun(const app::VimeoRunState& run) {
    stop_->show();
    stop_->setEnabled(!run.isStopping);
    close_->hide();
    runTitle_->setText(QString("Importing ") + format::counted(std::int64_t(run.request.items.size()), "Video") +
                       " from Vimeo");
    showSubtitleProblems(run.subtitleProblems, run.request.items);
    const auto& progress = run.progress;
    counts_->setText(progress ? text(app::VimeoWords::counts(progress->counts)) : QString());
    if (run.isStopping)
        estimate_->setText(app::VimeoWords::stopping);
    else if (!progress)
        estimate_->setText("Reading the site\u2026");
    else if (progress->eta)
        estimate_->setText("About " + format::clock(*progress->eta) + " left. " + app::VimeoWords::timeLeftNote);
    else
        estimate_->setText("Estimating the time left\u2026");
    estimate_->show();
    if (progress)
        itemRows_->show(progress->results, progress->activeItems, cellsOf(run.request.items));
    else
        itemRows_->clear();
    pages_->setCurrentWidget(runPage_);
}

void VimeoWindow::showSubtitleProblems(const std::map<std::string, std::string>& problems,
                                       const std::vector<VimeoSyncItem>& items) {
    QStringList lines;
    for (const auto& [videoID, problem] : problems) {
        const auto item = std::find_if(items.begin(), items.end(),
                                       [&](const VimeoSyncItem& each) { return each.video.id == videoID; });
        lines << text(app::VimeoWords::subtitleProblem(item == items.end() ? videoID : item->video.title, problem));
    }
    report_->setText(lines.join('\n'));
    report_->setVisible(!lines.isEmpty());
}

void VimeoWindow::showEnd(const app::VimeoEndState& end) {
    back_->show();
    const bool stopped = end.ending == app::VimeoEndState::Ending::stopped;
    runTitle_->setText(stopped ? app::VimeoWords::endedStoppedTitle : app::VimeoWords::completedTitle);
    counts_->setText(text(app::VimeoWords::counts(end.counts)));
    estimate_->hide();
    showSubtitleProblems(end.subtitleProblems, end.items);
    itemRows_->show(end.results, {}, cellsOf(end.items));
    pages_->setCurrentWidget(runPage_);
}

}  // namespace vorlen::shell
