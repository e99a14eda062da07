#include "core/cloudflare/CloudflareAPI.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <mutex>
#include <set>

#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/Random.hpp"
#include "core/base/VorlenError.hpp"
#include "core/net/TransportError.hpp"
#include "core/storage/S3Bucket.hpp"
#include "testing/CommandOutput.hpp"
#include "testing/LocalCloudflareAccount.hpp"

namespace vorlen {
namespace {

using testing::LocalCloudflareAccount;

// Records the waits between attempts instead of sleeping them.
struct WaitRecorder {
    std::mutex mutex;
    std::vector<double> seconds;

    RetryPolicy policy(std::int64_t retries = 5) {
        return RetryPolicy{retries, std::chrono::duration<double>(0.5), [this](std::chrono::nanoseconds wait) {
                               std::lock_guard lock(mutex);
                               seconds.push_back(std::chrono::duration<double>(wait).count());
                           }};
    }
};

class CloudflareAPIAccountTest : public ::testing::Test {
protected:
    LocalCloudflareAccount& account = LocalCloudflareAccount::shared();
    WaitRecorder waits;
    CloudflareAPI api{account.setupToken(), std::make_shared<HttpClient>(), account.endpoints(), waits.policy()};

    void SetUp() override {
        account.reset();
        account.clearRequests();
    }
    void TearDown() override { account.reset(); }

    const std::string& accountID() const { return account.accountID(); }
    std::string firstZoneID() const { return account.zones().begin()->second; }

    std::vector<LocalCloudflareAccount::Request> apiRequests() const { return account.requests(); }

