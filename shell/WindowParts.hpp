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
// The page that tells one thing: a title, and a message under it when there is one.
class MessagePage {
public:
    explicit MessagePage(QStackedWidget* pages);
    void show(const QString& title, const QString& message) const;

private:
    QStackedWidget* pages_;
    QWidget* page_;
    QLabel* title_;
    QLabel* message_;
};

// A table of whole rows that are not edited in place, without a grid.
QTableView* table(const QString& name);

}  // namespace vorlen::shell::windowParts
