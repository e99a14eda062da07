#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/base/Json.hpp"
#include "core/cloudflare/APIToken.hpp"
#include "core/cloudflare/CloudflareError.hpp"
#include "core/cloudflare/CloudflareRequest.hpp"
#include "core/cloudflare/CloudflareResources.hpp"
#include "core/cloudflare/IssuedToken.hpp"
#include "core/net/Endpoints.hpp"
#include "core/net/HttpClient.hpp"
#include "core/net/RetryPolicy.hpp"

namespace vorlen {

template <class Result>
struct CloudflareResponse {
    std::int64_t status = 0;
    std::optional<Result> result;
    std::optional<CloudflareResultInfo> info;
};

// The one client of the Cloudflare REST API. A plain value that keeps no state
// between calls, so any number of calls may run at once on one value. Failures
// the API reports are CloudflareError; a malformed base URL or path segment is
// VorlenError::config. The token goes into the Authorization header only.
class CloudflareAPI {
public:
    CloudflareAPI(APIToken token, std::shared_ptr<HttpClient> session, const Endpoints& endpoints = {},
                  RetryPolicy retryPolicy = {});

    const std::string& baseURL() const { return baseURL_; }
    // The same client working with another token (a pasted one, to verify it).
    CloudflareAPI withToken(APIToken token) const {
        CloudflareAPI other = *this;
        other.token_ = std::move(token);
        return other;
    }

    // The three families of call. Each retries as the request allows: an
    // idempotent one on any transient failure, any other only on a 429 whose
    // wait is at most a minute (the server did not carry it out).
    template <class Result>
    CloudflareResponse<Result> call(const CloudflareRequest& request) const {
        const Answer answer = send(request);
        CloudflareResponse<Result> response{answer.status, std::nullopt, answer.info};
        if (answer.result) response.result = decoded<Result>(request, answer.status, *answer.result);
        return response;
    }
    std::string rawBytes(const CloudflareRequest& request) const;
    // All pages of a list: "page" and "per_page" 50 beside the request's query,
    // until "total_pages" is reached or a page comes back empty; more than 200
    // pages fail.
    template <class Item>
    std::vector<Item> pagedList(const CloudflareRequest& request) const {
        return decoded<std::vector<Item>>(request, 200, allPages(request));
    }

    // Accounts and zones.
    std::vector<CloudflareAccount> accounts() const;
    std::vector<CloudflareZone> zones(const std::string& accountID) const;
    // The zone whose name, lower-cased, is `name`; absent when the account has none.
    std::optional<CloudflareZone> findZone(const std::string& name, const std::string& accountID) const;
    CloudflareZone zone(const std::string& zoneID) const;
    // Only the records whose name, lower-cased, is `name`.
    std::vector<DNSRecord> dnsRecords(const std::string& zoneID, const std::string& name) const;
    void purgeByPrefix(const std::string& zoneID, const std::vector<std::string>& prefixes) const;
    // The zones whose firewall rules the token may read, probed 8 at a time.
    ZoneAccess zoneAccess(const std::string& accountID) const;

    // Rulesets. A zone without a ruleset for the phase gives absent.
    std::optional<Ruleset> phaseEntryPoint(const std::string& zoneID, RulesetPhase phase) const;
    Ruleset createPhaseRuleset(const std::string& zoneID, RulesetPhase phase,
                               const std::vector<RuleDefinition>& rules) const;
    Ruleset addRule(const std::string& zoneID, const std::string& rulesetID, const RuleDefinition& rule) const;
    Ruleset replaceRule(const std::string& zoneID, const std::string& rulesetID, const std::string& ruleID,
                        const RuleDefinition& rule) const;
    void deleteRule(const std::string& zoneID, const std::string& rulesetID, const std::string& ruleID) const;

    // Workers KV.
    std::vector<KVNamespace> kvNamespaces(const std::string& accountID) const;
    KVNamespace createKVNamespace(const std::string& accountID, const std::string& title) const;
    void deleteKVNamespace(const std::string& accountID, const std::string& namespaceID) const;

    // R2 buckets, their objects, domains and CORS policy.
    std::vector<R2Bucket> buckets(const std::string& accountID) const;
    R2Bucket createBucket(const std::string& accountID, const std::string& name,
                          std::optional<R2LocationHint> locationHint) const;
    R2Bucket bucket(const std::string& accountID, const std::string& name) const;
    // An object's bytes; absent when the bucket has no such object.
    std::optional<std::string> readObject(const std::string& accountID, const std::string& bucket,
                                          const std::string& key) const;
    std::vector<R2CustomDomain> customDomains(const std::string& accountID, const std::string& bucket) const;
    R2CustomDomain customDomain(const std::string& accountID, const std::string& bucket,
                                const std::string& domain) const;
    void addCustomDomain(const std::string& accountID, const std::string& bucket, const std::string& domain,
                         const std::string& zoneID, bool enabled) const;
    void changeCustomDomain(const std::string& accountID, const std::string& bucket, const std::string& domain,
                            bool enabled) const;
    void removeCustomDomain(const std::string& accountID, const std::string& bucket, const std::string& domain) const;
    R2ManagedDomain managedDomain(const std::string& accountID, const std::string& bucket) const;
    void setManagedDomain(const std::string& accountID, const std::string& bucket, bool enabled) const;
    std::vector<R2CORSRule> corsRules(const std::string& accountID, const std::string& bucket) const;
    void setCorsRules(const std::string& accountID, const std::string& bucket,
                      const std::vector<R2CORSRule>& rules) const;
    void deleteCorsPolicy(const std::string& accountID, const std::string& bucket) const;

    // Tokens. Verifying asks about this client's own token: an account token
    // ("cfat_…") on the account path first, any other on the user path first, and
    // the other path once when the first refuses.
    VerifiedToken verifyToken(const std::string& accountID) const;
    std::vector<CloudflareToken> tokens(const std::string& accountID) const;
    CloudflareToken token(const std::string& accountID, const std::string& tokenID) const;
    IssuedToken createToken(const std::string& accountID, const std::string& name,
                            const std::vector<TokenPolicy>& policies) const;
    void revokeToken(const std::string& accountID, const std::string& tokenID) const;
    std::vector<PermissionGroup> permissionGroups(const std::string& accountID, const std::string& name) const;

private:
    // An envelope whose call succeeded, its result not yet decoded.
    struct Answer {
        std::int64_t status = 0;
        std::optional<Json> result;
        std::optional<CloudflareResultInfo> info;
    };

    Answer send(const CloudflareRequest& request) const;
    template <class F>
    auto retrying(const CloudflareRequest& request, F&& attempt) const {
        return request.isIdempotent ? retryPolicy_.run(attempt) : retryPolicy_.run(attempt, {}, mayRetryCreate);
    }
    static bool mayRetryCreate(const std::exception_ptr& error);
    HttpResponse sendOnce(const CloudflareRequest& request) const;
    Json allPages(const CloudflareRequest& request) const;

    template <class Result>
    static Result decoded(const CloudflareRequest& request, std::int64_t status, const Json& json) {
        try {
            return json.get<Result>();
        } catch (const nlohmann::json::exception& error) {
            throw unexpectedForm(request, status, error.what());
        }
    }
    static CloudflareError unexpectedForm(const CloudflareRequest& request, std::int64_t status,
                                          const std::string& detail);

    APIToken token_;
    std::shared_ptr<HttpClient> session_;
    std::string baseURL_;
    RetryPolicy retryPolicy_;
};

}  // namespace vorlen
