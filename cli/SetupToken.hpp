#pragma once

#include <optional>
#include <string>

#include "app/AppModel.hpp"

namespace vorlen::cli {

// The site a command names, else the current one.
app::SiteID chosenSite(app::AppModel& model, const std::optional<std::string>& site);

// The setup token is never an argument: it comes from VORLEN_CLOUDFLARE_TOKEN, else from the terminal.
APIToken setupTokenFromEnvironmentOrTerminal(app::SetupTokenPurpose purpose);
// The same, with the site's sealed copy (asking for its passphrase) before the terminal.
APIToken setupToken(app::AppModel& model, const app::SiteID& site, app::SetupTokenPurpose purpose);

}  // namespace vorlen::cli
