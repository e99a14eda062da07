#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/AppModel.hpp"
#include "app/MainQueue.hpp"
#include "app/SetupService.hpp"
#include "app/SetupWords.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

enum class TokenMode { automatic, manual };

// The Cloudflare Account API Token, as the person pastes it.
struct TokenEntry {
    APIToken token;  // never shown back
    TokenMode mode = TokenMode::automatic;
    // The dashboard's form for the token, with the rows of this mode filled in.
    std::string formURL;
    bool isChecking = false;
    std::optional<std::string> problem;
};

// The account, bucket, hostnames and folder of the site.
struct SiteChoice {
    enum class BucketKind { newBucket, existingBucket };

    std::vector<CloudflareAccount> accounts;
    std::string accountID;
    // The zones and buckets of the account, once read.
    std::optional<SetupAccountChoices> offered;
    BucketKind bucketKind = BucketKind::newBucket;
    std::string bucket;
    std::optional<R2LocationHint> locationHint;  // for a new bucket
    // The settings file of the existing bucket, once read; absent for a bucket without one.
    std::optional<SiteSettings> existingSettings;
    bool isBucketRead = false;
    std::string mediaHost;
    std::string pageHost;
    std::string path;
    std::string computerName;
    // Reading the account or the bucket, or looking up the hostnames.
    bool isBusy = false;
    std::optional<std::string> problem;
};

struct SetupRow {
    SetupStep step;
    SetupStatus status;
    // What a step shows while it waits, e.g. for a hostname to become active.
    std::optional<std::string> progress;

    std::string label() const { return vorlen::label(step); }
    std::string text() const { return progress ? *progress : status.text(); }
};

// A run or a check, its twelve rows following the reports as they come.
struct SetupRun {
    bool isCheck = false;
    std::vector<SetupRow> rows;
    bool isRunning = true;
    // A failure before the steps began, e.g. a request that does not validate.
    std::optional<std::string> problem;

    // The task in the dashboard that stopped the run, if one did.
    const DashboardTask* dashboardTask() const;
    // Every step in place or done.
    bool isComplete() const;
};

// The R2 API Token that the person made in the dashboard, since the Account API Token cannot make one.
struct ManualTokenEntry {
    ManualTokenRequest request;
    std::string message;
    std::optional<std::string> problem;
};

// The setup of a site on the main thread, stage by stage: the token, the choice
// of account, bucket and hostnames, the run, and, with tokens managed by hand, the
// token the run could not make. A check starts at its run. Questions to Cloudflare
// go on a task of the model's own and come back through the main queue; a newer
// question outdates an older one's answer, and the model's end cancels its task.
class SetupModel : public std::enable_shared_from_this<SetupModel> {
public:
    using Stage = std::variant<TokenEntry, SiteChoice, SetupRun, ManualTokenEntry>;

    // How the model reaches the application's sites.
    struct Host {
        std::function<SetupPlan(const SetupChoice&)> plan;
        std::function<SiteSetup::NewTokenCallback(const SiteID&)> tokenSaver;
        std::function<void(const SetupPlan&, const SetupReport&)> finish;
        std::function<void(bool)> setRunning;

        static Host of(AppModel& model);
    };

    // A new site, from the token entry. onChange hears of every change, on the main thread.
    static std::shared_ptr<SetupModel> setUp(const SetupService& service, Host host, MainQueue& mainQueue,
                                             std::string dashboard, std::string computerName,
                                             std::function<void()> onChange);
    // A check of a site this computer has, which starts at once. Its plan asks
    // Cloudflare for the zones, so it is made on the model's task.
    static std::shared_ptr<SetupModel> check(const SetupService& service, Host host, MainQueue& mainQueue,
                                             std::function<SetupPlan()> plan, APIToken token,
                                             std::function<void()> onChange);
    ~SetupModel();

    const Stage& stage() const { return stage_; }
    template <class T>
    const T* as() const { return std::get_if<T>(&stage_); }
    // The site of the last run or check, once planned.
    std::optional<SiteID> site() const;
    // A run, or a check, is under way.
    bool isRunning() const;

    void editToken(const std::string& text);
    void setTokenMode(TokenMode mode);
    void submitToken();

    void chooseAccount(const std::string& accountID);
    void useNewBucket(const std::string& name, std::optional<R2LocationHint> locationHint);
    // Reads the bucket's settings; a site found there gives the hostnames and the folder.
    void useExistingBucket(const std::string& name);
    // The hostnames, the folder and the computer's name.
    void editChoice(const std::function<void(SiteChoice&)>& change);
    void confirmChoice();

    // After a run or a check has ended: the same again.
    void runAgain();
    // After a check has ended: a run of the same site, which repairs what the check found.
    void repair();

    void submitManualToken(const std::string& text);

    // From the choice to the token, from an ended run to the choice.
    void goBack();

private:
    using Apply = std::function<void(SetupModel&)>;
    // Takes a question's answer to the main thread, unless a later question outdated it or the model has gone.
    using Reply = std::function<void(Apply)>;

    SetupModel(const SetupService& service, Host host, MainQueue& mainQueue, std::function<void()> onChange);
    // Shows a failure's words on the stage that asked.
    using Failed = void (SetupModel::*)(const std::string&);

    Reply newReply();
    // Asks on the model's task; what the work returns, or its failure, is applied on the main thread.
    void launch(std::function<Apply()> work, Failed failed, Reply reply);
    void launch(std::function<Apply()> work, Failed failed) { launch(std::move(work), failed, newReply()); }
    void tokenFailed(const std::string& words);
    void choiceFailed(const std::string& words);
    void loadAccount();
    void plan(const SetupChoice& wanted);
    void start(std::function<SetupPlan()> plan, bool isCheck);
    void ended(const SetupPlan& plan, const SetupReport& report);
    void failedBeforeSteps(const std::string& words);
    void applyReport(const SetupStepReport& report);
    void showProgress(SetupStep step, const std::string& text);
    void changed() { onChange_(); }
    template <class T>
    T* at() { return std::get_if<T>(&stage_); }
    // The stage an answer was asked from: a change of stage outdates the question.
    template <class T>
    T& current() { return std::get<T>(stage_); }

    const SetupService& service_;
    Host host_;
    MainQueue& mainQueue_;
    std::function<void()> onChange_;
    std::string dashboard_;
    Stage stage_;
    APIToken token_;
    TokenMode mode_ = TokenMode::automatic;
    // The choice as the person left it, and what it asked for.
    std::optional<SiteChoice> choice_;
    std::optional<SetupChoice> wanted_;
    // A check plans again each time; a run keeps its plan.
    std::function<SetupPlan()> checkPlan_;
    std::optional<SetupPlan> plan_;
    std::optional<Task<void>> task_;
    std::uint64_t generation_ = 0;
};

}  // namespace vorlen::app
