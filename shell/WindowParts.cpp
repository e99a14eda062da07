#include "shell/WindowParts.hpp"

#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

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

QString activeText(const BatchActiveItem& active, const std::string& phase) {
    QString words = text(phase);
    const auto fraction = active.phase == BatchPhase::downloading ? active.downloadFraction
                          : active.progress                       ? std::optional(active.progress->stageFraction)
                                                                  : std::nullopt;
    if (fraction) words += QString("  \u00b7  %1%").arg(int(*fraction * 100));
    if (active.folder) words += "  " + format::quoted(text(*active.folder));
    return words;
}

}  // namespace vorlen::shell::windowParts
