#include "shell/ConfirmView.hpp"

#include <QComboBox>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include "core/publish/Naming.hpp"
#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

void setTextIfChanged(QLineEdit* field, const std::string& value) {
    if (field->text() != text(value)) field->setText(text(value));
}

}  // namespace

ConfirmView::ConfirmView(QWidget* parent) : ScreenView(parent) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(12);
    outer->addWidget(label("Ready to Publish", "heading"));

    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* content = new QWidget(scroll);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(0, 0, 8, 0);
    layout->setSpacing(14);

    auto* facts = new QFrame(content);
    setRole(facts, "card");
    auto* factsLayout = new QVBoxLayout(facts);
    factsLayout->setContentsMargins(16, 12, 16, 12);
    factsLayout->setSpacing(4);
    fileName_ = label("", "subheading");
    facts_ = label("");
    renditions_ = label("", "secondary");
    audio_ = label("", "secondary");
    estimate_ = label("", "secondary");
    for (auto* line : {fileName_, facts_, renditions_, audio_, estimate_}) {
        line->setTextInteractionFlags(Qt::TextSelectableByMouse);
        factsLayout->addWidget(line);
    }
    layout->addWidget(facts);

    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(14);
    form->setVerticalSpacing(10);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    title_ = new QLineEdit(content);
    title_->setAccessibleName("Title");
    form->addRow("Title:", title_);

    name_ = new QLineEdit(content);
    name_->setAccessibleName("Folder name");
    name_->setPlaceholderText("lowercase letters, digits and hyphens");
    nameStatus_ = label("", "secondary");
    nameStatus_->setAccessibleName("Name check");
    auto* nameBox = new QVBoxLayout;
    nameBox->setSpacing(4);
    nameBox->addWidget(name_);
    nameBox->addWidget(nameStatus_);
    form->addRow("Folder name:", nameBox);

    reference_ = new QLineEdit(content);
    reference_->setAccessibleName("Reference");
    reference_->setPlaceholderText("Optional: your own number or code for this video");
    form->addRow("Reference:", reference_);

    description_ = new QPlainTextEdit(content);
    description_->setAccessibleName("Description");
    description_->setPlaceholderText("Optional");
    description_->setTabChangesFocus(true);
    description_->setFixedHeight(72);
    form->addRow("Description:", description_);

    visibility_ = new QComboBox(content);
    visibility_->setAccessibleName("Visibility");
    visibility_->addItem("Public: listed on the site");
    visibility_->addItem("Unlisted: only people with the link");
    form->addRow("Visibility:", visibility_);

    loudness_ = new QComboBox(content);
    loudness_->setAccessibleName("Audio loudness");
    for (auto loudness : format::loudnessOrder) loudness_->addItem(format::loudness(loudness));
    form->addRow("Audio loudness:", loudness_);

    subtitles_ = new QListWidget(content);
    subtitles_->setAccessibleName("Subtitles");
    subtitles_->setFixedHeight(64);
    subtitleProblem_ = label("", "error");
    subtitleProblem_->setAccessibleName("Subtitle problem");
    addSubtitles_ = button("Add Subtitles\u2026");
    addSubtitles_->setAccessibleName("Add subtitle files");
    auto* subtitleBox = new QVBoxLayout;
    subtitleBox->setSpacing(6);
    subtitleBox->addWidget(subtitles_);
    subtitleBox->addWidget(subtitleProblem_);
    subtitleBox->addWidget(addSubtitles_, 0, Qt::AlignLeft);
    form->addRow("Subtitles:", subtitleBox);
    layout->addLayout(form);
    layout->addStretch(1);
    scroll->setWidget(content);
    outer->addWidget(scroll, 1);

    auto* buttons = new QHBoxLayout;
    // In line with the fields above, which leave room for a scroll bar.
    buttons->setContentsMargins(0, 0, 8, 0);
    cancel_ = button("Cancel");
    cancel_->setAccessibleName("Cancel");
    publish_ = button("Publish", "primary");
    publish_->setAccessibleName("Publish");
    publish_->setDefault(true);
    buttons->addWidget(cancel_);
    buttons->addStretch(1);
    buttons->addWidget(publish_);
    outer->addLayout(buttons);

    QObject::connect(name_, &QLineEdit::textEdited, this, [this](const QString& value) {
        workspace().editConfirm([value](app::ConfirmState& state) { state.name = value.toStdString(); });
    });
    QObject::connect(title_, &QLineEdit::textEdited, this, [this](const QString& value) {
        workspace().editConfirm([value](app::ConfirmState& state) { state.title = value.toStdString(); });
    });
    QObject::connect(reference_, &QLineEdit::textEdited, this, [this](const QString& value) {
        workspace().editConfirm([value](app::ConfirmState& state) { state.reference = value.toStdString(); });
    });
    QObject::connect(description_, &QPlainTextEdit::textChanged, this, [this] {
        std::string value = description_->toPlainText().toStdString();
        auto* state = workspace().screen().as<app::ConfirmState>();
        if (!state || state->description == value) return;
        workspace().editConfirm([value](app::ConfirmState& confirm) { confirm.description = value; });
    });
    QObject::connect(visibility_, &QComboBox::activated, this, [this](int index) {
        auto visibility = index == 1 ? VideoVisibility::unlisted : VideoVisibility::publicVideo;
        workspace().editConfirm([visibility](app::ConfirmState& state) { state.visibility = visibility; });
    });
    QObject::connect(loudness_, &QComboBox::activated, this, [this](int index) {
        auto loudness = format::loudnessOrder[index];
        workspace().editConfirm([loudness](app::ConfirmState& state) { state.audioLoudness.selection = loudness; });
    });
    for (auto* field : {name_, title_, reference_})
        QObject::connect(field, &QLineEdit::returnPressed, this, [this] { publish(); });
    QObject::connect(publish_, &QPushButton::clicked, this, [this] { publish(); });
    QObject::connect(cancel_, &QPushButton::clicked, this, [this] { workspace().reset(); });
    QObject::connect(addSubtitles_, &QPushButton::clicked, this, [this] { chooseSubtitles(); });
    onEscape([this] { workspace().reset(); });
}

