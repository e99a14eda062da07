// The twelve steps of a site's setup. Each looks at the account first and says
// what it found; only a run's `apply` changes anything.
#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Random.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/cloudflare/WorkerDeployment.hpp"
#include "core/cloudflare/WorkerScripts.hpp"
#include "core/site/SetupState.hpp"

namespace vorlen {

namespace {

constexpr const char* thisComputersToken = "The R2 API Token of this computer";

SetupStatus failed(std::string text) { return SetupStatus{SetupStatus::Failed{std::move(text)}}; }

[[noreturn]] void failStep(std::string text) { throw SetupBlocked(failed(std::move(text))); }

std::string dashboardPage(const SetupState& state, const std::string& page) {
    std::string base = state.options.dashboard;
    while (!base.empty() && base.back() == '/') base.pop_back();
    return fmt::format("{}/{}/{}", base, state.request.accountID, page);
}

template <class Value, class Read>
std::optional<Value> unlessNotFound(Read read) {
    try {
        return read();
    } catch (const CloudflareError& error) {
        if (error.isNotFound()) return std::nullopt;
        throw;
    }
}

std::string durationText(std::chrono::duration<double> duration) {
    const auto seconds = static_cast<long long>(duration.count() + 0.5);
    if (seconds >= 120 && seconds % 60 == 0) return fmt::format("{} minutes", seconds / 60);
    return fmt::format("{} {}", seconds, seconds == 1 ? "second" : "seconds");
}

// Polls `look` every `interval` until it answers true, at most `limit`; the wait
// sleeps on the monotonic clock and ends with Cancelled when the task is cancelled.
template <class Look>
bool pollUntil(std::chrono::duration<double> interval, std::chrono::duration<double> limit, Look look) {
    const auto start = BootClock::now();
    while (true) {
        if (look()) return true;
        if (BootClock::now() - start + interval > limit) return false;
        sleepFor(std::chrono::duration_cast<std::chrono::nanoseconds>(interval));
    }
}

bool isAccessDenied(const VorlenError& error) {
    const auto* status = error.as<failure::Status>();
    return status && (status->code == 401 || status->code == 403);
}

// --- account ---

void checkZone(const SetupState& state, const SiteHostname& host) {
    const std::string notInAccount = fmt::format(
        "The zone \u201c{}\u201d is not in the account, or the Cloudflare Account API Token cannot read it.", host.zone.name);
    std::optional<CloudflareZone> zone;
    try {
        zone = state.api.zone(host.zone.id);
    } catch (const CloudflareError& error) {
        if (error.isNotFound() || error.isPermissionRefused() || error.status() == 403) failStep(notInAccount);
        throw;
    }
    if (zone->accountID != state.request.accountID) failStep(notInAccount);
    const std::string& name = host.hostname.name;
    if (name != zone->name && !name.ends_with("." + zone->name))
        failStep(fmt::format("{} is not a name in the zone \u201c{}\u201d.", name, zone->name));
}

}  // namespace

Bucket& SetupState::requireBucket() const {
    if (!bucket) failStep(fmt::format("setup has no R2 API Token for the bucket \u201c{}\u201d", request.bucket));
    return *bucket;
}

StepFinding findAccount(SetupState& state) {
    const VerifiedToken verified = state.api.verifyToken(state.request.accountID);
    if (verified.status != "active")
        failStep(fmt::format("The Cloudflare Account API Token is {}, not active.", verified.status));
    try {
        state.api.bucket(state.request.accountID, state.request.bucket);
        state.bucketExists = true;
    } catch (const CloudflareError& error) {
        if (error.has(CloudflareError::Code::r2NotEnabled))
            return StepFinding::blocked(SetupStatus{SetupStatus::NeedsDashboard{DashboardTask{
                DashboardTask::EnableR2{},
                "R2 is not enabled on the account. Enable R2 in the dashboard. Cloudflare asks for a payment method, "
                "also for the free tier. Then run setup again.",
                dashboardPage(state, "r2/overview")}}});
        if (!error.isNotFound()) throw;
        state.bucketExists = false;
    }
    checkZone(state, state.request.mediaHost);
    checkZone(state, state.request.pageHost);
    return StepFinding::inPlace(fmt::format(
        "The Cloudflare Account API Token is active ({}). R2 is enabled. Both zones are in the account.",
        verified.kind == VerifiedToken::Kind::account ? "an account token" : "a user token"));
}

StepFinding findBucket(SetupState& state) {
    const std::string& bucket = state.request.bucket;
    // A create that failed on its way may have been carried out: look again before making it.
    if (!state.bucketExists)
        state.bucketExists = unlessNotFound<R2Bucket>([&] { return state.api.bucket(state.request.accountID, bucket); }).has_value();
    if (state.bucketExists) return StepFinding::inPlace(fmt::format("The bucket \u201c{}\u201d exists.", bucket));
    const auto& hint = state.request.locationHint;
    std::string text = hint ? fmt::format("Create the bucket \u201c{}\u201d in the region \u201c{}\u201d.", bucket, rawValue(*hint))
                            : fmt::format("Create the bucket \u201c{}\u201d.", bucket);
    return StepFinding::change(text, [&state, &bucket, hint] {
        state.api.createBucket(state.request.accountID, bucket, hint);
        state.bucketExists = true;
        return fmt::format("Created the bucket \u201c{}\u201d.", bucket);
    });
}

// --- R2 API Token ---

namespace {

DailyTokens dailyTokens(const SetupState& state) {
    return DailyTokens{state.api, state.request.accountID, state.request.bucket, state.request.mediaHost.zone.id};
}

void useToken(SetupState& state, DailyToken token, bool isNew) {
    state.bucket = state.options.makeBucket(state.request.bucket, token.credentials);
    state.dailyToken = std::move(token);
    state.isNewDailyToken = isNew;
}

// The small read that proves a token: the site's settings file, which later steps
// need anyway. A new token takes some seconds to reach storage, so it is given time.
void testRead(SetupState& state, const std::string& tokenLabel) {
    std::optional<std::string> denial;
    const bool read = pollUntil(state.options.pollInterval, state.options.credentialTimeout, [&] {
        try {
            const auto text = state.bucket->object(SiteRules::settingsKey);
            state.settingsRead = SettingsRead::missing;
            if (text) {
                try {
                    state.siteSettings = SiteSettings::decoded(*text);
                    state.settingsRead = SettingsRead::found;
                } catch (const VorlenError&) {
                    state.settingsRead = SettingsRead::unreadable;
                }
            }
            return true;
        } catch (const VorlenError& error) {
            if (!isAccessDenied(error)) throw;
            denial = error.text();
            if (!state.isNewDailyToken) return true;
            state.progress("Waiting for storage to accept the new R2 API Token.");
            return false;
        }
    });
    if (!read || state.settingsRead == SettingsRead::notRead)
        failStep(fmt::format("{} cannot read the bucket \u201c{}\u201d: {}", tokenLabel, state.request.bucket,
                             denial.value_or("access denied")));
}

// Reads a kept token's access, the way a check may: a bucket not made yet cannot be tested.
StepFinding keptToken(SetupState& state, const DailyToken& token, const std::string& tokenLabel, bool isNew) {
    useToken(state, token, isNew);
    if (!state.bucketExists)
        return StepFinding::inPlace(fmt::format("{} (ID {}) is ready. The check cannot test it before the bucket exists.",
                                                tokenLabel, token.tokenID()));
    testRead(state, tokenLabel);
    if (state.settingsRead == SettingsRead::found && tokenLabel == thisComputersToken)
        return StepFinding::inPlace(fmt::format(
            "The R2 API Token of this computer from an earlier setup (ID {}) can read the bucket.", token.tokenID()));
    return StepFinding::inPlace(fmt::format("{} (ID {}) can read the bucket \u201c{}\u201d.", tokenLabel,
                                            token.tokenID(), state.request.bucket));
}

SetupStatus manualTokenTask(const SetupState& state, const std::string& computerName) {
    auto request = ManualTokenRequest::make(state.options.dashboard, state.request.accountID, state.request.bucket,
                                            VorlenTokenName::computer(computerName).text());
    std::string message = request.message();
    std::string url = request.url;
    return SetupStatus{SetupStatus::NeedsDashboard{
        DashboardTask{DashboardTask::CreateDailyToken{std::move(request)}, std::move(message), std::move(url)}}};
}

// When the Account API Token may not make tokens: an earlier token that still reads
// the bucket is kept, otherwise the person makes one in the dashboard.
StepFinding withoutTokenMaking(SetupState& state, const std::optional<DailyToken>& earlier,
                               const std::string& computerName) {
    if (earlier && state.bucketExists) {
        try {
            useToken(state, *earlier, false);
            testRead(state, thisComputersToken);
            return StepFinding::inPlace(fmt::format(
                "The R2 API Token of this computer from an earlier version of Vorlen (ID {}) can read the bucket. "
                "Vorlen cannot make a new token, so this computer asks for the passphrase to purge the cache.",
                earlier->tokenID()));
        } catch (const SetupBlocked&) {
            state.bucket.reset();
            state.dailyToken.reset();
        }
    }
    return StepFinding::blocked(manualTokenTask(state, computerName));
}

StepFinding newToken(SetupState& state, const std::string& computerName, const std::optional<DailyToken>& earlier) {
    const DailyTokens tokens = dailyTokens(state);
    try {
        tokens.permissionGroups();
    } catch (const CloudflareError& error) {
        if (!error.isPermissionRefused()) throw;
        return withoutTokenMaking(state, earlier, computerName);
    }
    const std::string name = VorlenTokenName::computer(computerName).text();
    std::string text = fmt::format("Create the R2 API Token \u201c{}\u201d", name);
    text += earlier ? fmt::format(", and revoke the earlier token of this computer (ID {}).", earlier->tokenID()) : ".";
    return StepFinding::change(text, [&state, tokens, name, computerName, earlier] {
        DailyToken made;
        try {
            made = tokens.makeForComputer(computerName);
        } catch (const CloudflareError& error) {
            if (!error.isPermissionRefused()) throw;
            throw SetupBlocked(manualTokenTask(state, computerName));
        }
        useToken(state, made, true);
        if (state.onNewDailyToken) state.onNewDailyToken(made);
        std::string done = fmt::format("Created the R2 API Token \u201c{}\u201d.", name);
        if (earlier) {
            try {
                tokens.revoke(earlier->tokenID());
                done += fmt::format(" Revoked the earlier token of this computer (ID {}).", earlier->tokenID());
            } catch (const std::exception&) {
                done += fmt::format(" Vorlen could not revoke the earlier token of this computer (ID {}): {} Revoke it in the dashboard.",
                                    earlier->tokenID(), describe(std::current_exception()));
            }
        }
        testRead(state, thisComputersToken);
        return done;
    });
}

}  // namespace

StepFinding findDailyToken(SetupState& state) {
    // A token this run made already (the step is looking again after a passing fault) is the one to use.
    if (state.isNewDailyToken && state.dailyToken) return keptToken(state, *state.dailyToken, thisComputersToken, true);
    return std::visit(
        [&](const auto& source) -> StepFinding {
            using Source = std::decay_t<decltype(source)>;
            if constexpr (std::is_same_v<Source, DailyTokenSource::Stored>) {
                return keptToken(state, source.token, thisComputersToken, false);
            } else if constexpr (std::is_same_v<Source, DailyTokenSource::Pasted>) {
                const VerifiedToken verified = state.api.withToken(source.token).verifyToken(state.request.accountID);
                DailyToken pasted{s3Credentials(verified.id, source.token), source.token};
                if (!state.isCheck && state.onNewDailyToken) state.onNewDailyToken(pasted);
                return keptToken(state, pasted, "The pasted token", true);
            } else if constexpr (std::is_same_v<Source, DailyTokenSource::Create>) {
                return newToken(state, source.computerName, std::nullopt);
            } else {
                return newToken(state, source.computerName, source.token);
            }
        },
        state.request.dailyToken.value);
}

// --- CORS ---

namespace {

R2CORSRule wantedCorsRule(const SetupState& state) {
    const std::string pageOrigin = "https://" + state.request.pageHost.hostname.name;
    R2CORSRule rule;
    rule.id = SetupNames::corsRuleID;
    rule.allowed.origins = {pageOrigin};
    if (state.siteSettings)
        for (const auto& origin : state.siteSettings->mediaOrigins)
            if (origin.text != pageOrigin) rule.allowed.origins.push_back(origin.text);
    rule.allowed.methods = {"GET", "HEAD"};
    rule.allowed.headers = std::vector<std::string>{"Range"};
    rule.exposeHeaders = std::vector<std::string>{"Content-Length", "Content-Range", "ETag"};
    rule.maxAgeSeconds = 86400;
    return rule;
}

std::optional<R2CustomDomain> mediaDomain(const SetupState& state) {
    return unlessNotFound<R2CustomDomain>([&] {
        return state.api.customDomain(state.request.accountID, state.request.bucket, state.request.mediaHost.hostname.name);
    });
}

// After a changed policy, the media host's cache may still hold answers with the old headers.
std::string purgeMediaHost(const SetupState& state, const std::string& origin) {
    const Hostname& host = state.request.mediaHost.hostname;
    try {
        state.api.purgeByPrefix(state.request.mediaHost.zone.id, {host.name + "/"});
    } catch (const CloudflareError& error) {
        return fmt::format(" Cloudflare can keep files that block {} for a while: {}", origin, error.description());
    }
    const bool allowed = pollUntil(state.options.corsInterval, state.options.corsTimeout,
                                   [&] { return state.options.allowsOrigin && state.options.allowsOrigin(host, origin); });
    if (allowed) return fmt::format(" Purged the cache of {}.", host.name);
    return fmt::format(" Purged the cache of {}, but {} did not allow {} in time. Run this again in a few minutes.",
                       host.name, host.name, origin);
}

}  // namespace

StepFinding findCors(SetupState& state) {
    const R2CORSRule wanted = wantedCorsRule(state);
    const auto current = unlessNotFound<std::vector<R2CORSRule>>(
                             [&] { return state.api.corsRules(state.request.accountID, state.request.bucket); })
                             .value_or(std::vector<R2CORSRule>{});
    std::vector<R2CORSRule> others;
    std::optional<R2CORSRule> ours;
    for (const auto& rule : current) {
        if (rule.id == SetupNames::corsRuleID) ours = rule;
        else others.push_back(rule);
    }
    const std::string& pageHost = state.request.pageHost.hostname.name;
    if (ours && *ours == wanted) {
        std::string text = fmt::format("The CORS rule allows {}.", joinedWithAnd(wanted.allowed.origins));
        if (!others.empty())
            text += fmt::format(" Keep the {} other {}.", others.size(), others.size() == 1 ? "rule" : "rules");
        return StepFinding::inPlace(text);
    }
    const bool updates = ours.has_value();
    std::string text = fmt::format("{} the CORS rule for {}.", updates ? "Update" : "Add", pageHost);
    return StepFinding::change(text, [&state, wanted, others, updates, pageHost] {
        auto rules = others;
        rules.push_back(wanted);
        state.api.setCorsRules(state.request.accountID, state.request.bucket, rules);
        std::string done = fmt::format("{} the CORS rule for {}.", updates ? "Updated" : "Added", pageHost);
        const auto domain = mediaDomain(state);
        if (domain && domain->isReady()) done += purgeMediaHost(state, wanted.allowed.origins.front());
        return done;
    });
}

// --- the media hostname ---

namespace {

bool hasFinalStatus(const R2CustomDomain& domain) {
    auto final = [](const std::optional<std::string>& value) {
        return value && (*value == "error" || *value == "deactivated" || *value == "blocked");
    };
    return domain.status && (final(domain.status->ownership) || final(domain.status->ssl));
}

void waitForActivation(const SetupState& state) {
    const std::string& host = state.request.mediaHost.hostname.name;
    std::string status = "not listed yet";
    const bool active = pollUntil(state.options.pollInterval, state.options.activationTimeout, [&] {
        const auto domain = mediaDomain(state);
        status = domain ? domain->statusText() : "not listed yet";
        if (domain && domain->isReady()) return true;
        if (domain && hasFinalStatus(*domain))
            failStep(fmt::format("{} is not active ({}). Check it in the dashboard.", host, status));
        state.progress(fmt::format("Waiting for {} to become active: {}", host, status));
        return false;
    });
    if (!active)
        failStep(fmt::format("{} is not active after {} ({}). Run setup again later.", host,
                             durationText(state.options.activationTimeout), status));
}

// A hostname that already has DNS records of another kind belongs to something else.
std::optional<StepFinding> dnsConflict(const SetupState& state, const SiteHostname& host, const std::string& ownType) {
    for (const auto& record : state.api.dnsRecords(host.zone.id, host.hostname.name))
        if (record.type != ownType)
            return StepFinding::blockedBy(fmt::format(
                "{} already has a DNS record ({} to {}). Choose a different name, or delete the record in the dashboard.",
                host.hostname.name, record.type, record.content.value_or("")));
    return std::nullopt;
}

}  // namespace

StepFinding findMediaHostname(SetupState& state) {
    const SiteHostname& media = state.request.mediaHost;
    const std::string& host = media.hostname.name;
    const auto domain = state.bucketExists ? mediaDomain(state) : std::nullopt;
    if (domain && domain->isReady()) return StepFinding::inPlace(fmt::format("{} is active on the bucket.", host));
    if (domain && domain->enabled) {
        const std::string status = domain->statusText();
        if (state.isCheck) return StepFinding::blockedBy(fmt::format("{} is not active ({}). Check it in the dashboard.", host, status));
        return StepFinding::change(fmt::format("Wait for {} to become active ({}).", host, status), [&state, host] {
            waitForActivation(state);
            return fmt::format("{} is active on the bucket.", host);
        });
    }
    if (domain)
        return StepFinding::change(fmt::format("Enable {} on the bucket.", host), [&state, host] {
            state.api.changeCustomDomain(state.request.accountID, state.request.bucket, host, true);
            waitForActivation(state);
            return fmt::format("Enabled {}. It is active.", host);
        });
    if (auto conflict = dnsConflict(state, media, "R2")) return *conflict;
    return StepFinding::change(fmt::format("Add {} to the bucket.", host), [&state, host] {
        state.api.addCustomDomain(state.request.accountID, state.request.bucket, host, state.request.mediaHost.zone.id, true);
        waitForActivation(state);
        return fmt::format("Added {} to the bucket. It is active.", host);
    });
}

StepFinding findR2Dev(SetupState& state) {
    R2ManagedDomain managed;
    try {
        managed = state.bucketExists ? state.api.managedDomain(state.request.accountID, state.request.bucket) : R2ManagedDomain{};
    } catch (const CloudflareError& error) {
        if (!state.isCheck || !error.isPermissionRefused()) throw;
        return StepFinding::blocked(SetupStatus{SetupStatus::ToDo{"Check that r2.dev access is off."}});
    }
    if (!managed.enabled) return StepFinding::inPlace("r2.dev access is off.");
    return StepFinding::change("Turn off r2.dev access", [&state] {
        state.api.setManagedDomain(state.request.accountID, state.request.bucket, false);
        return std::string("Turned off r2.dev access.");
    });
}

// --- the media zone's rules ---

StepFinding findRule(SetupState& state, RulesetPhase phase, const RuleDefinition& rule) {
    const SiteHostname& media = state.request.mediaHost;
    const std::string& zoneID = media.zone.id;
    const std::string ruleName = displayName(phase);
    const std::string& host = media.hostname.name;
    const auto entryPoint = state.api.phaseEntryPoint(zoneID, phase);
    const RulesetRule* existing = nullptr;
    if (entryPoint)
        for (const auto& candidate : entryPoint->rules)
            if (candidate.description == rule.description) existing = &candidate;
    if (existing && existing->expression == rule.expression && existing->action == rule.action &&
        existing->actionParameters == rule.actionParameters && existing->enabled == rule.enabled)
        return StepFinding::inPlace(fmt::format("The {} is in place on {}.", ruleName, host));

    auto atLimit = [&state, phase, ruleName, media] {
        const bool waf = phase == RulesetPhase::firewallCustom;
        return SetupBlocked(SetupStatus{SetupStatus::NeedsDashboard{DashboardTask{
            DashboardTask::FreeRuleSlot{phase},
            fmt::format("{} has no free {} slot. The Free plan has {}. Delete a rule that you do not need, or change "
                        "the plan. Then run setup again.",
                        media.zone.name, ruleName, waf ? "5 custom rules" : "10 Cache Rules"),
            dashboardPage(state, media.zone.name + (waf ? "/security/waf/custom-rules" : "/caching/cache-rules"))}}});
    };
    const std::optional<std::string> rulesetID = entryPoint ? std::optional(entryPoint->id) : std::nullopt;
    const std::optional<std::string> ruleID = existing ? std::optional(existing->id) : std::nullopt;
    const std::string verb = existing ? "Update" : "Add";
    return StepFinding::change(
        fmt::format("{} the {} on {}.", verb, ruleName, host), [&state, phase, rule, zoneID, rulesetID, ruleID, atLimit, ruleName, host] {
            try {
                if (ruleID) state.api.replaceRule(zoneID, *rulesetID, *ruleID, rule);
                else if (rulesetID) state.api.addRule(zoneID, *rulesetID, rule);
                else state.api.createPhaseRuleset(zoneID, phase, {rule});
            } catch (const CloudflareError& error) {
                if (error.isRuleLimitReached()) throw atLimit();
                throw;
            }
            return fmt::format("{} the {} on {}.", ruleID ? "Updated" : "Added", ruleName, host);
        });
}

// --- sessions, Worker, page hostname ---

StepFinding findSessions(SetupState& state) {
    const std::string title = SetupNames::sessionsTitle(state.request.bucket);
    std::vector<KVNamespace> namespaces;
    try {
        namespaces = state.api.kvNamespaces(state.request.accountID);
    } catch (const CloudflareError& error) {
        if (!error.isPermissionRefused()) throw;
        return StepFinding::blockedBy(
            "The Cloudflare Account API Token cannot read the KV namespaces. Give it the permission \u201cWorkers KV "
            "Storage\u201d at the level Edit, then run setup again.");
    }
    for (const auto& found : namespaces)
        if (found.title == title) {
            state.sessionsNamespace = found;
            return StepFinding::inPlace(fmt::format("The KV namespace \u201c{}\u201d exists.", title));
        }
    return StepFinding::change(fmt::format("Create the KV namespace \u201c{}\u201d.", title), [&state, title] {
        state.sessionsNamespace = state.api.createKVNamespace(state.request.accountID, title);
        return fmt::format("Created the KV namespace \u201c{}\u201d.", title);
    });
}

namespace {

// The Worker version that the site's settings record, when they name this Worker.
std::optional<SemanticVersion> recordedVersion(const SetupState& state) {
    if (!state.siteSettings || state.siteSettings->worker.name != state.workerName()) return std::nullopt;
    return state.siteSettings->worker.version;
}

}  // namespace

StepFinding findWorker(SetupState& state) {
    const WorkerScripts scripts(state.api, state.request.accountID);
    const std::string name = state.workerName();
    const SemanticVersion& version = state.request.workerBundle.manifest.version;
    const auto deployed = scripts.settings(name);
    const auto recorded = recordedVersion(state);

    auto deploy = [&state, name, version] {
        if (!state.sessionsNamespace)
            failStep(fmt::format("Setup has no KV namespace for the sessions of \u201c{}\u201d", state.request.bucket));
        const WorkerScripts scripts(state.api, state.request.accountID);
        const WorkerDeployment deployment{name, state.request.workerBundle, state.request.bucket, state.sessionsNamespace->id,
                                          randomString(64, "0123456789abcdef")};
        deployment.deploy(scripts, state.progress);
        return fmt::format("Deployed the Worker \u201c{}\u201d {}, with no workers.dev route.", name, version.text());
    };
    auto change = [&](std::string text) {
        if (state.isCheck && state.settingsRead == SettingsRead::notRead) {
            text += " The check cannot read the deployed version.";
        }
        return StepFinding::change(std::move(text), deploy);
    };

    if (!deployed) return change(fmt::format("Deploy the Worker \u201c{}\u201d {}.", name, version.text()));
    if (recorded && *recorded > version)
        return StepFinding::inPlace(fmt::format("A newer Worker \u201c{}\u201d {} is deployed. This app has {}.", name,
                                                recorded->text(), version.text()));
    if (recorded && *recorded < version)
        return change(fmt::format("Deploy the Worker \u201c{}\u201d {} in place of {}.", name, version.text(), recorded->text()));
    const WorkerDeployment wanted{name, state.request.workerBundle, state.request.bucket,
                                  state.sessionsNamespace ? state.sessionsNamespace->id : std::string(), {}};
    if (!state.sessionsNamespace || !wanted.isDeployed(*deployed))
        return change(fmt::format("Deploy the Worker \u201c{}\u201d {} again.", name, version.text()));
    if (scripts.workersDevSubdomain(name).enabled)
        return StepFinding::change(fmt::format("Turn off the workers.dev route of \u201c{}\u201d.", name), [&state, name] {
            WorkerScripts(state.api, state.request.accountID).setWorkersDevSubdomain(name, false, false);
            return fmt::format("Turned off the workers.dev route of \u201c{}\u201d.", name);
        });
    return StepFinding::inPlace(
        fmt::format("The Worker \u201c{}\u201d {} is deployed, with no workers.dev route.", name, version.text()));
}

StepFinding findPageHostname(SetupState& state) {
    const SiteHostname& page = state.request.pageHost;
    const std::string& host = page.hostname.name;
    const std::string name = state.workerName();
    const WorkerScripts scripts(state.api, state.request.accountID);
    if (const auto domain = scripts.findDomain(host)) {
        if (domain->service == name) return StepFinding::inPlace(fmt::format("{} runs the Worker \u201c{}\u201d.", host, name));
        return StepFinding::blockedBy(fmt::format(
            "{} runs a different Worker, \u201c{}\u201d. Choose a different name, or remove the domain in the dashboard.",
            host, domain->service));
    }
    if (auto conflict = dnsConflict(state, page, "Worker")) return *conflict;
    return StepFinding::change(fmt::format("Attach {} to the Worker \u201c{}\u201d.", host, name), [&state, host, name] {
        WorkerScripts(state.api, state.request.accountID).attachDomain(host, name, state.request.pageHost.zone.id);
        return fmt::format("Attached {} to the Worker \u201c{}\u201d.", host, name);
    });
}

// --- the settings file, last: its presence tells other computers that the site is complete ---

namespace {

SiteSettings wantedSettings(const SetupState& state) {
    SiteSettings settings = state.siteSettings.value_or(SiteSettings{});
    const bool isNew = !state.siteSettings;
    settings.path = SiteFolder::normalisedPath(state.request.path);
    settings.mediaHost = state.request.mediaHost.hostname;
    settings.pageHost = state.request.pageHost.hostname;
    if (state.request.siteTemplate) settings.siteTemplate = *state.request.siteTemplate;
    else if (isNew) settings.siteTemplate = SiteTemplate::automatic;
    settings.mediaZoneID = state.request.mediaHost.zone.id;
    // A newer Worker that step 10 kept stays recorded as it is.
    const SemanticVersion& bundled = state.request.workerBundle.manifest.version;
    const auto recorded = recordedVersion(state);
    settings.worker = DeployedWorker{state.workerName(), recorded && *recorded > bundled ? *recorded : bundled};
    return settings;
}

std::vector<std::string> differences(const SiteSettings& found, const SiteSettings& wanted) {
    std::vector<std::string> names;
    if (found.path != wanted.path) names.push_back("path");
    if (found.mediaHost != wanted.mediaHost) names.push_back("media hostname");
    if (found.pageHost != wanted.pageHost) names.push_back("page hostname");
    if (found.siteTemplate != wanted.siteTemplate) names.push_back("template");
    if (found.worker != wanted.worker) names.push_back("Worker " + wanted.worker.version.text());
    if (found.mediaZoneID != wanted.mediaZoneID) names.push_back("media zone");
    return names;
}

}  // namespace

StepFinding findSiteSettings(SetupState& state) {
    const std::string key = SiteRules::settingsKey;
    if (state.isCheck && !state.bucket)
        return StepFinding::change(fmt::format("Write {}. The check cannot read it without an R2 API Token.", key), {});
    Bucket& bucket = state.requireBucket();
    if (state.settingsRead == SettingsRead::unreadable || state.settingsRead == SettingsRead::notRead) {
        // Read again for the failure's own words; a file this version cannot use is never overwritten.
        if (const auto text = bucket.object(key)) {
            state.siteSettings = SiteSettings::decoded(*text);
        }
    }
    SiteSettings wanted = wantedSettings(state);
    auto write = [&state, &bucket, wanted](std::string done) {
        return [&state, &bucket, wanted, done] {
            wanted.write(bucket);
            state.finalSettings = wanted;
            return done;
        };
    };
    if (!state.siteSettings) return StepFinding::change(fmt::format("Write {}.", key), write(fmt::format("Wrote {}.", key)));
    const auto changed = differences(*state.siteSettings, wanted);
    if (changed.empty()) {
        state.finalSettings = *state.siteSettings;
        return StepFinding::inPlace(fmt::format("{} has the settings of the site.", key));
    }
    std::string list;
    for (const auto& name : changed) list += (list.empty() ? "" : ", ") + name;
    return StepFinding::change(fmt::format("Update {}: {}.", key, list), write(fmt::format("Updated {}.", key)));
}

}  // namespace vorlen
