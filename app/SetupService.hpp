#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/cloudflare/APIToken.hpp"
#include "core/cloudflare/CloudflareResources.hpp"
#include "core/site/SiteSetup.hpp"

namespace vorlen::app {

// What the setup screens learn of a token before the person chooses a site.
struct SetupTokenCheck {
    VerifiedToken token;
    // The accounts the token reaches; an account token reaches only its own.
    std::vector<CloudflareAccount> accounts;
};

// What an account offers to a new site.
struct SetupAccountChoices {
    // The zones whose rules the token may change: the hostnames must lie in one of them.
    std::vector<CloudflareZone> zones;
    std::vector<R2Bucket> buckets;
};

// The setup run and its questions to Cloudflare, for the screens and the command
// line. Every call works with the Account API Token it is given and keeps nothing.
// Failures carry the setup screens' words.
class SetupService {
public:
    virtual ~SetupService() = default;

    // The page Worker this program carries.
    virtual WorkerBundle workerBundle() const = 0;
    // Verifies the token (against `accountID` when it is an account token) and lists its accounts.
    virtual SetupTokenCheck checkToken(const APIToken& token, const std::optional<std::string>& accountID) const = 0;
    virtual SetupAccountChoices choices(const APIToken& token, const std::string& accountID) const = 0;
    // The hostname with the zone of the account that holds it: the zone of the same
    // name, else the longest zone that the name ends in.
    virtual SiteHostname siteHostname(const APIToken& token, const std::string& accountID,
                                      const std::string& hostname) const = 0;
    // The settings file of an existing bucket, read with the Account API Token;
    // absent for a bucket without one.
    virtual std::optional<SiteSettings> bucketSettings(const APIToken& token, const std::string& accountID,
                                                       const std::string& bucket) const = 0;

    virtual SetupReport run(const APIToken& token, const SiteSetupRequest& request, const SiteSetup::ReportCallback& report,
                            const SiteSetup::NewTokenCallback& onNewDailyToken,
                            const SiteSetup::ProgressCallback& progress) const = 0;
    virtual SetupReport check(const APIToken& token, const SiteSetupRequest& request,
                              const SiteSetup::ReportCallback& report, const SiteSetup::ProgressCallback& progress) const = 0;
};

}  // namespace vorlen::app
