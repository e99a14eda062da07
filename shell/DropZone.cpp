#include "shell/DropZone.hpp"

#include <QDragEnterEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QUrl>

#include "shell/Appearance.hpp"

namespace vorlen::shell {

std::vector<std::filesystem::path> localFiles(const QMimeData* mime) {
    std::vector<std::filesystem::path> files;
    if (!mime || !mime->hasUrls()) return files;
    for (const QUrl& url : mime->urls())
        if (url.isLocalFile()) files.emplace_back(url.toLocalFile().toStdString());
    return files;
}

DropZone::DropZone(QWidget* parent) : QFrame(parent) {
    setObjectName("dropZone");
    setAcceptDrops(true);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setMinimumSize(420, 260);
    setAccessibleName("Drop a video");
    setAccessibleDescription("Drop a video file here, with its subtitle files if it has any, or press Enter to choose one.");
}

void DropZone::paintEvent(QPaintEvent*) {
    Colors colors = Colors::of(currentColorScheme());
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF area = QRectF(rect()).adjusted(3, 3, -3, -3);
    bool active = isDragging_ || isHovered_ || hasFocus();
    QColor fill = colors.surface;
    if (isDragging_) {
        fill = colors.accent;
        fill.setAlpha(28);
    }
    painter.setBrush(fill);
    QPen pen(active ? colors.accent : colors.border, hasFocus() ? 3 : 2, Qt::DashLine);
    pen.setDashPattern({5, 4});
    painter.setPen(pen);
    painter.drawRoundedRect(area, 16, 16);

    // An arrow into a tray: the drop, drawn so that it needs no image file.
    QPointF centre(area.center().x(), area.center().y() - 46);
    QPen icon(active ? colors.accent : colors.secondaryText, 4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(icon);
    painter.setBrush(Qt::NoBrush);
    painter.drawLine(centre + QPointF(0, -26), centre + QPointF(0, 8));
    QPainterPath head;
    head.moveTo(centre + QPointF(-13, -5));
    head.lineTo(centre + QPointF(0, 8));
    head.lineTo(centre + QPointF(13, -5));
    painter.drawPath(head);
    QPainterPath tray;
    tray.moveTo(centre + QPointF(-28, 2));
    tray.lineTo(centre + QPointF(-28, 20));
    tray.lineTo(centre + QPointF(28, 20));
    tray.lineTo(centre + QPointF(28, 2));
    painter.drawPath(tray);

    QFont big = font();
    big.setPointSizeF(font().pointSizeF() * 1.7);
    big.setWeight(QFont::DemiBold);
    painter.setFont(big);
    painter.setPen(colors.text);
    QRectF titleArea(area.left(), centre.y() + 36, area.width(), 40);
    painter.drawText(titleArea, Qt::AlignHCenter | Qt::AlignTop, isDragging_ ? "Release to publish" : "Drop a video");
    painter.setFont(font());
    painter.setPen(colors.secondaryText);
    QRectF hintArea(area.left() + 24, titleArea.bottom() + 6, area.width() - 48, 48);
    painter.drawText(hintArea, Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap,
                     "or click here to choose a file. Subtitle files (.srt, .vtt) may come along.");
}

void DropZone::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()) && onChoose) onChoose();
}

void DropZone::keyPressEvent(QKeyEvent* event) {
    switch (event->key()) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
        case Qt::Key_Space:
            if (onChoose) onChoose();
            return;
        default: QFrame::keyPressEvent(event);
    }
}

void DropZone::dragEnterEvent(QDragEnterEvent* event) {
    if (localFiles(event->mimeData()).empty()) return event->ignore();
    event->acceptProposedAction();
    isDragging_ = true;
    update();
}

void DropZone::dragLeaveEvent(QDragLeaveEvent*) {
    isDragging_ = false;
    update();
}

void DropZone::dropEvent(QDropEvent* event) {
    isDragging_ = false;
    update();
    auto files = localFiles(event->mimeData());
    if (files.empty()) return event->ignore();
    event->acceptProposedAction();
    if (onFiles) onFiles(files);
}

void DropZone::enterEvent(QEnterEvent*) {
    isHovered_ = true;
    update();
}

void DropZone::leaveEvent(QEvent*) {
    isHovered_ = false;
    update();
}

}  // namespace vorlen::shell
