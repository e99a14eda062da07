#include "cli/Commands.hpp"

namespace vorlen::cli {

void registerUpload(CommandRegistry& registry);

// One line per command file: the order here is the order of `vorlen --help`.
void registerCommands(CommandRegistry& registry) {
    registerUpload(registry);
}

}  // namespace vorlen::cli
