#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include <QString>
#include <QStringList>

#include "app/LibraryEntry.hpp"

class QWidget;

namespace vorlen::shell {

// The library's message boxes. Each opens over a window without waiting, so
// that the window goes on showing the changes that run meanwhile.
namespace libraryDialogs {

// What a change left to be told, or why it was refused.
void tell(QWidget* over, const QString& title, const QString& message);
// Asks before a change; onConfirmed runs when the person presses the action's button.
void confirm(QWidget* over, const QString& title, const QString& message, const QString& action,
             std::function<void()> onConfirmed);
// A new visibility is a new link for each video: the person hears so before anything moves.
void confirmVisibility(QWidget* over, const std::vector<app::LibraryEntry>& entries, VideoVisibility visibility,
                       std::function<void()> onConfirmed);
// New audio for the videos: the published audio of each, or for one video a file,
// at a loudness (the site's at first), with the warning for people who watch meanwhile.
void chooseAudio(QWidget* over, const std::vector<app::LibraryEntry>& entries, AudioLoudness siteLoudness,
                 std::function<void(const std::optional<std::filesystem::path>&, AudioLoudness)> onConfirmed);
// Opens a chooser of one existing file, without waiting for it.
void chooseFile(QWidget* over, const QString& title, const QStringList& nameFilters,
                std::function<void(const std::filesystem::path&)> onChosen);
// A deletion names the video, or counts the videos, and cannot be undone.
void confirmDeletion(QWidget* over, const std::vector<app::LibraryEntry>& entries, std::function<void()> onConfirmed);

}  // namespace libraryDialogs

}  // namespace vorlen::shell
