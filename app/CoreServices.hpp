#pragma once

#include "app/AppModel.hpp"

namespace vorlen::app {

// The services of the running program, for the window and the command line
// alike: this user's secret store, and for each site the core's publish service
// with the site's limiter and this computer's encoding speed.
AppModel::Services coreServices(const LocalSettingsStore& store);

}  // namespace vorlen::app
