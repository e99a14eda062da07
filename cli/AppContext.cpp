#include "cli/AppContext.hpp"

#include <iostream>

#include "app/CoreServices.hpp"

namespace vorlen::cli {

AppContext::AppContext() {
    auto store = app::LocalSettingsStore::standard();
    model = std::make_unique<app::AppModel>(store, app::coreServices(store, [](const std::string& notice) {
                                                std::cerr << notice << '\n';
                                            }),
                                            queue);
}

}  // namespace vorlen::cli
