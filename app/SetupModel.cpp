#include "app/SetupModel.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::app {

namespace {

// A token is one word of letters, digits, "-" and "_"; anything else was copied from the wrong place.
bool looksLikeToken(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '-' || c == '_';
    });
}

SetupRun pendingRun(bool isCheck) {
    SetupRun run;
    run.isCheck = isCheck;
    for (SetupStep step : allSetupSteps) run.rows.push_back(SetupRow{step, SetupStatus{SetupStatus::Pending{}}, std::nullopt});
    return run;
}

}  // namespace

const DashboardTask* SetupRun::dashboardTask() const {
    for (const auto& row : rows)
        if (const auto* waiting = std::get_if<SetupStatus::NeedsDashboard>(&row.status.value)) return &waiting->task;
    return nullptr;
}

bool SetupRun::isComplete() const {
    return !rows.empty() && std::all_of(rows.begin(), rows.end(), [](const SetupRow& row) {
        return row.status.is<SetupStatus::Done>() || row.status.is<SetupStatus::AlreadyInPlace>();
    });
}

SetupModel::Host SetupModel::Host::of(AppModel& model) {
    return Host{[&model](const SetupChoice& choice) { return model.planSetup(choice); },
                [&model](const SiteID& id) { return model.dailyTokenSaver(id); },
                [&model](const SetupPlan& plan, const SetupReport& report) { model.finishSetup(plan, report); },
                [&model](bool running) { model.setSetupRunning(running); }};
}

SetupModel::SetupModel(const SetupService& service, Host host, MainQueue& mainQueue, std::function<void()> onChange)
    : service_(service), host_(std::move(host)), mainQueue_(mainQueue), onChange_(std::move(onChange)) {}

std::shared_ptr<SetupModel> SetupModel::setUp(const SetupService& service, Host host, MainQueue& mainQueue,
                                              std::string dashboard, std::string computerName,
                                              std::function<void()> onChange) {
    std::shared_ptr<SetupModel> model(new SetupModel(service, std::move(host), mainQueue, std::move(onChange)));
    model->dashboard_ = std::move(dashboard);
    model->stage_ = TokenEntry{{}, TokenMode::automatic, setupTokenFormURL(model->dashboard_, false), false, std::nullopt};
    SiteChoice choice;
    choice.computerName = std::move(computerName);
    model->choice_ = std::move(choice);
    return model;
}

std::shared_ptr<SetupModel> SetupModel::check(const SetupService& service, Host host, MainQueue& mainQueue,
                                              std::function<SetupPlan()> plan, APIToken token,
                                              std::function<void()> onChange) {
    std::shared_ptr<SetupModel> model(new SetupModel(service, std::move(host), mainQueue, std::move(onChange)));
    model->token_ = std::move(token);
    model->checkPlan_ = std::move(plan);
    model->start(model->checkPlan_, true);
    return model;
}

SetupModel::~SetupModel() {
    // Dropping the task cancels a run still going and waits for it.
    task_.reset();
    if (isRunning()) host_.setRunning(false);
}

std::optional<SiteID> SetupModel::site() const {
    if (!plan_) return std::nullopt;
    return plan_->site;
}

bool SetupModel::isRunning() const {
    const auto* run = as<SetupRun>();
    return run && run->isRunning;
}

SetupModel::Reply SetupModel::newReply() {
    const std::uint64_t generation = ++generation_;
    std::weak_ptr<SetupModel> weak = weak_from_this();
    return [weak, generation, &queue = mainQueue_](Apply apply) {
        queue.post([weak, generation, apply = std::move(apply)] {
            auto self = weak.lock();
            if (self && self->generation_ == generation) apply(*self);
        });
    };
}

