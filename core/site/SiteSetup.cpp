#include "core/site/SiteSetup.hpp"

#include <fmt/format.h>

#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/SetupState.hpp"

namespace vorlen {

std::string label(SetupStep step) {
    switch (step) {
        case SetupStep::account: return "Account and Cloudflare Account API Token";
        case SetupStep::bucket: return "Bucket";
        case SetupStep::dailyToken: return "R2 API Token";
        case SetupStep::cors: return "CORS rule";
        case SetupStep::mediaHostname: return "Media hostname";
        case SetupStep::r2Dev: return "r2.dev access";
        case SetupStep::privacyRule: return "WAF rule for private files";
        case SetupStep::cacheRule: return "Cache Rule for manifests";
        case SetupStep::sessions: return "KV namespace for sessions";
        case SetupStep::worker: return "Page Worker";
        case SetupStep::pageHostname: return "Page hostname";
        case SetupStep::siteSettings: return "Site settings";
    }
    return {};
}

std::string rawValue(SetupStep step) {
    switch (step) {
        case SetupStep::account: return "account";
        case SetupStep::bucket: return "bucket";
        case SetupStep::dailyToken: return "dailyToken";
        case SetupStep::cors: return "cors";
        case SetupStep::mediaHostname: return "mediaHostname";
        case SetupStep::r2Dev: return "r2Dev";
        case SetupStep::privacyRule: return "privacyRule";
        case SetupStep::cacheRule: return "cacheRule";
        case SetupStep::sessions: return "sessions";
        case SetupStep::worker: return "worker";
        case SetupStep::pageHostname: return "pageHostname";
        case SetupStep::siteSettings: return "siteSettings";
    }
    return {};
}

std::string SetupStatus::text() const {
    return std::visit(
        [](const auto& status) -> std::string {
            using Case = std::decay_t<decltype(status)>;
            if constexpr (std::is_same_v<Case, Pending>) return "Not checked.";
            else if constexpr (std::is_same_v<Case, NeedsDashboard>) return status.task.message;
            else return status.text;
        },
        value);
}

std::string SetupStatus::kindName() const {
    static constexpr const char* names[] = {"pending", "toDo", "running", "done", "alreadyInPlace", "failed", "needsDashboard"};
    return names[value.index()];
}

const SetupStatus& SetupReport::status(SetupStep step) const {
    for (const auto& report : steps)
        if (report.step == step) return report.status;
    throw std::out_of_range("the report has no step " + rawValue(step));
}

const SetupStepReport* SetupReport::stoppedAt() const {
    for (const auto& report : steps)
        if (report.status.is<SetupStatus::Failed>() || report.status.is<SetupStatus::NeedsDashboard>()) return &report;
    return nullptr;
}

namespace SetupNames {

std::string workerName(const std::string& bucket) { return "vorlen-" + bucket; }
std::string sessionsTitle(const std::string& bucket) { return "vorlen-" + bucket + "-sessions"; }

RuleDefinition privacyRule(const Hostname& mediaHost) {
    return RuleDefinition{
        "Vorlen: private files of " + mediaHost.name,
        fmt::format(R"((http.host eq "{}" and (ends_with(http.request.uri.path, "video.json") or starts_with(http.request.uri.path, "/_vorlen"))))",
                    mediaHost.name),
        "block", std::nullopt, true};
}

RuleDefinition cacheRule(const Hostname& mediaHost) {
    return RuleDefinition{
        "Vorlen: cache the manifests of " + mediaHost.name,
        fmt::format(R"((http.host eq "{}" and (ends_with(http.request.uri.path, ".m3u8") or ends_with(http.request.uri.path, ".mpd") or ends_with(http.request.uri.path, ".vtt") or ends_with(http.request.uri.path, "/poster.jpg"))))",
                    mediaHost.name),
        "set_cache_settings",
        Json{{"cache", true}, {"edge_ttl", {{"mode", "respect_origin"}}}, {"browser_ttl", {{"mode", "respect_origin"}}}},
        true};
}

}  // namespace SetupNames

void SiteSetupRequest::validate() const {
    if (!isValidBucketName(bucket))
        throw VorlenError::config(fmt::format(
            "\u201c{}\u201d is not a valid bucket name: use 3 to 63 lowercase letters, digits and hyphens.", bucket));
    const std::string worker = SetupNames::workerName(bucket);
    if (worker.size() > 63)
        throw VorlenError::config(fmt::format(
            "The Worker name \u201c{}\u201d is too long. Use a bucket name of 56 characters at most.", worker));
    if (mediaHost.hostname == pageHost.hostname)
        throw VorlenError::config("The media hostname and the page hostname must be different.");
    SiteFolder::normalisedPath(path);
    const auto* create = std::get_if<DailyTokenSource::Create>(&dailyToken.value);
    const auto* replace = std::get_if<DailyTokenSource::Replace>(&dailyToken.value);
    if ((create && trimmed(create->computerName).empty()) || (replace && trimmed(replace->computerName).empty()))
        throw VorlenError::config("Give a name for this computer, for the name of its R2 API Token.");
}

SiteSetup::SiteSetup(CloudflareAPI api, SiteSetupRequest request, SiteSetupOptions options)
    : api_(std::move(api)), request_(std::move(request)), options_(std::move(options)) {}

SetupReport SiteSetup::run(const ReportCallback& report, const NewTokenCallback& onNewDailyToken,
                           const ProgressCallback& progress) {
    return perform(false, report, onNewDailyToken, progress);
}

SetupReport SiteSetup::check(const ReportCallback& report, const ProgressCallback& progress) {
    return perform(true, report, {}, progress);
}

namespace {

// A failure in a person's words.
SetupStatus failedStatus(const std::exception_ptr& error) {
    auto failed = [](std::string text) { return SetupStatus{SetupStatus::Failed{std::move(text)}}; };
    try {
        std::rethrow_exception(error);
    } catch (const SetupBlocked& blocked) {
        return blocked.status;
    } catch (const Cancelled&) {
        return failed("Setup was cancelled.");
    } catch (const CloudflareError& failure) {
        return failed(failure.description().empty() ? "Cloudflare refused the request." : failure.description());
    } catch (const VorlenError& failure) {
        return failed(failure.text().empty() ? "Setup failed." : failure.text());
    } catch (const nlohmann::json::exception& failure) {
        return failed(std::string("A response or a file has an unexpected form: ") + failure.what());
    } catch (...) {
        return failed(describe(std::current_exception()));
    }
}

StepFinding find(SetupStep step, SetupState& state) {
    switch (step) {
        case SetupStep::account: return findAccount(state);
        case SetupStep::bucket: return findBucket(state);
        case SetupStep::dailyToken: return findDailyToken(state);
        case SetupStep::cors: return findCors(state);
        case SetupStep::mediaHostname: return findMediaHostname(state);
        case SetupStep::r2Dev: return findR2Dev(state);
        case SetupStep::privacyRule:
            return findRule(state, RulesetPhase::firewallCustom, SetupNames::privacyRule(state.request.mediaHost.hostname));
        case SetupStep::cacheRule:
            return findRule(state, RulesetPhase::cacheSettings, SetupNames::cacheRule(state.request.mediaHost.hostname));
        case SetupStep::sessions: return findSessions(state);
        case SetupStep::worker: return findWorker(state);
        case SetupStep::pageHostname: return findPageHostname(state);
        case SetupStep::siteSettings: return findSiteSettings(state);
    }
    throw std::logic_error("unknown setup step");
}

}  // namespace

SetupReport SiteSetup::perform(bool isCheck, const ReportCallback& report, const NewTokenCallback& onNewDailyToken,
                               const ProgressCallback& progress) {
    SetupReport result;
    for (SetupStep step : allSetupSteps) result.steps.push_back({step, SetupStatus{}});
    auto publish = [&](std::size_t index, SetupStatus status) {
        result.steps[index].status = std::move(status);
        if (report) report(result.steps[index]);
    };
    for (const auto& stepReport : result.steps)
        if (report) report(stepReport);

    SetupState state{api_, request_, options_, isCheck, {}, onNewDailyToken};
    for (std::size_t index = 0; index < result.steps.size(); ++index) {
        const SetupStep step = result.steps[index].step;
        if (isCancelled()) {
            publish(index, SetupStatus{SetupStatus::Failed{"Setup was cancelled."}});
            break;
        }
        state.progress = [&, step](const std::string& text) {
            if (progress) progress(step, text);
        };
        bool ends = false;
        try {
            ends = options_.stepRetry.run([&](std::int64_t) {
                StepFinding finding = find(step, state);
                if (auto* inPlace = std::get_if<StepFinding::InPlace>(&finding.value)) {
                    publish(index, SetupStatus{SetupStatus::AlreadyInPlace{inPlace->text}});
                } else if (auto* change = std::get_if<StepFinding::Change>(&finding.value)) {
                    if (isCheck) {
                        publish(index, SetupStatus{SetupStatus::ToDo{change->text}});
                    } else {
                        publish(index, SetupStatus{SetupStatus::Running{change->text}});
                        std::string done = change->apply();
                        publish(index, SetupStatus{SetupStatus::Done{std::move(done)}});
                    }
                } else {
                    publish(index, std::get<StepFinding::Blocked>(finding.value).status);
                    return !isCheck;
                }
                return false;
            });
        } catch (...) {
            publish(index, failedStatus(std::current_exception()));
            ends = true;
        }
        log().info(fmt::format("Setup {}: {}: {}", isCheck ? "check" : "run", rawValue(step),
                            result.steps[index].status.kindName()));
        if (ends) break;
    }
    result.dailyToken = state.dailyToken;
    result.siteSettings = state.finalSettings ? state.finalSettings : state.siteSettings;
    return result;
}

}  // namespace vorlen