    template <class F>
    CloudflareError failureOf(F&& call) {
        try {
            call();
        } catch (const CloudflareError& error) {
            return error;
        }
        ADD_FAILURE() << "the call did not fail with a CloudflareError";
        return CloudflareError("", "", 0, {}, std::nullopt);
    }
};

std::string freshName(const char* prefix) { return prefix + randomString(10, "abcdefghijklmnopqrstuvwxyz0123456789"); }

TEST_F(CloudflareAPIAccountTest, RefusedPathSegmentsAreNeverSentAndASlashStaysInsideItsSegment) {
    for (const char* segment : {"..", ".", ""}) {
        try {
            api.bucket(accountID(), segment);
            ADD_FAILURE() << segment;
        } catch (const VorlenError& error) {
            EXPECT_EQ(error.text(), fmt::format("\u201c{}\u201d is not a valid part of an API path", segment));
        }
    }
    EXPECT_TRUE(apiRequests().empty());

    // A bucket name with slashes cannot climb out of the bucket path.
    const auto error = failureOf([&] { api.bucket(accountID(), "x/../../../../zones"); });
    EXPECT_EQ(error.path(), "accounts/" + accountID() + "/r2/buckets/x/../../../../zones");
    const auto sent = apiRequests();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_TRUE(sent[0].path.starts_with("accounts/" + accountID() + "/r2/buckets/x%2F")) << sent[0].path;
    EXPECT_NE(sent[0].status, 200);

    try {
        Endpoints wrong;
        wrong.cloudflareAPI = "not a url";
        CloudflareAPI(account.setupToken(), std::make_shared<HttpClient>(), wrong).accounts();
        ADD_FAILURE();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "\u201cnot a url\u201d is not a valid API URL");
    }
}

TEST_F(CloudflareAPIAccountTest, RetriesFollowRetryAfterAndNeverRepeatACreateThatMayHaveHappened) {
    // A wait of two minutes goes back to the caller at once.
    account.setFaults({{"script", {{{"status", 429}, {"retryAfter", "120"}}}}});
    auto error = failureOf([&] { api.accounts(); });
    EXPECT_EQ(error.status(), 429);
    EXPECT_EQ(error.retryAfter(), std::chrono::duration<double>(120));
    EXPECT_EQ(apiRequests().size(), 1u);
    EXPECT_TRUE(waits.seconds.empty());

    // Thirty seconds are waited, even for a create: a 429 was not carried out.
    account.clearRequests();
    account.setFaults({{"script", {{{"status", 429}, {"retryAfter", "30"}}}}});
    const std::string title = freshName("kv-");
    const auto created = api.createKVNamespace(accountID(), title);
    EXPECT_EQ(created.title, title);
    EXPECT_EQ(apiRequests().size(), 2u);
    ASSERT_EQ(waits.seconds.size(), 1u);
    EXPECT_GE(waits.seconds[0], 30);

    // A create that met a 503 may exist: it is not sent again.
    waits.seconds.clear();
    account.clearRequests();
    account.setFaults({{"script", {{{"status", 503}}}}});
    error = failureOf([&] { api.createKVNamespace(accountID(), freshName("kv-")); });
    EXPECT_EQ(error.status(), 503);
    EXPECT_EQ(apiRequests().size(), 1u);

    // A read is tried five more times, waiting 1, 2, 4, 8 and 8 seconds.
    account.clearRequests();
    Json fiveFailures = Json::array();
    for (int i = 0; i < 5; ++i) fiveFailures.push_back({{"status", i % 2 ? 500 : 503}});
    account.setFaults({{"script", fiveFailures}});
    EXPECT_FALSE(api.kvNamespaces(accountID()).empty());
    EXPECT_EQ(apiRequests().size(), 6u);
    EXPECT_EQ(waits.seconds, (std::vector<double>{1, 2, 4, 8, 8}));

    fiveFailures.push_back({{"status", 502}});
    account.setFaults({{"script", fiveFailures}});
    EXPECT_EQ(failureOf([&] { api.kvNamespaces(accountID()); }).status(), 502);

    // A connection lost under a create may have created it: that is not sent again either.
    account.clearRequests();
    account.setFaults({{"script", {{{"reset", true}}}}});
    EXPECT_THROW(api.createKVNamespace(accountID(), freshName("kv-")), TransportError);
    EXPECT_EQ(apiRequests().size(), 1u);
}

TEST_F(CloudflareAPIAccountTest, FailedEnvelopesReportTheirErrorsWhateverTheResult) {
    const std::string refusal = R"({"success":false,"errors":[{"code":9999,"message":"refused here"}],"messages":[],"result":null})";
    account.setFaults({{"script", {{{"status", 200}, {"body", refusal}}}}});
    auto error = failureOf([&] { api.zone(firstZoneID()); });
    EXPECT_EQ(error.status(), 200);
    EXPECT_EQ(error.messages(), (std::vector<CloudflareError::Message>{{9999, "refused here"}}));

    // A result of a form nobody foresaw does not hide the envelope's errors.
    const std::string odd = R"({"success":false,"errors":[{"code":7003,"message":"no route"}],"result":"odd"})";
    account.setFaults({{"script", {{{"status", 400}, {"body", odd}}}}});
    error = failureOf([&] { api.zone(firstZoneID()); });
    EXPECT_EQ(error.description(), "Cloudflare GET /zones/" + firstZoneID() + ": HTTP 400, code 7003: no route");

    const std::string wrongForm = R"({"success":true,"errors":[],"result":{"id":7}})";
    account.setFaults({{"script", {{{"status", 200}, {"body", wrongForm}}}}});
    error = failureOf([&] { api.zone(firstZoneID()); });
    ASSERT_EQ(error.messages().size(), 1u);
    EXPECT_TRUE(error.messages()[0].message.starts_with("the result has an unexpected form: ")) << error.what();

    // Bodies that are not JSON; the POSTs are not retried, so each answer is seen as it is.
    account.setFaults({{"script", {{{"status", 502}, {"html", true}}}}});
    error = failureOf([&] { api.createKVNamespace(accountID(), freshName("kv-")); });
    ASSERT_EQ(error.messages().size(), 1u);
    EXPECT_TRUE(error.messages()[0].message.starts_with("the response is not JSON: <")) << error.what();
    EXPECT_LE(error.messages()[0].message.size(), std::string("the response is not JSON: ").size() + 200);
    account.setFaults({{"script", {{{"status", 500}, {"body", ""}}}}});
    error = failureOf([&] { api.createKVNamespace(accountID(), freshName("kv-")); });
    EXPECT_EQ(error.messages(), (std::vector<CloudflareError::Message>{{std::nullopt, "the response has no body"}}));

    // An empty success is a success without a result.
    account.setFaults({{"script", {{{"status", 204}, {"body", ""}}}}});
    const auto empty = api.call<std::vector<CloudflareAccount>>(CloudflareRequest::get({"accounts"}));
    EXPECT_EQ(empty.status, 204);
    EXPECT_FALSE(empty.result);
}

TEST_F(CloudflareAPIAccountTest, ListingsPageUntilTheEndAndNeverForever) {
    std::vector<std::string> created;
    for (int i = 0; i < 103; ++i) created.push_back(api.createBucket(accountID(), freshName("page-"), std::nullopt).name);
    auto names = [](const std::vector<R2Bucket>& buckets) {
        std::set<std::string> all;
        for (const auto& bucket : buckets) all.insert(bucket.name);
        return all;
    };
    account.clearRequests();
    const auto all = names(api.buckets(accountID()));
    for (const auto& name : created) EXPECT_TRUE(all.count(name)) << name;
    const auto listings = apiRequests();
    ASSERT_EQ(listings.size(), 2u);
    EXPECT_FALSE(listings[0].query.contains("cursor"));
    EXPECT_TRUE(listings[1].query.contains("cursor"));

    // A cursor that comes back again ends the list with what it has.
    account.setQuirks({{"repeatingCursor", true}});
    account.clearRequests();
    EXPECT_GE(api.buckets(accountID()).size(), 100u);
    EXPECT_EQ(apiRequests().size(), 2u);

    account.setQuirks({{"endlessPaging", true}});
    account.clearRequests();
    try {
        api.kvNamespaces(accountID());
        ADD_FAILURE();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "Cloudflare gave more than 200 pages for /accounts/" + accountID() + "/storage/kv/namespaces");
    }
    EXPECT_EQ(apiRequests().size(), 200u);
}


