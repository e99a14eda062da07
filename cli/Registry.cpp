#include "cli/Commands.hpp"

namespace vorlen::cli {

void registerInspectCommand(CommandRegistry&);
void registerBuildCommand(CommandRegistry&);

// One line per command file: the order here is the order of `vorlen --help`.
void registerCommands(CommandRegistry& registry) {
    (void)registry;
    registerInspectCommand(registry);
    registerBuildCommand(registry);
}

}  // namespace vorlen::cli
