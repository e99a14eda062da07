#pragma once

#include <memory>

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
};

}  // namespace vorlen::cli
