#include "app/MediaCachePurge.hpp"

#include "core/base/VorlenError.hpp"
#include "core/cloudflare/CloudflareError.hpp"

namespace vorlen::app {

namespace {

void purge(const MediaCachePurge& purge, const std::string& prefix) {
    try {
        purge.api.purgeByPrefix(purge.zoneID, {purge.mediaHost.name + "/" + prefix});
    } catch (const CloudflareError& error) {
        if (error.isPermissionRefused()) throw VorlenError::config(MediaCachePurge::cannotPurge);
        throw;
    }
}

}  // namespace

void MediaCachePurge::purgeFolder(const std::string& folderPrefix) const {
    purge(*this, folderPrefix.ends_with('/') ? folderPrefix : folderPrefix + "/");
}

void MediaCachePurge::purgePoster(const std::string& folderPrefix) const { purge(*this, folderPrefix + "poster.jpg"); }

}  // namespace vorlen::app
