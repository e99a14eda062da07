#pragma once

#include <filesystem>
#include <memory>
#include <spdlog/spdlog.h>

namespace vorlen {

// The process's logger "com.dovrin.vorlen": standard error, and the system
// journal through syslog. Never give it a secret.
spdlog::logger& log();

// Adds a log file beside the other sinks, kept to three files of 5 MiB. A folder
// that cannot hold it costs the file, never the program.
void logToFile(const std::filesystem::path& path);

// Quiet standard error (the command line's progress owns the terminal).
void setStandardErrorLevel(spdlog::level::level_enum level);

}  // namespace vorlen
