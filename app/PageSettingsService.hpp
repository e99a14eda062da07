#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/LocalSettings.hpp"
#include "app/SecretStore.hpp"
#include "app/SitePageFonts.hpp"
#include "app/SitePlayerSettings.hpp"
#include "core/net/Endpoints.hpp"

namespace vorlen::app {

// What the page settings of one site read and change: the player's options and
// the pages' fonts, all in the site's bucket.
class PageSettingsService {
public:
    virtual ~PageSettingsService() = default;

    virtual PlayerSettings::Stored player() = 0;
    // Fails as a conflict when another computer saved after readETag was read.
    virtual void savePlayer(const PlayerSettings& settings, const std::optional<std::string>& readETag) = 0;

    virtual SitePageFonts::Current fonts() = 0;
    virtual HostedFont addFontFiles(const std::vector<std::filesystem::path>& files) = 0;
    // A family copied from Google Fonts into the bucket.
    virtual HostedFont addGoogleFamily(const std::string& family) = 0;
    // What a pasted <link> element or address loads and declares; nothing is linked yet.
    virtual SiteStylesheet readStylesheet(const std::string& pasted) = 0;
    virtual void linkStylesheet(const SiteStylesheet& stylesheet) = 0;
    virtual void removeFonts() = 0;

    // Serves a video of a local site with these player options, until the calling
    // task is cancelled; onServing hears the page's address once it is served.
    virtual void servePreview(const PlayerSettings& settings, const std::function<void(const std::string&)>& onServing) = 0;
};

// The site's own bucket; the preview plays a video of `previewSite`, a local site
// of this computer (the site itself when it is local).
class CorePageSettingsService final : public PageSettingsService {
public:
    CorePageSettingsService(SitePlayerSettings player, SitePageFonts fonts, std::optional<LocalSite> previewSite)
        : player_(std::move(player)), fonts_(std::move(fonts)), previewSite_(std::move(previewSite)) {}
    static std::shared_ptr<CorePageSettingsService> open(const LocalSite& site, const LocalSettings& settings,
                                                         std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints);

    PlayerSettings::Stored player() override { return player_.current(); }
    void savePlayer(const PlayerSettings& settings, const std::optional<std::string>& readETag) override {
        player_.save(settings, readETag);
    }
    SitePageFonts::Current fonts() override { return fonts_.current(); }
    HostedFont addFontFiles(const std::vector<std::filesystem::path>& files) override { return fonts_.addFiles(files); }
    HostedFont addGoogleFamily(const std::string& family) override { return fonts_.addGoogleFamily(family).font; }
    SiteStylesheet readStylesheet(const std::string& pasted) override { return fonts_.readStylesheet(pasted); }
    void linkStylesheet(const SiteStylesheet& stylesheet) override { fonts_.link(stylesheet); }
    void removeFonts() override { fonts_.remove(); }
    void servePreview(const PlayerSettings& settings, const std::function<void(const std::string&)>& onServing) override;

private:
    SitePlayerSettings player_;
    SitePageFonts fonts_;
    std::optional<LocalSite> previewSite_;
};

}  // namespace vorlen::app
