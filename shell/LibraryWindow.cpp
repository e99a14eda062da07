#include "shell/LibraryWindow.hpp"

#include <QAbstractTableModel>
#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmapCache>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QTableView>
#include <QUrl>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"
#include "shell/Format.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/VideoEditWindow.hpp"

namespace vorlen::shell {

namespace {

const QSize pictureSize(96, 54);

QString text(const std::string& value) { return QString::fromStdString(value); }

QString progressText(const LibraryReadProgress& progress) {
    if (const auto* listing = std::get_if<LibraryReadProgress::Listing>(&progress.value))
        return "Listing\u2026 " + format::counted(listing->folders, "folder");
    const auto& reading = std::get<LibraryReadProgress::Reading>(progress.value);
    return QString("Reading %1 of %2").arg(reading.read).arg(format::counted(reading.total, "record"));
}

// "Making videos unlisted: 1 of 3"
QString bulkText(const app::LibraryModel::BulkChange& bulk) {
    using Action = app::LibraryModel::BulkChange::Action;
    const char* doing = bulk.action == Action::makePublic      ? "Making videos public"
                        : bulk.action == Action::makeUnlisted  ? "Making videos unlisted"
                        : bulk.action == Action::reimportAudio ? "Re-importing the audio of videos"
                                                               : "Deleting videos";
    return QString("%1: %2 of %3").arg(doing).arg(bulk.finished).arg(bulk.count);
}

// The frame a row shows until its poster is on this computer, in the colours of the scheme.
QPixmap placeholder() {
    const QString key = QString("library-placeholder-%1").arg(int(currentColorScheme()));
    QPixmap made;
    if (QPixmapCache::find(key, &made)) return made;
    const Colors colors = Colors::of(currentColorScheme());
    made = QPixmap(pictureSize);
    made.fill(Qt::transparent);
    QPainter painter(&made);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(colors.border);
    painter.setBrush(colors.window);
    painter.drawRoundedRect(QRectF(made.rect()).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    painter.end();
    QPixmapCache::insert(key, made);
    return made;
}

}  // namespace

// The arranged entries as rows. The view asks for the data of the rows it
// paints, so asking the model for a poster here fetches only those on screen.
class LibraryWindow::Table : public QAbstractTableModel {
public:
    enum Column { poster, title, duration, visibility, date, columns };

    Table(app::LibraryModel& library, QObject* parent) : QAbstractTableModel(parent), library_(library) {}

    void setRows(std::vector<app::LibraryEntry> rows) {
        beginResetModel();
        rows_ = std::move(rows);
        endResetModel();
    }
    // A poster may have arrived or a change begun or ended: the view repaints the rows it shows.
    void cellsChanged() {
        if (!rows_.empty()) dataChanged(index(0, poster), index(int(rows_.size()) - 1, columns - 1));
    }
    const app::LibraryEntry& entry(int row) const { return rows_[std::size_t(row)]; }

    int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : int(rows_.size()); }
    int columnCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : columns; }

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
        if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
        switch (section) {
        case title: return "Title";
        case duration: return "Duration";
        case visibility: return "Visibility";
        case date: return "Published";
        default: return {};
        }
    }

    QVariant data(const QModelIndex& index, int role) const override {
        const auto& row = entry(index.row());
        const bool isUnreadable = row.record == app::LibraryEntry::Record::unreadable;
        if (role == Qt::DecorationRole && index.column() == poster) return picture(row);
        if (role == Qt::ToolTipRole && index.column() == title)
            return isUnreadable ? text(*row.problem) : text(row.title) + "\n" + text(row.folder());
        if (role == Qt::ForegroundRole && index.column() == title && isUnreadable) return Colors::of(currentColorScheme()).error;
        if (role != Qt::DisplayRole) return {};
        // An unreadable record says only why.
        if (isUnreadable) return index.column() == title ? text(*row.problem) : QVariant();
        switch (index.column()) {
        case title: {
            const auto running = library_.changes().find(row.folder());
            if (running == library_.changes().end()) return text(row.title);
            return text(row.title) + "  \u00b7  " + format::change(running->second);
        }
        case duration: return row.duration ? format::clock(*row.duration) : QVariant();
        case visibility:
            if (!row.visibility) return {};
            return *row.visibility == VideoVisibility::unlisted ? "Unlisted" : "Public";
        case date: return row.created ? format::date(*row.created) : QVariant();
        default: return {};
        }
    }

