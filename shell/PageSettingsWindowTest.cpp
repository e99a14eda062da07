#include "shell/PageSettingsWindow.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QInputDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QTabWidget>
#include <QTableView>

#include "app/PlayerWords.hpp"
#include "app/ViewerWords.hpp"
#include "core/net/HttpClient.hpp"
#include "core/site/SiteViewers.hpp"
#include "core/site/StylesheetReader.hpp"
#include "shell/DeskFixture.hpp"
#include "shell/PlayerOptionsView.hpp"
#include "shell/ViewersView.hpp"

namespace vorlen::shell {

namespace {

void pressButton(QMessageBox* box, const QString& words) {
    for (auto* button : box->buttons())
        if (button->text() == words) return QTest::mouseClick(button, Qt::LeftButton);
    ADD_FAILURE() << "no button " << words.toStdString();
}

// The site's own page settings, with a font service's stylesheet read from here
// rather than from the service.
class FontServiceStylesheets final : public app::PageSettingsService {
public:
    explicit FontServiceStylesheets(std::shared_ptr<app::PageSettingsService> site) : site_(std::move(site)) {}

    PlayerSettings::Stored player() override { return site_->player(); }
    void savePlayer(const PlayerSettings& settings, const std::optional<std::string>& readETag) override {
        site_->savePlayer(settings, readETag);
    }
    app::SitePageFonts::Current fonts() override { return site_->fonts(); }
    HostedFont addFontFiles(const std::vector<std::filesystem::path>& files) override { return site_->addFontFiles(files); }
    HostedFont addGoogleFamily(const std::string& family) override { return site_->addGoogleFamily(family); }
    SiteStylesheet readStylesheet(const std::string& pasted) override {
        return StylesheetReader::parse(StylesheetReader::addressOf(pasted),
                                       "@import url(https://fonts.example.net/base.css);\n"
                                       "@font-face { font-family: 'Lora'; src: url(https://files.example.net/lora.woff2); }");
    }
    void linkStylesheet(const SiteStylesheet& stylesheet) override { site_->linkStylesheet(stylesheet); }
    void removeFonts() override { site_->removeFonts(); }
    void servePreview(const PlayerSettings& settings, const std::function<void(const std::string&)>& onServing) override {
        site_->servePreview(settings, onServing);
    }

private:
    std::shared_ptr<app::PageSettingsService> site_;
};

struct PageSettingsDesk : Desk {
    PageSettingsWindow* pages = nullptr;
    FolderBucket bucket{siteFolder};

