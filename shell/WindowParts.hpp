#pragma once

#include <string>

#include <QString>

class QLabel;
class QPushButton;
class QStackedWidget;
class QTableView;
class QVBoxLayout;
class QWidget;

// The parts that the windows of batch runs are made of.
namespace vorlen::shell::windowParts {

inline QString text(const std::string& value) { return QString::fromStdString(value); }
// A wrapping, selectable label with a role of the style sheet and an accessible name.
QLabel* label(const char* role = nullptr, const QString& name = QString());
QPushButton* button(const QString& words, const char* role = nullptr);
// A page of a window, its parts one under another.
QVBoxLayout* addPage(QStackedWidget* pages, QWidget*& page);
// A table of whole rows that are not edited in place, without a grid.
QTableView* table(const QString& name);

}  // namespace vorlen::shell::windowParts
