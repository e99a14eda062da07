#include <iostream>

#include <fmt/format.h>

#include "app/ViewerService.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

namespace {

struct ViewersOptions {
    std::optional<std::string> site;
    std::string id;
    std::string name;
    std::string privacy;
};

std::shared_ptr<app::ViewerService> viewersOf(AppContext& context, const std::optional<std::string>& site) {
    return app::CoreViewerService::open(context.chosenSite(site), context.secrets, context.model->endpoints());
}

std::string accessText(const StoredViewer& stored) {
    if (!stored.viewer) return *stored.problem;
    if (const auto* invite = std::get_if<ViewerInvite>(&stored.viewer->access)) {
        const bool expired = invite->expires <= std::chrono::system_clock::now();
        return fmt::format("{} {}", expired ? "invite expired at" : "invited, the link works until",
                           formatIso8601(invite->expires));
    }
    return "signs in with a passkey made at " + formatIso8601(std::get<ViewerPasskey>(stored.viewer->access).created);
}

std::string privacyText(bool isPrivate) {
    return isPrivate ? "The site is private: every page needs a viewer signed in with a passkey.\n"
                     : "The site is public: its pages need no sign-in. Make it private with `vorlen viewers private on`.\n";
}

// The one time that the link is shown: on a line of its own, for copying.
void printInvitation(const ViewerInvitation& invitation, const std::string& action) {
    std::cout << fmt::format("{} \u201c{}\u201d ({}). Send this invite link to them; it works once, for 7 days, and "
                             "Vorlen shows it only now:\n",
                             action, invitation.viewer.viewer->name, invitation.viewer.id.text)
              << invitation.link << '\n';
}

// A change that met a file changed since it was read says so in the words of the list.
template <class Change>
int changing(Change change) {
    try {
        change();
        return 0;
    } catch (const VorlenError& error) {
        if (!error.is<failure::Conflict>()) throw;
        std::cerr << SiteViewers::changedAfterRead << '\n';
        return 1;
    }
}

}  // namespace

void registerViewersCommand(CommandRegistry& registry) {
    auto options = std::make_shared<ViewersOptions>();
    auto* viewers = registry.app.add_subcommand(
        "viewers",
        "The viewers of a private site: each signs in with a passkey that they make with a one-time invite link. "
        "Without a subcommand, lists them.");
    viewers->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
    registry.add(viewers, [options] {
        AppContext context;
        const auto service = viewersOf(context, options->site);
        std::cout << privacyText(service->isPrivate());
        const auto listed = service->list();
        if (listed.empty()) std::cout << "The site has no viewers. Add one with `vorlen viewers add NAME`.\n";
        for (const auto& stored : listed)
            std::cout << fmt::format("{}  {}  {}\n", stored.id.text, stored.viewer ? stored.viewer->name : "?",
                                     accessText(stored));
        return 0;
    });

    const auto withSite = [&](CLI::App* command) {
        command->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
        return command;
    };
    auto* list = withSite(viewers->add_subcommand("list", "List the viewers: ID, name, and invite or passkey."));
    registry.add(list, registry.commands.back().second);

    auto* add = withSite(viewers->add_subcommand(
        "add", "Add a viewer and print their one-time invite link, on a line of its own. Two viewers may share a name."));
    add->add_option("NAME", options->name, "the viewer's name, as the list shows it")->required();
    registry.add(add, [options] {
        AppContext context;
        printInvitation(viewersOf(context, options->site)->add(options->name), "Added");
        return 0;
    });

    auto* rename = withSite(viewers->add_subcommand("rename", "Give a viewer another name."));
    rename->add_option("ID", options->id, "the viewer's ID (see `vorlen viewers`)")->required();
    rename->add_option("NAME", options->name, "the new name")->required();
    registry.add(rename, [options] {
        AppContext context;
        const auto service = viewersOf(context, options->site);
        return changing([&] {
            const auto before = service->read(ViewerID::parse(options->id));
            const auto after = service->rename(before, options->name);
            std::cout << (after.etag == before.etag ? "The viewer has that name already.\n"
                                                    : fmt::format("Renamed to \u201c{}\u201d.\n", after.viewer->name));
        });
    });

    auto* renew = withSite(viewers->add_subcommand(
        "renew", "Make a new invite link for a viewer, for example when theirs expired or they lost their passkey. "
                 "The old link and any passkey stop working."));
    renew->add_option("ID", options->id, "the viewer's ID (see `vorlen viewers`)")->required();
    registry.add(renew, [options] {
        AppContext context;
        const auto service = viewersOf(context, options->site);
        return changing(
            [&] { printInvitation(service->renewInvite(service->read(ViewerID::parse(options->id))), "A new invite for"); });
    });

    auto* privacy = withSite(viewers->add_subcommand(
        "private", "Whether every page of the site needs a viewer signed in with a passkey: on or off. Off, a "
                   "signed-in viewer still sees the unlisted videos in the home page's list."));
    privacy->add_option("STATE", options->privacy, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
    registry.add(privacy, [options] {
        AppContext context;
        const bool isPrivate = options->privacy == "on";
        viewersOf(context, options->site)->setPrivate(isPrivate);
        std::cout << privacyText(isPrivate);
        return 0;
    });

    auto* remove = withSite(
        viewers->add_subcommand("remove", "Delete a viewer: they can no longer sign in, even if their file changed."));
    remove->add_option("ID", options->id, "the viewer's ID (see `vorlen viewers`)")->required();
    registry.add(remove, [options] {
        AppContext context;
        viewersOf(context, options->site)->remove(ViewerID::parse(options->id));
        std::cout << "Deleted the viewer " << options->id << ".\n";
        return 0;
    });
}

}  // namespace vorlen::cli
