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

void confirm(QWidget* over, const QString& title, const QString& message, const QString& action,
             QMessageBox::ButtonRole role, std::function<void()> onConfirmed) {
    auto* box = messageBox(over, QMessageBox::Question, title, message);
    auto* confirmButton = box->addButton(action, role);
    box->setDefaultButton(box->addButton(QMessageBox::Cancel));
    QObject::connect(box, &QMessageBox::finished, box, [box, confirmButton, onConfirmed = std::move(onConfirmed)] {
        if (box->clickedButton() == confirmButton) onConfirmed();
    });
    box->open();
}

}  // namespace

void tell(QWidget* over, const QString& title, const QString& message) {
    auto* box = messageBox(over, QMessageBox::Warning, title, message);
    box->addButton(QMessageBox::Ok);
    box->open();
}

void confirmVisibility(QWidget* over, const app::LibraryEntry& entry, VideoVisibility visibility, std::function<void()> onConfirmed) {
    const bool toUnlisted = visibility == VideoVisibility::unlisted;
    const QString title = format::quoted(QString::fromStdString(entry.title));
    confirm(over, QString("Make %1 %2?").arg(title, toUnlisted ? "Unlisted" : "Public"),
            QString("%1 gets a new link, and the link it has now stops working: %2\n\n%3")
                .arg(title, QString::fromStdString(entry.page),
                     toUnlisted ? "Only people with the new link can watch it." : "The site lists it for everyone."),
            toUnlisted ? "Make Unlisted" : "Make Public", QMessageBox::AcceptRole, std::move(onConfirmed));
}

void confirmDeletion(QWidget* over, const app::LibraryEntry& entry, std::function<void()> onConfirmed) {
    const QString title = format::quoted(QString::fromStdString(entry.title));
    confirm(over, QString("Delete %1?").arg(title),
            QString("%1 leaves the site: its page and its link stop working, and its files are deleted from the bucket. "
                    "This cannot be undone.")
                .arg(title),
            "Delete", QMessageBox::DestructiveRole, std::move(onConfirmed));
}

}  // namespace vorlen::shell::libraryDialogs
