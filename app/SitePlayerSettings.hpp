#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/LocalSettings.hpp"
#include "app/SecretStore.hpp"
#include "core/net/Endpoints.hpp"
#include "core/site/PlayerSettings.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen::app {

// The player options of one site, read and saved in the site's own bucket.
class SitePlayerSettings {
public:
    explicit SitePlayerSettings(std::shared_ptr<Bucket> bucket) : bucket_(std::move(bucket)) {}
    // The site's folder, or its R2 bucket with the credentials that this computer keeps for it.
    static SitePlayerSettings open(const LocalSite& site, std::shared_ptr<SecretStore> secrets, const Endpoints& endpoints);

    // The defaults when the site has none.
    PlayerSettings::Stored current() const;
    // Over the version that `current` gave: when another computer saved in between,
    // nothing is saved, and the failure is a conflict (PlayerWords::changedElsewhere tells it).
    void save(const PlayerSettings& settings, const std::optional<std::string>& readETag) const;

private:
    std::shared_ptr<Bucket> bucket_;
};

}  // namespace vorlen::app
