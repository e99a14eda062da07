#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "app/LocalSettings.hpp"
#include "app/SecretStore.hpp"
#include "core/net/Endpoints.hpp"
#include "core/site/CustomTemplateFile.hpp"
#include "core/site/PageTemplate.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen::app {

// The page template of one site, read and changed in the site's own bucket.
class SiteTemplates {
public:
    struct Current {
        SiteTemplate design = SiteTemplate::automatic;
        std::optional<CustomTemplateFile> custom;  // kept in the bucket even while a built-in one is in use
    };

    explicit SiteTemplates(std::shared_ptr<Bucket> bucket) : bucket_(std::move(bucket)) {}
    // The site's folder, or its R2 bucket with the credentials that this computer keeps for it.
    static SiteTemplates open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints);

    Current current() const;
    // Checks the file, keeps it as the custom template under its own name and switches
    // the site to it. A file that fails the check changes nothing. Gives the page for its review.
    PageTemplate importFile(const std::filesystem::path& file) const;
    // A built-in design, or the custom template that the bucket already holds.
    void choose(SiteTemplate design) const;

private:
    std::shared_ptr<Bucket> bucket_;
};

}  // namespace vorlen::app
