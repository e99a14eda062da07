#include "app/SetupModel.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/cloudflare/CloudflareError.hpp"

namespace vorlen::app {

namespace SetupWords {

std::string tokenRefused(const std::string& failure) {
    return fmt::format("Cloudflare refused the token. Check that you copied the complete token value. ({})", failure);
}

std::string notActive(const std::string& status) {
    return fmt::format("The Cloudflare Account API Token is {}, not active.", status);
}

std::string unreadableSettings(const std::string& failure) {
    return fmt::format("Vorlen cannot read the settings of this bucket. Try again, or choose a different bucket. ({})",
                       failure);
}

std::string zoneNotConfigurable(const std::string& host) {
    return fmt::format(
        "The Cloudflare Account API Token cannot configure the domain of {}. Change the token in the dashboard, or "
        "choose a different bucket.",
        host);
}

}  // namespace SetupWords

std::string defaultComputerName() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0) return "";
    return name.data();
}

namespace {

// A token is one word of letters, digits, "-" and "_"; anything else was copied from the wrong place.
bool looksLikeToken(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '-' || c == '_';
    });
}

// The core says so when a file has a version beyond the one this program reads.
bool isNewerFile(const VorlenError& error) {
    return error.is<failure::Metadata>() && error.text().find("from a newer version of Vorlen") != std::string::npos;
}

// What the token's first check found, in the screens' words: a server in trouble
// or a lost connection says nothing about the token.
std::string tokenCheckWords(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const CloudflareError& error) {
        return error.isTransient() ? error.description() : SetupWords::tokenRefused(error.description());
    } catch (const VorlenError& error) {
        return SetupWords::tokenRefused(error.text());
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string accountWords(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const CloudflareError& error) {
        return error.has(CloudflareError::Code::r2NotEnabled) ? SetupWords::r2Off : error.description();
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string bucketSettingsWords(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const VorlenError& error) {
        return isNewerFile(error) ? SetupWords::newerSettings : SetupWords::unreadableSettings(error.text());
    } catch (const std::exception& error) {
        return SetupWords::unreadableSettings(error.what());
    }
}

template <class Item>
bool containsWhere(const std::vector<Item>& items, const std::function<bool(const Item&)>& test) {
    return std::any_of(items.begin(), items.end(), test);
}

}  // namespace

