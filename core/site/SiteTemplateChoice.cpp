#include "core/site/SiteTemplateChoice.hpp"

#include "core/base/VorlenError.hpp"
#include "core/site/CustomTemplateFile.hpp"

namespace vorlen {

void chooseSiteTemplate(Bucket& bucket, SiteTemplate design) {
    auto settings = SiteSettings::readRequired(bucket);
    if (design == SiteTemplate::custom && !CustomTemplateFile::exists(bucket))
        throw VorlenError::config(CustomTemplateFile::missingMessage);
    settings.siteTemplate = design;
    settings.write(bucket);
}

void importSiteTemplate(Bucket& bucket, const PageTemplate& page, const std::optional<std::string>& sourceName) {
    page.requireComplete();
    // Read first: a bucket that is no site fails before anything is written.
    auto settings = SiteSettings::readRequired(bucket);
    CustomTemplateFile::write(bucket, page, sourceName);
    settings.siteTemplate = SiteTemplate::custom;
    settings.write(bucket);
}

}  // namespace vorlen
