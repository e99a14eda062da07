#include "app/ViewerService.hpp"

#include "app/CorePublishService.hpp"
#include "app/Screen.hpp"

namespace vorlen::app {

std::shared_ptr<CoreViewerService> CoreViewerService::open(const LocalSite& site, std::shared_ptr<SecretStore> secrets,
                                                           const Endpoints& endpoints) {
    // Invite links lead to the root of the page hostname, whatever path the videos have.
    const auto page = linksFor(site.settings, "").page;
    const auto origin = page.substr(0, page.find('/', page.find("://") + 3));
    return std::make_shared<CoreViewerService>(SiteViewers(CorePublishService::bucketOf(site, std::move(secrets), endpoints), origin));
}

}  // namespace vorlen::app
