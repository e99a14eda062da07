#include "shell/PublishedView.hpp"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

PublishedView::PublishedView(QWidget* parent) : ScreenView(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(label("Your Video Is Published", "heading"));
    summary_ = label("", "secondary");
    layout->addWidget(summary_);
    layout->addSpacing(14);

    auto* card = new QFrame(this);
    setRole(card, "card");
    auto* grid = new QGridLayout(card);
    grid->setContentsMargins(18, 16, 18, 16);
    grid->setHorizontalSpacing(12);
    grid->setVerticalSpacing(10);
    int row = 0;
    auto link = [&](const QString& name, const QString& what) {
        auto* caption = label(name);
        caption->setWordWrap(false);
        grid->addWidget(caption, row, 0);
        auto* address = new QLineEdit(card);
        address->setReadOnly(true);
        address->setAccessibleName(name + " address");
        grid->addWidget(address, row, 1);
        auto* copy = button("Copy");
        copy->setAccessibleName("Copy the " + what + " address");
        // Wide enough for "Copied", so that the word never clips and the column never jumps.
        copy->setMinimumWidth(copy->fontMetrics().horizontalAdvance("Copied") + 40);
        grid->addWidget(copy, row, 2);
        QObject::connect(copy, &QPushButton::clicked, this, [address, copy] {
            QApplication::clipboard()->setText(address->text());
            copy->setText("Copied");
            QTimer::singleShot(1500, copy, [copy] { copy->setText("Copy"); });
        });
        ++row;
        return Link{address, copy};
    };
    page_ = link("Page", "page");
    embed_ = link("Embed", "embed");
    media_ = link("Media", "media folder");
    hls_ = link("HLS", "HLS playlist");
    dash_ = link("DASH", "DASH manifest");
    grid->setColumnStretch(1, 1);
    layout->addWidget(card);
    localHint_ = label("The pages of a local site open in the browser while \u201cvorlen preview\u201d runs.", "secondary");
    layout->addWidget(localHint_);
    layout->addStretch(1);

    auto* buttons = new QHBoxLayout;
    another_ = button("Publish Another Video");
    open_ = button("Open the Page in the Browser", "primary");
    buttons->addWidget(another_);
    buttons->addStretch(1);
    buttons->addWidget(open_);
    layout->addLayout(buttons);
    QObject::connect(open_, &QPushButton::clicked, this, [this] { QDesktopServices::openUrl(QUrl(page_.address->text())); });
    QObject::connect(another_, &QPushButton::clicked, this, [this] { workspace().reset(); });
    onEscape([this] { workspace().reset(); });
}

QWidget* PublishedView::firstFocus() { return open_; }

void PublishedView::show(const app::PublishedState& state) {
    const auto& video = state.video;
    QString summary = QString("%1 files, %2").arg(video.fileCount).arg(format::bytes(video.uploadedBytes));
    if (video.uploadRate) summary += ", at " + format::rate(*video.uploadRate);
    summary_->setText(summary + ".");
    localHint_->setVisible(workspace().local().settings.isLocal());
    page_.address->setText(QString::fromStdString(state.links.page));
    embed_.address->setText(QString::fromStdString(state.links.embed));
    media_.address->setText(QString::fromStdString(state.links.media));
    hls_.address->setText(QString::fromStdString(state.links.hls));
    dash_.address->setText(QString::fromStdString(state.links.dash));
    for (auto* field : {page_.address, embed_.address, media_.address, hls_.address, dash_.address}) field->setCursorPosition(0);
}

}  // namespace vorlen::shell
