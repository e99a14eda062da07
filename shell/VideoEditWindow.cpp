#include "shell/VideoEditWindow.hpp"

#include <QCloseEvent>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPixmap>
#include <QPointer>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QUrl>
#include <QVBoxLayout>

#include "core/publish/SubtitleLanguage.hpp"
#include "shell/Appearance.hpp"
#include "shell/Format.hpp"
#include "shell/LibraryDialogs.hpp"

namespace vorlen::shell {

namespace {

const QSize posterSize(192, 108);

QString text(const std::string& value) { return QString::fromStdString(value); }

QLabel* wrapped(const QString& words, const char* role) {
    auto* made = new QLabel(words);
    made->setWordWrap(true);
    setRole(made, role);
    return made;
}

QPushButton* plainButton(const QString& words) {
    auto* made = new QPushButton(words);
    made->setAutoDefault(false);
    return made;
}

// What a folder without a record counts as: its name for a title, public.
VideoDetails detailsOf(const app::LibraryEntry& entry) {
    if (const auto* metadata = entry.video.metadata()) return metadata->details;
    return VideoDetails(entry.folder(), std::nullopt, std::nullopt, entry.visibility.value_or(VideoVisibility::publicVideo));
}

}  // namespace

VideoEditWindow::VideoEditWindow(std::shared_ptr<app::SiteWorkspace> workspace, std::string folder, QWidget* parent)
    : QWidget(parent, Qt::Window), workspace_(std::move(workspace)), folder_(std::move(folder)) {
    setObjectName("videoEdit");
    resize(640, 720);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    layout->setSpacing(14);

    auto* top = new QHBoxLayout;
    top->setSpacing(16);
    poster_ = new QLabel;
    poster_->setAccessibleName("Poster");
    poster_->setFixedSize(posterSize);
    poster_->setAlignment(Qt::AlignCenter);
    top->addWidget(poster_, 0, Qt::AlignTop);
    auto* facts = new QVBoxLayout;
    facts->setSpacing(6);
    heading_ = wrapped("", "subheading");
    link_ = wrapped("", "secondary");
    link_->setAccessibleName("Page address");
    link_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    openPage_ = plainButton("Open Page");
    facts->addWidget(heading_);
    facts->addWidget(link_);
    facts->addWidget(openPage_, 0, Qt::AlignLeft);
    facts->addStretch(1);
    top->addLayout(facts, 1);
    layout->addLayout(top);

    status_ = wrapped("", "secondary");
    status_->setAccessibleName("Status");
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(status_);

    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(14);
    form->setVerticalSpacing(10);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    title_ = new QLineEdit;
    title_->setAccessibleName("Title");
    form->addRow("Title:", title_);
    reference_ = new QLineEdit;
    reference_->setAccessibleName("Reference");
    reference_->setPlaceholderText("Optional: your own number or code for this video");
    form->addRow("Reference:", reference_);
    description_ = new QPlainTextEdit;
    description_->setAccessibleName("Description");
    description_->setPlaceholderText("Optional");
    description_->setTabChangesFocus(true);
    description_->setFixedHeight(96);
    form->addRow("Description:", description_);
    save_ = new QPushButton("Save");
    save_->setAccessibleName("Save the details");
    setRole(save_, "primary");
    save_->setAutoDefault(true);
    auto* saveRow = new QHBoxLayout;
    saveRow->addWidget(wrapped("The link stays when the details change.", "secondary"), 1);
    saveRow->addWidget(save_);
    form->addRow(QString(), saveRow);
    form->addItem(new QSpacerItem(0, 6));

    // The same words as when the video was published.
    visibility_ = new QComboBox;
    visibility_->setAccessibleName("Visibility");
    visibility_->addItem("Public: listed on the site", int(VideoVisibility::publicVideo));
    visibility_->addItem("Unlisted: only people with the link", int(VideoVisibility::unlisted));
    auto* visibilityRow = new QVBoxLayout;
    visibilityRow->setSpacing(4);
    visibilityRow->addWidget(visibility_, 0, Qt::AlignLeft);
    visibilityRow->addWidget(wrapped("A new visibility gives the video a new link.", "secondary"));
    form->addRow("Visibility:", visibilityRow);
    form->addItem(new QSpacerItem(0, 6));

    posterImage_ = plainButton("Choose an Image File\u2026");
    posterImage_->setAccessibleName("Choose an image file as the poster");
    frameTime_ = new QDoubleSpinBox;
    frameTime_->setAccessibleName("Time of the poster frame");
    frameTime_->setDecimals(1);
    frameTime_->setSingleStep(0.5);
    frameTime_->setSuffix(" s");
    posterFrame_ = plainButton("Use the Frame");
    posterFrame_->setAccessibleName("Use the frame at this time as the poster");
    auto* posterRow = new QHBoxLayout;
    posterRow->addWidget(posterImage_);
    posterRow->addSpacing(12);
    posterRow->addWidget(new QLabel("or the frame at"));
    posterRow->addWidget(frameTime_);
    posterRow->addWidget(posterFrame_);
    posterRow->addStretch(1);
    form->addRow("Poster:", posterRow);
    form->addItem(new QSpacerItem(0, 6));

    subtitles_ = new QListWidget;
    subtitles_->setAccessibleName("Subtitles");
    subtitles_->setFixedHeight(72);
    removeSubtitle_ = plainButton("Remove");
    removeSubtitle_->setAccessibleName("Remove the selected subtitles");
    subtitleLanguage_ = new QLineEdit;
    subtitleLanguage_->setAccessibleName("Language of the new subtitles");
    subtitleLanguage_->setPlaceholderText("Language, such as en; else from the file name");
    addSubtitle_ = plainButton("Add\u2026");
    addSubtitle_->setAccessibleName("Add a subtitle file");
    auto* subtitleButtons = new QHBoxLayout;
    subtitleButtons->addWidget(removeSubtitle_);
    subtitleButtons->addStretch(1);
    subtitleButtons->addWidget(subtitleLanguage_, 1);
    subtitleButtons->addWidget(addSubtitle_);
    auto* subtitleBox = new QVBoxLayout;
    subtitleBox->setSpacing(6);
    subtitleBox->addWidget(subtitles_);
    subtitleBox->addLayout(subtitleButtons);
    form->addRow("Subtitles:", subtitleBox);
    layout->addLayout(form);
    layout->addStretch(1);

    auto* bottom = new QHBoxLayout;
    replace_ = plainButton("Replace Video\u2026");
    replace_->setAccessibleName("Replace the video file");
    bottom->addWidget(replace_);
    reimportAudio_ = plainButton("Re-import Audio\u2026");
    reimportAudio_->setAccessibleName("Re-import the audio");
    bottom->addWidget(reimportAudio_);
    bottom->addStretch(1);
    delete_ = plainButton("Delete\u2026");
    delete_->setAccessibleName("Delete the video");
    bottom->addWidget(delete_);
    layout->addLayout(bottom);

    QObject::connect(openPage_, &QPushButton::clicked, this, [this] { QDesktopServices::openUrl(QUrl(text(entry_.page))); });
    QObject::connect(title_, &QLineEdit::textChanged, this, &VideoEditWindow::enableControls);
    QObject::connect(reference_, &QLineEdit::textChanged, this, &VideoEditWindow::enableControls);
    QObject::connect(description_, &QPlainTextEdit::textChanged, this, &VideoEditWindow::enableControls);
    QObject::connect(title_, &QLineEdit::returnPressed, this, &VideoEditWindow::save);
    QObject::connect(save_, &QPushButton::clicked, this, &VideoEditWindow::save);
    QObject::connect(visibility_, &QComboBox::activated, this,
                     [this](int index) { askVisibility(VideoVisibility(visibility_->itemData(index).toInt())); });
    QObject::connect(posterImage_, &QPushButton::clicked, this, [this] {
        libraryDialogs::chooseFile(
            this, "Choose an Image File", {"Images (*.jpg *.jpeg *.png *.webp *.tif *.tiff *.heic *.gif)"},
            [this](const std::filesystem::path& image) { report(library().changePoster(entry_, image, true)); });
    });
    QObject::connect(posterFrame_, &QPushButton::clicked, this,
                     [this] { report(library().changePosterToFrame(entry_, frameTime_->value(), true)); });
    QObject::connect(subtitles_, &QListWidget::itemSelectionChanged, this, &VideoEditWindow::enableControls);
    QObject::connect(removeSubtitle_, &QPushButton::clicked, this, &VideoEditWindow::removeSubtitle);
    QObject::connect(addSubtitle_, &QPushButton::clicked, this, [this] {
        libraryDialogs::chooseFile(this, "Add Subtitles", {"Subtitles (*.srt *.vtt)"},
                                   [this](const std::filesystem::path& file) { addSubtitle(file); });
    });
    QObject::connect(replace_, &QPushButton::clicked, this, [this] {
        libraryDialogs::chooseFile(this, "Choose the New Video",
                                   {"Videos (*.mp4 *.m4v *.mov *.mkv *.webm *.avi *.mts *.m2ts *.mxf)"},
                                   [this](const std::filesystem::path& file) { askReplace(file); });
    });
    QObject::connect(reimportAudio_, &QPushButton::clicked, this, &VideoEditWindow::askAudio);
    QObject::connect(delete_, &QPushButton::clicked, this, &VideoEditWindow::askDelete);
    auto* saveKey = new QShortcut(QKeySequence::Save, this);
    QObject::connect(saveKey, &QShortcut::activated, this, &VideoEditWindow::save);
    auto* closeKey = new QShortcut(QKeySequence::Close, this);
    QObject::connect(closeKey, &QShortcut::activated, this, &QWidget::close);

    library().setEditing(folder_, true);
    isEditing_ = true;
    findVideo();
    showEntry();
    title_->setFocus();
    QPointer<VideoEditWindow> window(this);
    library().onChange([window] {
        if (window) window->libraryChanged();
    });
}

VideoEditWindow::~VideoEditWindow() { stopEditing(); }

void VideoEditWindow::closeEvent(QCloseEvent* event) {
    stopEditing();
    QWidget::closeEvent(event);
}

void VideoEditWindow::stopEditing() {
    if (isEditing_) library().setEditing(folder_, false);
    isEditing_ = false;
}

void VideoEditWindow::libraryChanged() {
    // A closed window waits only for its deletion.
    if (!isEditing_) return;
    const auto& library = this->library();
    // The list that follows this window's change is read: the fields show the record as it is now.
    if (!library.changes().contains(folder_) && !library.isRefreshing()) {
        waitsForListing_ = false;
        if (!findVideo()) return void(close());
    }
    showEntry();
}

bool VideoEditWindow::findVideo() {
    const auto& listing = library().listing();
    if (!listing) return true;
    const auto& entries = listing->entries;
    if (const auto found = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.folder() == folder_; });
        found != entries.end()) {
        entry_ = *found;
        move_.reset();
        return true;
    }
    if (!listing->isCurrent) return true;
    // A move keeps the record's date: the one video of the new visibility with that date is this one.
    if (move_ && move_->created) {
        std::vector<const app::LibraryEntry*> moved;
        for (const auto& entry : entries)
            if (entry.created == move_->created && entry.visibility == move_->visibility) moved.push_back(&entry);
        if (moved.size() == 1) {
            stopEditing();
            folder_ = moved.front()->folder();
            entry_ = *moved.front();
            library().setEditing(folder_, true);
            isEditing_ = true;
            move_.reset();
            return true;
        }
    }
    return false;
}