private:
    QPixmap picture(const app::LibraryEntry& row) const {
        const auto file = library_.thumbnail(row);
        if (!file) return placeholder();
        const QString path = QString::fromStdString(file->string());
        QPixmap found;
        if (QPixmapCache::find(path, &found)) return found;
        found = QPixmap(path);
        if (found.isNull()) return placeholder();
        found = found.scaled(pictureSize, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        QPixmapCache::insert(path, found);
        return found;
    }

    app::LibraryModel& library_;
    std::vector<app::LibraryEntry> rows_;
};

LibraryWindow::LibraryWindow(std::shared_ptr<app::SiteWorkspace> workspace, QWidget* parent)
    : QWidget(parent, Qt::Window), workspace_(std::move(workspace)) {
    setObjectName("library");
    setWindowTitle(text(workspace_->id().value) + " \u2014 Library");
    resize(900, 640);
    setMinimumSize(640, 400);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 12);
    layout->setSpacing(10);

    auto* bar = new QHBoxLayout;
    bar->setSpacing(8);
    search_ = new QLineEdit;
    search_->setAccessibleName("Search");
    search_->setPlaceholderText("Search titles");
    search_->setClearButtonEnabled(true);
    bar->addWidget(search_, 1);
    order_ = new QComboBox;
    order_->setAccessibleName("Order");
    order_->addItem("Newest First", int(app::LibraryOrder::newest));
    order_->addItem("Title", int(app::LibraryOrder::title));
    bar->addWidget(order_);
    auto* refresh = new QPushButton("Refresh");
    refresh->setAccessibleName("Refresh");
    refresh->setAutoDefault(false);
    bar->addWidget(refresh);
    layout->addLayout(bar);
    // The field and the choice stand as tall as the button beside them.
    for (QWidget* control : std::initializer_list<QWidget*>{search_, order_}) control->setMinimumHeight(refresh->sizeHint().height());

    table_ = new Table(library(), this);
    list_ = new QTableView;
    list_->setAccessibleName("Videos");
    list_->setModel(table_);
    list_->setIconSize(pictureSize);
    list_->setSelectionBehavior(QAbstractItemView::SelectRows);
    list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    list_->setTabKeyNavigation(false);
    list_->setShowGrid(false);
    list_->setWordWrap(false);
    list_->setAlternatingRowColors(true);
    // Fixed sizes: the view never measures its rows, so 10,000 of them cost nothing until they show.
    list_->verticalHeader()->hide();
    list_->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    list_->verticalHeader()->setDefaultSectionSize(pictureSize.height() + 10);
    auto* header = list_->horizontalHeader();
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setHighlightSections(false);
    header->setSectionResizeMode(QHeaderView::Fixed);
    header->setSectionResizeMode(Table::title, QHeaderView::Stretch);
    header->resizeSection(Table::poster, pictureSize.width() + 8);
    header->resizeSection(Table::duration, 90);
    header->resizeSection(Table::visibility, 100);
    header->resizeSection(Table::date, 120);
    layout->addWidget(list_, 1);

    // What the selected rows allow, as buttons under the list and as the list's context menu.
    auto action = [this](const QString& words, const QString& name) {
        auto* made = new QAction(words, this);
        made->setObjectName(name);
        list_->addAction(made);
        return made;
    };
    edit_ = action("Edit\u2026", "Edit the video");
    openPage_ = action("Open Page", "Open the video's page");
    makePublic_ = action("Make Public", "Make the selected videos public");
    makeUnlisted_ = action("Make Unlisted", "Make the selected videos unlisted");
    reimportAudio_ = action("Re-import Audio\u2026", "Re-import the audio of the selected videos");
    delete_ = action("Delete\u2026", "Delete the selected videos");
    list_->setContextMenuPolicy(Qt::ActionsContextMenu);
    auto* actions = new QHBoxLayout;
    actions->setSpacing(8);
    for (QAction* each : {edit_, openPage_, makePublic_, makeUnlisted_, reimportAudio_, delete_}) {
        auto* button = new QPushButton(each->text());
        button->setAccessibleName(each->objectName());
        button->setAutoDefault(false);
        QObject::connect(button, &QPushButton::clicked, each, &QAction::trigger);
        QObject::connect(each, &QAction::changed, button, [button, each] { button->setEnabled(each->isEnabled()); });
        actions->addWidget(button);
        if (each == openPage_) actions->addStretch(1);
    }
    layout->addLayout(actions);

    auto* footer = new QHBoxLayout;
    count_ = new QLabel;
    count_->setAccessibleName("Count");
    setRole(count_, "secondary");
    footer->addWidget(count_);
    status_ = new QLabel;
    status_->setAccessibleName("Status");
    status_->setWordWrap(true);
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    status_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    footer->addWidget(status_, 1);
    layout->addLayout(footer);

    QObject::connect(search_, &QLineEdit::textChanged, this, &LibraryWindow::arrange);
    QObject::connect(order_, &QComboBox::currentIndexChanged, this, &LibraryWindow::arrange);
    QObject::connect(refresh, &QPushButton::clicked, this, [this] { library().refresh(); });
    QObject::connect(list_, &QTableView::activated, this,
                     [this](const QModelIndex& index) { openEditor(table_->entry(index.row()).folder()); });
    QObject::connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &LibraryWindow::enableActions);
    QObject::connect(edit_, &QAction::triggered, this, [this] { openEditor(selectedEntries().front().folder()); });
    QObject::connect(openPage_, &QAction::triggered, this,
                     [this] { QDesktopServices::openUrl(QUrl(text(selectedEntries().front().page))); });
    QObject::connect(makePublic_, &QAction::triggered, this, [this] { changeVisibility(VideoVisibility::publicVideo); });
    QObject::connect(makeUnlisted_, &QAction::triggered, this, [this] { changeVisibility(VideoVisibility::unlisted); });
    QObject::connect(reimportAudio_, &QAction::triggered, this, &LibraryWindow::reimportAudioOfSelected);
    QObject::connect(delete_, &QAction::triggered, this, &LibraryWindow::removeSelected);
    auto* findKey = new QShortcut(QKeySequence::Find, this);
    QObject::connect(findKey, &QShortcut::activated, search_, [this] { search_->setFocus(Qt::ShortcutFocusReason); });
    auto* refreshKey = new QShortcut(QKeySequence::Refresh, this);
    QObject::connect(refreshKey, &QShortcut::activated, this, [this] { library().refresh(); });
    auto* closeKey = new QShortcut(QKeySequence::Close, this);
    QObject::connect(closeKey, &QShortcut::activated, this, &QWidget::close);
    auto* quitKey = new QShortcut(QKeySequence::Quit, this);
    QObject::connect(quitKey, &QShortcut::activated, parent, &QWidget::close);

    QPointer<LibraryWindow> window(this);
    library().onChange([window] {
        if (window) window->libraryChanged();
    });
    enableActions();
    library().refresh();
}

