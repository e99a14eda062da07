#include "cli/AppContext.hpp"

#include "app/CorePublishService.hpp"
#include "app/SiteStorage.hpp"
#include "core/publish/SoftwareEncoder.hpp"

namespace vorlen::cli {

AppContext::AppContext() {
    auto secrets = app::SecretStore::makeDefault(app::userDataFolder() / "secrets.json");
    auto store = app::LocalSettingsStore::standard();
    auto speed = store.load().encodingSpeed;
    app::AppModel::Services services{secrets, [speed](const app::LocalSite& site) {
        app::CorePipeline pipeline;
        pipeline.limiter->setBytesPerSecond(site.uploadLimit.bytesPerSecond());
        pipeline.encoder = std::make_shared<SoftwareEncoder>(speed);
        return std::make_shared<app::CorePublishService>(pipeline);
    }};
    model = std::make_unique<app::AppModel>(store, services, queue);
}

}  // namespace vorlen::cli
