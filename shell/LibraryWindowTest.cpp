#include "shell/LibraryWindow.hpp"

#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QComboBox>
#include <QDialog>
#include <QTableView>

#include "app/SiteStorage.hpp"
#include "shell/DeskFixture.hpp"

namespace vorlen::shell {

namespace {

enum Column { poster, title, duration, visibility, date };

QString labelText(QWidget* window, const QString& name) {
    for (auto* label : window->findChildren<QLabel*>())
        if (label->accessibleName() == name) return label->text();
    return "(no label " + name + ")";
}

// Two videos in the site, without media: clip-01 and clip-02.
void publishTwo(const Desk& desk) {
    testing::ClipFolder clips;
    const auto posterJpeg = readFile(clips.make("poster.jpg", testing::lavfiVideo(640, 360, 1) + " -frames:v 1"));
    FolderBucket bucket(desk.siteFolder);
    for (int number = 1; number <= 2; ++number) publish(bucket, number, posterJpeg);
}

}  // namespace

TEST(LibraryWindowTest, TheLastListAtOnceThenTheCurrentOneWithThePostersOfTheRowsOnScreen) {
    Desk desk;
    testing::ClipFolder clips;
    const auto posterJpeg = readFile(clips.make("poster.jpg", testing::lavfiVideo(640, 360, 1) + " -frames:v 1"));
    FolderBucket bucket(desk.siteFolder);
    for (int number = 1; number <= 48; ++number) publish(bucket, number, posterJpeg);
    bucket.put("broken/video.json", RequestBody::bytes("{\"version\": 1,"), {});
    bucket.put("broken/master.m3u8", RequestBody::bytes("#EXTM3U\n"), {});
    bucket.put("no-record/master.m3u8", RequestBody::bytes("#EXTM3U\n"), {});
    // This computer read the library once; four videos came since.
    auto workspace = desk.window->workspace();
    workspace->services().library.library->read(workspace->access(), [](const LibraryReadProgress&) {});
    for (int number = 49; number <= 52; ++number) publish(bucket, number, posterJpeg);

    auto* library = desk.window->openLibrary(desk.site);
    auto* rows = library->list()->model();
    // Before the bucket answers, the list of the last reading.
    EXPECT_EQ(rows->rowCount(), 50);
    EXPECT_EQ(labelText(library, "Count"), "50 videos");
    EXPECT_TRUE(labelText(library, "Status").startsWith("Showing the list from the last reading while it is brought up to date."))
        << labelText(library, "Status").toStdString();

    ASSERT_TRUE(QTest::qWaitFor([&] { return !workspace->library().isRefreshing(); }, 30000));
    EXPECT_EQ(labelText(library, "Status"), "");
    ASSERT_EQ(rows->rowCount(), 54);
    EXPECT_EQ(labelText(library, "Count"), "54 videos");
    auto cell = [&](int row, int column) { return rows->index(row, column).data().toString(); };
    // Newest first; the folders without a date go last.
    EXPECT_EQ(cell(0, title), "Harbour 52");
    EXPECT_EQ(cell(0, duration), "1:52");
    EXPECT_EQ(cell(0, visibility), "Public");
    EXPECT_EQ(cell(0, date), "8 Mar 2026");
    EXPECT_EQ(cell(1, visibility), "Unlisted");
    // An unreadable record says why and nothing else; a folder without one goes by its name.
    EXPECT_TRUE(cell(52, title).contains("video.json")) << cell(52, title).toStdString();
    EXPECT_EQ(cell(52, visibility), "");
    EXPECT_EQ(cell(53, title), "no-record");

    // The rows on screen get their posters, and only they: 54 rows do not start 54 fetches.
    auto* view = library->list();
    const qint64 placeholder = rows->index(52, poster).data(Qt::DecorationRole).value<QPixmap>().cacheKey();
    auto hasPoster = [&](int row) { return rows->index(row, poster).data(Qt::DecorationRole).value<QPixmap>().cacheKey() != placeholder; };
    const int lastShown = view->rowAt(view->viewport()->height() - 1);
    ASSERT_GT(lastShown, 2);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        for (int row = 0; row <= lastShown; ++row)
            if (!hasPoster(row)) return false;
        return true;
    }, 60000));
    const auto thumbnails = app::SiteStorage(desk.site).cacheFolder / "poster-thumbnails";
    const auto made = std::distance(fs::directory_iterator(thumbnails), fs::directory_iterator());
    // The rows on screen under the last list and under the current one, four more.
    EXPECT_LE(made, lastShown + 1 + 4);
    screenshot(library, "31-library");
    expectAccessibleNames(library);

    QTest::keyClicks(desk.find<QLineEdit>("Search", library), "lighthouse");
    EXPECT_EQ(labelText(library, "Count"), "13 of 54 videos");
    desk.find<QComboBox>("Order", library)->setCurrentText("Title");
    EXPECT_EQ(cell(0, title), "Lighthouse 01");
    desk.find<QLineEdit>("Search", library)->clear();
    desk.find<QComboBox>("Order", library)->setCurrentText("Newest First");
    EXPECT_EQ(labelText(library, "Count"), "54 videos");

    // Rows that come on screen get theirs.
    view->scrollToBottom();
    EXPECT_FALSE(hasPoster(50));
    EXPECT_TRUE(QTest::qWaitFor([&] { return hasPoster(50); }, 60000));
}

