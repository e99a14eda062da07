#include "app/SiteTemplates.hpp"

#include "app/CorePublishService.hpp"
#include "core/site/SiteTemplateChoice.hpp"

namespace vorlen::app {

SiteTemplates SiteTemplates::open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints) {
    return SiteTemplates(CorePublishService::bucketOf(site, std::move(secrets), endpoints));
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
