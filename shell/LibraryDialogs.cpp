#include "shell/LibraryDialogs.hpp"

#include <QMessageBox>
#include <QPushButton>
#include <QTextDocument>

#include "shell/Format.hpp"

namespace vorlen::shell::libraryDialogs {

namespace {

QMessageBox* messageBox(QWidget* over, QMessageBox::Icon icon, const QString& title, const QString& message) {
    auto* box = new QMessageBox(icon, title, QString(), QMessageBox::NoButton, over);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // The title stands in bold over the message too, since a window manager may not show window titles.
    box->setTextFormat(Qt::RichText);
    box->setText("<b>" + title.toHtmlEscaped() + "</b>");
    // A failure's words can hold markup of their own (an XML error body): they show as they are.
    box->setInformativeText(Qt::convertFromPlainText(message, Qt::WhiteSpaceNormal));
    return box;
}

void ask(QWidget* over, const QString& title, const QString& message, const QString& action, QMessageBox::ButtonRole role,
         std::function<void()> onConfirmed) {
    auto* box = messageBox(over, QMessageBox::Question, title, message);
    auto* confirmButton = box->addButton(action, role);
    box->setDefaultButton(box->addButton(QMessageBox::Cancel));
    QObject::connect(box, &QMessageBox::finished, box, [box, confirmButton, onConfirmed = std::move(onConfirmed)] {
        if (box->clickedButton() == confirmButton) onConfirmed();
    });
    box->open();
}

QString titleOf(const app::LibraryEntry& entry) { return format::quoted(QString::fromStdString(entry.title)); }

}  // namespace

void confirm(QWidget* over, const QString& title, const QString& message, const QString& action,
             std::function<void()> onConfirmed) {
    ask(over, title, message, action, QMessageBox::AcceptRole, std::move(onConfirmed));
}

void tell(QWidget* over, const QString& title, const QString& message) {
    auto* box = messageBox(over, QMessageBox::Warning, title, message);
    box->addButton(QMessageBox::Ok);
    box->open();
}

void confirmVisibility(QWidget* over, const std::vector<app::LibraryEntry>& entries, VideoVisibility visibility,
                       std::function<void()> onConfirmed) {
    const bool toUnlisted = visibility == VideoVisibility::unlisted;
    const QString action = toUnlisted ? "Make Unlisted" : "Make Public";
    QString title, message;
    if (entries.size() == 1) {
        const auto& entry = entries.front();
        title = QString("Make %1 %2?").arg(titleOf(entry), toUnlisted ? "Unlisted" : "Public");
        message = QString("%1 gets a new link, and the link it has now stops working: %2\n\n%3")
                      .arg(titleOf(entry), QString::fromStdString(entry.page),
                           toUnlisted ? "Only people with the new link can watch it." : "The site lists it for everyone.");
    } else {
        const auto count = format::counted(std::int64_t(entries.size()), "Video");
        title = QString("Make %1 %2?").arg(count, toUnlisted ? "Unlisted" : "Public");
        message = QString("Each of the %1 gets a new link, and the link it has now stops working.\n\n%2")
                      .arg(format::counted(std::int64_t(entries.size()), "video"),
                           toUnlisted ? "Only people with a new link can watch them." : "The site lists them for everyone.");
    }
    confirm(over, title, message, action, std::move(onConfirmed));
}

void confirmDeletion(QWidget* over, const std::vector<app::LibraryEntry>& entries, std::function<void()> onConfirmed) {
    QString title, message;
    if (entries.size() == 1) {
        title = QString("Delete %1?").arg(titleOf(entries.front()));
        message = QString("%1 leaves the site: its page and its link stop working, and its files are deleted from the "
                          "bucket. This cannot be undone.")
                      .arg(titleOf(entries.front()));
    } else {
        title = QString("Delete %1?").arg(format::counted(std::int64_t(entries.size()), "Video"));
        message = QString("The %1 leave the site: their pages and links stop working, and their files are deleted from "
                          "the bucket. This cannot be undone.")
                      .arg(format::counted(std::int64_t(entries.size()), "video"));
    }
    ask(over, title, message, "Delete", QMessageBox::DestructiveRole, std::move(onConfirmed));
}

}  // namespace vorlen::shell::libraryDialogs
