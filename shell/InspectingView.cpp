#include "shell/InspectingView.hpp"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "shell/Format.hpp"

namespace vorlen::shell {

InspectingView::InspectingView(QWidget* parent) : ScreenView(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addStretch(1);
    auto* heading = label("Reading the Video", "heading");
    heading->setAlignment(Qt::AlignCenter);
    layout->addWidget(heading);
    file_ = label("", "secondary");
    file_->setAlignment(Qt::AlignCenter);
    layout->addWidget(file_);
    layout->addSpacing(12);
    auto* busy = new QProgressBar(this);
    busy->setRange(0, 0);
    busy->setTextVisible(false);
    busy->setFixedWidth(320);
    busy->setAccessibleName("Reading the video");
    layout->addWidget(busy, 0, Qt::AlignHCenter);
    layout->addSpacing(16);
    stop_ = button("Stop");
    stop_->setAccessibleName("Stop reading the video");
    QObject::connect(stop_, &QPushButton::clicked, this, [this] { workspace().stop(); });
    layout->addWidget(stop_, 0, Qt::AlignHCenter);
    layout->addStretch(2);
    onEscape([this] { workspace().stop(); });
}

QWidget* InspectingView::firstFocus() { return stop_; }

void InspectingView::show(const app::Screen::Inspecting& state) {
    file_->setText(format::quoted(QString::fromStdString(state.file.filename().string())));
}

}  // namespace vorlen::shell
