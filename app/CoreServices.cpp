#include "app/CoreServices.hpp"

#include "app/BatchRunService.hpp"
#include "app/CoreBulkService.hpp"
#include "app/CoreLibraryService.hpp"
#include "app/CorePublishService.hpp"
#include "app/CoreSetupService.hpp"
#include "app/CoreVimeoService.hpp"
#include "app/PageSettingsService.hpp"
#include "app/SiteStorage.hpp"
#include "core/publish/SoftwareEncoder.hpp"

namespace vorlen::app {

AppModel::Services coreServices(const LocalSettingsStore& store, std::function<void(const std::string&)> onSecretNotice) {
    auto secrets = std::make_shared<SystemSecretStore>(userDataFolder() / "secrets.json", std::move(onSecretNotice));
    auto speed = store.load().encodingSpeed;
    const Endpoints endpoints = Endpoints::fromEnvironment();
    return AppModel::Services{secrets, [speed, endpoints](const LocalSite&, std::shared_ptr<RateLimiter> limiter) {
                                  CorePipeline pipeline;
                                  pipeline.endpoints = endpoints;
                                  pipeline.limiter = std::move(limiter);
                                  pipeline.encoder = std::make_shared<SoftwareEncoder>(speed);
                                  return std::make_shared<CorePublishService>(pipeline);
                              },
                              VORLEN_VERSION, endpoints,
                              std::make_shared<CoreSetupService>(endpoints, endpoints.session(),
                                                                 bundledWorkerDirectory()),
                              [endpoints](const LocalSite& site) { return CoreLibraryService::make(site.id, endpoints); },
                              [speed, endpoints](const LocalSite& site, std::shared_ptr<RateLimiter> limiter) {
                                  CorePipeline pipeline;
                                  pipeline.endpoints = endpoints;
                                  pipeline.limiter = std::move(limiter);
                                  pipeline.encoder = std::make_shared<SoftwareEncoder>(speed);
                                  return std::make_shared<CoreBulkService>(
                                      pipeline, LibraryCache::inFolder(SiteStorage(site.id).cacheFolder));
                              },
                              std::make_shared<CoreBatchRunService>(endpoints),
                              [speed, endpoints, secrets](const LocalSite& site, std::shared_ptr<RateLimiter> limiter) {
                                  CorePipeline pipeline;
                                  pipeline.endpoints = endpoints;
                                  pipeline.limiter = std::move(limiter);
                                  pipeline.encoder = std::make_shared<SoftwareEncoder>(speed);
                                  const SiteStorage storage(site.id);
                                  return std::make_shared<CoreVimeoService>(
                                      pipeline, LibraryCache::inFolder(storage.cacheFolder), secrets,
                                      storage.vimeoTokenItem, storage.cacheFolder);
                              },
                              [secrets, endpoints](const LocalSite& site, const LocalSettings& settings) {
                                  return CorePageSettingsService::open(site, settings, secrets, endpoints);
                              },
                              [secrets, endpoints](const LocalSite& site) {
                                  return CoreViewerService::open(site, secrets, endpoints);
                              }};
}

}  // namespace vorlen::app
