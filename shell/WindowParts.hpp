#pragma once

#include <string>

#include <QString>

#include "core/batch/BatchRun.hpp"

class QLabel;
class QPushButton;
class QStackedWidget;
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
// "Encodes  ·  42%  “folder”": an item in work, its phase in the run's words.
QString activeText(const BatchActiveItem& active, const std::string& phase);

}  // namespace vorlen::shell::windowParts
