#pragma once

#include <CLI/CLI.hpp>

namespace vorlen::cli {

// Each command file adds its subcommand to the app; the handler runs after parsing.
// A command's handler returns the process's exit status.
using CommandHandler = std::function<int()>;

struct CommandRegistry {
    CLI::App& app;
    std::vector<std::pair<CLI::App*, CommandHandler>> commands;

    void add(CLI::App* command, CommandHandler handler) { commands.emplace_back(command, std::move(handler)); }
};

// The failure of a command: its own words on standard error, exit status 1.
int reportFailure(const std::exception& error);

}  // namespace vorlen::cli
