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

void purgeWithToken(PurgeToken& token, const AccountTokenSource& accountToken,
                    const std::function<void(const std::optional<std::string>&)>& purge) {
    if (const auto* unavailable = std::get_if<PurgeToken::Unavailable>(&token.value))
        throw VorlenError::config(unavailable->words);
    if (const auto* account = std::get_if<PurgeToken::Account>(&token.value)) return purge(account->token);
    try {
        return purge(std::nullopt);
    } catch (const VorlenError& error) {
        if (error.text() != MediaCachePurge::cannotPurge) throw;
    }
    std::optional<std::string> found;
    try {
        if (accountToken) found = accountToken();
    } catch (const Cancelled&) {
        token.value = PurgeToken::Unavailable{MediaCachePurge::authenticationCancelled};
        throw VorlenError::config(MediaCachePurge::authenticationCancelled);
    }
    if (!found) {
        token.value = PurgeToken::Unavailable{MediaCachePurge::cannotPurge};
        throw VorlenError::config(MediaCachePurge::cannotPurge);
    }
    token.value = PurgeToken::Account{*found};
    purge(*found);
}

}  // namespace vorlen::app
