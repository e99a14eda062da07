#include "cli/Commands.hpp"

namespace vorlen::cli {

void registerInspectCommand(CommandRegistry&);
void registerBuildCommand(CommandRegistry&);
void registerUpload(CommandRegistry& registry);
void registerPublishCommand(CommandRegistry& registry);
void registerPreviewCommand(CommandRegistry& registry);
void registerSitesCommand(CommandRegistry& registry);
void registerSettingsCommand(CommandRegistry& registry);
void registerInviteCommands(CommandRegistry& registry);
void registerSetupCommands(CommandRegistry& registry);
void registerTemplateCommands(CommandRegistry& registry);
void registerPlayerCommands(CommandRegistry& registry);
void registerLibraryCommands(CommandRegistry& registry);
void registerVideoCommands(CommandRegistry& registry);
void registerRunsCommand(CommandRegistry& registry);
void registerBulkCommand(CommandRegistry& registry);
void registerVimeoCommands(CommandRegistry& registry);
void registerViewersCommand(CommandRegistry& registry);
void registerFontsCommand(CommandRegistry& registry);

// One line per command file: the order here is the order of `vorlen --help`.
void registerCommands(CommandRegistry& registry) {
    registerPublishCommand(registry);
    registerPreviewCommand(registry);
    registerLibraryCommands(registry);
    registerVideoCommands(registry);
    registerRunsCommand(registry);
    registerBulkCommand(registry);
    registerVimeoCommands(registry);
    registerSitesCommand(registry);
    registerSettingsCommand(registry);
    registerSetupCommands(registry);
    registerInviteCommands(registry);
    registerViewersCommand(registry);
    registerTemplateCommands(registry);
    registerPlayerCommands(registry);
    registerFontsCommand(registry);
    registerInspectCommand(registry);
    registerBuildCommand(registry);
    registerUpload(registry);
}

}  // namespace vorlen::cli
