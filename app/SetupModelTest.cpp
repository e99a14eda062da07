#include "app/SetupModel.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "core/base/VorlenError.hpp"
#include "core/cloudflare/CloudflareError.hpp"

using namespace vorlen;
using namespace vorlen::app;
using namespace std::chrono_literals;

namespace {

const CloudflareZone dovrin{"zone-dovrin", "dovrin.test", "active", "account-1", std::nullopt};

// A setup service whose answers the test sets; a run reports each step done, or what `onRun` does.
class FakeSetupService final : public SetupService {
public:
    std::function<SetupTokenCheck()> onCheckToken = [] {
        return SetupTokenCheck{{"token-1", "active", VerifiedToken::Kind::account}, {{"account-1", "Dovrin Films"}}};
    };
    std::function<SetupAccountChoices(const std::string&)> onChoices = [](const std::string&) {
        return SetupAccountChoices{{dovrin}, {{"films", std::nullopt, std::nullopt, std::nullopt}}};
    };
    std::function<std::optional<SiteSettings>(const std::string&)> onBucketSettings = [](const std::string&) {
        return std::nullopt;
    };
    std::function<SetupReport(const SiteSetupRequest&, const SiteSetup::ReportCallback&, const SiteSetup::ProgressCallback&)>
        onRun = [](const SiteSetupRequest&, const SiteSetup::ReportCallback& report, const SiteSetup::ProgressCallback&) {
            SetupReport result;
            for (SetupStep step : allSetupSteps) {
                result.steps.push_back({step, SetupStatus{SetupStatus::Done{"Made " + label(step) + "."}}});
                report(result.steps.back());
            }
            return result;
        };
    mutable std::mutex mutex;
    mutable std::vector<SiteSetupRequest> runs;
    mutable int checks = 0;

    WorkerBundle workerBundle() const override { return {}; }
    SetupTokenCheck checkToken(const APIToken&, const std::optional<std::string>&) const override { return onCheckToken(); }
    SetupAccountChoices choices(const APIToken&, const std::string& accountID) const override { return onChoices(accountID); }
    SiteHostname siteHostname(const APIToken&, const std::string&, const std::string& hostname) const override {
        if (hostname.ends_with("other.test"))
            throw VorlenError::config("The Cloudflare Account API Token cannot configure the domain of " + hostname + ".");
        return SiteHostname{Hostname::parse(hostname), dovrin};
    }
    std::optional<SiteSettings> bucketSettings(const APIToken&, const std::string&, const std::string& bucket) const override {
        return onBucketSettings(bucket);
    }
    SetupReport run(const APIToken&, const SiteSetupRequest& request, const SiteSetup::ReportCallback& report,
                    const SiteSetup::NewTokenCallback&, const SiteSetup::ProgressCallback& progress) const override {
        {
            std::lock_guard lock(mutex);
            runs.push_back(request);
        }
        return onRun(request, report, progress);
    }
    SetupReport check(const APIToken&, const SiteSetupRequest& request, const SiteSetup::ReportCallback& report,
                      const SiteSetup::ProgressCallback& progress) const override {
        {
            std::lock_guard lock(mutex);
            ++checks;
        }
        return onRun(request, report, progress);
    }
};

struct Fixture {
    PostedQueue queue;
    FakeSetupService service;
    std::vector<SetupChoice> planned;
    std::vector<SetupReport> finished;
    std::vector<bool> running;
    std::string hostRefuses;
    std::shared_ptr<SetupModel> model;

    SetupModel::Host host() {
        return SetupModel::Host{[this](const SetupChoice& choice) {
                                    if (!hostRefuses.empty()) throw VorlenError::config(hostRefuses);
                                    planned.push_back(choice);
                                    SetupPlan plan{SiteID{choice.bucket}, true, {}};
                                    plan.request.bucket = choice.bucket;
                                    plan.request.dailyToken = DailyTokenSource{DailyTokenSource::Create{choice.computerName}};
                                    if (choice.pastedToken)
                                        plan.request.dailyToken = DailyTokenSource{DailyTokenSource::Pasted{*choice.pastedToken}};
                                    return plan;
                                },
                                [](const SiteID&) { return SiteSetup::NewTokenCallback(); },
                                [this](const SetupPlan&, const SetupReport& report) { finished.push_back(report); },
                                [this](bool isRunning) { running.push_back(isRunning); }};
    }

    void open() {
        model = SetupModel::setUp(service, host(), queue, "https://dash.example", "studio", [] {});
    }

