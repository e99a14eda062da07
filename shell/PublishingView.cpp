#include "shell/PublishingView.hpp"

#include <QFont>
#include <QFontMetrics>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

namespace {

const app::JobStage stageOrder[] = {app::JobStage::encoding, app::JobStage::packaging, app::JobStage::reviewingPoster,
                                    app::JobStage::uploading};

}  // namespace

PublishingView::PublishingView(QWidget* parent) : ScreenView(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    heading_ = label("", "heading");
    layout->addWidget(heading_);
    folder_ = label("", "secondary");
    layout->addWidget(folder_);
    layout->addSpacing(18);

    auto* card = new QFrame(this);
    setRole(card, "card");
    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(20, 16, 20, 20);
    cardLayout->setSpacing(12);
    auto* steps = new QHBoxLayout;
    steps->setSpacing(6);
    const char* stepNames[] = {"Encode", "Package", "Poster", "Upload"};
    for (std::size_t index = 0; index < steps_.size(); ++index) {
        if (index > 0) steps->addWidget(label("\u203a", "secondary"));
        steps_[index] = label(stepNames[index], "secondary");
        steps_[index]->setWordWrap(false);
        // Room for the name in bold, so that the row stays put as the stage moves on.
        QFont bold = font();
        bold.setWeight(QFont::DemiBold);
        steps_[index]->setFixedWidth(QFontMetrics(bold).horizontalAdvance(stepNames[index]) + 4);
        steps->addWidget(steps_[index]);
    }
    steps->addStretch(1);
    cardLayout->addLayout(steps);
    stage_ = label("", "subheading");
    stage_->setAccessibleName("Stage");
    cardLayout->addWidget(stage_);
    progress_ = new QProgressBar(card);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    progress_->setFixedHeight(10);
    progress_->setAccessibleName("Progress of the stage");
    cardLayout->addWidget(progress_);
    cardLayout->addSpacing(6);

    auto* figures = new QGridLayout;
    figures->setHorizontalSpacing(28);
    figures->setVerticalSpacing(2);
    auto figure = [&](int column, const QString& name) {
        figures->addWidget(label(name, "secondary"), 0, column);
        auto* value = label("\u2014", "value");
        value->setWordWrap(false);
        value->setAccessibleName(name);
        figures->addWidget(value, 1, column);
        return value;
    };
    timeLeft_ = figure(0, "Time left");
    encodeSpeed_ = figure(1, "Encode speed");
    uploadRate_ = figure(2, "Upload rate");
    uploaded_ = figure(3, "Uploaded");
    for (int column = 0; column < 4; ++column) figures->setColumnStretch(column, 1);
    cardLayout->addLayout(figures);
    layout->addWidget(card);

    stopping_ = label("Stopping. Vorlen removes what it has uploaded of this video, then returns to the start.", "secondary");
    layout->addWidget(stopping_);
    layout->addStretch(1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    stop_ = button("Stop Publishing");
    stop_->setAccessibleName("Stop publishing");
    buttons->addWidget(stop_);
    layout->addLayout(buttons);
    QObject::connect(stop_, &QPushButton::clicked, this, [this] { workspace().stop(); });
}

QWidget* PublishingView::firstFocus() { return stop_; }

void PublishingView::show(const app::PublishingState& state) {
    heading_->setText("Publishing " + format::quoted(QString::fromStdString(state.request.details.title())));
    QString folder = QString::fromStdString(state.folder ? state.folder->name : state.request.name);
    folder_->setText("Into the folder " + format::quoted(folder) + " of the site.");
    std::optional<app::JobStage> stage;
    if (state.progress) stage = state.progress->stage;
    for (std::size_t index = 0; index < steps_.size(); ++index) {
        bool current = stage == stageOrder[index];
        bool done = stage && static_cast<int>(*stage) > static_cast<int>(stageOrder[index]);
        setRole(steps_[index], current ? "" : done ? "success" : "secondary");
        // A font set here, not by the stylesheet, so that the label's size follows the weight.
        QFont weight = font();
        weight.setWeight(current ? QFont::DemiBold : QFont::Normal);
        steps_[index]->setFont(weight);
    }
    if (!state.progress) {
        stage_->setText(state.built ? "Starting the upload" : "Starting");
        progress_->setRange(0, 0);
    } else {
        const auto& progress = *state.progress;
        stage_->setText(QString("%1  %2%").arg(format::stage(progress.stage)).arg(int(progress.stageFraction * 100)));
        progress_->setRange(0, 1000);
        progress_->setValue(int(progress.stageFraction * 1000));
        auto eta = progress.totalETA ? progress.totalETA : progress.stageETA;
        timeLeft_->setText(eta ? format::clock(*eta) : QString("\u2014"));
        encodeSpeed_->setText(progress.encodeSpeed ? QString("%1\u00d7 realtime").arg(*progress.encodeSpeed, 0, 'f', 2)
                                                   : QString("\u2014"));
        uploadRate_->setText(progress.uploadRate ? format::rate(*progress.uploadRate) : QString("\u2014"));
        if (progress.stage == app::JobStage::uploading && progress.uploadTotalBytes > 0)
            uploaded_->setText(QString("%1 of %2").arg(format::bytes(progress.uploadedBytes), format::bytes(progress.uploadTotalBytes)));
        else
            uploaded_->setText("\u2014");
    }
    stopping_->setVisible(state.isStopping);
    stop_->setEnabled(!state.isStopping);
    stop_->setText(state.isStopping ? "Stopping\u2026" : "Stop Publishing");
}

}  // namespace vorlen::shell
