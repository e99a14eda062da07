#include "shell/PosterReviewView.hpp"

#include <cmath>

#include <QFileDialog>
#include <QGridLayout>
#include <QHideEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

namespace {

const QSize posterSize(512, 288);
const QSize thumbnailSize(104, 58);

QPixmap pixmapOf(const Poster& poster) {
    QPixmap pixmap;
    pixmap.loadFromData(reinterpret_cast<const uchar*>(poster.jpeg.data()), static_cast<uint>(poster.jpeg.size()), "JPEG");
    return pixmap;
}

// A frame in a box of the given size, letterboxed on the surface colour.
QPixmap framed(const QPixmap& picture, QSize size, const QString& emptyText) {
    Colors colors = Colors::of(currentColorScheme());
    QPixmap box(size);
    box.fill(Qt::transparent);
    QPainter painter(&box);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(size)), 8, 8);
    painter.setClipPath(clip);
    painter.fillRect(box.rect(), picture.isNull() ? colors.border : QColor(Qt::black));
    if (picture.isNull()) {
        painter.setPen(colors.secondaryText);
        painter.drawText(box.rect(), Qt::AlignCenter, emptyText);
    } else {
        QPixmap scaled = picture.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        painter.drawPixmap((size.width() - scaled.width()) / 2, (size.height() - scaled.height()) / 2, scaled);
    }
    return box;
}

}  // namespace

PosterReviewView::PosterReviewView(app::MainQueue& mainQueue, QWidget* parent) : ScreenView(parent), mainQueue_(mainQueue) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(10);
    layout->addWidget(label("Choose the Poster", "heading"));

    auto* countdownRow = new QHBoxLayout;
    countdown_ = label("", "subheading");
    countdown_->setAccessibleName("Countdown");
    countdownRow->addWidget(countdown_, 1);
    stopCountdown_ = button("Stop the countdown, so that you have time to choose");
    countdownRow->addWidget(stopCountdown_);
    layout->addLayout(countdownRow);
    selectionFailure_ = label("", "error");
    layout->addWidget(selectionFailure_);

    auto* body = new QHBoxLayout;
    body->setSpacing(24);
    auto* left = new QVBoxLayout;
    left->setSpacing(8);
    poster_ = new QLabel(this);
    poster_->setFixedSize(posterSize);
    poster_->setAccessibleName("Poster");
    left->addWidget(poster_);
    auto* slider = new QHBoxLayout;
    position_ = new QSlider(Qt::Horizontal, this);
    position_->setAccessibleName("Position of the poster frame");
    position_->setPageStep(10);
    positionText_ = label("", "secondary");
    positionText_->setWordWrap(false);
    positionText_->setMinimumWidth(120);
    positionText_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    slider->addWidget(position_, 1);
    slider->addWidget(positionText_);
    left->addLayout(slider);
    imageStatus_ = label("", "secondary");
    imageStatus_->setAccessibleName("Poster status");
    left->addWidget(imageStatus_);
    auto* actions = new QHBoxLayout;
    useCurrent_ = button("Use Current Poster");
    withoutPoster_ = button("Publish Without Poster");
    chooseImage_ = button("Choose an Image File\u2026");
    chooseImage_->setAccessibleName("Choose an image file as the poster");
    actions->addWidget(useCurrent_);
    actions->addWidget(withoutPoster_);
    actions->addWidget(chooseImage_);
    actions->addStretch(1);
    left->addLayout(actions);
    left->addStretch(1);
    body->addLayout(left);

    auto* right = new QVBoxLayout;
    right->setSpacing(6);
    right->addWidget(label("Other frames", "secondary"));
    auto* grid = new QGridLayout;
    grid->setSpacing(6);
    for (std::size_t index = 0; index < thumbnails_.size(); ++index) {
        auto* thumbnail = new QToolButton(this);
        setRole(thumbnail, "thumbnail");
        thumbnail->setCheckable(true);
        thumbnail->setIconSize(thumbnailSize);
        thumbnail->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        thumbnail->setFocusPolicy(Qt::StrongFocus);
        thumbnail->setCursor(Qt::PointingHandCursor);
        grid->addWidget(thumbnail, int(index / 3), int(index % 3));
        thumbnails_[index] = thumbnail;
        QObject::connect(thumbnail, &QToolButton::clicked, this, [this, index] {
            if (!chooser_) return;
            workspace().pickPosterFrame(chooser_->sampleTimes().at(index));
        });
    }
    right->addLayout(grid);
    framesProblem_ = label("", "error");
    framesProblem_->setMaximumWidth(340);
    right->addWidget(framesProblem_);
    right->addStretch(1);
    body->addLayout(right);
    body->addStretch(1);
    layout->addLayout(body, 1);

    auto* buttons = new QHBoxLayout;
    stop_ = button("Stop Publishing");
    stop_->setAccessibleName("Stop publishing");
    confirm_ = button("Confirm", "primary");
    confirm_->setAccessibleName("Confirm the poster");
    confirm_->setDefault(true);
    buttons->addWidget(stop_);
    buttons->addStretch(1);
    buttons->addWidget(confirm_);
    layout->addLayout(buttons);

    tick_ = new QTimer(this);
    tick_->setInterval(200);
    QObject::connect(tick_, &QTimer::timeout, this, [this] { showCountdown(); });
    pickDelay_ = new QTimer(this);
    pickDelay_->setSingleShot(true);
    pickDelay_->setInterval(300);
    QObject::connect(pickDelay_, &QTimer::timeout, this, [this] { workspace().pickPosterFrame(position_->value() / 10.0); });
    QObject::connect(position_, &QSlider::valueChanged, this, [this](int value) {
        positionText_->setText(format::videoTime(value / 10.0) + " of " + format::videoTime(position_->maximum() / 10.0));
        // Only the last position of a drag or of a run of keys is read.
        pickDelay_->start();
    });
    QObject::connect(stopCountdown_, &QPushButton::clicked, this, [this] { workspace().holdCountdown(); });
    QObject::connect(useCurrent_, &QPushButton::clicked, this, [this] { workspace().useCurrentPoster(); });
    QObject::connect(withoutPoster_, &QPushButton::clicked, this, [this] { workspace().publishWithoutPoster(); });
    QObject::connect(chooseImage_, &QPushButton::clicked, this, [this] { chooseImage(); });
    QObject::connect(stop_, &QPushButton::clicked, this, [this] { workspace().stop(); });
    QObject::connect(confirm_, &QPushButton::clicked, this, [this] { workspace().confirmPoster(); });
}

