#pragma once

#include <optional>
#include <string>

#include "core/site/PageTemplate.hpp"
#include "core/site/SiteSettings.hpp"

namespace vorlen {

// Which page design a site uses. The choice is one field of "_vorlen/site.json",
// rewritten whole; nothing else in the file changes.

// A built-in template, or the custom one the bucket already holds (which must exist).
void chooseSiteTemplate(Bucket& bucket, SiteTemplate design);
// Stores a checked page as the custom template first, and only then switches the
// site to it, so that no page ever asks for a custom template that is not there.
void importSiteTemplate(Bucket& bucket, const PageTemplate& page, const std::optional<std::string>& sourceName);

}  // namespace vorlen
