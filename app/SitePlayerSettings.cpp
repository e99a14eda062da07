#include "app/SitePlayerSettings.hpp"

#include "app/CorePublishService.hpp"

namespace vorlen::app {

SitePlayerSettings SitePlayerSettings::open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints) {
    return SitePlayerSettings(CorePublishService::bucketOf(site, std::move(secrets), endpoints));
}

PlayerSettings::Stored SitePlayerSettings::current() const { return PlayerSettings::read(*bucket_); }

void SitePlayerSettings::save(const PlayerSettings& settings, const std::optional<std::string>& readETag) const {
    settings.write(*bucket_, readETag);
}

}  // namespace vorlen::app
