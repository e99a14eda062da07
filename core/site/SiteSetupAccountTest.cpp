#include "core/site/SiteSetup.hpp"

#include <gtest/gtest.h>

#include <atomic>

#include <fmt/format.h>

#include "core/base/Random.hpp"
#include "core/base/Task.hpp"
#include "core/storage/S3Bucket.hpp"
#include "testing/LocalCloudflareAccount.hpp"

namespace vorlen {
namespace {

using testing::LocalCloudflareAccount;
using namespace std::chrono_literals;

class SiteSetupAccountTest : public ::testing::Test {
protected:
    LocalCloudflareAccount& account = LocalCloudflareAccount::shared();
    CloudflareAPI api{account.setupToken(), std::make_shared<HttpClient>(), account.endpoints(),
                      RetryPolicy{5, std::chrono::duration<double>(0.5), [](std::chrono::nanoseconds) {}}};
    const std::string suffix = randomString(8, "abcdefghijklmnopqrstuvwxyz0123456789");
    std::vector<DailyToken> keptTokens;
    std::vector<std::string> progressTexts;
    std::function<void(SetupStep, const std::string&)> onProgress;

    void SetUp() override { account.reset(); }
    void TearDown() override { account.reset(); }

    SiteHostname host(const std::string& name, const std::string& zone) const {
        return SiteHostname{Hostname::parse(name), api.zone(account.zones().at(zone))};
    }

    SiteSetupRequest request(const std::string& mediaZone = "media-dovrin.test") const {
        SiteSetupRequest request;
        request.accountID = account.accountID();
        request.bucket = "site-" + suffix;
        request.mediaHost = host("m-" + suffix + "." + mediaZone, mediaZone);
        request.pageHost = host("p-" + suffix + ".dovrin.test", "dovrin.test");
        request.workerBundle = WorkerBundle::load(std::filesystem::path(VORLEN_SOURCE_DIR) / "worker");
        request.dailyToken = {DailyTokenSource::Create{"laptop-" + suffix}};
        return request;
    }

    SiteSetupOptions options() const {
        SiteSetupOptions options;
        options.pollInterval = 0.1s;
        options.activationTimeout = 60s;
        options.credentialTimeout = 10s;
        options.corsInterval = 0.1s;
        options.corsTimeout = 1s;
        options.stepRetry = RetryPolicy{3, std::chrono::duration<double>(0.1)};
        options.dashboard = "https://dash.example.test";
        options.makeBucket = [this](const std::string& bucket, const S3Credentials& credentials) {
            return std::make_shared<S3Bucket>(BucketLocation{account.accountID(), bucket}, credentials, account.endpoints());
        };
        options.allowsOrigin = [](const Hostname&, const std::string&) { return true; };
        return options;
    }

    SetupReport run(const SiteSetupRequest& request) {
        return SiteSetup(api, request, options())
            .run({}, [this](const DailyToken& token) { keptTokens.push_back(token); }, progress());
    }
    SetupReport check(const SiteSetupRequest& request) { return SiteSetup(api, request, options()).check({}, progress()); }
    SiteSetup::ProgressCallback progress() {
        return [this](SetupStep step, const std::string& text) {
            progressTexts.push_back(text);
            if (onProgress) onProgress(step, text);
        };
    }

    // The same site again, with the token that the first run kept.
    SiteSetupRequest again(SiteSetupRequest request) const {
        request.dailyToken = {DailyTokenSource::Stored{keptTokens.at(0)}};
        return request;
    }

    static std::vector<std::string> kinds(const SetupReport& report) {
        std::vector<std::string> all;
        for (const auto& step : report.steps) all.push_back(step.status.kindName());
        return all;
    }
    static std::vector<std::string> all(const std::string& kind) { return std::vector<std::string>(12, kind); }

