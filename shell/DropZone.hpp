#pragma once

#include <filesystem>
#include <functional>
#include <vector>

#include <QFrame>

class QMimeData;

namespace vorlen::shell {

// The large target of the start screen: files dropped on it go to the
// workspace, and a click, Enter or Space opens the file chooser instead.
class DropZone : public QFrame {
public:
    explicit DropZone(QWidget* parent = nullptr);

    std::function<void(const std::vector<std::filesystem::path>&)> onFiles;
    std::function<void()> onChoose;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    bool isDragging_ = false;
    bool isHovered_ = false;
};

// The local files of a drag, in its order.
std::vector<std::filesystem::path> localFiles(const QMimeData* mime);

}  // namespace vorlen::shell
