#include <iostream>

#include <fmt/format.h>

#include "app/SiteCollaborators.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/SetupToken.hpp"
#include "cli/Terminal.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

namespace {

app::SiteCollaborators collaborators(AppContext& context, const std::optional<std::string>& siteOption,
                                     app::SetupTokenPurpose purpose) {
    const auto id = chosenSite(*context.model, siteOption);
    const auto& site = context.model->site(id);
    if (site.settings.isLocal()) throw VorlenError::config("A local site has no collaborators: it lives on this computer only.");
    return app::SiteCollaborators(site.settings, setupToken(*context.model, id, purpose), context.model->endpoints());
}

}  // namespace

void registerInviteCommands(CommandRegistry& registry) {
    struct InviteOptions {
        std::string name;
        std::optional<std::string> site;
    };
    auto invite = std::make_shared<InviteOptions>();
    auto* inviteCommand = registry.app.add_subcommand(
        "invite",
        "Make a setup code for a collaborator: a token of their own that can publish to the site's bucket. "
        "The Cloudflare Account API Token comes from VORLEN_CLOUDFLARE_TOKEN or the terminal.");
    inviteCommand->add_option("NAME", invite->name, "the collaborator's name, for the token's name")->required();
    inviteCommand->add_option("--site", invite->site, "the site (by default the current one)");
    registry.add(inviteCommand, [invite] {
        AppContext context;
        const auto made = collaborators(context, invite->site, app::SetupTokenPurpose::invite).invite(invite->name);
        std::cout << made.code.text() << "\n\n"
                  << "The code holds a secret: a token that can publish to your bucket. Send it through a secure "
                     "channel, for example a password manager or an end-to-end encrypted message. Vorlen shows the "
                     "code only once.\n";
        return 0;
    });

    auto listSite = std::make_shared<std::optional<std::string>>();
    auto* invitesCommand = registry.app.add_subcommand(
        "invites", "List the site's invite tokens, or revoke one. The Cloudflare Account API Token comes from "
        "VORLEN_CLOUDFLARE_TOKEN or the terminal.");
    invitesCommand->add_option("--site", *listSite, "the site (by default the current one)");
    registry.add(invitesCommand, [listSite] {
        AppContext context;
        const auto invites = collaborators(context, *listSite, app::SetupTokenPurpose::listTokens).invites();
        if (invites.empty()) std::cout << "No invites.\n";
        for (const auto& token : invites)
            std::cout << fmt::format("{}  {}  {}  issued {}\n", token.id, token.name.name(), token.status.value_or("unknown"),
                                     token.issuedOn.value_or("unknown"));
        return 0;
    });

    struct RevokeOptions {
        std::string tokenID;
        std::optional<std::string> site;
    };
    auto revoke = std::make_shared<RevokeOptions>();
    auto* revokeCommand = invitesCommand->add_subcommand("revoke", "Revoke an invite's token: its code stops working.");
    revokeCommand->add_option("ID", revoke->tokenID, "the token's ID, as `vorlen invites` lists it")->required();
    revokeCommand->add_option("--site", revoke->site, "the site (by default the current one)");
    registry.add(revokeCommand, [revoke] {
        AppContext context;
        auto site = collaborators(context, revoke->site, app::SetupTokenPurpose::revokeToken);
        bool isInvite = false;
        for (const auto& token : site.invites()) isInvite = isInvite || token.id == revoke->tokenID;
        if (!isInvite) throw VorlenError::config(fmt::format("The site has no invite token \u201c{}\u201d.", revoke->tokenID));
        site.revoke(revoke->tokenID);
        std::cout << fmt::format("Revoked the invite token \u201c{}\u201d.\n", revoke->tokenID);
        return 0;
    });
}

}  // namespace vorlen::cli