TEST(LibraryWindowTest, MakeUnlistedOfTheSelectedRowsMovesEachToANewLink) {
    Desk desk;
    publishTwo(desk);
    auto* library = desk.window->openLibrary(desk.site);
    auto& model = desk.window->workspace()->library();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.listing() && model.listing()->isCurrent; }, 30000));

    library->list()->selectAll();
    desk.click("Make the selected videos unlisted", library);
    QMessageBox* ask = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (ask = library->findChild<QMessageBox*>()) && ask->isVisible(); }));
    EXPECT_EQ(ask->windowTitle(), "Make 2 Videos Unlisted?");
    desk.click("Make Unlisted", ask);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        if (model.bulkChange() || model.isRefreshing()) return false;
        const auto& entries = model.listing()->entries;
        return std::all_of(entries.begin(), entries.end(), [](const auto& entry) { return entry.visibility == VideoVisibility::unlisted; });
    }, 30000));
    EXPECT_EQ(model.listing()->entries.size(), 2u);
    EXPECT_FALSE(fs::exists(desk.object("clip-01")));
    EXPECT_FALSE(fs::exists(desk.object("clip-02")));
}

TEST(LibraryWindowTest, ReimportAudioAsksWhereFromAndHowLoudThenTellsWhatWasRefused) {
    Desk desk;
    publishTwo(desk);
    auto* library = desk.window->openLibrary(desk.site);
    auto& model = desk.window->workspace()->library();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.listing() && model.listing()->isCurrent; }, 30000));
    auto openDialog = [&] {
        desk.click("Re-import the audio of the selected videos", library);
        QDialog* dialog = nullptr;
        EXPECT_TRUE(QTest::qWaitFor([&] { return (dialog = library->findChild<QDialog*>()) && dialog->isVisible(); }));
        return dialog;
    };

    // One video may take a file's audio; until one is chosen, the file cannot be the source.
    library->list()->selectRow(0);
    auto* dialog = openDialog();
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->windowTitle().toStdString(), "Re-import the Audio of \u201cMarket 02\u201d?");
    desk.click("The audio of a file:", dialog);
    EXPECT_FALSE(desk.find<QAbstractButton>("Re-import Audio", dialog)->isEnabled());
    screenshot(dialog, "33-reimport-audio");
    desk.click("Cancel", dialog);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !library->findChild<QDialog*>(); }));

    // Several take their own published audio; these have none, and the report says so.
    library->list()->selectAll();
    dialog = openDialog();
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->windowTitle().toStdString(), "Re-import the Audio of 2 Videos?");
    EXPECT_FALSE(desk.find<QAbstractButton>("The audio of a file:", dialog));
    EXPECT_TRUE(desk.find<QComboBox>("Audio loudness", dialog)->currentText().endsWith("(the site\u2019s default)"));
    expectAccessibleNames(dialog);
    desk.click("Re-import Audio", dialog);
    QMessageBox* told = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (told = library->findChild<QMessageBox*>()) && told->isVisible(); }, 30000));
    EXPECT_TRUE(told->text().contains("Not Every Video Was Changed")) << told->text().toStdString();
    EXPECT_TRUE(told->informativeText().contains("The video in the site has no audio, so Vorlen cannot re-import its audio."))
        << told->informativeText().toStdString();
}

TEST(LibraryWindowTest, TheLibraryWindowsOpenAtAQuitOpenAgainAtTheNextStart) {
    Desk desk;
    desk.click("Library");
    auto* library = named<LibraryWindow>(desk.window.get(), "library");
    ASSERT_TRUE(library && library->isVisible());
    EXPECT_EQ(library->windowTitle(), "films \u2014 Library");
    EXPECT_EQ(desk.model->openLibraries(), std::vector<app::SiteID>{desk.site});
    // One window for a site: opening it again brings the same one forward.
    EXPECT_EQ(desk.window->openLibrary(desk.site), library);

    // The person closes it: it does not come back.
    library->close();
    EXPECT_TRUE(desk.model->openLibraries().empty());

    library = desk.window->openLibrary(desk.site);
    desk.window->close();
    EXPECT_TRUE(desk.model->isQuitting());
    EXPECT_FALSE(library->isVisible());
    EXPECT_EQ(desk.model->openLibraries(), std::vector<app::SiteID>{desk.site});
    // A site that is gone is not opened.
    desk.model->changeSettings([](app::LocalSettings& settings) { settings.lastOpenLibraries.push_back(app::SiteID{"gone"}); });

    desk.restart();
    library = named<LibraryWindow>(desk.window.get(), "library");
    ASSERT_TRUE(library);
    EXPECT_TRUE(library->isVisible());
}

}  // namespace vorlen::shell
