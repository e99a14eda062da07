#pragma once

// The records that the Cloudflare API answers with, each read from the JSON keys
// named beside its fields; keys not named are ignored. A required key that is
// missing, or any key of the wrong type, fails the decoding.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/Json.hpp"

namespace vorlen {

struct CloudflareResultInfo {
    std::optional<std::int64_t> page;        // "page"
    std::optional<std::int64_t> perPage;     // "per_page"
    std::optional<std::int64_t> totalPages;  // "total_pages"
    std::optional<std::string> cursor;       // "cursor"
    bool operator==(const CloudflareResultInfo&) const = default;
};

// The result type of calls whose result is not read: it decodes from anything.
struct IgnoredResult {};

struct CloudflareAccount {
    std::string id;    // "id"
    std::string name;  // "name"
    bool operator==(const CloudflareAccount&) const = default;
};

struct CloudflareZone {
    struct Plan {
        std::optional<std::string> legacyID;  // "legacy_id"
        std::optional<std::string> name;      // "name"
        bool operator==(const Plan&) const = default;
    };

    std::string id;                        // "id"
    std::string name;                      // "name"
    std::optional<std::string> status;     // "status"
    std::optional<std::string> accountID;  // "account" → "id"
    std::optional<Plan> plan;              // "plan"
    bool operator==(const CloudflareZone&) const = default;
};

// The zones of an account, split by whether the token can configure them.
struct ZoneAccess {
    std::vector<CloudflareZone> configurable;
    std::vector<CloudflareZone> other;
};

struct DNSRecord {
    std::string id;                      // "id"
    std::string type;                    // "type"
    std::string name;                    // "name"
    std::optional<std::string> content;  // "content"
    bool operator==(const DNSRecord&) const = default;
};

struct KVNamespace {
    std::string id;     // "id"
    std::string title;  // "title"
    bool operator==(const KVNamespace&) const = default;
};

struct R2Bucket {
    std::string name;                         // "name"
    std::optional<std::string> creationDate;  // "creation_date"
    std::optional<std::string> location;      // "location"
    std::optional<std::string> jurisdiction;  // "jurisdiction"
    bool operator==(const R2Bucket&) const = default;
};

// 3 to 63 characters of lower-case letters, digits and hyphens.
bool isValidBucketName(std::string_view name);

enum class R2LocationHint { asiaPacific, easternEurope, easternNorthAmerica, westernEurope, westernNorthAmerica, oceania };

// "apac", "eeur", "enam", "weur", "wnam", "oc".
std::string rawValue(R2LocationHint hint);
std::optional<R2LocationHint> r2LocationHintFromRawValue(std::string_view text);

struct R2CustomDomain {
    struct Status {
        std::optional<std::string> ownership;  // "ownership"
        std::optional<std::string> ssl;        // "ssl"
        bool operator==(const Status&) const = default;
    };

    std::string domain;                   // "domain"
    bool enabled = false;                 // "enabled"
    std::optional<Status> status;         // "status"
    std::optional<std::string> zoneID;    // "zoneId"
    std::optional<std::string> zoneName;  // "zoneName"
    std::optional<std::string> minTLS;    // "minTLS"

    // Enabled, with its ownership and its certificate both active.
    bool isReady() const;
    // "ownership active, certificate pending"; "unknown" for what Cloudflare left out.
    std::string statusText() const;
    bool operator==(const R2CustomDomain&) const = default;
};

// The r2.dev address of a bucket.
struct R2ManagedDomain {
    std::optional<std::string> bucketID;  // "bucketId"
    std::optional<std::string> domain;    // "domain"
    bool enabled = false;                 // "enabled"
    bool operator==(const R2ManagedDomain&) const = default;
};

struct R2CORSRule {
    struct Allowed {
        std::vector<std::string> origins;                 // "origins"
        std::vector<std::string> methods;                 // "methods"
        std::optional<std::vector<std::string>> headers;  // "headers"
        bool operator==(const Allowed&) const = default;
    };

    std::optional<std::string> id;                          // "id"
    Allowed allowed;                                        // "allowed"
    std::optional<std::vector<std::string>> exposeHeaders;  // "exposeHeaders"
    std::optional<std::int64_t> maxAgeSeconds;              // "maxAgeSeconds"
    bool operator==(const R2CORSRule&) const = default;
};

enum class RulesetPhase { firewallCustom, cacheSettings };

// "http_request_firewall_custom", "http_request_cache_settings".
std::string rawValue(RulesetPhase phase);
// "WAF custom rule", "Cache Rule".
std::string displayName(RulesetPhase phase);

// A rule as it is sent.
struct RuleDefinition {
    std::string description;                // "description"
    std::string expression;                 // "expression"
    std::string action;                     // "action"
    std::optional<Json> actionParameters;   // "action_parameters"
    bool enabled = true;                    // "enabled"
    bool operator==(const RuleDefinition&) const = default;
};

// A rule as it is read.
struct RulesetRule {
    std::string id;                          // "id"
    std::optional<std::string> description;  // "description"
    std::optional<std::string> expression;   // "expression"
    std::optional<std::string> action;       // "action"
    std::optional<Json> actionParameters;    // "action_parameters"
    bool enabled = false;                    // "enabled"
    bool operator==(const RulesetRule&) const = default;
};

struct Ruleset {
    std::string id;                    // "id"
    std::optional<std::string> phase;  // "phase"
    std::vector<RulesetRule> rules;    // "rules"; missing reads as none
    bool operator==(const Ruleset&) const = default;
};

struct VerifiedToken {
    enum class Kind { user, account };
    std::string id;
    std::string status;
    Kind kind = Kind::user;
    bool operator==(const VerifiedToken&) const = default;
};

// A token as the account lists it.
struct CloudflareToken {
    std::string id;                       // "id"
    std::string name;                     // "name"
    std::optional<std::string> status;    // "status"
    std::optional<std::string> issuedOn;  // "issued_on"
    std::optional<std::string> expiresOn; // "expires_on"
    bool operator==(const CloudflareToken&) const = default;
};

struct PermissionGroup {
    std::string id;                                  // "id"
    std::string name;                                // "name"
    std::optional<std::vector<std::string>> scopes;  // "scopes"
    bool operator==(const PermissionGroup&) const = default;
};

// What a token may do: always "allow", over resources, with permission groups
// written as [{"id": …}].
struct TokenPolicy {
    std::string effect = "allow";
    std::map<std::string, std::string> resources;
    std::vector<std::string> permissionGroupIDs;
    bool operator==(const TokenPolicy&) const = default;
};

void from_json(const Json& json, CloudflareResultInfo& info);
void from_json(const Json& json, IgnoredResult& result);
void from_json(const Json& json, CloudflareAccount& account);
void from_json(const Json& json, CloudflareZone& zone);
void from_json(const Json& json, DNSRecord& record);
void from_json(const Json& json, KVNamespace& kvNamespace);
void from_json(const Json& json, R2Bucket& bucket);
void from_json(const Json& json, R2CustomDomain& domain);
void from_json(const Json& json, R2ManagedDomain& domain);
void from_json(const Json& json, R2CORSRule& rule);
void to_json(Json& json, const R2CORSRule& rule);
void to_json(Json& json, const RuleDefinition& rule);
void from_json(const Json& json, RulesetRule& rule);
void from_json(const Json& json, Ruleset& ruleset);
void from_json(const Json& json, CloudflareToken& token);
void from_json(const Json& json, PermissionGroup& group);
void to_json(Json& json, const TokenPolicy& policy);

}  // namespace vorlen