void LibraryWindow::closeEvent(QCloseEvent* event) {
    // The edit windows belong to this one.
    for (auto* child : findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
        if (auto* editor = dynamic_cast<VideoEditWindow*>(child)) editor->close();
    if (onClosed) onClosed();
    QWidget::closeEvent(event);
}

void LibraryWindow::libraryChanged() {
    if (shownListing_ != library().listingGeneration()) {
        shownListing_ = library().listingGeneration();
        arrange();
    } else {
        table_->cellsChanged();
    }
    enableActions();
    showStatus();
    showProblem();
}

VideoEditWindow* LibraryWindow::openEditor(const std::string& folder) {
    VideoEditWindow* editor = nullptr;
    for (auto* child : findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
        if (auto* open = dynamic_cast<VideoEditWindow*>(child); open && open->isVisible() && open->folder() == folder) editor = open;
    if (!editor) {
        editor = new VideoEditWindow(workspace_, folder, this);
        editor->setAttribute(Qt::WA_DeleteOnClose);
    }
    editor->show();
    editor->raise();
    editor->activateWindow();
    return editor;
}

void LibraryWindow::showProblem() {
    const auto problem = library().problem();
    if (!problem) return;
    library().dismissProblem();
    // Over the window the person works in: this one or one of its edit windows.
    QWidget* over = this;
    if (auto* active = QApplication::activeWindow(); active && active->parentWidget() == this) over = active;
    libraryDialogs::tell(over, text(problem->title), text(problem->message));
}

std::vector<app::LibraryEntry> LibraryWindow::selectedEntries() const {
    std::vector<app::LibraryEntry> entries;
    for (const auto& index : list_->selectionModel()->selectedRows()) entries.push_back(table_->entry(index.row()));
    return entries;
}

void LibraryWindow::enableActions() {
    const auto selected = selectedEntries();
    const bool isOne = selected.size() == 1;
    edit_->setEnabled(isOne);
    openPage_->setEnabled(isOne);
    auto anyNot = [&](VideoVisibility visibility) {
        return std::any_of(selected.begin(), selected.end(), [&](const auto& entry) { return entry.visibility != visibility; });
    };
    // One bulk change at a time.
    const bool canChange = !library().bulkChange();
    makePublic_->setEnabled(canChange && anyNot(VideoVisibility::publicVideo));
    makeUnlisted_->setEnabled(canChange && anyNot(VideoVisibility::unlisted));
    reimportAudio_->setEnabled(canChange && !selected.empty());
    delete_->setEnabled(canChange && !selected.empty());
}

void LibraryWindow::changeVisibility(VideoVisibility visibility) {
    auto entries = selectedEntries();
    // A video that has the visibility already stays where it is.
    std::erase_if(entries, [&](const auto& entry) { return entry.visibility == visibility; });
    if (entries.empty()) return;
    libraryDialogs::confirmVisibility(this, entries, visibility,
                                      [this, entries, visibility] { library().changeVisibility(entries, visibility); });
}

// One video may take a file's audio, several their own published audio.
void LibraryWindow::reimportAudioOfSelected() {
    const auto entries = selectedEntries();
    if (entries.empty()) return;
    libraryDialogs::chooseAudio(this, entries, library().site().audioLoudness,
                                [this, entries](const std::optional<std::filesystem::path>& file, AudioLoudness loudness) {
                                    if (entries.size() > 1) return library().reimportAudio(entries, loudness);
                                    if (auto refused = library().reimportAudio(entries.front(), file, loudness))
                                        libraryDialogs::tell(this, QString::fromStdString(refused->title),
                                                             QString::fromStdString(refused->message));
                                });
}

void LibraryWindow::removeSelected() {
    const auto entries = selectedEntries();
    if (entries.empty()) return;
    libraryDialogs::confirmDeletion(this, entries, [this, entries] { library().remove(entries); });
}

void LibraryWindow::arrange() {
    const auto& listing = library().listing();
    const auto order = app::LibraryOrder(order_->currentData().toInt());
    table_->setRows(listing ? app::arrangedEntries(listing->entries, order, search_->text().toStdString())
                            : std::vector<app::LibraryEntry>{});
    if (!listing) return count_->clear();
    const auto shown = table_->rowCount({});
    const auto total = std::int64_t(listing->entries.size());
    count_->setText(shown == total ? format::counted(total, "video")
                                   : QString("%1 of %2").arg(shown).arg(format::counted(total, "video")));
}

void LibraryWindow::showStatus() {
    const auto& library = this->library();
    const auto& failure = library.refreshFailure();
    const char* role = failure ? "error" : "secondary";
    if (status_->property("role").toString() != role) setRole(status_, role);
    if (failure) return status_->setText(text(*failure));
    if (const auto& bulk = library.bulkChange()) return status_->setText(bulkText(*bulk));
    if (!library.refreshProgress()) return status_->clear();
    const QString progress = progressText(*library.refreshProgress());
    const auto& listing = library.listing();
    status_->setText(listing && !listing->isCurrent
                         ? "Showing the list from the last reading while it is brought up to date. " + progress
                         : progress);
}

}  // namespace vorlen::shell
