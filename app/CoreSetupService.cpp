#include "app/CoreSetupService.hpp"

#include <fmt/format.h>

#include "app/SetupWords.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/S3Bucket.hpp"

namespace vorlen::app {

CoreSetupService::CoreSetupService(Endpoints endpoints, std::shared_ptr<HttpClient> session,
                                   std::filesystem::path workerDirectory)
    : endpoints_(std::move(endpoints)), session_(std::move(session)), workerDirectory_(std::move(workerDirectory)) {}

CloudflareAPI CoreSetupService::api(const APIToken& token) const { return CloudflareAPI(token, session_, endpoints_); }

WorkerBundle CoreSetupService::workerBundle() const { return WorkerBundle::load(workerDirectory_); }

SetupTokenCheck CoreSetupService::checkToken(const APIToken& token, const std::optional<std::string>& accountID) const {
    const CloudflareAPI client = api(token);
    // An account token may not list accounts; it still names its own account when asked with it.
    std::vector<CloudflareAccount> accounts;
    try {
        accounts = client.accounts();
    } catch (const CloudflareError& error) {
        if (error.isTransient() || !accountID) throw;
    }
    if (accountID && std::none_of(accounts.begin(), accounts.end(), [&](const auto& a) { return a.id == *accountID; }))
        accounts = {CloudflareAccount{*accountID, *accountID}};
    if (accounts.empty())
        throw VorlenError::config(SetupWords::noAccount);
    VerifiedToken verified;
    try {
        verified = client.verifyToken(accounts.front().id);
    } catch (const CloudflareError& error) {
        if (error.isTransient()) throw;
        throw VorlenError::config(fmt::format(
            "Cloudflare refused the token. Check that you copied the complete token value. ({})", error.description()));
    }
    if (verified.kind == VerifiedToken::Kind::user)
        throw VorlenError::config(
            "This is a user API token. Vorlen needs a Cloudflare Account API Token. Select Open the Token Form, and "
            "make the token there.");
    return SetupTokenCheck{verified, accounts};
}

SetupAccountChoices CoreSetupService::choices(const APIToken& token, const std::string& accountID) const {
    const CloudflareAPI client = api(token);
    SetupAccountChoices choices;
    choices.zones = client.zoneAccess(accountID).configurable;
    if (choices.zones.empty())
        throw VorlenError::config(
            "The Cloudflare Account API Token cannot configure any domain of this account. Change the token in the "
            "dashboard, or go back and make a new token. Choose your domain in Specified Domains.");
    try {
        choices.buckets = client.buckets(accountID);
    } catch (const CloudflareError& error) {
        if (!error.has(CloudflareError::Code::r2NotEnabled)) throw;
        throw VorlenError::config(
            "R2 is not on for this account. Turn it on in the dashboard. Cloudflare asks for a payment method, even "
            "within the free tier.");
    }
    return choices;
}

SiteHostname CoreSetupService::siteHostname(const APIToken& token, const std::string& accountID,
                                            const std::string& hostname) const {
    const Hostname host = Hostname::parse(hostname);
    const ZoneAccess access = api(token).zoneAccess(accountID);
    auto holds = [&](const CloudflareZone& zone) { return host.name == zone.name || host.name.ends_with("." + zone.name); };
    const CloudflareZone* best = nullptr;
    for (const auto* zones : {&access.configurable, &access.other})
        for (const auto& zone : *zones)
            if (holds(zone) && (!best || zone.name.size() > best->name.size())) best = &zone;
    const bool configurable = best && std::any_of(access.configurable.begin(), access.configurable.end(),
                                                  [&](const auto& zone) { return zone.id == best->id; });
    if (!configurable)
        throw VorlenError::config(fmt::format(
            "The Cloudflare Account API Token cannot configure the domain of {}. Change the token in the dashboard, or "
            "choose a different bucket.",
            host.name));
    return SiteHostname{host, *best};
}

std::optional<SiteSettings> CoreSetupService::bucketSettings(const APIToken& token, const std::string& accountID,
                                                             const std::string& bucket) const {
    std::optional<std::string> text;
    try {
        text = api(token).readObject(accountID, bucket, SiteRules::settingsKey);
        if (!text) return std::nullopt;
        return SiteSettings::decoded(*text);
    } catch (const VorlenError& error) {
        if (text && error.is<failure::Metadata>() && error.text().find("newer version") != std::string::npos)
            throw VorlenError::config(
                "Vorlen cannot use the settings of this bucket. A newer version of Vorlen can have written them. "
                "Update Vorlen, or choose a different bucket.");
        throw VorlenError::config(fmt::format(
            "Vorlen cannot read the settings of this bucket. Try again, or choose a different bucket. ({})", error.text()));
    } catch (const CloudflareError& error) {
        throw VorlenError::config(fmt::format(
            "Vorlen cannot read the settings of this bucket. Try again, or choose a different bucket. ({})",
            error.description()));
    }
}

SiteSetupOptions CoreSetupService::options(const std::string& accountID) const {
    SiteSetupOptions options;
    options.dashboard = endpoints_.cloudflareDashboard;
    options.makeBucket = [endpoints = endpoints_, accountID](const std::string& bucket, const S3Credentials& credentials) {
        return std::make_shared<S3Bucket>(BucketLocation{accountID, bucket}, credentials, endpoints);
    };
    options.allowsOrigin = [session = session_](const Hostname& host, const std::string& origin) {
        HttpRequest preflight;
        preflight.method = "OPTIONS";
        preflight.url = "https://" + host.name + "/";
        preflight.headers = {{"Origin", origin}, {"Access-Control-Request-Method", "GET"}};
        try {
            return session->send(preflight).header("access-control-allow-origin") == origin;
        } catch (const std::exception&) {
            return false;
        }
    };
    return options;
}

SetupReport CoreSetupService::run(const APIToken& token, const SiteSetupRequest& request,
                                  const SiteSetup::ReportCallback& report, const SiteSetup::NewTokenCallback& onNewDailyToken,
                                  const SiteSetup::ProgressCallback& progress) const {
    request.validate();
    return SiteSetup(api(token), request, options(request.accountID)).run(report, onNewDailyToken, progress);
}

SetupReport CoreSetupService::check(const APIToken& token, const SiteSetupRequest& request,
                                    const SiteSetup::ReportCallback& report, const SiteSetup::ProgressCallback& progress) const {
    request.validate();
    return SiteSetup(api(token), request, options(request.accountID)).check(report, progress);
}

}  // namespace vorlen::app