QWidget* ConfirmView::firstFocus() { return title_; }

void ConfirmView::publish() {
    if (publish_->isEnabled()) workspace().confirmPublish();
}

void ConfirmView::chooseSubtitles() {
    ScreenView::chooseFiles("Add Subtitles", {"Subtitles (*.srt *.vtt)", "All files (*)"});
}

void ConfirmView::show(const app::ConfirmState& state) {
    const auto& inspection = state.inspection;
    fileName_->setText(text(inspection.source.filename().string()));
    QStringList facts;
    facts << QString("%1 \u00d7 %2").arg(inspection.picture.width).arg(inspection.picture.height);
    if (inspection.picture.framesPerSecond > 0)
        facts << QString("%1 fps").arg(inspection.picture.framesPerSecond, 0, 'g', 4);
    facts << format::clock(inspection.duration);
    facts << format::channels(inspection.audioChannels);
    if (inspection.picture.isHDR) facts << "HDR";
    facts_->setText(facts.join("  \u00b7  "));
    QStringList rungs;
    for (const auto& rung : inspection.rungs) rungs << text(rung);
    renditions_->setText("Renditions: " + (rungs.isEmpty() ? QString("none") : rungs.join(", ")));
    QStringList audio;
    for (const auto& rendition : inspection.audioRenditions) audio << text(rendition);
    audio_->setText("Audio: " + (audio.isEmpty() ? QString("none") : audio.join(", ")));
    estimate_->setText("About " + format::bytes(inspection.estimatedBytes) + " to upload");

    setTextIfChanged(title_, state.title);
    setTextIfChanged(name_, state.name);
    setTextIfChanged(reference_, state.reference);
    if (description_->toPlainText().toStdString() != state.description)
        description_->setPlainText(text(state.description));
    visibility_->setCurrentIndex(state.visibility == VideoVisibility::unlisted ? 1 : 0);
    for (int index = 0; index < 3; ++index)
        if (format::loudnessOrder[index] == state.audioLoudness.selection) loudness_->setCurrentIndex(index);
    for (int index = 0; index < 3; ++index) {
        QString item = format::loudness(format::loudnessOrder[index]);
        if (format::loudnessOrder[index] == state.audioLoudness.siteDefault) item += "  (the site\u2019s default)";
        loudness_->setItemText(index, item);
    }

    QString folder = format::quoted(text(state.folderName()));
    bool canPublish = true;
    std::visit(
        [&](const auto& status) {
            using Status = std::decay_t<decltype(status)>;
            if constexpr (std::is_same_v<Status, app::ConfirmState::Checking>) {
                setRole(nameStatus_, "secondary");
                nameStatus_->setText("Checking " + folder + "\u2026");
            } else if constexpr (std::is_same_v<Status, app::ConfirmState::Resolved>) {
                setRole(nameStatus_, "success");
                const auto& resolved = status.folder;
                if (resolved.name == resolved.requestedName)
                    nameStatus_->setText(QString("\u2713 %1 is free.").arg(folder));
                else
                    nameStatus_->setText(QString("%1 is taken, so the video goes to %2.")
                                             .arg(folder, format::quoted(text(resolved.name))));
            } else if constexpr (std::is_same_v<Status, app::ConfirmState::Unavailable>) {
                setRole(nameStatus_, "error");
                nameStatus_->setText(text(status.message));
                canPublish = false;
            } else {
                setRole(nameStatus_, "error");
                nameStatus_->setText(text(Naming::invalidNameMessage(state.folderName())) + ".");
                canPublish = false;
            }
        },
        state.nameStatus);
    publish_->setEnabled(canPublish);

    subtitles_->clear();
    for (const auto& subtitle : state.subtitleFiles.files)
        subtitles_->addItem(QString("%1  \u00b7  %2 cues  \u00b7  %3")
                                .arg(format::language(subtitle.language))
                                .arg(subtitle.cueCount)
                                .arg(text(subtitle.file.filename().string())));
    if (state.subtitleFiles.files.empty()) subtitles_->addItem("None. Drop .srt or .vtt files on the window to add them.");
    subtitleProblem_->setVisible(state.subtitleFiles.problem.has_value());
    subtitleProblem_->setText(text(state.subtitleFiles.problem.value_or("")));
}

}  // namespace vorlen::shell