    PageSettingsDesk()
        : Desk(std::nullopt, [](app::AppModel::Services& services) {
              services.pageSettingsService = [site = services.pageSettingsService](const app::LocalSite& local,
                                                                                   const app::LocalSettings& settings) {
                  return std::make_shared<FontServiceStylesheets>(site(local, settings));
              };
          }) {
        pages = window->openPageSettings(site);
        EXPECT_TRUE(pages);
        EXPECT_TRUE(QTest::qWaitForWindowExposed(pages));
        settle();
    }
    // Until neither the page settings nor the viewers read or change the bucket.
    void settle() {
        const auto workspace = model->workspace(site);
        EXPECT_TRUE(QTest::qWaitFor(
            [&] {
                return workspace->pageSettings()->isLoaded() && !workspace->pageSettings()->isWorking() &&
                       workspace->viewers()->isLoaded() && !workspace->viewers()->isWorking();
            },
            30000));
    }
    void showTab(const QString& name) {
        for (int index = 0; index < pages->tabs()->count(); ++index)
            if (pages->tabs()->tabText(index) == name) pages->tabs()->setCurrentIndex(index);
    }
    PlayerSettings storedPlayer() { return PlayerSettings::read(bucket).settings; }
};

}  // namespace

TEST(PageSettingsWindowTest, PlayerOptionsAreEditedWithTheirRulesSavedOverTheVersionReadAndReset) {
    PageSettingsDesk desk;
    ASSERT_TRUE(desk.find<QAbstractButton>("Page Settings"));
    screenshot(desk.window.get(), "60-main-window-page-settings");
    auto* pages = desk.pages;
    auto* bar = pages->player()->controls(app::PlayerControlList::controlBar);
    ASSERT_GT(bar->count(), 11);
    EXPECT_EQ(bar->item(0)->text(), "Play and pause");
    EXPECT_EQ(bar->item(1)->text(), "Previous video");
    EXPECT_FALSE(bar->item(1)->toolTip().isEmpty()) << "marked as of no use";
    EXPECT_FALSE(desk.find<QAbstractButton>("Save", pages)->isEnabled());
    expectAccessibleNames(pages);

    desk.click("Autoplay", pages);
    EXPECT_TRUE(desk.find<QCheckBox>("Muted", pages)->isChecked());
    EXPECT_EQ(shownLabelText(pages, "Notice").toStdString(), app::PlayerWords::mutedWithAutoplay);
    screenshot(pages, "61-page-settings-player");
    bar->item(1)->setCheckState(Qt::Unchecked);

    desk.click("Save", pages);
    desk.settle();
    EXPECT_EQ(shownLabelText(pages, "Notice").toStdString(), app::PlayerWords::saved);
    auto stored = desk.storedPlayer();
    EXPECT_TRUE(stored.autoplay && stored.muted);
    ASSERT_TRUE(stored.ui.controlPanelElements);
    EXPECT_EQ(stored.ui.controlPanelElements->at(1), "skip_next");

    // Another computer saves meanwhile: this one's change is not saved over theirs.
    desk.click("Loop", pages);
    auto theirs = desk.storedPlayer();
    theirs.ui.fadeDelay = 5;
    theirs.write(desk.bucket, PlayerSettings::read(desk.bucket).etag);
    desk.click("Save", pages);
    desk.settle();
    EXPECT_EQ(shownLabelText(pages, "Problem").toStdString(), app::PlayerWords::changedElsewhere);
    EXPECT_EQ(desk.storedPlayer(), theirs);
    EXPECT_FALSE(desk.find<QCheckBox>("Loop", pages)->isChecked()) << "their options are on show";

    desk.click("Reset", pages);
    auto* question = dialogOver<QMessageBox>(pages);
    ASSERT_TRUE(question);
    EXPECT_TRUE(question->text().contains(QString::fromStdString(app::PlayerWords::resetTitle)));
    screenshot(question, "62-page-settings-reset");
    pressButton(question, "Reset");
    EXPECT_FALSE(desk.find<QCheckBox>("Autoplay", pages)->isChecked());
    desk.click("Save", pages);
    desk.settle();
    EXPECT_EQ(desk.storedPlayer(), PlayerSettings{});
}

TEST(PageSettingsWindowTest, AHostedFontAndAStylesheetShowWhatThePagesLoad) {
    PageSettingsDesk desk;
    auto* pages = desk.pages;
    desk.showTab("Fonts");
    EXPECT_EQ(shownLabelText(pages, "Hosted font").toStdString(), "The pages use their own fonts.");
    const std::filesystem::path dejaVu = "/usr/share/fonts/truetype/dejavu";
    desk.model->workspace(desk.site)->pageSettings()->addFontFiles({dejaVu / "DejaVuSerif.ttf", dejaVu / "DejaVuSerif-Bold.ttf"});
    desk.settle();
    EXPECT_TRUE(shownLabelText(pages, "Hosted font").startsWith("\u201cDejaVu Serif\u201d in _fonts/"));
    EXPECT_EQ(shownLabelText(pages, "Font uses"), "Text: \u201cDejaVu Serif\u201d \u00b7 Headings: \u201cDejaVu Serif\u201d");
    expectAccessibleNames(pages);
    screenshot(pages, "63-page-settings-fonts");

    desk.showTab("Stylesheet");
    QTest::keyClicks(desk.find<QLineEdit>("Stylesheet", pages), "<link rel=\"stylesheet\" href=\"http://fonts.example.com/css\">");
    desk.click("Read", pages);
    desk.settle();
    EXPECT_EQ(shownLabelText(pages, "Problem"),
              "\u201chttp://fonts.example.com/css\u201d is not the address of a stylesheet. Use an address that starts with "
              "https://.");
    EXPECT_FALSE(desk.find<QAbstractButton>("Link", pages)->isEnabled());

    desk.find<QLineEdit>("Stylesheet", pages)->setText("<link rel='stylesheet' href='https://fonts.example.net/css2?family=Lora'>");
    desk.click("Read", pages);
    desk.settle();
    EXPECT_EQ(shownLabelText(pages, "Stylesheet read"),
              "https://fonts.example.net/css2?family=Lora\nLoads from https://fonts.example.net and "
              "https://files.example.net.\nDeclares \u201cLora\u201d.");
    EXPECT_TRUE(SiteSettings::readRequired(desk.bucket).stylesheets.empty()) << "shown before it is linked";
    screenshot(pages, "64-page-settings-stylesheet-read");
    desk.click("Link", pages);
    desk.settle();
    ASSERT_EQ(SiteSettings::readRequired(desk.bucket).stylesheets.size(), 1u);
    EXPECT_TRUE(shownLabelText(pages, "Linked stylesheets").startsWith("https://fonts.example.net/css2?family=Lora"));

    desk.click("Remove Stylesheets", pages);
    auto* question = dialogOver<QMessageBox>(pages);
    ASSERT_TRUE(question);
    pressButton(question, "Remove");
    desk.settle();
    EXPECT_EQ(shownLabelText(pages, "Linked stylesheets"), "None.");
    desk.showTab("Fonts");
    EXPECT_EQ(shownLabelText(pages, "Hosted font").toStdString(), "The pages use their own fonts.");
    EXPECT_TRUE(desk.bucket.listKeys("_fonts/").empty());
    EXPECT_TRUE(SiteSettings::readRequired(desk.bucket).stylesheets.empty());
}

TEST(PageSettingsWindowTest, AViewersLinkIsShownOnceAndARenameAfterTheirPasskeyTellsSo) {
    PageSettingsDesk desk;
    auto* pages = desk.pages;
    desk.showTab("Viewers");
    EXPECT_EQ(shownLabelText(pages, "Empty").toStdString(), app::ViewerWords::noViewers);
    desk.click("Add Viewer", pages);
    auto* name = dialogOver<QInputDialog>(pages);
    ASSERT_TRUE(name);
    name->setTextValue("Anna Lind");
    name->accept();
    desk.settle();
    auto* link = desk.find<QLineEdit>("Invite link", pages);
    ASSERT_TRUE(link);
    EXPECT_TRUE(link->isReadOnly());
    EXPECT_TRUE(link->text().contains("/_invite/"));
    desk.click("Copy Link", pages);
    EXPECT_EQ(QApplication::clipboard()->text(), link->text());
    auto* table = pages->viewers()->table();
    ASSERT_EQ(table->model()->rowCount(), 1);
    EXPECT_TRUE(table->model()->index(0, 1).data().toString().startsWith("Invite expires "));
    expectAccessibleNames(pages);
    // The screenshot keeps no secret: the link shows without the one of the invite.
    link->setText(link->text().left(link->text().lastIndexOf('.') + 1) + "\u2026");
    screenshot(pages, "65-page-settings-viewer-added");
    desk.click("Done", pages);
    EXPECT_FALSE(desk.find<QLineEdit>("Invite link", pages));

    // The person makes their passkey after the list was read.
    const auto keys = desk.bucket.listKeys("_vorlen/viewers/");
    ASSERT_EQ(keys.size(), 1u);
    auto viewer = Viewer::decoded(*desk.bucket.object(keys.front()));
    viewer.access = ViewerPasskey{"credential", "public key", {"internal"}, *parseIso8601("2026-03-01T08:00:00Z")};
    desk.bucket.put(keys.front(), RequestBody::bytes(viewer.encoded()), {"application/json", "no-cache", {}});
    table->selectRow(0);
    desk.click("Rename", pages);
    name = dialogOver<QInputDialog>(pages);
    ASSERT_TRUE(name);
    name->setTextValue("Anna K.");
    name->accept();
    desk.settle();
    EXPECT_EQ(shownLabelText(pages, "Problem").toStdString(), SiteViewers::changedAfterRead);
    EXPECT_EQ(table->model()->index(0, 0).data().toString(), "Anna Lind");
    EXPECT_TRUE(table->model()->index(0, 1).data().toString().startsWith("Passkey since "));
    screenshot(pages, "66-page-settings-viewer-changed");

    table->selectRow(0);
    desk.click("Remove", pages);
    auto* question = dialogOver<QMessageBox>(pages);
    ASSERT_TRUE(question);
    EXPECT_TRUE(question->text().contains("Remove \u201cAnna Lind\u201d?"));
    pressButton(question, "Remove");
    desk.settle();
    EXPECT_EQ(table->model()->rowCount(), 0);
    EXPECT_TRUE(desk.bucket.listKeys("_vorlen/viewers/").empty());
}

TEST(PageSettingsWindowTest, ThePreviewServesACopyOfALocalVideoWithTheOptionsAsEdited) {
    PageSettingsDesk desk;
    publish(desk.bucket, 1, "poster");
    auto* pages = desk.pages;
    QString opened;
    pages->player()->openPage = [&](const QString& page) { opened = page; };
    desk.click("Loop", pages);
    desk.click("Preview", pages);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !opened.isEmpty() || !shownLabelText(pages, "Problem").startsWith("(no"); }, 90000))
        << shownLabelText(pages, "Problem").toStdString();
    ASSERT_TRUE(opened.endsWith("/clip-01")) << opened.toStdString();
    HttpClient client;
    HttpRequest request;
    request.url = opened.toStdString();
    const auto page = client.send(request);
    EXPECT_EQ(page.status, 200);
    const auto video = page.body.find("<video");
    ASSERT_NE(video, std::string::npos);
    const auto tag = page.body.substr(video, page.body.find('>', video) - video);
    EXPECT_NE(tag.find(" loop"), std::string::npos) << "the options as edited, not as saved: " << tag;
    EXPECT_FALSE(desk.storedPlayer().loop);
    pages->close();
}


}  // namespace vorlen::shell
