#include "app/SiteTemplates.hpp"

#include "app/CorePublishService.hpp"
#include "app/CredentialStore.hpp"
#include "app/SiteStorage.hpp"
#include "core/site/SiteTemplateChoice.hpp"

namespace vorlen::app {

SiteTemplates SiteTemplates::open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints) {
    BucketAccess access{site.settings, std::nullopt};
    if (!site.settings.isLocal()) access.credentials = CredentialStore(std::move(secrets), SiteStorage(site.id).credentialsItem).read();
    return SiteTemplates(CorePublishService::bucketFor(access, endpoints));
}

SiteTemplates::Current SiteTemplates::current() const {
    Current current{SiteSettings::readRequired(*bucket_).siteTemplate, std::nullopt};
    if (auto custom = CustomTemplateFile::find(*bucket_)) current.custom = custom->file;
    return current;
}

PageTemplate SiteTemplates::importFile(const std::filesystem::path& file) const {
    auto page = PageTemplate::inspectedFile(file);
    importSiteTemplate(*bucket_, page, file.filename().string());
    return page;
}

void SiteTemplates::choose(SiteTemplate design) const { chooseSiteTemplate(*bucket_, design); }

}  // namespace vorlen::app
