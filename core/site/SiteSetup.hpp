#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/cloudflare/CloudflareAPI.hpp"
#include "core/cloudflare/DailyTokens.hpp"
#include "core/cloudflare/TokenPermission.hpp"
#include "core/cloudflare/WorkerBundle.hpp"
#include "core/site/SiteSettings.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

// What a site needs in a Cloudflare account, in the order in which each needs the ones before it.
enum class SetupStep {
    account,
    bucket,
    dailyToken,
    cors,
    mediaHostname,
    r2Dev,
    privacyRule,
    cacheRule,
    sessions,
    worker,
    pageHostname,
    siteSettings
};
inline constexpr std::array<SetupStep, 12> allSetupSteps{
    SetupStep::account,      SetupStep::bucket,      SetupStep::dailyToken, SetupStep::cors,
    SetupStep::mediaHostname, SetupStep::r2Dev,      SetupStep::privacyRule, SetupStep::cacheRule,
    SetupStep::sessions,     SetupStep::worker,      SetupStep::pageHostname, SetupStep::siteSettings};
// The step's name for people, e.g. "CORS rule".
std::string label(SetupStep step);
// The step's name for scripts, e.g. "cors", "dailyToken".
std::string rawValue(SetupStep step);

// Something only the person can do, in the dashboard; the run stops, and they run it again.
struct DashboardTask {
    struct CreateDailyToken {
        ManualTokenRequest request;
    };
    struct FreeRuleSlot {
        RulesetPhase phase;
    };
    struct EnableR2 {};
    using Kind = std::variant<CreateDailyToken, FreeRuleSlot, EnableR2>;

    Kind kind;
    std::string message;
    std::string url;
};

struct SetupStatus {
    struct Pending {};
    struct ToDo {
        std::string text;
    };
    struct Running {
        std::string text;
    };
    struct Done {
        std::string text;
    };
    struct AlreadyInPlace {
        std::string text;
    };
    struct Failed {
        std::string text;
    };
    struct NeedsDashboard {
        DashboardTask task;
    };
    using Value = std::variant<Pending, ToDo, Running, Done, AlreadyInPlace, Failed, NeedsDashboard>;

    Value value;

    template <class Case>
    bool is() const { return std::holds_alternative<Case>(value); }
    // What a person reads: the case's text, the task's message, or "Not checked.".
    std::string text() const;
    // "pending", "toDo", "running", "done", "alreadyInPlace", "failed", "needsDashboard".
    std::string kindName() const;
};

struct SetupStepReport {
    SetupStep step;
    SetupStatus status;
};

struct SetupReport {
    std::vector<SetupStepReport> steps;  // all twelve, in order
    std::optional<DailyToken> dailyToken;
    // The site's settings file as the run left it (or as a check found it).
    std::optional<SiteSettings> siteSettings;

    const SetupStatus& status(SetupStep step) const;
    // The first step that ended the run, if one did.
    const SetupStepReport* stoppedAt() const;
};

// A hostname of the site with the zone it lies in.
struct SiteHostname {
    Hostname hostname;
    CloudflareZone zone;
};

// Where this computer's R2 API Token comes from.
struct DailyTokenSource {
    struct Create {
        std::string computerName;
    };
    struct Pasted {
        APIToken token;
    };
    struct Stored {
        DailyToken token;
    };
    struct Replace {
        DailyToken token;
        std::string computerName;
    };
    std::variant<Create, Pasted, Stored, Replace> value;
};

struct SiteSetupRequest {
    std::string accountID;
    std::string bucket;
    std::optional<R2LocationHint> locationHint;
    SiteHostname mediaHost;
    SiteHostname pageHost;
    std::string path;
    std::optional<SiteTemplate> siteTemplate;
    WorkerBundle workerBundle;
    DailyTokenSource dailyToken;

    // Fails with VorlenError::config in the order of the rules: bucket name, Worker
    // name length, distinct hostnames, folder path, computer name.
    void validate() const;
};

struct SiteSetupOptions {
    std::chrono::duration<double> pollInterval{5};
    std::chrono::duration<double> activationTimeout{600};
    std::chrono::duration<double> credentialTimeout{60};
    // How long a changed CORS rule may take to show on the media host, looked at every 5 s.
    std::chrono::duration<double> corsTimeout{60};
    std::chrono::duration<double> corsInterval{5};
    // A client of the bucket with these keys.
    std::function<std::shared_ptr<Bucket>(const std::string& bucket, const S3Credentials&)> makeBucket;
    // Whether the media host answers a preflight from `origin` as allowed; the
    // default asks it over HTTPS with this session.
    std::function<bool(const Hostname& host, const std::string& origin)> allowsOrigin;
    // A step whose look or change fails on a passing fault looks again and goes on
    // from what it finds, as a run again would.
    RetryPolicy stepRetry{3, std::chrono::duration<double>(1)};
    // Where the dashboard is, for the pages of dashboard tasks.
    std::string dashboard = "https://dash.cloudflare.com";
};

// The names a run derives from the bucket and the hostnames.
namespace SetupNames {
std::string workerName(const std::string& bucket);
std::string sessionsTitle(const std::string& bucket);
inline constexpr const char* corsRuleID = "vorlen";
// The WAF rule that keeps video records and the site's private folder off the media host.
RuleDefinition privacyRule(const Hostname& mediaHost);
// The Cache Rule that lets Cloudflare cache the manifests, subtitles and posters.
RuleDefinition cacheRule(const Hostname& mediaHost);
}  // namespace SetupNames

// Creates or repairs everything a site needs in a Cloudflare account, as twelve
// steps that each look before they change; the same steps read-only are the check.
// One run at a time; it runs on the calling task and ends early when that task is
// cancelled.
class SiteSetup {
public:
    using ReportCallback = std::function<void(const SetupStepReport&)>;
    using ProgressCallback = std::function<void(SetupStep, const std::string&)>;
    // Called the moment a token is made, before any later step can fail.
    using NewTokenCallback = std::function<void(const DailyToken&)>;

    SiteSetup(CloudflareAPI api, SiteSetupRequest request, SiteSetupOptions options);

    SetupReport run(const ReportCallback& report, const NewTokenCallback& onNewDailyToken,
                    const ProgressCallback& progress = {});
    SetupReport check(const ReportCallback& report, const ProgressCallback& progress = {});

private:
    SetupReport perform(bool isCheck, const ReportCallback& report, const NewTokenCallback& onNewDailyToken,
                        const ProgressCallback& progress);

    CloudflareAPI api_;
    SiteSetupRequest request_;
    SiteSetupOptions options_;
};

}  // namespace vorlen