// A token of the account, made through the API as a person would make it in the
// dashboard; its value stays in memory.
struct MadeToken {
    std::string id;
    APIToken value;
};

MadeToken makeToken(const CloudflareAPI& api, const std::string& accountID, const Json& policies) {
    const auto made = api.call<Json>(CloudflareRequest::withJson(CloudflareRequest::Method::post,
                                                                 {"accounts", accountID, "tokens"},
                                                                 {{"name", freshName("test-")}, {"policies", policies}}, false));
    return {made.result->at("id").get<std::string>(), APIToken{made.result->at("value").get<std::string>()}};
}

std::string permissionGroup(const CloudflareAPI& api, const std::string& accountID, const std::string& name) {
    const auto groups = api.call<Json>(
        CloudflareRequest::get({"accounts", accountID, "tokens", "permission_groups"}, {{"name", name}}));
    for (const auto& group : *groups.result)
        if (group.at("name") == name) return group.at("id").get<std::string>();
    throw std::runtime_error("no permission group " + name);
}

TEST_F(CloudflareAPIAccountTest, ZoneAccessSplitsTheZonesByWhatTheTokenMayConfigure) {
    ASSERT_GE(account.zones().size(), 2u);
    const std::string zoneRead = permissionGroup(api, accountID(), "Zone Read");
    const std::string wafWrite = permissionGroup(api, accountID(), "Zone WAF Write");
    const auto token = makeToken(api, accountID(),
        {{{"effect", "allow"},
          {"resources", {{"com.cloudflare.api.account." + accountID(), {{"com.cloudflare.api.account.zone.*", "*"}}}}},
          {"permission_groups", {{{"id", zoneRead}}}}},
         {{"effect", "allow"}, {"resources", {{"com.cloudflare.api.account.zone." + firstZoneID(), "*"}}},
          {"permission_groups", {{{"id", wafWrite}}}}}});
    const CloudflareAPI limited(token.value, std::make_shared<HttpClient>(), account.endpoints(), waits.policy());
    const auto access = limited.zoneAccess(accountID());
    ASSERT_EQ(access.configurable.size(), 1u);
    EXPECT_EQ(access.configurable[0].id, firstZoneID());
    EXPECT_EQ(access.other.size(), account.zones().size() - 1);

    // The setup token may configure every zone; one without a ruleset yet counts too.
    EXPECT_EQ(api.zoneAccess(accountID()).configurable.size(), account.zones().size());
    api.call<IgnoredResult>(CloudflareRequest::remove({"accounts", accountID(), "tokens", token.id}));
}

