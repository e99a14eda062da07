#include "shell/LibraryDialogs.hpp"

#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QRadioButton>
#include <QVBoxLayout>
#include <QPushButton>
#include <QTextDocument>

#include "app/LibraryWords.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell::libraryDialogs {

namespace {

QMessageBox* messageBox(QWidget* over, QMessageBox::Icon icon, const QString& title, const QString& message) {
    auto* box = new QMessageBox(icon, title, QString(), QMessageBox::NoButton, over);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // The title stands in bold over the message too, since a window manager may not show window titles.
    box->setTextFormat(Qt::RichText);
    box->setText("<b>" + title.toHtmlEscaped() + "</b>");
    // A failure's words can hold markup of their own (an XML error body): they show as they are.
    box->setInformativeText(Qt::convertFromPlainText(message, Qt::WhiteSpaceNormal));
    return box;
}

void ask(QWidget* over, const QString& title, const QString& message, const QString& action, QMessageBox::ButtonRole role,
         std::function<void()> onConfirmed) {
    auto* box = messageBox(over, QMessageBox::Question, title, message);
    auto* confirmButton = box->addButton(action, role);
    box->setDefaultButton(box->addButton(QMessageBox::Cancel));
    QObject::connect(box, &QMessageBox::finished, box, [box, confirmButton, onConfirmed = std::move(onConfirmed)] {
        if (box->clickedButton() == confirmButton) onConfirmed();
    });
    box->open();
}

QString titleOf(const app::LibraryEntry& entry) { return format::quoted(QString::fromStdString(entry.title)); }

}  // namespace

void confirm(QWidget* over, const QString& title, const QString& message, const QString& action,
             std::function<void()> onConfirmed) {
    ask(over, title, message, action, QMessageBox::AcceptRole, std::move(onConfirmed));
}

void tell(QWidget* over, const QString& title, const QString& message) {
    auto* box = messageBox(over, QMessageBox::Warning, title, message);
    box->addButton(QMessageBox::Ok);
    box->open();
}

void confirmVisibility(QWidget* over, const std::vector<app::LibraryEntry>& entries, VideoVisibility visibility,
                       std::function<void()> onConfirmed) {
    const bool toUnlisted = visibility == VideoVisibility::unlisted;
    const QString action = toUnlisted ? "Make Unlisted" : "Make Public";
    QString title, message;
    if (entries.size() == 1) {
        const auto& entry = entries.front();
        title = QString("Make %1 %2?").arg(titleOf(entry), toUnlisted ? "Unlisted" : "Public");
        message = QString("%1 gets a new link, and the link it has now stops working: %2\n\n%3")
                      .arg(titleOf(entry), QString::fromStdString(entry.page),
                           toUnlisted ? "Only people with the new link can watch it." : "The site lists it for everyone.");
    } else {
        const auto count = format::counted(std::int64_t(entries.size()), "Video");
        title = QString("Make %1 %2?").arg(count, toUnlisted ? "Unlisted" : "Public");
        message = QString("Each of the %1 gets a new link, and the link it has now stops working.\n\n%2")
                      .arg(format::counted(std::int64_t(entries.size()), "video"),
                           toUnlisted ? "Only people with a new link can watch them." : "The site lists them for everyone.");
    }
    confirm(over, title, message, action, std::move(onConfirmed));
}

void chooseFile(QWidget* over, const QString& title, const QStringList& nameFilters,
                std::function<void(const std::filesystem::path&)> onChosen) {
    auto* dialog = new QFileDialog(over, title);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters(nameFilters + QStringList{"All files (*)"});
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    QObject::connect(dialog, &QFileDialog::fileSelected, dialog,
                     [onChosen = std::move(onChosen)](const QString& file) { onChosen(file.toStdString()); });
    dialog->open();
}

