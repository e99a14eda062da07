#include "shell/SettingsWindow.hpp"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QSpinBox>
#include <QTabWidget>

#include "app/SiteStorage.hpp"
#include "core/base/Json.hpp"
#include "shell/DeskFixture.hpp"
#include "shell/SiteDialog.hpp"
#include "shell/StartView.hpp"

namespace vorlen::shell {

TEST(SettingsWindowTest, UploadTuningSitesAndThePicker) {
    Desk desk;
    EXPECT_FALSE(desk.find<QComboBox>("Site"));  // one site needs no picker

    QTest::keyClick(desk.window.get(), Qt::Key_Comma, Qt::ControlModifier);
    SettingsWindow* settings = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (settings = named<SettingsWindow>(desk.window.get(), "settings")) && settings->isVisible(); }));
    screenshot(settings, "11-settings-uploads");
    expectAccessibleNames(settings);

    // The keyboard changes the tuning, and the settings file has it at once.
    auto* parallel = desk.find<QComboBox>("Parallel uploads", settings);
    ASSERT_TRUE(parallel);
    EXPECT_EQ(parallel->currentText(), "4");
    parallel->setFocus();
    QTest::keyClick(parallel, Qt::Key_Down);
    EXPECT_EQ(desk.model->settings().uploadTuning.parallelUploads, app::ParallelUploads::eight);
    auto* part = desk.find<QComboBox>("Part size", settings);
    part->setFocus();
    QTest::keyClick(part, Qt::Key_Up);
    EXPECT_EQ(desk.model->settings().uploadTuning.partSize, app::UploadPartSize::mib8);
    auto* limit = desk.find<QSpinBox>("Upload limit", settings);
    EXPECT_EQ(limit->text(), "Unlimited");
    limit->setValue(20);
    EXPECT_EQ(desk.model->settings().site(desk.site)->uploadLimit, app::UploadLimit::megabits(20));
    auto saved = app::LocalSettingsStore(desk.home / "config" / "vorlen" / "settings.json").load();
    EXPECT_EQ(saved.uploadTuning.parallelUploads, app::ParallelUploads::eight);

    // A second site, added through its dialog, brings the site picker.
    settings->tabs()->setCurrentIndex(1);
    desk.click("Add Local Site\u2026", settings);
    SiteDialog* dialog = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (dialog = named<SiteDialog>(settings, "siteDialog")) && dialog->isVisible(); }));
    expectAccessibleNames(dialog);
    QTest::keyClicks(dialog->field("Site name"), "Drafts");
    QTest::keyClicks(dialog->field("Folder"), QString::fromStdString((desk.home / "drafts").string()));
    screenshot(dialog, "12-add-local-site");
    QTest::keyClick(dialog->field("Folder"), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !named<SiteDialog>(settings, "siteDialog"); }));
    ASSERT_EQ(desk.model->settings().sites.size(), 2u);
    EXPECT_EQ(settings->siteList()->count(), 2);
    screenshot(settings, "13-settings-sites");
    expectAccessibleNames(settings);

    // The same folder twice is refused in the model's words, and the dialog stays.
    desk.click("Add Local Site\u2026", settings);
    ASSERT_TRUE(QTest::qWaitFor([&] { return (dialog = named<SiteDialog>(settings, "siteDialog")) && dialog->isVisible(); }));
    QTest::keyClicks(dialog->field("Site name"), "Again");
    QTest::keyClicks(dialog->field("Folder"), QString::fromStdString((desk.home / "drafts").string()));
    QTest::keyClick(dialog->field("Folder"), Qt::Key_Return);
    EXPECT_TRUE(dialog->isVisible());
    auto labels = dialog->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
        return label->isVisible() && label->text().startsWith("This computer already has the site");
    }));
    QTest::keyClick(dialog, Qt::Key_Escape);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !named<SiteDialog>(settings, "siteDialog"); }));

    QTest::keyClick(settings, Qt::Key_Escape);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !named<SettingsWindow>(desk.window.get(), "settings"); }));
    auto* picker = desk.find<QComboBox>("Site");
    ASSERT_TRUE(picker);
    EXPECT_EQ(picker->count(), 2);
    picker->setFocus();
    QTest::keyClick(picker, Qt::Key_Down);
    EXPECT_EQ(desk.window->workspace()->id().value, "drafts");
    EXPECT_EQ(desk.model->currentSite()->value, "drafts");
    EXPECT_TRUE(named<StartView>(desk.window.get(), "start")->isVisible());
    screenshot(desk.window.get(), "14-start-with-site-picker");
    expectAccessibleNames(desk.window.get());

    // Removing the site on show asks first, then the window falls back to the other site.
    settings = desk.window->openSettings();
    settings->tabs()->setCurrentIndex(1);
    settings->siteList()->setCurrentRow(1);
    desk.click("Remove", settings);
    QMessageBox* ask = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (ask = settings->findChild<QMessageBox*>()) && ask->isVisible(); }));
    desk.click("Remove", ask);
    ASSERT_TRUE(QTest::qWaitFor([&] { return desk.model->settings().sites.size() == 1; }));
    EXPECT_EQ(desk.window->workspace()->id(), desk.site);
    EXPECT_FALSE(desk.find<QComboBox>("Site"));
}

TEST(SettingsWindowTest, AnR2SiteFromItsDialogKeepsItsTokenInTheSecretStore) {
    Desk desk;
    auto* settings = desk.window->openSettings();
    settings->tabs()->setCurrentIndex(1);
    // These tests keep their secrets in the private file, and the sites page says so.
    auto* notice = named<QLabel>(settings, "secretStoreNotice");
    ASSERT_TRUE(notice);
    EXPECT_EQ(notice->text(), "Secrets are kept in a private file, since this desktop has no Secret Service.");
    desk.click("Add R2 Site\u2026", settings);
    SiteDialog* dialog = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (dialog = named<SiteDialog>(settings, "siteDialog")) && dialog->isVisible(); }));
    expectAccessibleNames(dialog);
    for (auto [field, value] : {std::pair{"Cloudflare account ID", "0123456789abcdef0123456789abcdef"}, {"R2 bucket", "films"},
                                {"Media hostname", "media.example.com"}, {"Page hostname", "Watch.Example.com"},
                                {"R2 API Token ID", "token-id"}, {"R2 API Token value", "the-token-value"}})
        QTest::keyClicks(dialog->field(field), value);
    EXPECT_EQ(dialog->field("R2 API Token value")->echoMode(), QLineEdit::Password);
    screenshot(dialog, "15-add-r2-site");
    QTest::keyClick(dialog->field("R2 bucket"), Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !named<SiteDialog>(settings, "siteDialog"); }));

    ASSERT_EQ(desk.model->settings().sites.size(), 2u);
    const auto& site = desk.model->settings().sites.back();
    EXPECT_EQ(site.settings.pageHost.name, "watch.example.com");
    EXPECT_FALSE(site.settings.isLocal());
    auto stored = app::FileSecretStore(desk.home / "secrets.json").read(app::SiteStorage(site.id).credentialsItem);
    ASSERT_TRUE(stored);
    EXPECT_EQ(app::R2Credentials::fromJson(decodeJson(*stored)), app::R2Credentials::fromToken("token-id", "the-token-value"));
    // The token's value is in no file but the secret store.
    EXPECT_EQ(readFile(desk.home / "config" / "vorlen" / "settings.json").find("the-token-value"), std::string::npos);
}

}  // namespace vorlen::shell