void PosterReviewView::hideEvent(QHideEvent* event) {
    // A review that has left the screen reads no more frames: the upload has the machine.
    if (!event->spontaneous()) {
        chooser_.reset();
        reply_.reset();
        tick_->stop();
    }
    ScreenView::hideEvent(event);
}

QWidget* PosterReviewView::firstFocus() { return stopCountdown_->isVisible() ? stopCountdown_ : confirm_; }

void PosterReviewView::chooseImage() {
    // Looking for a file takes longer than the countdown leaves.
    workspace().holdCountdown();
    auto* dialog = new QFileDialog(this, "Choose an Image File");
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters({"Images (*.jpg *.jpeg *.png *.webp *.tif *.tiff *.heic *.gif)", "All files (*)"});
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::fileSelected, this,
                     [this](const QString& file) { workspace().pickPosterImage(file.toStdString()); });
    dialog->open();
}

void PosterReviewView::showCountdown() {
    if (!reply_) return;
    double left = std::max(0.0, secondsBetween(BootClock::now(), reply_->countdown().deadline));
    int seconds = int(std::ceil(left));
    QString unit = seconds == 1 ? "second" : "seconds";
    countdown_->setText(QString("%1%2 %3.").arg(hasPoster_ ? "Vorlen uses this poster in " : "Vorlen publishes without a poster in ")
                            .arg(seconds)
                            .arg(unit));
}

