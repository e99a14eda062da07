#include "core/cloudflare/CloudflareResources.hpp"

#include <fmt/format.h>

#include "core/cloudflare/RecordFields.hpp"

namespace vorlen {

bool isValidBucketName(std::string_view name) {
    if (name.size() < 3 || name.size() > 63) return false;
    for (char c : name)
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-')) return false;
    return true;
}

std::string rawValue(R2LocationHint hint) {
    switch (hint) {
        case R2LocationHint::asiaPacific: return "apac";
        case R2LocationHint::easternEurope: return "eeur";
        case R2LocationHint::easternNorthAmerica: return "enam";
        case R2LocationHint::westernEurope: return "weur";
        case R2LocationHint::westernNorthAmerica: return "wnam";
        case R2LocationHint::oceania: return "oc";
    }
    return "";
}

std::optional<R2LocationHint> r2LocationHintFromRawValue(std::string_view text) {
    for (auto hint : {R2LocationHint::asiaPacific, R2LocationHint::easternEurope, R2LocationHint::easternNorthAmerica,
                      R2LocationHint::westernEurope, R2LocationHint::westernNorthAmerica, R2LocationHint::oceania})
        if (rawValue(hint) == text) return hint;
    return std::nullopt;
}

std::string rawValue(RulesetPhase phase) {
    return phase == RulesetPhase::firewallCustom ? "http_request_firewall_custom" : "http_request_cache_settings";
}

std::string displayName(RulesetPhase phase) {
    return phase == RulesetPhase::firewallCustom ? "WAF custom rule" : "Cache Rule";
}

bool R2CustomDomain::isReady() const {
    return enabled && status && status->ownership == "active" && status->ssl == "active";
}

std::string R2CustomDomain::statusText() const {
    auto known = [](const std::optional<std::string>& value) { return value.value_or("unknown"); };
    return fmt::format("ownership {}, certificate {}", known(status ? status->ownership : std::nullopt),
                       known(status ? status->ssl : std::nullopt));
}

void from_json(const Json& json, CloudflareResultInfo& info) {
    readOptional(json, "page", info.page);
    readOptional(json, "per_page", info.perPage);
    readOptional(json, "total_pages", info.totalPages);
    readOptional(json, "cursor", info.cursor);
}

void from_json(const Json&, IgnoredResult&) {}

void from_json(const Json& json, CloudflareAccount& account) {
    json.at("id").get_to(account.id);
    json.at("name").get_to(account.name);
}

void from_json(const Json& json, CloudflareZone& zone) {
    json.at("id").get_to(zone.id);
    json.at("name").get_to(zone.name);
    readOptional(json, "status", zone.status);
    zone.accountID.reset();
    if (auto account = json.find("account"); account != json.end() && !account->is_null())
        readOptional(*account, "id", zone.accountID);
    zone.plan.reset();
    if (auto plan = json.find("plan"); plan != json.end() && !plan->is_null()) {
        CloudflareZone::Plan read;
        readOptional(*plan, "legacy_id", read.legacyID);
        readOptional(*plan, "name", read.name);
        zone.plan = read;
    }
}

void from_json(const Json& json, DNSRecord& record) {
    json.at("id").get_to(record.id);
    json.at("type").get_to(record.type);
    json.at("name").get_to(record.name);
    readOptional(json, "content", record.content);
}

void from_json(const Json& json, KVNamespace& kvNamespace) {
    json.at("id").get_to(kvNamespace.id);
    json.at("title").get_to(kvNamespace.title);
}

void from_json(const Json& json, R2Bucket& bucket) {
    json.at("name").get_to(bucket.name);
    readOptional(json, "creation_date", bucket.creationDate);
    readOptional(json, "location", bucket.location);
    readOptional(json, "jurisdiction", bucket.jurisdiction);
}

void from_json(const Json& json, R2CustomDomain& domain) {
    json.at("domain").get_to(domain.domain);
    json.at("enabled").get_to(domain.enabled);
    domain.status.reset();
    if (auto status = json.find("status"); status != json.end() && !status->is_null()) {
        R2CustomDomain::Status read;
        readOptional(*status, "ownership", read.ownership);
        readOptional(*status, "ssl", read.ssl);
        domain.status = read;
    }
    readOptional(json, "zoneId", domain.zoneID);
    readOptional(json, "zoneName", domain.zoneName);
    readOptional(json, "minTLS", domain.minTLS);
}

void from_json(const Json& json, R2ManagedDomain& domain) {
    readOptional(json, "bucketId", domain.bucketID);
    readOptional(json, "domain", domain.domain);
    json.at("enabled").get_to(domain.enabled);
}

void from_json(const Json& json, R2CORSRule& rule) {
    readOptional(json, "id", rule.id);
    const Json& allowed = json.at("allowed");
    allowed.at("origins").get_to(rule.allowed.origins);
    allowed.at("methods").get_to(rule.allowed.methods);
    readOptional(allowed, "headers", rule.allowed.headers);
    readOptional(json, "exposeHeaders", rule.exposeHeaders);
    readOptional(json, "maxAgeSeconds", rule.maxAgeSeconds);
}

void to_json(Json& json, const R2CORSRule& rule) {
    Json allowed = {{"origins", rule.allowed.origins}, {"methods", rule.allowed.methods}};
    writeOptional(allowed, "headers", rule.allowed.headers);
    json = {{"allowed", allowed}};
    writeOptional(json, "id", rule.id);
    writeOptional(json, "exposeHeaders", rule.exposeHeaders);
    writeOptional(json, "maxAgeSeconds", rule.maxAgeSeconds);
}

void to_json(Json& json, const RuleDefinition& rule) {
    json = {{"description", rule.description},
            {"expression", rule.expression},
            {"action", rule.action},
            {"enabled", rule.enabled}};
    writeOptional(json, "action_parameters", rule.actionParameters);
}

void from_json(const Json& json, RulesetRule& rule) {
    json.at("id").get_to(rule.id);
    readOptional(json, "description", rule.description);
    readOptional(json, "expression", rule.expression);
    readOptional(json, "action", rule.action);
    readOptional(json, "action_parameters", rule.actionParameters);
    json.at("enabled").get_to(rule.enabled);
}

void from_json(const Json& json, Ruleset& ruleset) {
    json.at("id").get_to(ruleset.id);
    readOptional(json, "phase", ruleset.phase);
    ruleset.rules.clear();
    if (auto rules = json.find("rules"); rules != json.end() && !rules->is_null()) rules->get_to(ruleset.rules);
}

void from_json(const Json& json, CloudflareToken& token) {
    json.at("id").get_to(token.id);
    json.at("name").get_to(token.name);
    readOptional(json, "status", token.status);
    readOptional(json, "issued_on", token.issuedOn);
    readOptional(json, "expires_on", token.expiresOn);
}

void from_json(const Json& json, PermissionGroup& group) {
    json.at("id").get_to(group.id);
    json.at("name").get_to(group.name);
    readOptional(json, "scopes", group.scopes);
}

void to_json(Json& json, const TokenPolicy& policy) {
    Json groups = Json::array();
    for (const auto& id : policy.permissionGroupIDs) groups.push_back({{"id", id}});
    json = {{"effect", policy.effect}, {"resources", policy.resources}, {"permission_groups", groups}};
}

}  // namespace vorlen
