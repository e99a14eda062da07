#pragma once

#include <string>

#include "core/cloudflare/CloudflareAPI.hpp"
#include "core/site/Hostname.hpp"

namespace vorlen::app {

// Cloudflare keeps long-lived media in its cache after it left the bucket; a
// purge by prefix on the media host ends that.
struct MediaCachePurge {
    // When this computer's R2 API Token may not purge and no account token stands in.
    static constexpr const char* cannotPurge =
        "The R2 API Token of this computer cannot purge the cache, and this computer has no Cloudflare Account API "
        "Token. Set up this computer again to get a new R2 API Token.";

    CloudflareAPI api;
    std::string zoneID;
    Hostname mediaHost;

    // Every cached file under a folder's key prefix.
    void purgeFolder(const std::string& folderPrefix) const;
    // The poster.jpg address of a folder, which sites outside may show for a day.
    void purgePoster(const std::string& folderPrefix) const;
};

}  // namespace vorlen::app