const DashboardTask* SetupRun::dashboardTask() const {
    for (const auto& row : rows)
        if (auto* waiting = std::get_if<SetupStatus::NeedsDashboard>(&row.status.value)) return &waiting->task;
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
                                              SetupPlan plan, APIToken token, std::function<void()> onChange) {
    std::shared_ptr<SetupModel> model(new SetupModel(service, std::move(host), mainQueue, std::move(onChange)));
    model->token_ = std::move(token);
    model->start(plan, true);
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

void SetupModel::launch(std::function<Apply()> work) { launch(std::move(work), newReply()); }

void SetupModel::launch(std::function<Apply()> work, Reply reply) {
    task_.reset();
    task_.emplace(Task<void>::spawn([work = std::move(work), reply = std::move(reply)] {
        Apply apply;
        try {
            apply = work();
        } catch (const Cancelled&) {
            return;
        }
        reply(std::move(apply));
    }));
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
    launch([&service = service_, token = token_]() -> Apply {
        try {
            auto checked = service.checkToken(token, std::nullopt);
            return [checked](SetupModel& model) {
                auto& entry = model.current<TokenEntry>();
                entry.isChecking = false;
                if (checked.token.kind == VerifiedToken::Kind::user)
                    entry.problem = SetupWords::userToken;
                else if (checked.token.status != "active")
                    entry.problem = SetupWords::notActive(checked.token.status);
                else if (checked.accounts.empty())
                    entry.problem = SetupWords::noAccount;
                if (entry.problem) return model.changed();
                auto choice = *model.choice_;
                choice.accounts = checked.accounts;
                const bool stillThere = containsWhere<CloudflareAccount>(
                    checked.accounts, [&](const CloudflareAccount& account) { return account.id == choice.accountID; });
                if (!stillThere) choice.accountID = checked.accounts.front().id;
                model.stage_ = std::move(choice);
                model.loadAccount();
            };
        } catch (const Cancelled&) {
            throw;
        } catch (...) {
            return [words = tokenCheckWords(std::current_exception())](SetupModel& model) {
                auto& entry = model.current<TokenEntry>();
                entry.isChecking = false;
                entry.problem = words;
                model.changed();
            };
        }
    });
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
    launch([&service = service_, token = token_, accountID = choice.accountID]() -> Apply {
        try {
            auto offered = service.choices(token, accountID);
            return [offered](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                choice.offered = offered;
                if (offered.zones.empty()) choice.problem = SetupWords::noConfigurableDomain;
                model.changed();
            };
        } catch (const Cancelled&) {
            throw;
        } catch (...) {
            return [words = accountWords(std::current_exception())](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                choice.problem = words;
                model.changed();
            };
        }
    });
}

void SetupModel::useNewBucket(const std::string& name, std::optional<R2LocationHint> locationHint) {
    auto* choice = at<SiteChoice>();
    if (!choice) return;
    // A bucket's settings being read no longer count.
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
    auto* found = at<SiteChoice>();
    if (!found) return;
    auto& choice = *found;
    choice.bucketKind = SiteChoice::BucketKind::existingBucket;
    choice.bucket = name;
    choice.locationHint.reset();
    choice.existingSettings.reset();
    choice.isBucketRead = false;
    choice.isBusy = true;
    choice.problem.reset();
    changed();
    launch([&service = service_, token = token_, accountID = choice.accountID, name]() -> Apply {
        try {
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
        } catch (const Cancelled&) {
            throw;
        } catch (...) {
            return [words = bucketSettingsWords(std::current_exception())](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                choice.problem = words;
                model.changed();
            };
        }
    });
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
    if (choice.bucketKind == SiteChoice::BucketKind::existingBucket && !choice.isBucketRead)
        return useExistingBucket(choice.bucket);
    const auto fail = [&](std::string words) {
        choice.problem = std::move(words);
        changed();
    };
    if (choice.offered->zones.empty()) return fail(SetupWords::noConfigurableDomain);
    const std::string bucket = trimmed(choice.bucket);
    if (choice.bucketKind == SiteChoice::BucketKind::newBucket &&
        containsWhere<R2Bucket>(choice.offered->buckets, [&](const R2Bucket& existing) { return existing.name == bucket; }))
        return fail(SetupWords::bucketExists);
    std::optional<Hostname> media, page;
    try {
        media = Hostname::parse(trimmed(choice.mediaHost));
        page = Hostname::parse(trimmed(choice.pageHost));
    } catch (const VorlenError& error) {
        return fail(error.text());
    }
    if (*media == *page) return fail(SetupWords::sameHost);

    SetupChoice wanted{choice.accountID, bucket, choice.locationHint, {}, {}, trimmed(choice.path), std::nullopt,
                       trimmed(choice.computerName), std::nullopt, false};
    if (choice.existingSettings) wanted.siteTemplate = choice.existingSettings->siteTemplate;
    choice.isBusy = true;
    choice.problem.reset();
    changed();
    launch([&service = service_, token = token_, zones = choice.offered->zones, wanted, media = *media,
            page = *page]() mutable -> Apply {
        try {
            for (auto [host, into] : {std::pair{&media, &wanted.mediaHost}, {&page, &wanted.pageHost}}) {
                *into = service.siteHostname(token, wanted.accountID, host->name);
                const bool configurable = containsWhere<CloudflareZone>(
                    zones, [&](const CloudflareZone& zone) { return zone.id == into->zone.id; });
                if (!configurable) throw VorlenError::config(SetupWords::zoneNotConfigurable(host->name));
            }
            return [wanted](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                model.choice_ = choice;
                SetupPlan plan;
                try {
                    plan = model.host_.plan(wanted);
                } catch (const std::exception& error) {
                    choice.problem = error.what();
                    return model.changed();
                }
                model.start(plan, false);
            };
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            return [words = std::string(error.what())](SetupModel& model) {
                auto& choice = model.current<SiteChoice>();
                choice.isBusy = false;
                choice.problem = words;
                model.changed();
            };
        }
    });
}

void SetupModel::start(const SetupPlan& plan, bool isCheck) {
    plan_ = plan;
    SetupRun run;
    run.isCheck = isCheck;
    for (SetupStep step : allSetupSteps) run.rows.push_back(SetupRow{step, SetupStatus{SetupStatus::Pending{}}, std::nullopt});
    stage_ = std::move(run);
    host_.setRunning(true);
    changed();

    const Reply reply = newReply();
    SiteSetup::ReportCallback report = [reply](const SetupStepReport& stepReport) {
        reply([stepReport](SetupModel& model) { model.applyReport(stepReport); });
    };
    SiteSetup::ProgressCallback progress = [reply](SetupStep step, const std::string& text) {
        reply([step, text](SetupModel& model) { model.showProgress(step, text); });
    };
    SiteSetup::NewTokenCallback saveToken = isCheck ? SiteSetup::NewTokenCallback() : host_.tokenSaver(plan.site);
    launch(
        [&service = service_, token = token_, request = plan.request, isCheck, report, progress, saveToken]() -> Apply {
        try {
            auto result = isCheck ? service.check(token, request, report, progress)
                                  : service.run(token, request, report, saveToken, progress);
            return [result](SetupModel& model) { model.ended(result); };
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            return [words = std::string(error.what())](SetupModel& model) { model.failedBeforeSteps(words); };
        }
    }, reply);
}

void SetupModel::applyReport(const SetupStepReport& report) {
    auto& run = current<SetupRun>();
    for (auto& row : run.rows)
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

void SetupModel::ended(const SetupReport& report) {
    auto& run = current<SetupRun>();
    for (const auto& stepReport : report.steps) {
        for (auto& row : run.rows)
            if (row.step == stepReport.step) row.status = stepReport.status;
    }
    for (auto& row : run.rows) row.progress.reset();
    run.isRunning = false;
    host_.setRunning(false);
    if (!run.isCheck) {
        try {
            host_.finish(*plan_, report);
        } catch (const std::exception& error) {
            run.problem = error.what();
        }
    }
    const DashboardTask* task = run.dashboardTask();
    const auto* tokenTask = task ? std::get_if<DashboardTask::CreateDailyToken>(&task->kind) : nullptr;
    if (tokenTask && mode_ == TokenMode::manual && !run.isCheck)
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
    if (!run || run->isRunning || !plan_) return;
    start(*plan_, run->isCheck);
}

void SetupModel::repair() {
    const auto* run = as<SetupRun>();
    if (!run || run->isRunning || !run->isCheck || !plan_) return;
    start(*plan_, false);
}

void SetupModel::submitManualToken(const std::string& text) {
    auto* entry = at<ManualTokenEntry>();
    if (!entry) return;
    const std::string value = trimmed(text);
    if (!looksLikeToken(value)) {
        entry->problem = SetupWords::notAToken;
        return changed();
    }
    plan_->request.dailyToken = DailyTokenSource{DailyTokenSource::Pasted{APIToken{value}}};
    start(*plan_, false);
}

void SetupModel::goBack() {
    if (isRunning()) return;
    if (as<SiteChoice>()) {
        ++generation_;
        stage_ = TokenEntry{token_, mode_, setupTokenFormURL(dashboard_, mode_ == TokenMode::manual), false, std::nullopt};
    } else if ((as<SetupRun>() && !as<SetupRun>()->isCheck) || as<ManualTokenEntry>()) {
        if (!choice_ || choice_->accounts.empty()) return;
        stage_ = *choice_;
    } else {
        return;
    }
    changed();
}

}  // namespace vorlen::app
