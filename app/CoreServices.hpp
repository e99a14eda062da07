#pragma once

#include "app/AppModel.hpp"

namespace vorlen::app {

// The services of the running program, for the window and the command line
// alike: this user's secret store, and for each site the core's publish service
// with the site's limiter and this computer's encoding speed. onSecretNotice hears
// once that the secrets go to the private file, when the store is first used.
AppModel::Services coreServices(const LocalSettingsStore& store,
                                std::function<void(const std::string&)> onSecretNotice = {});

}  // namespace vorlen::app
