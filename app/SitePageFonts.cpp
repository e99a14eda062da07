#include "app/SitePageFonts.hpp"

#include "app/CorePublishService.hpp"
#include "core/site/GoogleFonts.hpp"
#include "core/site/SiteFontChoice.hpp"
#include "core/site/StylesheetReader.hpp"

namespace vorlen::app {

SitePageFonts SitePageFonts::open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints) {
    return SitePageFonts(CorePublishService::bucketOf(site, std::move(secrets), endpoints), endpoints.session(),
                         endpoints.googleFonts);
}

SitePageFonts::Current SitePageFonts::current() const {
    const auto settings = SiteSettings::readRequired(*bucket_);
    return Current{settings.fonts, settings.stylesheets};
}

HostedFont SitePageFonts::addFiles(const std::vector<std::filesystem::path>& files) const {
    const auto package = fontPackageFromFiles(files);
    hostFont(*bucket_, package);
    return package.font;
}

FontPackage SitePageFonts::addGoogleFamily(const std::string& family) const {
    GoogleFonts fonts;
    fonts.session = session_;
    fonts.baseURL = googleFonts_;
    auto package = fonts.copy(family);
    hostFont(*bucket_, package);
    return package;
}

SiteStylesheet SitePageFonts::linkStylesheet(const std::string& pasted) const {
    const auto stylesheet = readStylesheet(pasted);
    link(stylesheet);
    return stylesheet;
}

SiteStylesheet SitePageFonts::readStylesheet(const std::string& pasted) const {
    return StylesheetReader{session_, RetryPolicy{}}.read(pasted);
}

void SitePageFonts::link(const SiteStylesheet& stylesheet) const { vorlen::linkStylesheet(*bucket_, stylesheet); }

void SitePageFonts::remove() const { removeFonts(*bucket_); }

}  // namespace vorlen::app
