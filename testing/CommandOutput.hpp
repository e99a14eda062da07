#pragma once

#include <string>

namespace vorlen::testing {

// Runs a shell command and gives what it printed; a command that fails throws
// std::runtime_error with `failure` (never the command, which may name secrets' files).
std::string commandOutput(const std::string& command, const std::string& failure);

}  // namespace vorlen::testing
