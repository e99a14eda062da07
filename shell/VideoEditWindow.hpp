#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QWidget>

#include "app/SiteWorkspace.hpp"

class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace vorlen::shell {

// One published video of the library in a window of its own: its details,
// visibility, poster and deletion. The library refuses other changes of the
// video while this window is open, so that what it shows is what it changes.
class VideoEditWindow : public QWidget {
public:
    VideoEditWindow(std::shared_ptr<app::SiteWorkspace> workspace, std::string folder, QWidget* parent);
    ~VideoEditWindow() override;

    const std::string& folder() const { return folder_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    app::LibraryModel& library() const { return workspace_->library(); }
    void stopEditing();
    void libraryChanged();
    // Follows the video to its new folder after a move; closes when it is gone.
    bool findVideo();
    void showEntry();
    void showDetails(const VideoDetails& details);
    VideoDetails typedDetails() const;
    void enableControls();
    // Shows a refusal of the library, when it refused.
    void report(const std::optional<app::LibraryModel::Problem>& refusal);
    void save();
    void askVisibility(VideoVisibility visibility);
    void showSubtitles();
    void removeSubtitle();
    void addSubtitle(const std::filesystem::path& file);
    void askReplace(const std::filesystem::path& file);
    void askAudio();
    void askDelete();

    std::shared_ptr<app::SiteWorkspace> workspace_;
    std::string folder_;
    app::LibraryEntry entry_;
    // What the fields showed when they were last filled from the record.
    std::optional<VideoDetails> shownDetails_;
    // The video that this window moved to a new link, found again in the next listing by these.
    struct Move {
        std::optional<SystemTime> created;
        VideoVisibility visibility;
    };
    std::optional<Move> move_;
    // The tracks the list shows, absent until the library knows them.
    std::optional<std::vector<PublishedSubtitle>> shownSubtitles_;
    // This window marks its video as edited in the library from its opening to its closing.
    bool isEditing_ = false;
    // A change of this window ended or runs: the controls wait for the list that follows it.
    bool waitsForListing_ = false;

    QLabel* poster_;
    QLabel* heading_;
    QLabel* link_;
    QLabel* status_;
    QLineEdit* title_;
    QLineEdit* reference_;
    QPlainTextEdit* description_;
    QPushButton* save_;
    QComboBox* visibility_;
    QPushButton* posterImage_;
    QDoubleSpinBox* frameTime_;
    QPushButton* posterFrame_;
    QListWidget* subtitles_;
    QPushButton* removeSubtitle_;
    QLineEdit* subtitleLanguage_;
    QPushButton* addSubtitle_;
    QPushButton* replace_;
    QPushButton* reimportAudio_;
    QPushButton* openPage_;
    QPushButton* delete_;
};

}  // namespace vorlen::shell
