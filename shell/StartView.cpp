#include "shell/StartView.hpp"

#include <QLabel>
#include <QVBoxLayout>

#include "shell/DropZone.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

StartView::StartView(QWidget* parent) : ScreenView(parent) {
    setObjectName("start");
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    layout->addWidget(label("Publish a Video", "heading"));
    destination_ = label("", "secondary");
    layout->addWidget(destination_);
    layout->addSpacing(14);
    dropZone_ = new DropZone(this);
    dropZone_->onChoose = [this] { chooseFiles(); };
    dropZone_->onFiles = [this](const std::vector<std::filesystem::path>& files) {
        if (onFiles) onFiles(files);
    };
    layout->addWidget(dropZone_, 1);
}

QWidget* StartView::firstFocus() { return dropZone_; }

void StartView::show(const app::LocalSite& site) {
    const auto& summary = site.settings;
    QString name = format::quoted(QString::fromStdString(site.id.value));
    if (summary.isLocal())
        destination_->setText(QString("Videos go to the site %1, a folder on this computer: %2")
                                  .arg(name, QString::fromStdString(summary.localFolder->string())));
    else
        destination_->setText(
            QString("Videos go to the site %1 on %2.").arg(name, QString::fromStdString(summary.pageHost.name)));
}

void StartView::chooseFiles() {
    ScreenView::chooseFiles("Choose a Video",
                            {"Videos and subtitles (*.mp4 *.m4v *.mov *.mkv *.webm *.avi *.mts *.m2ts *.mxf *.srt *.vtt)",
                             "All files (*)"});
}

}  // namespace vorlen::shell
