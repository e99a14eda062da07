#pragma once

#include <memory>

#include <QWidget>

#include "app/SiteWorkspace.hpp"

class QLabel;
class QPushButton;
class QBoxLayout;

namespace vorlen::shell {

// One screen of the window. It shows a state of the site's workspace and calls
// the workspace's operations; it decides nothing itself.
class ScreenView : public QWidget {
public:
    explicit ScreenView(QWidget* parent = nullptr);
    void bind(std::shared_ptr<app::SiteWorkspace> workspace) { workspace_ = std::move(workspace); }

    // Where the keyboard starts when the screen appears.
    virtual QWidget* firstFocus() { return nullptr; }

protected:
    app::SiteWorkspace& workspace() { return *workspace_; }

    // Parts of the window's look, named for its stylesheet.
    static QLabel* label(const QString& text, const char* role = nullptr, QWidget* parent = nullptr);
    // A button that Enter presses when it has the focus.
    static QPushButton* button(const QString& text, const char* role = nullptr, QWidget* parent = nullptr);
    // Opens a chooser of existing files over this screen; chosen files go to onFiles.
    void chooseFiles(const QString& title, const QStringList& nameFilters);
    // Runs action on Escape anywhere on this screen.
    void onEscape(std::function<void()> action);

public:
    std::function<void(const std::vector<std::filesystem::path>&)> onFiles;

private:
    std::shared_ptr<app::SiteWorkspace> workspace_;
};

}  // namespace vorlen::shell
