#include "shell/SetupWindow.hpp"

#include <QComboBox>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QTabWidget>
#include <QTimer>

#include "shell/DeskFixture.hpp"
#include "shell/SettingsWindow.hpp"
#include "testing/LocalCloudflareAccount.hpp"

namespace vorlen::shell {

namespace {

using testing::LocalCloudflareAccount;

// The local account, its API and R2 in the environment from which the window's services read them.
LocalCloudflareAccount& localAccount() {
    auto& account = LocalCloudflareAccount::shared();
    account.reset();
    ::setenv("VORLEN_CLOUDFLARE_API", account.api().c_str(), 1);
    ::setenv("VORLEN_R2_STORAGE", account.r2().c_str(), 1);
    ::setenv("VORLEN_CLOUDFLARE_DASHBOARD", "https://dash.dovrin.test", 1);
    return account;
}

SetupWindow* setupWindowOf(QWidget* parent) {
    SetupWindow* window = nullptr;
    EXPECT_TRUE(QTest::qWaitFor([&] { return (window = named<SetupWindow>(parent, "setupWindow")) && window->isVisible(); }));
    return window;
}

// The setup's waits (a hostname's activation is looked at every 5 seconds) take a while.
bool waitForStage(SetupWindow* window, const std::function<bool(const app::SetupModel&)>& ready) {
    return QTest::qWaitFor([&] { return ready(window->setupModel()); }, 180000);
}

std::string problemOf(const app::SetupModel& model) {
    if (const auto* entry = model.as<app::TokenEntry>()) return entry->problem.value_or("");
    if (const auto* choice = model.as<app::SiteChoice>()) return choice->problem.value_or("");
    return "";
}

bool runHasEnded(const app::SetupModel& model) {
    const auto* run = model.as<app::SetupRun>();
    return run && !run->isRunning;
}

// Pastes the token, continues, and fills a new bucket and its hostnames once the account is read.
void chooseNewSite(Desk& desk, SetupWindow* setup, const APIToken& token, const QString& bucket, const QString& media,
                   const QString& page) {
    QTest::keyClicks(setup->field("Cloudflare Account API Token"), QString::fromStdString(token.value));
    desk.click("Continue", setup);
    ASSERT_TRUE(waitForStage(setup, [](const app::SetupModel& model) {
        const auto* choice = model.as<app::SiteChoice>();
        return choice && choice->offered && !choice->isBusy;
    })) << problemOf(setup->setupModel());
    QTest::keyClicks(setup->field("New bucket name"), bucket);
    QTest::keyClicks(setup->field("Media hostname"), media);
    QTest::keyClicks(setup->field("Page hostname"), page);
    QTest::keyClicks(setup->field("Folder in the bucket"), "library");
}

}  // namespace

TEST(SetupWindowAccountTest, ASiteIsSetUpFromTheTokenToThePickerAndChecksAsInPlace) {
    auto& account = localAccount();
    Desk desk;
    auto* settings = desk.window->openSettings();
    settings->tabs()->setCurrentIndex(1);
    desk.click("Set Up a Site\u2026", settings);
    SetupWindow* setup = setupWindowOf(settings);
    ASSERT_TRUE(setup);
    expectAccessibleNames(setup);
    EXPECT_EQ(setup->field("Cloudflare Account API Token")->echoMode(), QLineEdit::Password);
    // The form leaves out the token-making row when the person makes the R2 API Tokens.
    EXPECT_EQ(desk.find<QAbstractButton>("Open the Token Form", setup)->toolTip().toStdString(),
              setupTokenFormURL("https://dash.dovrin.test", false));
    desk.click("Manually manage R2 API Tokens", setup);
    EXPECT_FALSE(named<QLabel>(setup, "tokenPermissions")->text().contains("Account API Tokens"));
    desk.click("Manually manage R2 API Tokens", setup);
    EXPECT_TRUE(named<QLabel>(setup, "tokenPermissions")->text().contains("Account API Tokens"));
    screenshot(setup, "21-setup-token");

    chooseNewSite(desk, setup, account.setupToken(), "reels", "media.dovrin.test", "watch.dovrin.test");
    EXPECT_EQ(setup->choiceBox("Cloudflare account")->currentData().toString().toStdString(), account.accountID());
    expectAccessibleNames(setup);
    screenshot(setup, "22-setup-choice");
    desk.click("Set Up", setup);

    // While the steps run, a quit asks first.
    ASSERT_TRUE(waitForStage(setup, [](const app::SetupModel& model) { return model.isRunning(); }));
    EXPECT_TRUE(desk.model->isSetupRunning());
    ASSERT_TRUE(waitForStage(setup, [](const app::SetupModel& model) {
        const auto* run = model.as<app::SetupRun>();
        return !run || !run->isRunning || run->rows[4].progress;
    }));
    screenshot(setup, "23-setup-running");
    ASSERT_TRUE(waitForStage(setup, runHasEnded));
    EXPECT_FALSE(desk.model->isSetupRunning());
    const auto* run = setup->setupModel().as<app::SetupRun>();
    ASSERT_TRUE(run);
    EXPECT_TRUE(run->isComplete()) << setup->rowTexts().join("\n").toStdString();
    EXPECT_EQ(setup->rowTexts().at(11), "Wrote _vorlen/site.json.");
    screenshot(setup, "24-setup-done");
    desk.click("Done", setup);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !named<SetupWindow>(settings, "setupWindow"); }));

    // The window shows the new site, and the picker has both.
    EXPECT_EQ(desk.window->workspace()->id().value, "reels");
    EXPECT_EQ(settings->siteList()->count(), 2);
    QTest::keyClick(settings, Qt::Key_Escape);
    auto* picker = desk.find<QComboBox>("Site");
    ASSERT_TRUE(picker);
    EXPECT_EQ(picker->currentText(), "reels");
    const auto* site = desk.model->settings().site(app::SiteID{"reels"});
    ASSERT_TRUE(site);
    EXPECT_EQ(site->settings.pageHost.name, "watch.dovrin.test");
    EXPECT_EQ(site->settings.folderPath, "library");
    EXPECT_EQ(readFile(desk.home / "config" / "vorlen" / "settings.json").find(account.setupToken().value), std::string::npos);

    // The check asks for the token, since none is kept, and finds every step in place.
    settings = desk.window->openSettings();
    settings->tabs()->setCurrentIndex(1);
    settings->siteList()->setCurrentRow(1);
    QTimer answer;
    QObject::connect(&answer, &QTimer::timeout, [&] {
        if (auto* ask = settings->findChild<QInputDialog*>(); ask && ask->isVisible()) {
            EXPECT_EQ(ask->textEchoMode(), QLineEdit::Password);
            ask->setTextValue(QString::fromStdString(account.setupToken().value));
            ask->accept();
        }
    });
    answer.start(50);
    desk.click("Check the site in its Cloudflare account", settings);
    answer.stop();
    SetupWindow* check = setupWindowOf(settings);
    ASSERT_TRUE(check);
    ASSERT_TRUE(waitForStage(check, runHasEnded));
    const auto* checked = check->setupModel().as<app::SetupRun>();
    EXPECT_TRUE(checked->isCheck);
    EXPECT_TRUE(checked->isComplete()) << check->rowTexts().join("\n").toStdString();
    EXPECT_EQ(check->rowTexts().at(1), "The bucket \u201creels\u201d exists.");
    screenshot(check, "25-check-done");
    expectAccessibleNames(check);
}

