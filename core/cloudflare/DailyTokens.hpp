#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/cloudflare/APIToken.hpp"
#include "core/cloudflare/CloudflareAPI.hpp"
#include "core/cloudflare/VorlenTokenName.hpp"
#include "core/storage/S3Credentials.hpp"

namespace vorlen {

// The S3 keys of an R2-capable token: its ID, and the SHA-256 of its value in
// lower-case hex. The same value gives the same keys on every computer.
S3Credentials s3Credentials(const std::string& tokenID, const APIToken& value);

// The everyday token of a computer or a collaborator: it reads and writes the
// site's bucket and may purge the media zone. Without its value (a token kept
// from before) S3 still works but purging does not.
struct DailyToken {
    S3Credentials credentials;
    std::optional<APIToken> value;

    const std::string& tokenID() const { return credentials.accessKeyID; }
    std::string description() const { return "DailyToken(tokenID: " + tokenID() + ")"; }
};

struct DailyTokenGroups {
    std::vector<std::string> bucket;
    std::optional<std::string> purge;
};

// Makes, lists and revokes the tokens of one site, with the setup token's client.
struct DailyTokens {
    CloudflareAPI api;
    std::string accountID;
    std::string bucket;
    std::optional<std::string> mediaZoneID;

    // The bucket's item groups, and "Cache Purge" when the media zone is known.
    DailyTokenGroups permissionGroups() const;
    // The two policies: the bucket's objects, and the purge of the media zone.
    std::vector<TokenPolicy> policies(const DailyTokenGroups& groups) const;

    DailyToken makeForComputer(const std::string& computerName) const;
    IssuedToken makeInvite(const std::string& name) const;
    // Our tokens of the account, in the account's order, each with its kind.
    std::vector<VorlenToken> vorlenTokens() const;
    void revoke(const std::string& tokenID) const;

private:
    IssuedToken make(const VorlenTokenName& name) const;
};

}  // namespace vorlen
