#include <cstdlib>
#include <iostream>
#include <mutex>

#include <fmt/format.h>

#include "app/Interrupts.hpp"
#include "app/SetupWords.hpp"
#include "app/SiteTemplates.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "cli/SetupToken.hpp"
#include "cli/Terminal.hpp"
#include "core/base/Task.hpp"
#include "core/cloudflare/TokenPermission.hpp"
#include "core/site/PageTemplate.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::cli {

namespace {

// The exit statuses of `setup` and `check` besides 0 (every step done or in
// place), 1 (a failure) and 130 (stopped).
constexpr int stepsToDo = 2;
constexpr int dashboardTask = 3;

// Prints each step as its status changes: one line each, a waiting step's progress below it.
class StepPrinter {
public:
    void report(const SetupStepReport& report) {
        if (report.status.is<SetupStatus::Pending>()) return;
        std::lock_guard lock(mutex_);
        std::cout << fmt::format("{:<15} {}: {}\n", report.status.kindName(), label(report.step), report.status.text())
                  << std::flush;
    }
    void progress(SetupStep, const std::string& text) {
        std::lock_guard lock(mutex_);
        if (text == lastProgress_) return;
        lastProgress_ = text;
        std::cout << "                  " << text << '\n' << std::flush;
    }
    // The steps that the run did not reach, and what to do about a dashboard task.
    int finish(const SetupReport& report) {
        for (const auto& step : report.steps)
            if (step.status.is<SetupStatus::Pending>())
                std::cout << fmt::format("{:<15} {}: {}\n", step.status.kindName(), label(step.step), step.status.text());
        for (const auto& step : report.steps)
            if (const auto* task = std::get_if<SetupStatus::NeedsDashboard>(&step.status.value)) {
                std::cout << "\nIn the dashboard: " << task->task.message << "\n  " << task->task.url
                          << "\nThen run this command again.\n";
                return dashboardTask;
            }
        for (const auto& step : report.steps)
            if (step.status.is<SetupStatus::Failed>()) return 1;
        for (const auto& step : report.steps)
            if (step.status.is<SetupStatus::ToDo>()) return stepsToDo;
        return 0;
    }

private:
    std::mutex mutex_;
    std::string lastProgress_;
};

// Runs the steps on a task that Ctrl-C cancels.
template <class Work>
SetupReport runSteps(Work work) {
    auto task = Task<SetupReport>::spawn(std::move(work));
    app::Interrupts::Listener interrupts([&task] { task.cancel(); });
    return task.value();
}

// A new passphrase, typed twice; none at all (no terminal, or two that differ) stops the command.
std::optional<std::string> choosePassphrase(const app::PassphraseRequest& request) {
    const auto first = readSecretLine(fmt::format("To {}, type it (it is not shown): ", request.reason));
    if (!first || first->empty()) return std::nullopt;
    const auto second = readSecretLine("Type the passphrase again: ");
    if (second != first) throw VorlenError::config("The two passphrases differ. The token was not kept.");
    return first;
}

std::optional<SiteTemplate> builtInTemplate(const std::string& name) {
    if (name == "auto") return SiteTemplate::automatic;
    if (name == "light") return SiteTemplate::light;
    if (name == "dark") return SiteTemplate::dark;
    return std::nullopt;
}

const std::string exitStatusHelp =
    "Exit status: 0 when every step is done or in place, 1 on a failure, 2 when a check finds steps to do, 3 when "
    "a step needs you in the Cloudflare dashboard (the message and the page's address are printed; run the same "
    "command again afterwards), 130 when stopped with Ctrl-C.";

}  // namespace