void SetupModel::launch(std::function<Apply()> work, Failed failed, Reply reply) {
    task_.reset();
    task_.emplace(Task<void>::spawn([work = std::move(work), failed, reply = std::move(reply)] {
        Apply apply;
        try {
            apply = work();
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            apply = [failed, words = std::string(error.what())](SetupModel& model) { (model.*failed)(words); };
        }
        reply(std::move(apply));
    }));
}

void SetupModel::tokenFailed(const std::string& words) {
    auto& entry = current<TokenEntry>();
    entry.isChecking = false;
    entry.problem = words;
    changed();
}

void SetupModel::choiceFailed(const std::string& words) {
    auto& choice = current<SiteChoice>();
    choice.isBusy = false;
    choice.problem = words;
    changed();
}

void SetupModel::editToken(const std::string& text) {
    auto* entry = at<TokenEntry>();
    if (!entry) return;
    entry->token = APIToken{text};
    entry->problem.reset();
}

void SetupModel::setTokenMode(TokenMode mode) {
    auto* entry = at<TokenEntry>();
    if (!entry) return;
    mode_ = mode;
    entry->mode = mode;
    entry->formURL = setupTokenFormURL(dashboard_, mode == TokenMode::manual);
    changed();
}

void SetupModel::submitToken() {
    auto* entry = at<TokenEntry>();
    if (!entry || entry->isChecking) return;
    const std::string value = trimmed(entry->token.value);
    if (!looksLikeToken(value)) {
        entry->problem = SetupWords::notAToken;
        return changed();
    }
    token_ = APIToken{value};
    entry->isChecking = true;
    entry->problem.reset();
    changed();
    launch(
        [&service = service_, token = token_]() -> Apply {
            auto checked = service.checkToken(token, std::nullopt);
            return [checked](SetupModel& model) {
                auto& entry = model.current<TokenEntry>();
                entry.isChecking = false;
                if (checked.token.status != "active") entry.problem = SetupWords::notActive(checked.token.status);
                else if (checked.accounts.empty()) entry.problem = SetupWords::noAccount;
                if (entry.problem) return model.changed();
                auto choice = *model.choice_;
                choice.accounts = checked.accounts;
                const bool stillThere = std::any_of(checked.accounts.begin(), checked.accounts.end(),
                                                    [&](const CloudflareAccount& account) { return account.id == choice.accountID; });
                if (!stillThere) choice.accountID = checked.accounts.front().id;
                model.stage_ = std::move(choice);
                model.loadAccount();
            };
        },
        &SetupModel::tokenFailed);
}

void SetupModel::chooseAccount(const std::string& accountID) {
    auto* choice = at<SiteChoice>();
    if (!choice || (choice->accountID == accountID && (choice->offered || choice->isBusy))) return;
    choice->accountID = accountID;
    choice->bucketKind = SiteChoice::BucketKind::newBucket;
    choice->existingSettings.reset();
    choice->isBucketRead = false;
    loadAccount();
}

void SetupModel::loadAccount() {
    auto& choice = current<SiteChoice>();
    choice.offered.reset();
    choice.isBusy = true;
    choice.problem.reset();
    changed();
    launch(
        [&service = service_, token = token_, accountID = choice.accountID]() -> Apply {
            auto offered = service.choices(token, accountID);
            return [offered](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                choice.offered = offered;
                model.changed();
            };
        },
        &SetupModel::choiceFailed);
}

void SetupModel::useNewBucket(const std::string& name, std::optional<R2LocationHint> locationHint) {
    auto* choice = at<SiteChoice>();
    if (!choice) return;
    // The settings of a bucket still being read no longer count.
    if (choice->bucketKind == SiteChoice::BucketKind::existingBucket && choice->isBusy) {
        ++generation_;
        choice->isBusy = false;
    }
    choice->bucketKind = SiteChoice::BucketKind::newBucket;
    choice->bucket = name;
    choice->locationHint = locationHint;
    choice->existingSettings.reset();
    choice->isBucketRead = false;
    choice->problem.reset();
    changed();
}

