#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "core/site/SiteSetup.hpp"

namespace vorlen {

// What one step finds when it looks at the account before changing anything.
struct StepFinding {
    struct InPlace {
        std::string text;
    };
    struct Change {
        std::string text;
        // Makes the change; answers the text of the finished step.
        std::function<std::string()> apply;
    };
    struct Blocked {
        SetupStatus status;
    };
    std::variant<InPlace, Change, Blocked> value;

    static StepFinding inPlace(std::string text) { return {InPlace{std::move(text)}}; }
    static StepFinding change(std::string text, std::function<std::string()> apply) {
        return {Change{std::move(text), std::move(apply)}};
    }
    static StepFinding blocked(SetupStatus status) { return {Blocked{std::move(status)}}; }
    static StepFinding blockedBy(std::string text) { return blocked(SetupStatus{SetupStatus::Failed{std::move(text)}}); }
};

// A failure that ends a step with a status of its own (a failure's words, or a dashboard task).
struct SetupBlocked : std::exception {
    SetupStatus status;
    explicit SetupBlocked(SetupStatus status) : status(std::move(status)) {}
    const char* what() const noexcept override { return "setup blocked"; }
};

// The settings file as step 3 found it, with the token that read it.
enum class SettingsRead { notRead, found, unreadable, missing };

// One run's shared state; the steps run one after the other on one task, so it needs no lock.
struct SetupState {
    const CloudflareAPI& api;
    const SiteSetupRequest& request;
    const SiteSetupOptions& options;
    bool isCheck = false;
    std::function<void(const std::string&)> progress;
    SiteSetup::NewTokenCallback onNewDailyToken;

    bool bucketExists = false;
    std::optional<DailyToken> dailyToken{};
    bool isNewDailyToken = false;
    std::shared_ptr<Bucket> bucket{};
    SettingsRead settingsRead = SettingsRead::notRead;
    std::optional<SiteSettings> siteSettings{};
    std::optional<KVNamespace> sessionsNamespace{};
    // What step 12 wrote or found.
    std::optional<SiteSettings> finalSettings{};

    std::string workerName() const { return SetupNames::workerName(request.bucket); }
    // The bucket client, or the failure that says there is no token for it.
    Bucket& requireBucket() const;
};

// The twelve steps: each looks, and says what it would change.
StepFinding findAccount(SetupState& state);
StepFinding findBucket(SetupState& state);
StepFinding findDailyToken(SetupState& state);
StepFinding findCors(SetupState& state);
StepFinding findMediaHostname(SetupState& state);
StepFinding findR2Dev(SetupState& state);
StepFinding findRule(SetupState& state, RulesetPhase phase, const RuleDefinition& rule);
StepFinding findSessions(SetupState& state);
StepFinding findWorker(SetupState& state);
StepFinding findPageHostname(SetupState& state);
StepFinding findSiteSettings(SetupState& state);

}  // namespace vorlen
