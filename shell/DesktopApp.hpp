#pragma once

#include <filesystem>
#include <vector>

namespace vorlen::shell {

// Runs the desktop window over this user's settings until it closes; returns the exit
// status. Files given (a video, with its subtitle files) start the publish flow at once.
int runDesktop(int& argc, char** argv, const std::vector<std::filesystem::path>& files = {});

// True when a display is there to open a window on.
bool hasDisplay();

}  // namespace vorlen::shell
