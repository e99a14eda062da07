#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/AppModel.hpp"
#include "app/MainQueue.hpp"

namespace vorlen::cli {

// The application model as the command line runs it: the settings file of
// this user, the secret store, and the core's services; the command's own
// thread drains the main queue.
struct AppContext {
    app::PostedQueue queue;
    std::unique_ptr<app::AppModel> model;
    // The model's secret store, for the commands that reach a site's bucket themselves.
    std::shared_ptr<app::SecretStore> secrets;

    AppContext();

    // The named site, else the current one; with no site at all, the local site, as `vorlen publish` makes it.
    const app::LocalSite& chosenSite(const std::optional<std::string>& siteOption);
};

}  // namespace vorlen::cli