void PosterReviewView::showThumbnails() {
    framesProblem_->setVisible(chooser_ && chooser_->failure());
    if (!chooser_) return;
    if (chooser_->failure()) framesProblem_->setText(QString::fromStdString(*chooser_->failure()));
    const auto& times = chooser_->sampleTimes();
    for (std::size_t index = 0; index < thumbnails_.size(); ++index) {
        auto* thumbnail = thumbnails_[index];
        bool exists = index < times.size();
        thumbnail->setVisible(exists);
        if (!exists) continue;
        QString time = format::videoTime(times[index]);
        thumbnail->setText(time);
        thumbnail->setAccessibleName("Frame at " + time);
        auto found = chooser_->thumbnails().find(index);
        bool loaded = found != chooser_->thumbnails().end();
        if (loaded)
            thumbnail->setToolTip("Use the frame at " + time);
        else
            thumbnail->setToolTip(chooser_->isLoading() ? "Reading the frame at " + time : "Vorlen could not read the frame at " + time);
        QPixmap picture = loaded ? pixmapOf(found->second) : QPixmap();
        thumbnail->setIcon(QIcon(framed(picture, thumbnailSize, "\u2026")));
        thumbnail->setChecked(posterTime_ && std::abs(*posterTime_ - times[index]) < 0.001);
    }
}

void PosterReviewView::show(const app::PosterReviewState& state) {
    const auto& request = state.request;
    if (request.reply != reply_) {
        reply_ = request.reply;
        chooser_.reset();
        if (request.frames) {
            chooser_ = app::FrameChooser::make(request.frames, mainQueue_);
            chooser_->onChange([this] { showThumbnails(); });
            chooser_->start();
            QSignalBlocker quiet(position_);
            position_->setRange(0, int(std::round(request.frames->duration() * 10)));
        }
    }
    hasPoster_ = state.poster.has_value();
    posterTime_ = state.poster ? state.poster->time : std::nullopt;

    if (state.isCountingDown) {
        if (!tick_->isActive()) tick_->start();
        showCountdown();
    } else {
        tick_->stop();
        countdown_->setText(hasPoster_ ? "Vorlen publishes the video with this poster." : "Vorlen publishes the video without a poster.");
    }
    stopCountdown_->setVisible(state.isCountingDown);
    selectionFailure_->setVisible(!request.selection);
    QString failure = "Vorlen could not choose a frame.";
    if (request.selectionFailure) failure += " " + QString::fromStdString(*request.selectionFailure);
    selectionFailure_->setText(failure);

    poster_->setPixmap(framed(state.poster ? pixmapOf(*state.poster) : QPixmap(), posterSize, "No poster"));
    if (posterTime_ && !position_->isSliderDown() && !pickDelay_->isActive()) {
        QSignalBlocker quiet(position_);
        position_->setValue(int(std::round(*posterTime_ * 10)));
    }
    positionText_->setText(format::videoTime(position_->value() / 10.0) + " of " + format::videoTime(position_->maximum() / 10.0));
    position_->setEnabled(request.frames != nullptr);

    std::visit(
        [&](const auto& status) {
            using Status = std::decay_t<decltype(status)>;
            if constexpr (std::is_same_v<Status, app::PosterReviewState::Loading>) {
                setRole(imageStatus_, "secondary");
                imageStatus_->setText("Reading the picture\u2026");
            } else if constexpr (std::is_same_v<Status, app::PosterReviewState::Failed>) {
                setRole(imageStatus_, "error");
                imageStatus_->setText(QString::fromStdString(status.message));
            } else if (state.poster) {
                setRole(imageStatus_, "secondary");
                imageStatus_->setText(state.poster->time
                                          ? QString("The frame at %1, %2 \u00d7 %3.")
                                                .arg(format::videoTime(*state.poster->time))
                                                .arg(state.poster->width)
                                                .arg(state.poster->height)
                                          : QString("An image file, %1 \u00d7 %2.").arg(state.poster->width).arg(state.poster->height));
            } else {
                setRole(imageStatus_, "secondary");
                imageStatus_->setText("The video goes out without a poster.");
            }
        },
        state.imageStatus);
    useCurrent_->setVisible(request.current.has_value());
    withoutPoster_->setEnabled(state.poster.has_value());
    chooseImage_->setEnabled(request.frames != nullptr);
    for (auto* thumbnail : thumbnails_) thumbnail->setEnabled(request.frames != nullptr);
    showThumbnails();
}

}  // namespace vorlen::shell