    std::size_t writesSent() const {
        std::size_t count = 0;
        for (const auto& sent : account.requests()) count += sent.method != "GET";
        return count;
    }
};

TEST_F(SiteSetupAccountTest, AnEmptyAccountIsSetUpAndASecondRunOnlyReads) {
    const auto first = request();
    const SetupReport made = run(first);
    ASSERT_EQ(made.stoppedAt(), nullptr) << made.stoppedAt()->status.text();
    for (const auto& step : made.steps)
        EXPECT_TRUE(step.status.is<SetupStatus::Done>() || step.status.is<SetupStatus::AlreadyInPlace>()) << label(step.step);
    EXPECT_EQ(made.status(SetupStep::r2Dev).text(), "r2.dev access is off.");
    ASSERT_EQ(keptTokens.size(), 1u);
    EXPECT_EQ(made.dailyToken->tokenID(), keptTokens[0].tokenID());
    ASSERT_TRUE(made.siteSettings);
    EXPECT_EQ(made.siteSettings->worker.name, "vorlen-site-" + suffix);
    EXPECT_EQ(made.siteSettings->mediaZoneID, first.mediaHost.zone.id);

    // What the run made serves: the page host runs the Worker, the media host is active.
    const Json state = account.state();
    EXPECT_TRUE(state["workers"]["scripts"].contains("vorlen-site-" + suffix));

    account.clearRequests();
    const SetupReport second = run(again(first));
    EXPECT_EQ(kinds(second), all("alreadyInPlace"));
    EXPECT_EQ(writesSent(), 0u);
    EXPECT_EQ(second.status(SetupStep::dailyToken).text(),
              fmt::format("The R2 API Token of this computer from an earlier setup (ID {}) can read the bucket.",
                          keptTokens[0].tokenID()));
    EXPECT_EQ(kinds(check(again(first))), all("alreadyInPlace"));
    EXPECT_EQ(writesSent(), 0u);

    // A new token in place of the old one: the old one is revoked.
    auto replacing = first;
    replacing.dailyToken = {DailyTokenSource::Replace{keptTokens[0], "laptop-" + suffix}};
    const SetupReport replaced = run(replacing);
    EXPECT_EQ(replaced.stoppedAt(), nullptr);
    ASSERT_EQ(keptTokens.size(), 2u);
    EXPECT_NE(replaced.status(SetupStep::dailyToken).text().find(
                  fmt::format("Revoked the earlier token of this computer (ID {}).", keptTokens[0].tokenID())),
              std::string::npos);
    for (const auto& token : api.tokens(account.accountID())) EXPECT_NE(token.id, keptTokens[0].tokenID());
}

TEST_F(SiteSetupAccountTest, ACheckGoesPastABlockedStepWhileARunStopsThere) {
    auto site = request();
    // "www" already has a CNAME record in the zone.
    site.pageHost = host("www.dovrin.test", "dovrin.test");
    const std::string blocked =
        "www.dovrin.test already has a DNS record (CNAME to dovrin.test). Choose a different name, or delete the "
        "record in the dashboard.";

    const SetupReport checked = check(site);
    EXPECT_EQ(checked.status(SetupStep::pageHostname).text(), blocked);
    EXPECT_EQ(checked.status(SetupStep::siteSettings).kindName(), "toDo");
    EXPECT_EQ(checked.status(SetupStep::worker).text(),
              fmt::format("Deploy the Worker \u201cvorlen-site-{}\u201d {}. The check cannot read the deployed version.",
                          suffix, site.workerBundle.manifest.version.text()));

    const SetupReport ran = run(site);
    ASSERT_NE(ran.stoppedAt(), nullptr);
    EXPECT_EQ(ran.stoppedAt()->step, SetupStep::pageHostname);
    EXPECT_EQ(ran.status(SetupStep::pageHostname).text(), blocked);
    EXPECT_EQ(ran.status(SetupStep::siteSettings).text(), "Not checked.");
}

TEST_F(SiteSetupAccountTest, CancellingTheWaitForTheMediaHostnameFailsThatStep) {
    account.setDomainActivation(600);
    const auto site = request();
    std::atomic<bool> waiting = false;
    onProgress = [&](SetupStep step, const std::string& text) {
        if (step == SetupStep::mediaHostname && text.starts_with("Waiting for ")) waiting = true;
    };
    auto task = Task<SetupReport>::spawn([&] { return run(site); });
    while (!waiting && !task.isFinished()) std::this_thread::sleep_for(10ms);
    task.cancel();
    const SetupReport report = task.value();
    EXPECT_EQ(report.status(SetupStep::mediaHostname).text(), "Setup was cancelled.");
    EXPECT_EQ(report.status(SetupStep::r2Dev).kindName(), "pending");
    EXPECT_EQ(progressTexts.front(),
              fmt::format("Waiting for {} to become active: ownership pending, certificate pending", site.mediaHost.hostname.name));
}

TEST_F(SiteSetupAccountTest, AZoneAtItsRuleLimitAsksForASlotAndTheRunGoesOnOnceOneIsFree) {
    // The Free plan's zone allows five custom rules; fill it up.
    auto site = request("dovrin.test");
    const std::string zone = site.mediaHost.zone.id;
    std::vector<std::string> fillers;
    auto entryPoint = api.phaseEntryPoint(zone, RulesetPhase::firewallCustom);
    for (std::size_t count = entryPoint ? entryPoint->rules.size() : 0; count < 5; ++count) {
        const RuleDefinition filler{fmt::format("filler {} {}", suffix, count),
                                    fmt::format(R"((http.host eq "filler{}.dovrin.test"))", count), "block", std::nullopt, true};
        entryPoint = entryPoint ? api.addRule(zone, entryPoint->id, filler)
                                : api.createPhaseRuleset(zone, RulesetPhase::firewallCustom, {filler});
    }
    for (const auto& rule : entryPoint->rules)
        if (rule.description && rule.description->starts_with("filler " + suffix)) fillers.push_back(rule.id);

    const SetupReport limited = run(site);
    ASSERT_NE(limited.stoppedAt(), nullptr);
    EXPECT_EQ(limited.stoppedAt()->step, SetupStep::privacyRule);
    const auto& task = std::get<SetupStatus::NeedsDashboard>(limited.status(SetupStep::privacyRule).value).task;
    EXPECT_TRUE(std::holds_alternative<DashboardTask::FreeRuleSlot>(task.kind));
    EXPECT_EQ(task.url, fmt::format("https://dash.example.test/{}/dovrin.test/security/waf/custom-rules", account.accountID()));
    EXPECT_EQ(task.message,
              "dovrin.test has no free WAF custom rule slot. The Free plan has 5 custom rules. Delete a rule that you do "
              "not need, or change the plan. Then run setup again.");

    ASSERT_FALSE(fillers.empty());
    api.deleteRule(zone, entryPoint->id, fillers.front());
    const SetupReport completed = run(again(site));
    auto expected = all("alreadyInPlace");
    for (std::size_t index = 6; index < 12; ++index) expected[index] = "done";
    EXPECT_EQ(kinds(completed), expected);

    const auto remaining = api.phaseEntryPoint(zone, RulesetPhase::firewallCustom);
    for (const auto& rule : remaining->rules)
        if (rule.description && rule.description->find(suffix) != std::string::npos) api.deleteRule(zone, remaining->id, rule.id);
}

TEST_F(SiteSetupAccountTest, WhatThePersonOrANewerAppMadeStays) {
    const auto site = request();
    // The person's own CORS rule on a bucket they made.
    api.createBucket(account.accountID(), site.bucket, std::nullopt);
    R2CORSRule own;
    own.id = "mine";
    own.allowed.origins = {"https://shop.example"};
    own.allowed.methods = {"GET"};
    api.setCorsRules(account.accountID(), site.bucket, {own});
    const SetupReport made = run(site);
    ASSERT_EQ(made.stoppedAt(), nullptr);
    EXPECT_EQ(made.status(SetupStep::bucket).kindName(), "alreadyInPlace");
    EXPECT_EQ(made.status(SetupStep::cors).text(), fmt::format("Added the CORS rule for {}.", site.pageHost.hostname.name));

    // A newer app deployed its Worker and recorded it.
    auto settings = *made.siteSettings;
    settings.worker.version = SemanticVersion::parse("99.0.0");
    S3Bucket bucket(BucketLocation{account.accountID(), site.bucket}, keptTokens.at(0).credentials, account.endpoints());
    settings.write(bucket);

    account.clearRequests();
    const SetupReport again = run(this->again(site));
    EXPECT_EQ(kinds(again), all("alreadyInPlace"));
    EXPECT_EQ(again.status(SetupStep::cors).text(),
              fmt::format("The CORS rule allows https://{}. Keep the 1 other rule.", site.pageHost.hostname.name));
    EXPECT_EQ(again.status(SetupStep::worker).text(),
              fmt::format("A newer Worker \u201cvorlen-site-{}\u201d 99.0.0 is deployed. This app has {}.", suffix,
                          site.workerBundle.manifest.version.text()));
    EXPECT_EQ(writesSent(), 0u);
    const auto rules = api.corsRules(account.accountID(), site.bucket);
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(rules[0], own);
    EXPECT_EQ(SiteSettings::read(bucket)->worker.version.text(), "99.0.0");
}

TEST_F(SiteSetupAccountTest, ATokenMadeByTheRunIsKeptWhenALaterStepFails) {
    const auto site = request();
    auto options = this->options();
    SetupReport report = SiteSetup(api, site, options).run({}, [&](const DailyToken& token) {
        keptTokens.push_back(token);
        // The next API request after the token, the CORS policy's read, is refused.
        account.setFaults({{"script", {{{"status", 403},
                                         {"body", R"({"success":false,"errors":[{"code":10000,"message":"Authentication error"}],"messages":[],"result":null})"}}}}});
    });
    ASSERT_NE(report.stoppedAt(), nullptr);
    EXPECT_EQ(report.stoppedAt()->step, SetupStep::cors);
    ASSERT_EQ(keptTokens.size(), 1u);
    EXPECT_EQ(report.dailyToken->tokenID(), keptTokens[0].tokenID());
    const auto tokens = api.tokens(account.accountID());
    EXPECT_TRUE(std::any_of(tokens.begin(), tokens.end(), [&](const auto& token) { return token.id == keptTokens[0].tokenID(); }));
}

TEST_F(SiteSetupAccountTest, ASetupTokenThatCannotMakeTokensAsksForOneMadeInTheDashboard) {
    // The setup token's permissions without "Account API Tokens Write", over every zone by its id.
    std::vector<TokenPolicy> policies;
    const Json state = account.state();
    for (const auto& token : state["tokens"])
        if (token.value("setup", false))
            for (const auto& policy : token["policies"]) {
                TokenPolicy limited;
                for (const auto& group : policy["permission_groups"])
                    if (group["name"] != "Account API Tokens Write") limited.permissionGroupIDs.push_back(group["id"]);
                if (policy["resources"].begin().value().is_object()) {
                    for (const auto& [name, id] : account.zones()) limited.resources["com.cloudflare.api.account.zone." + id] = "*";
                } else {
                    limited.resources["com.cloudflare.api.account." + account.accountID()] = "*";
                }
                policies.push_back(limited);
            }
    const IssuedToken limitedToken = api.createToken(account.accountID(), "setup without tokens " + suffix, policies);
    const CloudflareAPI limited = api.withToken(limitedToken.value);

    auto site = request();
    const SetupReport asked = SiteSetup(limited, site, options()).run({}, [this](const DailyToken& token) { keptTokens.push_back(token); });
    ASSERT_NE(asked.stoppedAt(), nullptr);
    EXPECT_EQ(asked.stoppedAt()->step, SetupStep::dailyToken);
    const auto& task = std::get<SetupStatus::NeedsDashboard>(asked.status(SetupStep::dailyToken).value).task;
    ASSERT_TRUE(std::holds_alternative<DashboardTask::CreateDailyToken>(task.kind));
    EXPECT_EQ(task.url.rfind(fmt::format("https://dash.example.test/{}/r2/api-tokens/create?", account.accountID()), 0), 0u);
    EXPECT_NE(task.message.find(site.bucket), std::string::npos);
    EXPECT_TRUE(keptTokens.empty());

    // The person makes the R2 API Token in the dashboard and pastes it: it is kept once it reads the bucket.
    const DailyToken made = DailyTokens{api, account.accountID(), site.bucket, site.mediaHost.zone.id}.makeForComputer("dashboard " + suffix);
    site.dailyToken = {DailyTokenSource::Pasted{*made.value}};
    const SetupReport completed = SiteSetup(limited, site, options()).run({}, [this](const DailyToken& token) { keptTokens.push_back(token); });
    EXPECT_EQ(completed.stoppedAt(), nullptr) << completed.stoppedAt()->status.text();
    EXPECT_EQ(completed.status(SetupStep::dailyToken).text(),
              fmt::format("The pasted token (ID {}) can read the bucket \u201c{}\u201d.", made.tokenID(), site.bucket));
    ASSERT_EQ(keptTokens.size(), 1u);
    EXPECT_EQ(keptTokens[0].tokenID(), made.tokenID());
    api.revokeToken(account.accountID(), limitedToken.id);
}

TEST_F(SiteSetupAccountTest, ASetupCompletesWhileTheAccountFailsOneRequestInTen) {
    account.clearRequests();
    account.setFaults({{"share", 0.1}, {"retryAfter", 0}});
    const SetupReport report = run(request());
    account.setFaults({{"share", 0}});
    EXPECT_EQ(report.stoppedAt(), nullptr) << report.stoppedAt()->status.text();
    EXPECT_EQ(keptTokens.size(), 1u);
    const auto sent = account.requests();
    EXPECT_GT(std::count_if(sent.begin(), sent.end(), [](const auto& request) { return request.status == 0 || request.status >= 429; }), 0);
}

}  // namespace
}  // namespace vorlen
