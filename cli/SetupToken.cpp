#include "cli/SetupToken.hpp"

#include <cstdlib>

#include <fmt/format.h>

#include "cli/Terminal.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

app::SiteID chosenSite(app::AppModel& model, const std::optional<std::string>& site) {
    if (site) return model.site(app::SiteID{*site}).id;
    if (auto current = model.currentSite()) return *current;
    throw VorlenError::config("There is no site on this computer yet. Set one up with `vorlen setup`, or join one with `vorlen sites join`.");
}

namespace {

std::optional<APIToken> environmentToken() {
    if (const char* value = std::getenv("VORLEN_CLOUDFLARE_TOKEN"); value && *value) return APIToken{value};
    return std::nullopt;
}

APIToken typedToken(app::SetupTokenPurpose purpose) {
    auto typed = readSecretLine(fmt::format("To {}, paste the token (it is not shown): ", app::reason(purpose)));
    if (!typed || typed->empty())
        throw VorlenError::config("Give the Cloudflare Account API Token in VORLEN_CLOUDFLARE_TOKEN or on the terminal.");
    return APIToken{*typed};
}

}  // namespace

APIToken setupTokenFromEnvironmentOrTerminal(app::SetupTokenPurpose purpose) {
    if (auto token = environmentToken()) return *token;
    return typedToken(purpose);
}

APIToken setupToken(app::AppModel& model, const app::SiteID& site, app::SetupTokenPurpose purpose) {
    if (auto token = environmentToken()) return *token;
    auto store = model.setupTokens(site, [](const app::PassphraseRequest& request) {
        return readSecretLine(fmt::format("To {}, give the passphrase of its sealed copy: ", request.reason));
    });
    if (store.hasToken())
        if (auto token = store.token(purpose)) return APIToken{*token};
    return typedToken(purpose);
}

}  // namespace vorlen::cli
