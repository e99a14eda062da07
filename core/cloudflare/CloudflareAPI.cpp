#include "core/cloudflare/CloudflareAPI.hpp"

#include <algorithm>
#include <atomic>

#include <fmt/format.h>

#include "core/base/Dates.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

constexpr std::int64_t pageLimit = 200;
constexpr std::size_t zoneProbeWidth = 8;

std::string joinedPath(const std::vector<std::string>& segments) {
    std::string path;
    for (const auto& segment : segments) {
        if (!path.empty()) path.push_back('/');
        path += segment;
    }
    return path;
}

std::string urlFor(const std::string& baseURL, const CloudflareRequest& request) {
    if (!hostOfURL(baseURL)) throw VorlenError::config(fmt::format("\u201c{}\u201d is not a valid API URL", baseURL));
    std::string url = baseURL;
    if (!url.ends_with('/')) url.push_back('/');
    for (std::size_t i = 0; i < request.path.size(); ++i) {
        const std::string& segment = request.path[i];
        if (segment.empty() || segment == "." || segment == "..")
            throw VorlenError::config(fmt::format("\u201c{}\u201d is not a valid part of an API path", segment));
        if (i > 0) url.push_back('/');
        // "/" and "%" inside a segment are encoded too: a value never changes the path.
        url += percentEncoded(segment);
    }
    for (std::size_t i = 0; i < request.query.size(); ++i) {
        url += i == 0 ? "?" : "&";
        url += percentEncoded(request.query[i].first) + "=" + percentEncoded(request.query[i].second);
    }
    if (!hostOfURL(url))
        throw VorlenError::config(fmt::format("\u201c{}\u201d is not a valid API path", joinedPath(request.path)));
    return url;
}

// The words for a body that is not Cloudflare's envelope.
std::string notJsonText(const std::string& body) {
    const std::string text = trimmed(repairUtf8(std::string_view(body).substr(0, 200)));
    return text.empty() ? "the response has no body" : "the response is not JSON: " + text;
}

struct EnvelopeHeader {
    bool success = false;
    std::vector<CloudflareError::Message> errors;
};