TEST(SetupWindowAccountTest, R2OffStopsTheRunWithItsDashboardTaskAndClosingStopsARun) {
    auto& account = localAccount();
    Desk desk;
    SetupWindow* setup = desk.window->openSetup();
    chooseNewSite(desk, setup, account.setupToken(), "clips", "cdn.media-dovrin.test", "clips.dovrin.test");
    account.setR2Enabled(false);
    desk.click("Set Up", setup);
    ASSERT_TRUE(waitForStage(setup, runHasEnded));
    const auto* run = setup->setupModel().as<app::SetupRun>();
    ASSERT_TRUE(run && run->dashboardTask());
    EXPECT_TRUE(std::holds_alternative<DashboardTask::EnableR2>(run->dashboardTask()->kind));
    EXPECT_EQ(desk.find<QAbstractButton>("Open in the Browser", setup)->toolTip().toStdString(), run->dashboardTask()->url);
    EXPECT_EQ(setup->rowTexts().at(1), "Not checked.");
    EXPECT_TRUE(desk.find<QAbstractButton>("Run Again", setup));
    expectAccessibleNames(setup);
    screenshot(setup, "26-setup-dashboard-task");

    // The person turns R2 on and runs again; closing the window stops that run.
    account.setR2Enabled(true);
    desk.click("Run Again", setup);
    EXPECT_TRUE(desk.model->isSetupRunning());
    QPointer<SetupWindow> closing(setup);
    setup->close();
    ASSERT_TRUE(QTest::qWaitFor([&] { return closing.isNull(); }));
    EXPECT_FALSE(desk.model->isSetupRunning());
}

}  // namespace vorlen::shell
