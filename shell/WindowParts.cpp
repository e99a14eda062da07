#include "shell/WindowParts.hpp"

#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"

namespace vorlen::shell::windowParts {

QLabel* label(const char* role, const QString& name) {
    auto* made = new QLabel;
    made->setWordWrap(true);
    made->setTextInteractionFlags(Qt::TextSelectableByMouse);
    if (role) setRole(made, role);
    if (!name.isEmpty()) made->setAccessibleName(name);
    return made;
}

QPushButton* button(const QString& words, const char* role) {
    auto* made = new QPushButton(words);
    made->setAccessibleName(words);
    made->setAutoDefault(true);
    if (role) setRole(made, role);
    return made;
}

QVBoxLayout* addPage(QStackedWidget* pages, QWidget*& page) {
    page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    pages->addWidget(page);
    return layout;
}

MessagePage::MessagePage(QStackedWidget* pages)
    : pages_(pages), title_(label("heading", "Title")), message_(label(nullptr, "Message")) {
    auto* layout = addPage(pages, page_);
    layout->addWidget(title_);
    layout->addWidget(message_);
    layout->addStretch(1);
}

void MessagePage::show(const QString& title, const QString& message) const {
    title_->setText(title);
    message_->setText(message);
    message_->setVisible(!message.isEmpty());
    pages_->setCurrentWidget(page_);
}

QTableView* table(const QString& name) {
    auto* made = new QTableView;
    made->setAccessibleName(name);
    made->setSelectionBehavior(QAbstractItemView::SelectRows);
    made->setEditTriggers(QAbstractItemView::NoEditTriggers);
    made->setTabKeyNavigation(false);
    made->setShowGrid(false);
    made->setWordWrap(false);
    made->setAlternatingRowColors(true);
    made->verticalHeader()->hide();
    made->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    auto* header = made->horizontalHeader();
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setHighlightSections(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    header->setStretchLastSection(true);
    return made;
}

}  // namespace vorlen::shell::windowParts