// The first reading of a body: only "success" and "errors", so that a failed
// call is reported well even when its "result" has a form nobody foresaw.
std::optional<EnvelopeHeader> envelopeHeader(const std::string& body, Json& parsed) {
    try {
        parsed = decodeJson(body);
        EnvelopeHeader header;
        parsed.at("success").get_to(header.success);
        for (const auto& error : parsed.at("errors")) {
            CloudflareError::Message message;
            if (auto code = error.find("code"); code != error.end() && !code->is_null())
                message.code = code->get<std::int64_t>();
            error.at("message").get_to(message.message);
            header.errors.push_back(std::move(message));
        }
        return header;
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

CloudflareError failureOf(const CloudflareRequest& request, const HttpResponse& response,
                          std::optional<EnvelopeHeader> header) {
    std::optional<std::chrono::duration<double>> retryAfter;
    if (auto value = response.header("retry-after")) retryAfter = parseRetryAfter(*value, wallNow());
    std::vector<CloudflareError::Message> messages;
    if (header)
        messages = std::move(header->errors);
    else
        messages.push_back({std::nullopt, notJsonText(response.body)});
    return CloudflareError(rawValue(request.method), joinedPath(request.path), response.status, std::move(messages),
                           retryAfter);
}

bool isSuccess(const HttpResponse& response) { return response.status >= 200 && response.status <= 299; }

}  // namespace

std::string rawValue(CloudflareRequest::Method method) {
    switch (method) {
        case CloudflareRequest::Method::get: return "GET";
        case CloudflareRequest::Method::post: return "POST";
        case CloudflareRequest::Method::put: return "PUT";
        case CloudflareRequest::Method::patch: return "PATCH";
        case CloudflareRequest::Method::delete_: return "DELETE";
    }
    return "GET";
}

CloudflareAPI::CloudflareAPI(APIToken token, std::shared_ptr<HttpClient> session, const Endpoints& endpoints,
                             RetryPolicy retryPolicy)
    : token_(std::move(token)),
      session_(std::move(session)),
      baseURL_(endpoints.cloudflareAPI),
      retryPolicy_(std::move(retryPolicy)) {}

bool CloudflareAPI::mayRetryCreate(const std::exception_ptr& error) {
    // A 429 was not carried out; anything else may have created the object.
    try {
        std::rethrow_exception(error);
    } catch (const CloudflareError& failure) {
        return failure.status() == 429 && failure.isTransient();
    } catch (...) {
        return false;
    }
}

CloudflareError CloudflareAPI::unexpectedForm(const CloudflareRequest& request, std::int64_t status,
                                              const std::string& detail) {
    return CloudflareError(rawValue(request.method), joinedPath(request.path), status,
                           {{std::nullopt, "the result has an unexpected form: " + detail}}, std::nullopt);
}

HttpResponse CloudflareAPI::sendOnce(const CloudflareRequest& request) const {
    HttpRequest http;
    http.method = rawValue(request.method);
    http.url = urlFor(baseURL_, request);
    http.idempotent = request.isIdempotent;
    const auto* bearer = std::get_if<CloudflareRequest::Bearer>(&request.credential);
    http.headers.emplace_back("Authorization", "Bearer " + (bearer ? bearer->token : token_.value));
    http.headers.emplace_back("Accept", "application/json");
    if (request.body) {
        if (const auto* json = std::get_if<CloudflareRequest::JsonBody>(&*request.body)) {
            http.headers.emplace_back("Content-Type", "application/json");
            http.body = RequestBody::bytes(json->bytes);
        } else {
            const auto& form = std::get<MultipartForm>(*request.body);
            http.headers.emplace_back("Content-Type", form.contentType());
            http.body = RequestBody::bytes(form.bytes());
        }
    }
    return session_->send(http);
}

CloudflareAPI::Answer CloudflareAPI::send(const CloudflareRequest& request) const {
    auto attempt = [&](std::int64_t) -> Answer {
        const HttpResponse response = sendOnce(request);
        if (isSuccess(response) && response.body.empty()) return Answer{response.status, std::nullopt, std::nullopt};
        Json json;
        auto header = envelopeHeader(response.body, json);
        if (!header || !isSuccess(response) || !header->success) throw failureOf(request, response, std::move(header));

        Answer answer{response.status, std::nullopt, std::nullopt};
        if (auto result = json.find("result"); result != json.end() && !result->is_null()) answer.result = *result;
        if (auto info = json.find("result_info"); info != json.end() && !info->is_null())
            answer.info = decoded<CloudflareResultInfo>(request, response.status, *info);
        return answer;
    };
    return retrying(request, attempt);
}

std::string CloudflareAPI::rawBytes(const CloudflareRequest& request) const {
    return retrying(request, [&](std::int64_t) -> std::string {
        HttpResponse response = sendOnce(request);
        if (isSuccess(response)) return std::move(response.body);
        Json ignored;
        throw failureOf(request, response, envelopeHeader(response.body, ignored));
    });
}

Json CloudflareAPI::allPages(const CloudflareRequest& request) const {
    Json items = Json::array();
    for (std::int64_t page = 1;; ++page) {
        CloudflareRequest pageRequest = request;
        pageRequest.query.emplace_back("page", std::to_string(page));
        pageRequest.query.emplace_back("per_page", "50");
        const Answer answer = send(pageRequest);
        std::size_t count = 0;
        if (answer.result) {
            if (!answer.result->is_array()) throw unexpectedForm(request, answer.status, "the result is not a list");
            count = answer.result->size();
            items.insert(items.end(), answer.result->begin(), answer.result->end());
        }
        if (!answer.info || !answer.info->totalPages || page >= *answer.info->totalPages || count == 0) return items;
        if (page == pageLimit)
            throw VorlenError::config(fmt::format("Cloudflare gave more than {} pages for /{}", pageLimit,
                                                  joinedPath(request.path)));
    }
}

std::vector<CloudflareAccount> CloudflareAPI::accounts() const {
    return pagedList<CloudflareAccount>(CloudflareRequest::get({"accounts"}));
}

std::vector<CloudflareZone> CloudflareAPI::zones(const std::string& accountID) const {
    return pagedList<CloudflareZone>(CloudflareRequest::get({"zones"}, {{"account.id", accountID}}));
}

std::optional<CloudflareZone> CloudflareAPI::findZone(const std::string& name, const std::string& accountID) const {
    const auto found =
        call<std::vector<CloudflareZone>>(CloudflareRequest::get({"zones"}, {{"name", name}, {"account.id", accountID}}));
    // Cloudflare's name filter is not an exact match everywhere; the answer is compared again.
    const std::string wanted = asciiLowercased(name);
    for (const auto& zone : found.result.value_or(std::vector<CloudflareZone>{}))
        if (asciiLowercased(zone.name) == wanted) return zone;
    return std::nullopt;
}

CloudflareZone CloudflareAPI::zone(const std::string& zoneID) const {
    const CloudflareRequest request = CloudflareRequest::get({"zones", zoneID});
    auto response = call<CloudflareZone>(request);
    if (!response.result) throw unexpectedForm(request, response.status, "the result is missing");
    return std::move(*response.result);
}

std::vector<DNSRecord> CloudflareAPI::dnsRecords(const std::string& zoneID, const std::string& name) const {
    const auto found =
        call<std::vector<DNSRecord>>(CloudflareRequest::get({"zones", zoneID, "dns_records"}, {{"name", name}}));
    const std::string wanted = asciiLowercased(name);
    std::vector<DNSRecord> records;
    for (const auto& record : found.result.value_or(std::vector<DNSRecord>{}))
        if (asciiLowercased(record.name) == wanted) records.push_back(record);
    return records;
}

void CloudflareAPI::purgeByPrefix(const std::string& zoneID, const std::vector<std::string>& prefixes) const {
    call<IgnoredResult>(CloudflareRequest::withJson(CloudflareRequest::Method::post, {"zones", zoneID, "purge_cache"},
                                                    {{"prefixes", prefixes}}, true));
}

ZoneAccess CloudflareAPI::zoneAccess(const std::string& accountID) const {
    const std::vector<CloudflareZone> all = zones(accountID);
    std::vector<char> configurable(all.size(), 0);
    forEachInWindow(all.size(), zoneProbeWidth, [&](std::size_t index) {
        try {
            phaseEntryPoint(all[index].id, RulesetPhase::firewallCustom);
            configurable[index] = 1;
        } catch (const CloudflareError& error) {
            if (!error.isPermissionRefused()) throw;
        }
    });
    ZoneAccess access;
    for (std::size_t i = 0; i < all.size(); ++i) (configurable[i] ? access.configurable : access.other).push_back(all[i]);
    return access;
}

namespace {

Ruleset requiredRuleset(const CloudflareResponse<Ruleset>& response) {
    if (!response.result) throw VorlenError::config("Cloudflare gave no ruleset in its response");
    return *response.result;
}

std::vector<std::string> rulesPath(const std::string& zoneID, const std::string& rulesetID) {
    return {"zones", zoneID, "rulesets", rulesetID, "rules"};
}

std::vector<std::string> bucketPath(const std::string& accountID, const std::string& bucket,
                                    std::initializer_list<std::string> rest = {}) {
    std::vector<std::string> path{"accounts", accountID, "r2", "buckets", bucket};
    path.insert(path.end(), rest.begin(), rest.end());
    return path;
}

}  // namespace

std::optional<Ruleset> CloudflareAPI::phaseEntryPoint(const std::string& zoneID, RulesetPhase phase) const {
    try {
        return requiredRuleset(
            call<Ruleset>(CloudflareRequest::get({"zones", zoneID, "rulesets", "phases", rawValue(phase), "entrypoint"})));
    } catch (const CloudflareError& error) {
        if (error.isNotFound()) return std::nullopt;
        throw;
    }
}

Ruleset CloudflareAPI::createPhaseRuleset(const std::string& zoneID, RulesetPhase phase,
                                          const std::vector<RuleDefinition>& rules) const {
    const Json body = {{"name", "default"}, {"kind", "zone"}, {"phase", rawValue(phase)}, {"rules", rules}};
    return requiredRuleset(
        call<Ruleset>(CloudflareRequest::withJson(CloudflareRequest::Method::post, {"zones", zoneID, "rulesets"}, body, false)));
}

Ruleset CloudflareAPI::addRule(const std::string& zoneID, const std::string& rulesetID, const RuleDefinition& rule) const {
    return requiredRuleset(
        call<Ruleset>(CloudflareRequest::withJson(CloudflareRequest::Method::post, rulesPath(zoneID, rulesetID), rule, false)));
}

Ruleset CloudflareAPI::replaceRule(const std::string& zoneID, const std::string& rulesetID, const std::string& ruleID,
                                   const RuleDefinition& rule) const {
    auto path = rulesPath(zoneID, rulesetID);
    path.push_back(ruleID);
    return requiredRuleset(call<Ruleset>(CloudflareRequest::withJson(CloudflareRequest::Method::patch, path, rule, true)));
}

void CloudflareAPI::deleteRule(const std::string& zoneID, const std::string& rulesetID, const std::string& ruleID) const {
    auto path = rulesPath(zoneID, rulesetID);
    path.push_back(ruleID);
    call<IgnoredResult>(CloudflareRequest::remove(path));
}

std::vector<KVNamespace> CloudflareAPI::kvNamespaces(const std::string& accountID) const {
    return pagedList<KVNamespace>(CloudflareRequest::get({"accounts", accountID, "storage", "kv", "namespaces"}));
}

KVNamespace CloudflareAPI::createKVNamespace(const std::string& accountID, const std::string& title) const {
    auto response = call<KVNamespace>(CloudflareRequest::withJson(
        CloudflareRequest::Method::post, {"accounts", accountID, "storage", "kv", "namespaces"}, {{"title", title}}, false));
    if (!response.result)
        throw VorlenError::config(fmt::format("Cloudflare gave no KV namespace for \u201c{}\u201d", title));
    return std::move(*response.result);
}

void CloudflareAPI::deleteKVNamespace(const std::string& accountID, const std::string& namespaceID) const {
    call<IgnoredResult>(CloudflareRequest::remove({"accounts", accountID, "storage", "kv", "namespaces", namespaceID}));
}

namespace {

struct BucketPage {
    std::vector<R2Bucket> buckets;
};

void from_json(const Json& json, BucketPage& page) {
    if (auto buckets = json.find("buckets"); buckets != json.end() && !buckets->is_null()) buckets->get_to(page.buckets);
}

struct CustomDomainList {
    std::vector<R2CustomDomain> domains;
};

void from_json(const Json& json, CustomDomainList& list) {
    if (auto domains = json.find("domains"); domains != json.end() && !domains->is_null()) domains->get_to(list.domains);
}

struct CORSPolicy {
    std::vector<R2CORSRule> rules;
};

void from_json(const Json& json, CORSPolicy& policy) {
    if (auto rules = json.find("rules"); rules != json.end() && !rules->is_null()) rules->get_to(policy.rules);
}

}  // namespace

std::vector<R2Bucket> CloudflareAPI::buckets(const std::string& accountID) const {
    std::vector<R2Bucket> all;
    std::optional<std::string> cursor;
    for (std::int64_t page = 1;; ++page) {
        CloudflareRequest request = CloudflareRequest::get({"accounts", accountID, "r2", "buckets"}, {{"per_page", "100"}});
        if (cursor) request.query.emplace_back("cursor", *cursor);
        const auto response = call<BucketPage>(request);
        if (response.result) all.insert(all.end(), response.result->buckets.begin(), response.result->buckets.end());
        const auto& next = response.info ? response.info->cursor : std::nullopt;
        // A server that repeats its cursor ends the list instead of hanging the client.
        if (!next || next->empty() || next == cursor) return all;
        if (page == pageLimit)
            throw VorlenError::config(fmt::format("Cloudflare gave more than {} pages of buckets", pageLimit));
        cursor = next;
    }
}

R2Bucket CloudflareAPI::createBucket(const std::string& accountID, const std::string& name,
                                     std::optional<R2LocationHint> locationHint) const {
    Json body = {{"name", name}};
    if (locationHint) body["locationHint"] = rawValue(*locationHint);
    const auto request =
        CloudflareRequest::withJson(CloudflareRequest::Method::post, {"accounts", accountID, "r2", "buckets"}, body, false);
    auto response = call<R2Bucket>(request);
    if (!response.result) throw unexpectedForm(request, response.status, "the result is missing");
    return std::move(*response.result);
}

R2Bucket CloudflareAPI::bucket(const std::string& accountID, const std::string& name) const {
    const auto request = CloudflareRequest::get(bucketPath(accountID, name));
    auto response = call<R2Bucket>(request);
    if (!response.result) throw unexpectedForm(request, response.status, "the result is missing");
    return std::move(*response.result);
}

std::optional<std::string> CloudflareAPI::readObject(const std::string& accountID, const std::string& bucket,
                                                     const std::string& key) const {
    // The key's slashes stay slashes in the URL; every other character is encoded.
    auto path = bucketPath(accountID, bucket, {"objects"});
    for (std::size_t start = 0;;) {
        const auto slash = key.find('/', start);
        path.push_back(key.substr(start, slash == std::string::npos ? std::string::npos : slash - start));
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    try {
        return rawBytes(CloudflareRequest::get(path));
    } catch (const CloudflareError& error) {
        if (error.has(CloudflareError::Code::r2NoSuchObject)) return std::nullopt;
        throw;
    }
}

std::vector<R2CustomDomain> CloudflareAPI::customDomains(const std::string& accountID, const std::string& bucket) const {
    const auto response = call<CustomDomainList>(CloudflareRequest::get(bucketPath(accountID, bucket, {"domains", "custom"})));
    return response.result ? response.result->domains : std::vector<R2CustomDomain>{};
}

R2CustomDomain CloudflareAPI::customDomain(const std::string& accountID, const std::string& bucket,
                                           const std::string& domain) const {
    const auto request = CloudflareRequest::get(bucketPath(accountID, bucket, {"domains", "custom", domain}));
    auto response = call<R2CustomDomain>(request);
    if (!response.result) throw unexpectedForm(request, response.status, "the result is missing");
    return std::move(*response.result);
}

void CloudflareAPI::addCustomDomain(const std::string& accountID, const std::string& bucket, const std::string& domain,
                                    const std::string& zoneID, bool enabled) const {
    const Json body = {{"domain", domain}, {"zoneId", zoneID}, {"enabled", enabled}, {"minTLS", "1.2"}};
    call<IgnoredResult>(CloudflareRequest::withJson(CloudflareRequest::Method::post,
                                                    bucketPath(accountID, bucket, {"domains", "custom"}), body, false));
}

void CloudflareAPI::changeCustomDomain(const std::string& accountID, const std::string& bucket,
                                       const std::string& domain, bool enabled) const {
    call<IgnoredResult>(CloudflareRequest::withJson(CloudflareRequest::Method::put,
                                                    bucketPath(accountID, bucket, {"domains", "custom", domain}),
                                                    {{"enabled", enabled}, {"minTLS", "1.2"}}, true));
}

void CloudflareAPI::removeCustomDomain(const std::string& accountID, const std::string& bucket,
                                       const std::string& domain) const {
    call<IgnoredResult>(CloudflareRequest::remove(bucketPath(accountID, bucket, {"domains", "custom", domain})));
}

R2ManagedDomain CloudflareAPI::managedDomain(const std::string& accountID, const std::string& bucket) const {
    auto response = call<R2ManagedDomain>(CloudflareRequest::get(bucketPath(accountID, bucket, {"domains", "managed"})));
    if (!response.result)
        throw VorlenError::config(fmt::format("Cloudflare gave no r2.dev state for the bucket \u201c{}\u201d", bucket));
    return std::move(*response.result);
}

void CloudflareAPI::setManagedDomain(const std::string& accountID, const std::string& bucket, bool enabled) const {
    call<IgnoredResult>(CloudflareRequest::withJson(CloudflareRequest::Method::put,
                                                    bucketPath(accountID, bucket, {"domains", "managed"}),
                                                    {{"enabled", enabled}}, true));
}

std::vector<R2CORSRule> CloudflareAPI::corsRules(const std::string& accountID, const std::string& bucket) const {
    const auto response = call<CORSPolicy>(CloudflareRequest::get(bucketPath(accountID, bucket, {"cors"})));
    return response.result ? response.result->rules : std::vector<R2CORSRule>{};
}

void CloudflareAPI::setCorsRules(const std::string& accountID, const std::string& bucket,
                                 const std::vector<R2CORSRule>& rules) const {
    call<IgnoredResult>(CloudflareRequest::withJson(CloudflareRequest::Method::put, bucketPath(accountID, bucket, {"cors"}),
                                                    {{"rules", rules}}, true));
}

void CloudflareAPI::deleteCorsPolicy(const std::string& accountID, const std::string& bucket) const {
    call<IgnoredResult>(CloudflareRequest::remove(bucketPath(accountID, bucket, {"cors"})));
}

namespace {

struct TokenStatus {
    std::string id;
    std::string status;
};

void from_json(const Json& json, TokenStatus& answer) {
    json.at("id").get_to(answer.id);
    json.at("status").get_to(answer.status);
}

}  // namespace

VerifiedToken CloudflareAPI::verifyToken(const std::string& accountID) const {
    const bool looksLikeAccountToken = token_.value.starts_with("cfat_");
    auto ask = [&](VerifiedToken::Kind kind) {
        const auto request = kind == VerifiedToken::Kind::account
                                 ? CloudflareRequest::get({"accounts", accountID, "tokens", "verify"})
                                 : CloudflareRequest::get({"user", "tokens", "verify"});
        auto response = call<TokenStatus>(request);
        if (!response.result) throw unexpectedForm(request, response.status, "the result is missing");
        return VerifiedToken{response.result->id, response.result->status, kind};
    };
    const auto first = looksLikeAccountToken ? VerifiedToken::Kind::account : VerifiedToken::Kind::user;
    const auto second = looksLikeAccountToken ? VerifiedToken::Kind::user : VerifiedToken::Kind::account;
    try {
        return ask(first);
    } catch (const CloudflareError& error) {
        // A server in trouble says nothing about the token.
        if (error.isTransient()) throw;
    } catch (const VorlenError&) {
    }
    try {
        return ask(second);
    } catch (const CloudflareError& error) {
        if (error.isTransient()) throw;
    } catch (const VorlenError&) {
    }
    throw VorlenError::config("Cloudflare did not accept the API token");
}

std::vector<CloudflareToken> CloudflareAPI::tokens(const std::string& accountID) const {
    return pagedList<CloudflareToken>(CloudflareRequest::get({"accounts", accountID, "tokens"}));
}

CloudflareToken CloudflareAPI::token(const std::string& accountID, const std::string& tokenID) const {
    const auto request = CloudflareRequest::get({"accounts", accountID, "tokens", tokenID});
    auto response = call<CloudflareToken>(request);
    if (!response.result) throw unexpectedForm(request, response.status, "the result is missing");
    return std::move(*response.result);
}

namespace {

struct MadeToken {
    std::string id;
    std::string name;
    std::optional<std::string> value;
};

void from_json(const Json& json, MadeToken& made) {
    json.at("id").get_to(made.id);
    json.at("name").get_to(made.name);
    if (auto value = json.find("value"); value != json.end() && value->is_string()) made.value = value->get<std::string>();
}

}  // namespace

IssuedToken CloudflareAPI::createToken(const std::string& accountID, const std::string& name,
                                       const std::vector<TokenPolicy>& policies) const {
    const auto response = call<MadeToken>(CloudflareRequest::withJson(
        CloudflareRequest::Method::post, {"accounts", accountID, "tokens"}, {{"name", name}, {"policies", policies}}, false));
    if (!response.result || !response.result->value || response.result->value->empty())
        throw VorlenError::config(fmt::format("Cloudflare gave no token value for \u201c{}\u201d", name));
    return IssuedToken{response.result->id, response.result->name, APIToken{*response.result->value}};
}

void CloudflareAPI::revokeToken(const std::string& accountID, const std::string& tokenID) const {
    call<IgnoredResult>(CloudflareRequest::remove({"accounts", accountID, "tokens", tokenID}));
}

std::vector<PermissionGroup> CloudflareAPI::permissionGroups(const std::string& accountID, const std::string& name) const {
    const auto response = call<std::vector<PermissionGroup>>(
        CloudflareRequest::get({"accounts", accountID, "tokens", "permission_groups"}, {{"name", name}}));
    return response.result.value_or(std::vector<PermissionGroup>{});
}

}  // namespace vorlen
