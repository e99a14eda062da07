#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <QWidget>

#include "app/SiteWorkspace.hpp"

class QAction;
class QComboBox;
class QLabel;
class QLineEdit;
class QTableView;

namespace vorlen::shell {

class VideoEditWindow;

// The published videos of one site in a window of their own: the list this
// computer saw last at once, then the bucket's current one, with the posters
// of the rows on screen as they arrive.
class LibraryWindow : public QWidget {
public:
    LibraryWindow(std::shared_ptr<app::SiteWorkspace> workspace, QWidget* parent);

    // Runs when the window closes, whoever closes it.
    std::function<void()> onClosed;

    QTableView* list() const { return list_; }
    // The edit window of a video, made or brought to the front.
    VideoEditWindow* openEditor(const std::string& folder);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    class Table;

    app::LibraryModel& library() const { return workspace_->library(); }
    void libraryChanged();
    void arrange();
    void showStatus();
    void showProblem();
    std::vector<app::LibraryEntry> selectedEntries() const;
    void enableActions();
    void changeVisibility(VideoVisibility visibility);
    void reimportAudioOfSelected();
    void removeSelected();

    std::shared_ptr<app::SiteWorkspace> workspace_;
    // The model's listing on show, so that progress alone does not arrange the rows again.
    std::optional<std::uint64_t> shownListing_;
    Table* table_;
    QLineEdit* search_;
    QComboBox* order_;
    QTableView* list_;
    QLabel* count_;
    QLabel* status_;
    QAction* edit_;
    QAction* openPage_;
    QAction* makePublic_;
    QAction* makeUnlisted_;
    QAction* reimportAudio_;
    QAction* delete_;
};

}  // namespace vorlen::shell
