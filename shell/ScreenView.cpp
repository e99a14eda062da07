#include "shell/ScreenView.hpp"

#include <QFileDialog>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>

#include "shell/Appearance.hpp"

namespace vorlen::shell {

ScreenView::ScreenView(QWidget* parent) : QWidget(parent) {}

QLabel* ScreenView::label(const QString& text, const char* role, QWidget* parent) {
    auto* made = new QLabel(text, parent);
    made->setWordWrap(true);
    if (role) setRole(made, role);
    return made;
}

QPushButton* ScreenView::button(const QString& text, const char* role, QWidget* parent) {
    auto* made = new QPushButton(text, parent);
    made->setAutoDefault(true);
    made->setCursor(Qt::PointingHandCursor);
    if (role) setRole(made, role);
    return made;
}

void ScreenView::onEscape(std::function<void()> action) {
    auto* shortcut = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    shortcut->setContext(Qt::WidgetWithChildrenShortcut);
    QObject::connect(shortcut, &QShortcut::activated, this, [action = std::move(action)] { action(); });
}

void ScreenView::chooseFiles(const QString& title, const QStringList& nameFilters) {
    auto* dialog = new QFileDialog(this, title);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    dialog->setNameFilters(nameFilters);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::filesSelected, this, [this](const QStringList& chosen) {
        std::vector<std::filesystem::path> files;
        for (const auto& file : chosen) files.emplace_back(file.toStdString());
        if (onFiles) onFiles(files);
    });
    dialog->open();
}

}  // namespace vorlen::shell
