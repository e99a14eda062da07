#include "shell/FailedView.hpp"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"

namespace vorlen::shell {

FailedView::FailedView(QWidget* parent) : ScreenView(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    title_ = label("", "heading");
    layout->addWidget(title_);
    auto* card = new QFrame(this);
    setRole(card, "card");
    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(18, 14, 18, 14);
    message_ = label("");
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message_->setAccessibleName("Message");
    cardLayout->addWidget(message_);
    layout->addSpacing(6);
    layout->addWidget(card);
    layout->addSpacing(10);

    auto* logHeader = new QHBoxLayout;
    logTitle_ = label("Upload log", "subheading");
    logHeader->addWidget(logTitle_, 1);
    copyLog_ = button("Copy the upload log");
    logHeader->addWidget(copyLog_);
    layout->addLayout(logHeader);
    log_ = new QPlainTextEdit(this);
    log_->setReadOnly(true);
    log_->setLineWrapMode(QPlainTextEdit::NoWrap);
    log_->setAccessibleName("Upload log");
    log_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    layout->addWidget(log_, 1);
    layout->addStretch(0);
    layout->addSpacing(8);

    auto* buttons = new QHBoxLayout;
    done_ = button("Done");
    done_->setAccessibleName("Done");
    retry_ = button("Retry", "primary");
    retry_->setAccessibleName("Retry");
    retry_->setDefault(true);
    buttons->addWidget(done_);
    buttons->addStretch(1);
    buttons->addWidget(retry_);
    layout->addLayout(buttons);

    QObject::connect(copyLog_, &QPushButton::clicked, this, [this] {
        QApplication::clipboard()->setText(log_->toPlainText());
        copyLog_->setText("Copied");
        QTimer::singleShot(1500, copyLog_, [this] { copyLog_->setText("Copy the upload log"); });
    });
    QObject::connect(done_, &QPushButton::clicked, this, [this] { workspace().reset(); });
    QObject::connect(retry_, &QPushButton::clicked, this, [this] { workspace().retry(); });
    onEscape([this] { workspace().reset(); });
}

QWidget* FailedView::firstFocus() { return retry_->isVisible() ? retry_ : done_; }

void FailedView::show(const app::Failure& failure) {
    title_->setText(QString::fromStdString(failure.title));
    message_->setText(QString::fromStdString(failure.message));
    retry_->setVisible(failure.retry.has_value());
    // Without a retry, Done is the one way on.
    setRole(done_, failure.retry ? "" : "primary");
    bool hasLog = !failure.uploadLog.empty();
    logTitle_->setVisible(hasLog);
    log_->setVisible(hasLog);
    copyLog_->setVisible(hasLog);
    QStringList lines;
    for (const auto& line : failure.uploadLog) lines << QString::fromStdString(line);
    log_->setPlainText(lines.join('\n'));
}

}  // namespace vorlen::shell
