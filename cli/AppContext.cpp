#include "cli/AppContext.hpp"

#include <iostream>

#include "app/CoreServices.hpp"

namespace vorlen::cli {

AppContext::AppContext() {
    auto store = app::LocalSettingsStore::standard();
    auto services = app::coreServices(store, [](const std::string& notice) { std::cerr << notice << '\n'; });
    secrets = services.secrets;
    model = std::make_unique<app::AppModel>(store, std::move(services), queue);
}

const app::LocalSite& AppContext::chosenSite(const std::optional<std::string>& siteOption) {
    return model->site(siteOption ? app::SiteID{*siteOption} : model->ensureSite());
}

}  // namespace vorlen::cli
