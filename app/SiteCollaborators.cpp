#include "app/SiteCollaborators.hpp"

#include <fmt/format.h>

#include "core/base/VorlenError.hpp"
#include "core/site/SiteSettings.hpp"
#include "core/storage/S3Bucket.hpp"

namespace vorlen::app {

namespace {

CloudflareAPI clientFor(const APIToken& token, const Endpoints& endpoints) {
    return CloudflareAPI(token, endpoints.session(), endpoints);
}

// A refusal gets the words that say which permission the setup token lacks.
template <class F>
auto asTokenMaker(F&& work) -> decltype(work()) {
    try {
        return work();
    } catch (const CloudflareError& error) {
        if (!error.isPermissionRefused()) throw;
        throw VorlenError::config(fmt::format(
            "The Cloudflare Account API Token cannot make tokens. It needs the permission \u201cAccount API Tokens "
            "Edit\u201d. ({})",
            error.description()));
    }
}

}  // namespace

JoinedSite readJoinedSite(const SetupCode& code, const Endpoints& endpoints) {
    const auto verified = clientFor(code.token, endpoints).verifyToken(code.accountID);
    if (verified.status != "active")
        throw VorlenError::config(fmt::format("the API token is {}, not active", verified.status));
    const auto credentials = R2Credentials::fromToken(verified.id, code.token.value);
    S3Bucket bucket(BucketLocation{code.accountID, code.bucket},
                    S3Credentials{credentials.accessKeyID, credentials.secretAccessKey}, endpoints);
    const auto settings = SiteSettings::readRequired(bucket);
    return JoinedSite{SiteSummary::from(settings, code.accountID, code.bucket), credentials};
}

SiteCollaborators::SiteCollaborators(const SiteSummary& site, const APIToken& setupToken, const Endpoints& endpoints)
    : tokens_{clientFor(setupToken, endpoints), site.accountID, site.bucket, site.mediaZoneID} {}

SiteInvite SiteCollaborators::invite(const std::string& name) const {
    return asTokenMaker([&] { return SiteInvite::make(tokens_, name); });
}

std::vector<VorlenToken> SiteCollaborators::invites() const {
    auto all = asTokenMaker([&] { return tokens_.vorlenTokens(); });
    std::erase_if(all, [](const VorlenToken& token) { return !token.name.isInvite(); });
    return all;
}

void SiteCollaborators::revoke(const std::string& tokenID) const {
    asTokenMaker([&] { tokens_.revoke(tokenID); });
}

}  // namespace vorlen::app