TEST_F(CloudflareAPIAccountTest, ObjectsAreReadByKeyWithTheirSlashesKept) {
    const std::string bucketName = api.createBucket(accountID(), freshName("objects-"), R2LocationHint::westernEurope).name;
    // The setup token reaches the bucket over S3 too, with the credentials R2 derives from it.
    const auto verified = api.call<Json>(CloudflareRequest::get({"accounts", accountID(), "tokens", "verify"}));
    S3Credentials credentials{verified.result->at("id").get<std::string>(), sha256Hex(account.setupToken().value)};
    S3Bucket bucket(BucketLocation{accountID(), bucketName}, credentials, account.endpoints());
    const std::string key = "folder one/a+b é.json";
    bucket.put(key, RequestBody::bytes("{\"x\":1}"), {});

    EXPECT_EQ(api.readObject(accountID(), bucketName, key), "{\"x\":1}");
    EXPECT_EQ(api.readObject(accountID(), bucketName, "folder one/missing.json"), std::nullopt);
    EXPECT_EQ(api.bucket(accountID(), bucketName).name, bucketName);

    account.setR2Enabled(false);
    const auto error = failureOf([&] { api.bucket(accountID(), bucketName); });
    EXPECT_TRUE(error.has(CloudflareError::Code::r2NotEnabled));
    EXPECT_FALSE(error.isPermissionRefused());
}

TEST_F(CloudflareAPIAccountTest, EveryReadAndIdempotentWriteCompletesUnderFaults) {
    const std::string zoneID = firstZoneID();
    const std::string zoneName = account.zones().begin()->first;
    const std::string bucketName = api.createBucket(accountID(), freshName("faults-"), std::nullopt).name;
    const auto kv = api.createKVNamespace(accountID(), freshName("faults-"));
    const std::string domain = "media-" + randomString(6, "abcdefghij") + "." + zoneName;
    api.addCustomDomain(accountID(), bucketName, domain, zoneID, true);
    const RuleDefinition rule{"faults", "http.request.uri.path eq \"/x\"", "block", std::nullopt, true};
    auto ruleset = api.phaseEntryPoint(zoneID, RulesetPhase::firewallCustom);
    ruleset = ruleset ? api.addRule(zoneID, ruleset->id, rule) : api.createPhaseRuleset(zoneID, RulesetPhase::firewallCustom, {rule});
    const std::string ruleID = ruleset->rules.back().id;

    account.setFaults({{"share", 0.1}, {"kinds", {"429", "500", "503", "reset"}}, {"retryAfter", 1}});
    EXPECT_FALSE(api.accounts().empty());
    EXPECT_EQ(api.zones(accountID()).size(), account.zones().size());
    EXPECT_EQ(api.findZone(zoneName, accountID())->id, zoneID);
    EXPECT_EQ(api.zone(zoneID).name, zoneName);
    api.dnsRecords(zoneID, zoneName);
    api.purgeByPrefix(zoneID, {zoneName + "/videos/"});
    R2CORSRule cors;
    cors.allowed = {{"https://" + zoneName}, {"GET", "HEAD"}, std::nullopt};
    cors.maxAgeSeconds = 3600;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(api.zoneAccess(accountID()).configurable.size(), account.zones().size());
        const auto replaced = api.replaceRule(zoneID, ruleset->id, ruleID, rule);
        EXPECT_EQ(replaced.id, ruleset->id);
        EXPECT_TRUE(api.phaseEntryPoint(zoneID, RulesetPhase::firewallCustom));
        EXPECT_FALSE(api.kvNamespaces(accountID()).empty());
        EXPECT_FALSE(api.buckets(accountID()).empty());
        EXPECT_EQ(api.bucket(accountID(), bucketName).name, bucketName);
        EXPECT_EQ(api.readObject(accountID(), bucketName, "nothing/here"), std::nullopt);
        EXPECT_EQ(api.customDomains(accountID(), bucketName).size(), 1u);
        api.changeCustomDomain(accountID(), bucketName, domain, round % 2 == 0);
        EXPECT_EQ(api.customDomain(accountID(), bucketName, domain).enabled, round % 2 == 0);
        api.setManagedDomain(accountID(), bucketName, round % 2 == 1);
        EXPECT_EQ(api.managedDomain(accountID(), bucketName).enabled, round % 2 == 1);
        api.setCorsRules(accountID(), bucketName, {cors});
        ASSERT_EQ(api.corsRules(accountID(), bucketName).size(), 1u);
        EXPECT_EQ(api.corsRules(accountID(), bucketName)[0].allowed, cors.allowed);
    }
    api.deleteCorsPolicy(accountID(), bucketName);
    api.deleteRule(zoneID, ruleset->id, ruleID);
    api.removeCustomDomain(accountID(), bucketName, domain);
    api.deleteKVNamespace(accountID(), kv.id);
    account.setFaults({{"share", 0}});

    int faulted = 0;
    for (const auto& request : apiRequests()) faulted += request.status == 429 || request.status >= 500;
    EXPECT_GT(faulted, 0) << "the faults never came";
    EXPECT_FALSE(waits.seconds.empty());
}

