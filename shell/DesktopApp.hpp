#pragma once

namespace vorlen::shell {

// Runs the desktop window over this user's settings until it closes; returns the exit status.
int runDesktop(int& argc, char** argv);

// True when a display is there to open a window on.
bool hasDisplay();

}  // namespace vorlen::shell