void VideoEditWindow::showEntry() {
    setWindowTitle(text(entry_.title) + " \u2014 Edit");
    heading_->setText(text(entry_.title));
    link_->setText(text(entry_.page));
    const auto thumbnail = library().thumbnail(entry_);
    const QPixmap picture = thumbnail ? QPixmap(QString::fromStdString(thumbnail->string())) : QPixmap();
    if (picture.isNull()) {
        poster_->setPixmap({});
        poster_->setText(entry_.video.metadata() && entry_.video.metadata()->poster ? "\u2026" : "No poster");
        setRole(poster_, "secondary");
    } else {
        poster_->setPixmap(picture.scaled(posterSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }

    if (entry_.record != app::LibraryEntry::Record::unreadable) {
        const auto details = detailsOf(entry_);
        if (details != shownDetails_) {
            shownDetails_ = details;
            title_->setText(text(details.title()));
            reference_->setText(text(details.reference().value_or("")));
            description_->setPlainText(text(details.description().value_or("")));
        }
    }
    visibility_->setCurrentIndex(entry_.visibility ? visibility_->findData(int(*entry_.visibility)) : -1);

    frameTime_->setRange(0, entry_.duration.value_or(0));
    showSubtitles();

    const auto& changes = library().changes();
    const auto running = changes.find(folder_);
    if (entry_.problem) {
        setRole(status_, "error");
        status_->setText("Vorlen cannot change this video: its video.json cannot be read. " + text(*entry_.problem));
    } else {
        setRole(status_, "secondary");
        status_->setText(running != changes.end() ? format::change(running->second)
                         : waitsForListing_       ? "Reading the library\u2026"
                                                  : QString());
    }
    status_->setVisible(!status_->text().isEmpty());
    enableControls();
}

VideoDetails VideoEditWindow::typedDetails() const {
    return VideoDetails(title_->text().toStdString(), reference_->text().toStdString(),
                        description_->toPlainText().toStdString(), detailsOf(entry_).visibility());
}

void VideoEditWindow::enableControls() {
    const bool canChange = !entry_.problem && !waitsForListing_ && !library().changes().contains(folder_);
    for (QWidget* control : std::initializer_list<QWidget*>{title_, reference_, description_, visibility_, posterImage_, subtitleLanguage_, replace_, reimportAudio_, delete_})
        control->setEnabled(canChange);
    // The frame and the subtitles need the published video itself.
    const bool isPlayable = canChange && entry_.video.isComplete;
    frameTime_->setEnabled(isPlayable && entry_.duration);
    posterFrame_->setEnabled(isPlayable && entry_.duration);
    addSubtitle_->setEnabled(isPlayable && shownSubtitles_);
    removeSubtitle_->setEnabled(isPlayable && shownSubtitles_ && !shownSubtitles_->empty() && !subtitles_->selectedItems().isEmpty());
    save_->setEnabled(canChange && !typedDetails().title().empty() &&
                      (typedDetails() != shownDetails_ || entry_.record == app::LibraryEntry::Record::missing));
}

void VideoEditWindow::report(const std::optional<app::LibraryModel::Problem>& refusal) {
    if (!refusal) {
        waitsForListing_ = true;
        return showEntry();
    }
    libraryDialogs::tell(this, text(refusal->title), text(refusal->message));
    showEntry();
}

void VideoEditWindow::save() {
    if (!save_->isEnabled()) return;
    report(library().saveDetails(entry_, typedDetails(), true));
}

void VideoEditWindow::askVisibility(VideoVisibility visibility) {
    // The choice shows the video's visibility until the move is done.
    showEntry();
    if (entry_.visibility == visibility) return;
    libraryDialogs::confirmVisibility(this, {entry_}, visibility, [this, visibility] {
        const auto refusal = library().changeVisibility(entry_, visibility, true);
        if (!refusal) move_ = Move{entry_.created, visibility};
        report(refusal);
    });
}

void VideoEditWindow::showSubtitles() {
    const auto tracks = library().subtitles(entry_);
    if (tracks == shownSubtitles_ && subtitles_->count() > 0) return;
    shownSubtitles_ = tracks;
    subtitles_->clear();
    // Words in place of tracks cannot be chosen.
    subtitles_->setEnabled(tracks && !tracks->empty());
    if (!tracks) return subtitles_->addItem(entry_.video.isComplete ? "Reading the subtitles\u2026" : "None");
    if (tracks->empty()) subtitles_->addItem("None");
    for (const auto& track : *tracks)
        subtitles_->addItem(QString("%1  \u00b7  %2").arg(text(track.name), text(track.language.empty() ? "und" : track.language)));
}

void VideoEditWindow::removeSubtitle() {
    const int row = subtitles_->currentRow();
    if (!removeSubtitle_->isEnabled() || row < 0 || row >= int(shownSubtitles_->size())) return;
    SubtitleChange change;
    change.removed.insert(shownSubtitles_->at(std::size_t(row)).baseName);
    report(library().changeSubtitles(entry_, change, true));
}

void VideoEditWindow::addSubtitle(const std::filesystem::path& file) {
    const auto typed = subtitleLanguage_->text().trimmed().toStdString();
    SubtitleChange change;
    change.added.push_back(
        SubtitleTrack{file, typed.empty() ? SubtitleLanguage::fromFileName(file).value_or("") : typed, SubtitleTrack::Kind::subtitles});
    report(library().changeSubtitles(entry_, change, true));
    subtitleLanguage_->clear();
}

void VideoEditWindow::askReplace(const std::filesystem::path& file) {
    libraryDialogs::confirm(this, QString("Replace the Video of %1?").arg(format::quoted(text(entry_.title))),
                            QString("Vorlen encodes %1 and puts it in place of the video. The link, the title and the "
                                    "poster stay.")
                                .arg(format::quoted(text(file.filename().string()))),
                            "Replace Video", [this, file] { report(library().replaceVideo(entry_, file, true)); });
}

void VideoEditWindow::askAudio() {
    libraryDialogs::chooseAudio(this, {entry_}, library().site().audioLoudness,
                                [this](const std::optional<std::filesystem::path>& file, AudioLoudness loudness) {
                                    report(library().reimportAudio(entry_, file, loudness, true));
                                });
}

void VideoEditWindow::askDelete() {
    libraryDialogs::confirmDeletion(this, {entry_}, [this] { report(library().remove(entry_, true)); });
}

}  // namespace vorlen::shell