// What the official SDK reads of the account, as JSON.
Json sdkValues(const LocalCloudflareAccount& account) {
    const std::string command = fmt::format("node '{}/testing/cloudflare/test/sdkValues.mjs' '{}' '{}'", VORLEN_SOURCE_DIR,
                                            account.api(), account.accountID());
    // The token goes through the environment, never through an argument that a process list shows.
    ::setenv("CLOUDFLARE_API_TOKEN", account.setupToken().value.c_str(), 1);
    std::string output;
    try {
        output = testing::commandOutput(command, "the SDK could not read the account");
    } catch (...) {
        ::unsetenv("CLOUDFLARE_API_TOKEN");
        throw;
    }
    ::unsetenv("CLOUDFLARE_API_TOKEN");
    return Json::parse(output);
}

TEST_F(CloudflareAPIAccountTest, ReadsTheSameValuesAsTheOfficialSDK) {
    api.createKVNamespace(accountID(), freshName("sdk-"));
    api.createBucket(accountID(), freshName("sdk-"), std::nullopt);
    const Json sdk = sdkValues(account);

    const auto accounts = api.accounts();
    ASSERT_EQ(accounts.size(), sdk.at("accounts").size());
    for (std::size_t i = 0; i < accounts.size(); ++i) {
        EXPECT_EQ(accounts[i].id, sdk["accounts"][i].at("id"));
        EXPECT_EQ(accounts[i].name, sdk["accounts"][i].at("name"));
    }
    const auto zones = api.zones(accountID());
    ASSERT_EQ(zones.size(), sdk.at("zones").size());
    for (std::size_t i = 0; i < zones.size(); ++i) {
        const Json& theirs = sdk["zones"][i];
        EXPECT_EQ(zones[i], theirs.get<CloudflareZone>());
        EXPECT_EQ(zones[i].accountID, theirs.at("account").at("id"));
        EXPECT_EQ(zones[i].plan->name, theirs.at("plan").at("name"));
        for (const auto& record : sdk.at("dnsRecords").at(zones[i].id)) {
            const auto ours = api.dnsRecords(zones[i].id, record.at("name").get<std::string>());
            EXPECT_NE(std::find(ours.begin(), ours.end(), record.get<DNSRecord>()), ours.end()) << record;
        }
    }
    EXPECT_EQ(api.zone(zones[0].id), sdk.at("zone").get<CloudflareZone>());

    auto sortedNames = [](std::vector<std::string> names) {
        std::sort(names.begin(), names.end());
        return names;
    };
    std::vector<std::string> ourBuckets, theirBuckets, ourNamespaces, theirNamespaces;
    for (const auto& bucket : api.buckets(accountID())) ourBuckets.push_back(bucket.name);
    for (const auto& bucket : sdk.at("buckets")) theirBuckets.push_back(bucket.at("name"));
    EXPECT_EQ(sortedNames(ourBuckets), sortedNames(theirBuckets));
    for (const auto& kv : api.kvNamespaces(accountID())) ourNamespaces.push_back(kv.id + " " + kv.title);
    for (const auto& kv : sdk.at("kvNamespaces"))
        theirNamespaces.push_back(kv.at("id").get<std::string>() + " " + kv.at("title").get<std::string>());
    EXPECT_EQ(sortedNames(ourNamespaces), sortedNames(theirNamespaces));
}

}  // namespace
}  // namespace vorlen
