#include "cli/Commands.hpp"

namespace vorlen::cli {

// One line per command file: the order here is the order of `vorlen --help`.
void registerCommands(CommandRegistry& registry) {
    (void)registry;
}

}  // namespace vorlen::cli
