#pragma once

#include <functional>

#include <QString>

#include "app/LibraryEntry.hpp"

class QWidget;

namespace vorlen::shell {

// The library's message boxes. Each opens over a window without waiting, so
// that the window goes on showing the changes that run meanwhile.
namespace libraryDialogs {

// What a change left to be told, or why it was refused.
void tell(QWidget* over, const QString& title, const QString& message);
// A new visibility is a new link: the person hears so before anything moves.
void confirmVisibility(QWidget* over, const app::LibraryEntry& entry, VideoVisibility visibility, std::function<void()> onConfirmed);
// A deletion names the video and cannot be undone.
void confirmDeletion(QWidget* over, const app::LibraryEntry& entry, std::function<void()> onConfirmed);

}  // namespace libraryDialogs

}  // namespace vorlen::shell
