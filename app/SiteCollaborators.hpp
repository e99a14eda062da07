#pragma once

#include <string>
#include <vector>

#include "app/LocalSettings.hpp"
#include "app/R2Credentials.hpp"
#include "core/cloudflare/DailyTokens.hpp"
#include "core/cloudflare/SetupCode.hpp"
#include "core/cloudflare/SiteInvite.hpp"
#include "core/net/Endpoints.hpp"

namespace vorlen::app {

// What a setup code gives a collaborator's computer: the site as its settings
// file describes it, and the S3 keys of the code's token.
struct JoinedSite {
    SiteSummary site;
    R2Credentials credentials;
};

// Verifies the code's token and reads the site's settings with it.
JoinedSite readJoinedSite(const SetupCode& code, const Endpoints& endpoints);

// The invites of one site, made and revoked with the setup token.
class SiteCollaborators {
public:
    SiteCollaborators(const SiteSummary& site, const APIToken& setupToken, const Endpoints& endpoints);

    SiteInvite invite(const std::string& name) const;
    // The invite tokens of the site's account, in the account's order.
    std::vector<VorlenToken> invites() const;
    void revoke(const std::string& tokenID) const;

private:
    DailyTokens tokens_;
};

}  // namespace vorlen::app