    // Runs the model's answers until the stage is there and ready; a model that never gets there fails the test.
    template <class Stage>
    const Stage& waitFor(const std::function<bool(const Stage&)>& ready = [](const Stage&) { return true; }) {
        const auto limit = std::chrono::steady_clock::now() + 30s;
        for (;;) {
            queue.drain();
            if (const auto* stage = model->as<Stage>(); stage && ready(*stage)) return *stage;
            if (std::chrono::steady_clock::now() > limit) throw std::runtime_error("the setup model did not reach the stage");
            std::this_thread::sleep_for(1ms);
        }
    }
    const TokenEntry& tokenProblem(const std::string& token) {
        model->editToken(token);
        model->submitToken();
        return waitFor<TokenEntry>([](const TokenEntry& entry) { return !entry.isChecking && entry.problem; });
    }
    const SiteChoice& choiceReady() {
        return waitFor<SiteChoice>([](const SiteChoice& choice) { return !choice.isBusy; });
    }
    const SiteChoice& reachChoice() {
        open();
        model->editToken("  cfat_0123456789abcdef \n");
        model->submitToken();
        return choiceReady();
    }
    // Fills the choice with a new bucket and the two hostnames, and confirms.
    void choose(const std::string& bucket, const std::string& media, const std::string& page) {
        model->useNewBucket(bucket, R2LocationHint::westernEurope);
        model->editChoice([&](SiteChoice& choice) {
            choice.mediaHost = media;
            choice.pageHost = page;
            choice.path = "library";
        });
        model->confirmChoice();
    }
    const SetupRun& runEnded() {
        return waitFor<SetupRun>([](const SetupRun& run) { return !run.isRunning; });
    }
};

TEST(SetupModelTest, TheTokenIsRefusedOnItsOwnStage) {
    Fixture fixture;
    fixture.open();
    // A setup code or a sentence is not a token, and Cloudflare is not asked.
    int asked = 0;
    fixture.service.onCheckToken = [&] {
        ++asked;
        return SetupTokenCheck{{"token-1", "expired", VerifiedToken::Kind::account}, {{"account-1", "Dovrin Films"}}};
    };
    fixture.model->editToken("vorlen1:eyJhY2NvdW50Ijo");
    fixture.model->submitToken();
    EXPECT_EQ(fixture.model->as<TokenEntry>()->problem, SetupWords::notAToken);
    EXPECT_EQ(asked, 0);

    EXPECT_EQ(fixture.tokenProblem("cfat_expired").problem, "The Cloudflare Account API Token is expired, not active.");
    EXPECT_EQ(asked, 1);
    fixture.service.onCheckToken = [] { return SetupTokenCheck{{"token-1", "active", VerifiedToken::Kind::account}, {}}; };
    EXPECT_EQ(fixture.tokenProblem("cfat_lonely").problem, SetupWords::noAccount);
    // The service's refusal is shown in its own words.
    const auto busy = CloudflareError("GET", "user/tokens/verify", 429, {{971, "Please wait"}}, 2s);
    fixture.service.onCheckToken = [&]() -> SetupTokenCheck { throw busy; };
    EXPECT_EQ(fixture.tokenProblem("cfat_fine").problem, busy.description());
}

TEST(SetupModelTest, TheChoiceRefusesWhatTheRunCouldNotSetUp) {
    Fixture fixture;
    const std::string r2Off = "R2 is not on for this account. Turn it on in the dashboard.";
    fixture.service.onChoices = [&](const std::string&) -> SetupAccountChoices { throw VorlenError::config(r2Off); };
    EXPECT_EQ(fixture.reachChoice().problem, r2Off);

    Fixture fine;
    const auto& choice = fine.reachChoice();
    EXPECT_EQ(choice.accountID, "account-1");
    EXPECT_EQ(choice.computerName, "studio");
    EXPECT_FALSE(choice.problem);
    fine.choose("films", "media.dovrin.test", "watch.dovrin.test");
    EXPECT_EQ(fine.choiceReady().problem, SetupWords::bucketExists);
    fine.choose("reels", "media.dovrin.test", "MEDIA.dovrin.test");
    EXPECT_EQ(fine.choiceReady().problem, SetupWords::sameHost);
    fine.choose("reels", "media.dovrin.test", "watch dovrin");
    EXPECT_EQ(fine.choiceReady().problem, "\u201cwatch dovrin\u201d is not a hostname");
    fine.choose("reels", "media.dovrin.test", "watch.other.test");
    EXPECT_EQ(fine.choiceReady().problem, "The Cloudflare Account API Token cannot configure the domain of watch.other.test.");
    EXPECT_TRUE(fine.planned.empty());
    // A plan that the application refuses leaves the choice as it was.
    fine.hostRefuses = "This computer already has the site \u201creels\u201d.";
    fine.choose("reels", "media.dovrin.test", "watch.dovrin.test");
    EXPECT_EQ(fine.choiceReady().problem, fine.hostRefuses);
    EXPECT_EQ(fine.model->as<SiteChoice>()->mediaHost, "media.dovrin.test");
}

TEST(SetupModelTest, AnExistingBucketGivesItsSiteOrItsProblem) {
    Fixture fixture;
    fixture.reachChoice();
    SiteSettings site;
    site.mediaHost = Hostname::parse("media.dovrin.test");
    site.pageHost = Hostname::parse("watch.dovrin.test");
    site.path = "library";
    site.siteTemplate = SiteTemplate::dark;
    const std::string unreadable = "Vorlen cannot read the settings of this bucket. Try again, or choose a different bucket.";
    fixture.service.onBucketSettings = [&](const std::string& bucket) -> std::optional<SiteSettings> {
        if (bucket == "broken") throw VorlenError::config(unreadable);
        return site;
    };
    fixture.model->useExistingBucket("broken");
    EXPECT_EQ(fixture.choiceReady().problem, unreadable);
    // Confirming a bucket whose settings could not be read reads them again, and plans nothing.
    fixture.model->confirmChoice();
    EXPECT_TRUE(fixture.model->as<SiteChoice>()->isBusy);
    fixture.choiceReady();
    EXPECT_TRUE(fixture.planned.empty());

    fixture.model->useExistingBucket("films");
    const auto& choice = fixture.choiceReady();
    EXPECT_FALSE(choice.problem);
    EXPECT_EQ(choice.mediaHost, "media.dovrin.test");
    EXPECT_EQ(choice.pageHost, "watch.dovrin.test");
    EXPECT_EQ(choice.path, "library");
    // The bucket is not new: its name existing is no problem.
    fixture.model->confirmChoice();
    fixture.runEnded();
    ASSERT_EQ(fixture.planned.size(), 1u);
    EXPECT_EQ(fixture.planned[0].bucket, "films");
    EXPECT_EQ(fixture.planned[0].siteTemplate, SiteTemplate::dark);
    EXPECT_FALSE(fixture.planned[0].locationHint);
}

TEST(SetupModelTest, TheRowsFollowTheReportsAndTheEndIsHandedOn) {
    Fixture fixture;
    fixture.reachChoice();
    std::atomic<bool> release = false;
    fixture.service.onRun = [&](const SiteSetupRequest&, const SiteSetup::ReportCallback& report,
                                const SiteSetup::ProgressCallback& progress) {
        SetupReport result;
        for (SetupStep step : allSetupSteps) result.steps.push_back({step, SetupStatus{SetupStatus::AlreadyInPlace{"Fine."}}});
        report({SetupStep::account, SetupStatus{SetupStatus::Running{"Looking."}}});
        progress(SetupStep::account, "Waiting for media.dovrin.test to become active: pending");
        while (!release) sleepFor(5ms);
        for (const auto& step : result.steps) report(step);
        return result;
    };
    fixture.choose("reels", " Media.Dovrin.test ", "watch.dovrin.test");

    const auto& waiting = fixture.waitFor<SetupRun>([](const SetupRun& run) { return run.rows[0].progress.has_value(); });
    ASSERT_EQ(waiting.rows.size(), 12u);
    EXPECT_EQ(waiting.rows[0].label(), "Account and Cloudflare Account API Token");
    EXPECT_EQ(waiting.rows[0].text(), "Waiting for media.dovrin.test to become active: pending");
    EXPECT_EQ(waiting.rows[11].text(), "Not checked.");
    EXPECT_TRUE(fixture.model->isRunning());
    EXPECT_EQ(fixture.running, std::vector<bool>{true});
    ASSERT_EQ(fixture.planned.size(), 1u);
    EXPECT_EQ(fixture.planned[0].mediaHost.hostname.name, "media.dovrin.test");
    EXPECT_EQ(fixture.planned[0].mediaHost.zone, dovrin);
    EXPECT_EQ(fixture.planned[0].locationHint, R2LocationHint::westernEurope);
    EXPECT_EQ(fixture.planned[0].computerName, "studio");
    // Going back during a run is not possible.
    fixture.model->goBack();
    EXPECT_TRUE(fixture.model->as<SetupRun>());

    release = true;
    const auto& run = fixture.runEnded();
    EXPECT_TRUE(run.isComplete());
    EXPECT_EQ(run.rows[0].text(), "Fine.");
    EXPECT_EQ(fixture.running, (std::vector<bool>{true, false}));
    ASSERT_EQ(fixture.finished.size(), 1u);
    EXPECT_EQ(fixture.model->site(), SiteID{"reels"});
}

TEST(SetupModelTest, ManualTokensAskForThePastedTokenAndRunAgainWithIt) {
    Fixture fixture;
    fixture.open();
    fixture.model->setTokenMode(TokenMode::manual);
    fixture.model->editToken("cfat_setup");
    fixture.model->submitToken();
    fixture.choiceReady();
    const auto request = ManualTokenRequest::make("https://dash.example", "account-1", "reels", "Vorlen \u2013 studio");
    const DashboardTask task{DashboardTask::CreateDailyToken{request}, request.message(), request.url};
    fixture.service.onRun = [&](const SiteSetupRequest& setup, const SiteSetup::ReportCallback&,
                                const SiteSetup::ProgressCallback&) {
        SetupReport result;
        const bool pasted = std::holds_alternative<DailyTokenSource::Pasted>(setup.dailyToken.value);
        for (SetupStep step : allSetupSteps) {
            SetupStatus status{SetupStatus::Done{"Done."}};
            if (step == SetupStep::dailyToken && !pasted) status = SetupStatus{SetupStatus::NeedsDashboard{task}};
            if (step > SetupStep::dailyToken && !pasted) status = SetupStatus{SetupStatus::Pending{}};
            result.steps.push_back({step, status});
        }
        return result;
    };
    fixture.choose("reels", "media.dovrin.test", "watch.dovrin.test");
    const auto& entry = fixture.waitFor<ManualTokenEntry>();
    EXPECT_EQ(entry.message, request.message());
    EXPECT_EQ(entry.request.url, request.url);
    EXPECT_EQ(fixture.running, (std::vector<bool>{true, false}));

    fixture.model->submitManualToken("the token value");
    EXPECT_EQ(fixture.model->as<ManualTokenEntry>()->problem, SetupWords::notAToken);
    fixture.model->submitManualToken(" cfat_pasted ");
    EXPECT_TRUE(fixture.runEnded().isComplete());
    ASSERT_EQ(fixture.service.runs.size(), 2u);
    const auto* pasted = std::get_if<DailyTokenSource::Pasted>(&fixture.service.runs[1].dailyToken.value);
    ASSERT_TRUE(pasted);
    EXPECT_EQ(pasted->token.value, "cfat_pasted");
}

TEST(SetupModelTest, InTheAutomaticModeTheTokenTaskStaysOnTheRun) {
    Fixture fixture;
    fixture.reachChoice();
    const auto request = ManualTokenRequest::make("https://dash.example", "account-1", "reels", "Vorlen \u2013 studio");
    const DashboardTask task{DashboardTask::CreateDailyToken{request}, request.message(), request.url};
    fixture.service.onRun = [&](const SiteSetupRequest&, const SiteSetup::ReportCallback&, const SiteSetup::ProgressCallback&) {
        SetupReport result;
        for (SetupStep step : allSetupSteps) result.steps.push_back({step, SetupStatus{SetupStatus::Pending{}}});
        result.steps[2].status = SetupStatus{SetupStatus::NeedsDashboard{task}};
        return result;
    };
    fixture.choose("reels", "media.dovrin.test", "watch.dovrin.test");
    const auto& run = fixture.runEnded();
    ASSERT_TRUE(run.dashboardTask());
    EXPECT_EQ(run.dashboardTask()->url, request.url);
    fixture.model->runAgain();
    fixture.runEnded();
    EXPECT_EQ(fixture.service.runs.size(), 2u);
    // Back to the choice, as it was left.
    fixture.model->goBack();
    EXPECT_EQ(fixture.model->as<SiteChoice>()->mediaHost, "media.dovrin.test");
}

TEST(SetupModelTest, ACheckChangesNothingAndClosingStopsIt) {
    Fixture fixture;
    std::atomic<bool> stopped = false;
    fixture.service.onRun = [&](const SiteSetupRequest&, const SiteSetup::ReportCallback&, const SiteSetup::ProgressCallback&) {
        try {
            for (;;) sleepFor(5ms);
        } catch (const Cancelled&) {
            stopped = true;
            throw;
        }
        return SetupReport{};
    };
    auto plan = [] { return SetupPlan{SiteID{"films"}, false, {}}; };
    fixture.model = SetupModel::check(fixture.service, fixture.host(), fixture.queue, plan, APIToken{"cfat_setup"}, [] {});
    EXPECT_TRUE(fixture.model->as<SetupRun>()->isCheck);
    EXPECT_TRUE(fixture.model->isRunning());
    fixture.model.reset();
    EXPECT_TRUE(stopped);
    EXPECT_EQ(fixture.running, (std::vector<bool>{true, false}));
    EXPECT_EQ(fixture.service.checks, 1);
    EXPECT_TRUE(fixture.service.runs.empty());
    EXPECT_TRUE(fixture.finished.empty());
}

}  // namespace