void registerSetupCommands(CommandRegistry& registry) {
    struct SetupOptions {
        std::string account;
        std::string bucket;
        std::string mediaHost;
        std::string pageHost;
        std::string path;
        std::optional<std::string> siteTemplate;
        std::optional<std::string> locationHint;
        std::optional<std::string> computerName;
        bool manualTokens = false;
        bool keepsToken = false;
    };
    auto options = std::make_shared<SetupOptions>();
    auto* setup = registry.app.add_subcommand(
        "setup",
        "Set up a site in your Cloudflare account, or repair or upgrade one: the bucket, this computer's R2 API "
        "Token, the CORS rule, the media hostname, the zone's rules, the page Worker and its hostname, and the "
        "site's settings, in twelve steps that each look before they change anything. Running it again goes on "
        "from where the account stands. The Cloudflare Account API Token comes from VORLEN_CLOUDFLARE_TOKEN or the "
        "terminal.");
    setup->add_option("--account", options->account, "the Cloudflare account ID")->required();
    setup->add_option("--bucket", options->bucket, "the R2 bucket (made when it does not exist)")->required();
    setup->add_option("--media-host", options->mediaHost, "the hostname of the videos, in a zone of the account")->required();
    setup->add_option("--page-host", options->pageHost, "the hostname of the player pages, in a zone of the account")->required();
    setup->add_option("--path", options->path, "the folder of the videos in the bucket (by default its top)");
    setup->add_option("--template", options->siteTemplate,
                      "the page design: auto, light, dark, or an HTML template file (see `vorlen template check`)");
    setup->add_option("--location-hint", options->locationHint, "where a new bucket should live: apac, eeur, enam, weur, wnam or oc");
    setup->add_option("--computer-name", options->computerName, "this computer's name, for its R2 API Token (by default the host name)");
    setup->add_flag("--manual-tokens", options->manualTokens,
                    "make this computer's R2 API Token yourself in the dashboard: when the setup asks for it, paste it");
    setup->add_flag("--keep-token", options->keepsToken,
                    "keep the Cloudflare Account API Token on this computer, sealed with a passphrase that you choose "
                    "on the terminal; `vorlen check` and `vorlen invite` then ask for the passphrase instead");
    setup->footer(exitStatusHelp);
    registry.add(setup, [options] {
        AppContext context;
        app::AppModel& model = *context.model;
        if (!std::getenv("VORLEN_CLOUDFLARE_TOKEN"))
            std::cerr << "Make a Cloudflare Account API Token with this form in the dashboard (its name and permissions are "
                         "filled in), then paste it here:\n  "
                      << setupTokenFormURL(model.endpoints().cloudflareDashboard, options->manualTokens) << "\n";
        const APIToken token = setupTokenFromEnvironmentOrTerminal(app::SetupTokenPurpose::setUp);
        app::SetupService& service = model.setupService();

        app::SetupChoice choice;
        choice.accountID = options->account;
        choice.bucket = options->bucket;
        if (options->locationHint) {
            choice.locationHint = r2LocationHintFromRawValue(*options->locationHint);
            if (!choice.locationHint)
                throw VorlenError::config(fmt::format("\u201c{}\u201d is not a location hint: use apac, eeur, enam, weur, wnam or oc.",
                                                      *options->locationHint));
        }
        std::optional<std::string> templateFile;
        if (options->siteTemplate) {
            choice.siteTemplate = builtInTemplate(*options->siteTemplate);
            if (!choice.siteTemplate) templateFile = *options->siteTemplate;
        }
        // A template file is checked before anything is sent, and goes into the bucket once the site is set up.
        if (templateFile) PageTemplate::inspectedFile(*templateFile).requireComplete();
        choice.path = options->path;
        choice.computerName = options->computerName.value_or(app::defaultComputerName());
        choice.mediaHost = service.siteHostname(token, options->account, options->mediaHost);
        choice.pageHost = service.siteHostname(token, options->account, options->pageHost);

        StepPrinter printer;
        while (true) {
            const app::SetupPlan plan = model.planSetup(choice);
            const auto saveToken = model.dailyTokenSaver(plan.site);
            model.setSetupRunning(true);
            const SetupReport report = runSteps([&] {
                return service.run(
                    token, plan.request, [&](const SetupStepReport& step) { printer.report(step); }, saveToken,
                    [&](SetupStep step, const std::string& text) { printer.progress(step, text); });
            });
            model.setSetupRunning(false);
            model.finishSetup(plan, report);
            const auto* stopped = report.stoppedAt();
            const auto* task = stopped ? std::get_if<SetupStatus::NeedsDashboard>(&stopped->status.value) : nullptr;
            if (options->manualTokens && task && std::holds_alternative<DashboardTask::CreateDailyToken>(task->task.kind)) {
                std::cout << "\n" << task->task.message << "\n  " << task->task.url << "\n";
                const auto pasted = readSecretLine("Paste the R2 API Token (it is not shown): ");
                if (!pasted || pasted->empty()) return printer.finish(report);
                choice.pastedToken = APIToken{*pasted};
                continue;
            }
            const int status = printer.finish(report);
            if (status == 0 && templateFile) {
                app::SiteTemplates::open(model.site(plan.site), context.secrets, model.endpoints()).importFile(*templateFile);
                std::cout << fmt::format("The pages use the template {}.\n", *templateFile);
            }
            if (status == 0 && options->keepsToken) {
                model.setupTokens(plan.site, choosePassphrase).save(token.value);
                std::cout << "The Cloudflare Account API Token is kept on this computer, sealed with your passphrase.\n";
            }
            if (status == 0)
                std::cout << fmt::format("\nThe site \u201c{}\u201d is set up: https://{}/\n", plan.site.value,
                                         choice.pageHost.hostname.name);
            return status;
        }
    });

    auto checkSite = std::make_shared<std::optional<std::string>>();
    auto* check = registry.app.add_subcommand(
        "check", "Check a site in its Cloudflare account: the same twelve steps as setup, read-only. The Cloudflare "
        "Account API Token comes from VORLEN_CLOUDFLARE_TOKEN or the terminal.");
    check->add_option("--site", *checkSite, "the site (by default the current one)");
    check->footer(exitStatusHelp);
    registry.add(check, [checkSite] {
        AppContext context;
        app::AppModel& model = *context.model;
        const app::SiteID id = chosenSite(model, *checkSite);
        const APIToken token = setupToken(model, id, app::SetupTokenPurpose::checkSite);
        const app::SetupPlan plan = model.planCheck(id, token, app::defaultComputerName());
        StepPrinter printer;
        model.setSetupRunning(true);
        const SetupReport report = runSteps([&] {
            return model.setupService().check(
                token, plan.request, [&](const SetupStepReport& step) { printer.report(step); },
                [&](SetupStep step, const std::string& text) { printer.progress(step, text); });
        });
        model.setSetupRunning(false);
        return printer.finish(report);
    });
}

}  // namespace vorlen::cli
