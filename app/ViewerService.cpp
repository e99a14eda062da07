#include "app/ViewerService.hpp"

#include "app/CorePublishService.hpp"
#include "app/CredentialStore.hpp"
#include "app/Screen.hpp"
#include "app/SiteStorage.hpp"

namespace vorlen::app {

std::shared_ptr<CoreViewerService> CoreViewerService::open(const LocalSite& site, std::shared_ptr<SecretStore> secrets,
                                                           const Endpoints& endpoints) {
    BucketAccess access{site.settings, std::nullopt};
    if (!site.settings.isLocal())
        access.credentials = CredentialStore(std::move(secrets), SiteStorage(site.id).credentialsItem).read();
    // Invite links lead to the root of the page hostname, whatever path the videos have.
    const auto page = linksFor(site.settings, "").page;
    const auto origin = page.substr(0, page.find('/', page.find("://") + 3));
    return std::make_shared<CoreViewerService>(SiteViewers(CorePublishService::bucketFor(access, endpoints), origin));
}

}  // namespace vorlen::app