void SetupModel::useExistingBucket(const std::string& name) {
    auto* choice = at<SiteChoice>();
    if (!choice) return;
    choice->bucketKind = SiteChoice::BucketKind::existingBucket;
    choice->bucket = name;
    choice->locationHint.reset();
    choice->existingSettings.reset();
    choice->isBucketRead = false;
    choice->isBusy = true;
    choice->problem.reset();
    changed();
    launch(
        [&service = service_, token = token_, accountID = choice->accountID, name]() -> Apply {
            auto settings = service.bucketSettings(token, accountID, name);
            return [settings](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                choice.isBucketRead = true;
                choice.existingSettings = settings;
                // The bucket holds a site: this setup repairs it, with its own hostnames and folder.
                if (settings) {
                    choice.mediaHost = settings->mediaHost.name;
                    choice.pageHost = settings->pageHost.name;
                    choice.path = settings->path;
                }
                model.changed();
            };
        },
        &SetupModel::choiceFailed);
}

void SetupModel::editChoice(const std::function<void(SiteChoice&)>& change) {
    auto* choice = at<SiteChoice>();
    if (!choice) return;
    change(*choice);
    choice->problem.reset();
    changed();
}

void SetupModel::confirmChoice() {
    auto* found = at<SiteChoice>();
    if (!found || found->isBusy || !found->offered) return;
    auto& choice = *found;
    // The settings of an existing bucket must be read first; a failed read is tried again.
    if (choice.bucketKind == SiteChoice::BucketKind::existingBucket && !choice.isBucketRead)
        return useExistingBucket(choice.bucket);
    const auto fail = [&](std::string words) {
        choice.problem = std::move(words);
        changed();
    };
    const std::string bucket = trimmed(choice.bucket);
    const auto& buckets = choice.offered->buckets;
    if (choice.bucketKind == SiteChoice::BucketKind::newBucket &&
        std::any_of(buckets.begin(), buckets.end(), [&](const R2Bucket& existing) { return existing.name == bucket; }))
        return fail(SetupWords::bucketExists);
    std::optional<Hostname> media, page;
    try {
        media = Hostname::parse(trimmed(choice.mediaHost));
        page = Hostname::parse(trimmed(choice.pageHost));
    } catch (const VorlenError& error) {
        return fail(error.text());
    }
    if (*media == *page) return fail(SetupWords::sameHost);

    SetupChoice wanted;
    wanted.accountID = choice.accountID;
    wanted.bucket = bucket;
    wanted.locationHint = choice.locationHint;
    wanted.path = trimmed(choice.path);
    wanted.computerName = trimmed(choice.computerName);
    if (choice.existingSettings) wanted.siteTemplate = choice.existingSettings->siteTemplate;
    choice.isBusy = true;
    choice.problem.reset();
    changed();
    launch(
        [&service = service_, token = token_, wanted, media = media->name, page = page->name]() mutable -> Apply {
            wanted.mediaHost = service.siteHostname(token, wanted.accountID, media);
            wanted.pageHost = service.siteHostname(token, wanted.accountID, page);
            return [wanted](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                model.choice_ = choice;
                model.plan(wanted);
            };
        },
        &SetupModel::choiceFailed);
}

void SetupModel::plan(const SetupChoice& wanted) {
    SetupPlan planned;
    try {
        planned = host_.plan(wanted);
    } catch (const std::exception& error) {
        // A plan that is refused leaves the person where they chose.
        if (!at<SiteChoice>()) stage_ = *choice_;
        current<SiteChoice>().problem = error.what();
        return changed();
    }
    wanted_ = wanted;
    plan_ = planned;
    start([planned] { return planned; }, false);
}

