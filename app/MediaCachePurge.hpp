#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

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
    static constexpr const char* authenticationCancelled = "The authentication was cancelled.";

    CloudflareAPI api;
    std::string zoneID;
    Hostname mediaHost;

    // Every cached file under a folder's key prefix.
    void purgeFolder(const std::string& folderPrefix) const;
    // The poster.jpg address of a folder, which sites outside may show for a day.
    void purgePoster(const std::string& folderPrefix) const;
};

// Which token purges for a run of changes, chosen at its first purge, so that a
// person is asked for the account token's passphrase once a run.
struct PurgeToken {
    struct Daily {};
    struct Account {
        std::string token;
    };
    struct Unavailable {
        std::string words;
    };
    std::variant<Daily, Account, Unavailable> value;
};

// The Cloudflare Account API Token, which may ask for its passphrase: none when
// this computer keeps none, Cancelled when the person declines.
using AccountTokenSource = std::function<std::optional<std::string>()>;

// Runs a purge with the run's token: this computer's R2 API Token first and,
// once that may not purge, the account token. `purge` gets the account token, or
// nothing for this computer's own.
void purgeWithToken(PurgeToken& token, const AccountTokenSource& accountToken,
                    const std::function<void(const std::optional<std::string>&)>& purge);

}  // namespace vorlen::app