void chooseAudio(QWidget* over, const std::vector<app::LibraryEntry>& entries, AudioLoudness siteLoudness,
                 std::function<void(const std::optional<std::filesystem::path>&, AudioLoudness)> onConfirmed) {
    const bool isOne = entries.size() == 1;
    auto* dialog = new QDialog(over);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const auto title = QString("Re-import the Audio of %1?")
                           .arg(isOne ? titleOf(entries.front()) : format::counted(std::int64_t(entries.size()), "Video"));
    dialog->setWindowTitle(title);
    auto* layout = new QVBoxLayout(dialog);
    auto* heading = new QLabel("<b>" + title.toHtmlEscaped() + "</b>");
    layout->addWidget(heading);
    auto* about = new QLabel(QString("Vorlen encodes the audio again and puts it in place of the audio %1. The picture "
                                     "stays as it is.")
                                 .arg(isOne ? "the video has" : "each video has"));
    about->setWordWrap(true);
    layout->addWidget(about);

    auto* form = new QFormLayout;
    auto* published = new QRadioButton(isOne ? "The audio the video has in the site" : "The audio each video has in the site");
    published->setChecked(true);
    auto* fromFile = new QRadioButton("The audio of a file:");
    auto* fileName = new QLabel("none chosen");
    auto* choose = new QPushButton("Choose\u2026");
    choose->setAutoDefault(false);
    auto chosen = std::make_shared<std::optional<std::filesystem::path>>();
    auto* sources = new QVBoxLayout;
    sources->addWidget(published);
    if (isOne) {
        auto* fileRow = new QHBoxLayout;
        fileRow->addWidget(fromFile);
        fileRow->addWidget(fileName, 1);
        fileRow->addWidget(choose);
        sources->addLayout(fileRow);
    } else {
        fromFile->hide();
        fileName->hide();
        choose->hide();
    }
    form->addRow("Source:", sources);
    auto* loudness = new QComboBox;
    loudness->setAccessibleName("Audio loudness");
    for (const auto each : format::loudnessOrder) {
        auto item = format::loudness(each);
        if (each == siteLoudness) item += "  (the site\u2019s default)";
        loudness->addItem(item);
        if (each == siteLoudness) loudness->setCurrentIndex(loudness->count() - 1);
    }
    form->addRow("Loudness:", loudness);
    layout->addLayout(form);
    auto* warning = new QLabel(QString::fromStdString(app::LibraryWords::audioReimportWarning));
    warning->setWordWrap(true);
    layout->addWidget(warning);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    auto* confirmButton = buttons->addButton("Re-import Audio", QDialogButtonBox::AcceptRole);
    confirmButton->setDefault(true);
    layout->addWidget(buttons);
    // A file source needs its file.
    auto enable = [=] { confirmButton->setEnabled(published->isChecked() || chosen->has_value()); };
    QObject::connect(published, &QRadioButton::toggled, dialog, enable);
    QObject::connect(choose, &QPushButton::clicked, dialog, [=] {
        chooseFile(dialog, "Choose the File of the Audio",
                   {"Audio and video (*.wav *.aif *.aiff *.flac *.m4a *.mp3 *.mp4 *.m4v *.mov *.mkv *.webm *.mxf)"},
                   [=](const std::filesystem::path& file) {
                       *chosen = file;
                       fileName->setText(QString::fromStdString(file.filename().string()));
                       fromFile->setChecked(true);
                       enable();
                   });
    });
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, [=, onConfirmed = std::move(onConfirmed)] {
        onConfirmed(published->isChecked() ? std::nullopt : *chosen, format::loudnessOrder[loudness->currentIndex()]);
        dialog->accept();
    });
    dialog->open();
}

void confirmDeletion(QWidget* over, const std::vector<app::LibraryEntry>& entries, std::function<void()> onConfirmed) {
    QString title, message;
    if (entries.size() == 1) {
        title = QString("Delete %1?").arg(titleOf(entries.front()));
        message = QString("%1 leaves the site: its page and its link stop working, and its files are deleted from the "
                          "bucket. This cannot be undone.")
                      .arg(titleOf(entries.front()));
    } else {
        title = QString("Delete %1?").arg(format::counted(std::int64_t(entries.size()), "Video"));
        message = QString("The %1 leave the site: their pages and links stop working, and their files are deleted from "
                          "the bucket. This cannot be undone.")
                      .arg(format::counted(std::int64_t(entries.size()), "video"));
    }
    ask(over, title, message, "Delete", QMessageBox::DestructiveRole, std::move(onConfirmed));
}

}  // namespace vorlen::shell::libraryDialogs
