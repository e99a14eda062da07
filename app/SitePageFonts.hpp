#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/LocalSettings.hpp"
#include "app/SecretStore.hpp"
#include "core/net/Endpoints.hpp"
#include "core/site/FontPackage.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen::app {

// The fonts of one site's pages, read and changed in the site's own bucket.
class SitePageFonts {
public:
    struct Current {
        SiteFonts fonts;
        std::vector<SiteStylesheet> stylesheets;
    };

    SitePageFonts(std::shared_ptr<Bucket> bucket, std::shared_ptr<HttpClient> session, std::string googleFonts)
        : bucket_(std::move(bucket)), session_(std::move(session)), googleFonts_(std::move(googleFonts)) {}
    // The site's folder, or its R2 bucket with the credentials that this computer keeps for it.
    static SitePageFonts open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints);

    Current current() const;
    // The font files of one family become the font of the text and the headings.
    HostedFont addFiles(const std::vector<std::filesystem::path>& files) const;
    // A Google Fonts family, copied into the bucket, becomes the font of the text and the headings.
    FontPackage addGoogleFamily(const std::string& family) const;
    // A pasted <link> element or address, read for what it loads before it is linked.
    SiteStylesheet linkStylesheet(const std::string& pasted) const;
    // The two halves of linkStylesheet, for a screen that shows what was read before it links.
    SiteStylesheet readStylesheet(const std::string& pasted) const;
    void link(const SiteStylesheet& stylesheet) const;
    void remove() const;

private:
    std::shared_ptr<Bucket> bucket_;
    std::shared_ptr<HttpClient> session_;
    std::string googleFonts_;  // the stylesheet service's base URL
};

}  // namespace vorlen::app
