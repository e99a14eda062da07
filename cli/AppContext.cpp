#include "cli/AppContext.hpp"

#include "app/CoreServices.hpp"

namespace vorlen::cli {

AppContext::AppContext() {
    auto store = app::LocalSettingsStore::standard();
    model = std::make_unique<app::AppModel>(store, app::coreServices(store), queue);
}

}  // namespace vorlen::cli