void SetupModel::start(std::function<SetupPlan()> plan, bool isCheck) {
    stage_ = pendingRun(isCheck);
    host_.setRunning(true);
    changed();

    const Reply reply = newReply();
    SiteSetup::ReportCallback report = [reply](const SetupStepReport& stepReport) {
        reply([stepReport](SetupModel& model) { model.applyReport(stepReport); });
    };
    SiteSetup::ProgressCallback progress = [reply](SetupStep step, const std::string& text) {
        reply([step, text](SetupModel& model) { model.showProgress(step, text); });
    };
    SiteSetup::NewTokenCallback saveToken = isCheck ? SiteSetup::NewTokenCallback() : host_.tokenSaver(plan_->site);
    launch(
        [&service = service_, token = token_, plan = std::move(plan), isCheck, report, progress, saveToken]() -> Apply {
            const SetupPlan planned = plan();
            auto result = isCheck ? service.check(token, planned.request, report, progress)
                                  : service.run(token, planned.request, report, saveToken, progress);
            return [planned, result](SetupModel& model) { model.ended(planned, result); };
        },
        &SetupModel::failedBeforeSteps, reply);
}

void SetupModel::applyReport(const SetupStepReport& report) {
    for (auto& row : current<SetupRun>().rows)
        if (row.step == report.step) {
            row.status = report.status;
            row.progress.reset();
        }
    changed();
}

void SetupModel::showProgress(SetupStep step, const std::string& text) {
    for (auto& row : current<SetupRun>().rows)
        if (row.step == step) row.progress = text;
    changed();
}

void SetupModel::ended(const SetupPlan& plan, const SetupReport& report) {
    plan_ = plan;
    auto& run = current<SetupRun>();
    for (const auto& stepReport : report.steps)
        for (auto& row : run.rows)
            if (row.step == stepReport.step) row.status = stepReport.status;
    for (auto& row : run.rows) row.progress.reset();
    run.isRunning = false;
    host_.setRunning(false);
    if (!run.isCheck) {
        try {
            host_.finish(plan, report);
        } catch (const std::exception& error) {
            run.problem = error.what();
        }
    }
    const DashboardTask* task = run.dashboardTask();
    const auto* tokenTask = task ? std::get_if<DashboardTask::CreateDailyToken>(&task->kind) : nullptr;
    if (tokenTask && mode_ == TokenMode::manual && wanted_)
        stage_ = ManualTokenEntry{tokenTask->request, task->message, std::nullopt};
    changed();
}

void SetupModel::failedBeforeSteps(const std::string& words) {
    auto& run = current<SetupRun>();
    run.isRunning = false;
    run.problem = words;
    host_.setRunning(false);
    changed();
}

void SetupModel::runAgain() {
    const auto* run = as<SetupRun>();
    if (!run || run->isRunning) return;
    if (run->isCheck) return start(checkPlan_, true);
    if (plan_) start([plan = *plan_] { return plan; }, false);
}

void SetupModel::repair() {
    const auto* run = as<SetupRun>();
    if (!run || run->isRunning || !run->isCheck || !plan_) return;
    start([plan = *plan_] { return plan; }, false);
}

void SetupModel::submitManualToken(const std::string& text) {
    auto* entry = at<ManualTokenEntry>();
    if (!entry) return;
    const std::string value = trimmed(text);
    if (!looksLikeToken(value)) {
        entry->problem = SetupWords::notAToken;
        return changed();
    }
    SetupChoice wanted = *wanted_;
    wanted.pastedToken = APIToken{value};
    plan(wanted);
}

void SetupModel::goBack() {
    if (isRunning()) return;
    if (at<SiteChoice>()) {
        ++generation_;
        stage_ = TokenEntry{token_, mode_, setupTokenFormURL(dashboard_, mode_ == TokenMode::manual), false, std::nullopt};
    } else if (choice_ && !choice_->accounts.empty() && (at<ManualTokenEntry>() || (at<SetupRun>() && !at<SetupRun>()->isCheck))) {
        stage_ = *choice_;
    } else {
        return;
    }
    changed();
}

}  // namespace vorlen::app
