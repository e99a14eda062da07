#include "shell/VideoEditWindow.hpp"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QTableView>

#include "shell/DeskFixture.hpp"
#include "shell/LibraryWindow.hpp"

namespace vorlen::shell {

TEST(VideoEditWindowTest, SavesTheDetailsAndHoldsOffOtherChangesOfItsVideoUntilItDeletesIt) {
    Desk desk;
    testing::ClipFolder clips;
    const auto posterJpeg = readFile(clips.make("poster.jpg", testing::lavfiVideo(640, 360, 1) + " -frames:v 1"));
    FolderBucket bucket(desk.siteFolder);
    for (int number = 1; number <= 2; ++number) publish(bucket, number, posterJpeg);
    auto* library = desk.window->openLibrary(desk.site);
    auto& model = desk.window->workspace()->library();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.listing() && model.listing()->isCurrent; }, 30000));

    auto* editor = library->openEditor("clip-01");
    // One window for a video: opening it again brings the same one forward.
    EXPECT_EQ(library->openEditor("clip-01"), editor);
    auto* title = desk.find<QLineEdit>("Title", editor);
    ASSERT_TRUE(title);
    EXPECT_EQ(title->text(), "Lighthouse 01");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !desk.find<QLabel>("Poster", editor)->pixmap().isNull(); }, 30000));
    screenshot(editor, "32-edit");
    expectAccessibleNames(editor);

    title->setText("Lighthouse at Dawn");
    desk.click("Save the details", editor);
    ASSERT_TRUE(QTest::qWaitFor([&] { return readFile(desk.object("clip-01/video.json")).find("Lighthouse at Dawn") != std::string::npos; }, 30000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return editor->windowTitle() == "Lighthouse at Dawn \u2014 Edit" && title->isEnabled(); }, 30000));

    // The list cannot delete the video while its edit window is open.
    library->list()->selectRow(1);
    ASSERT_EQ(library->list()->model()->index(1, 1).data().toString(), "Lighthouse at Dawn");
    desk.click("Delete the selected videos", library);
    auto* ask = dialogOver<QMessageBox>(library);
    ASSERT_TRUE(ask);
    desk.click("Delete", ask);
    auto* refused = dialogOver<QMessageBox>(library);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->windowTitle(), "Not Every Video Was Deleted");
    EXPECT_TRUE(refused->informativeText().contains("Vorlen could not delete this video:<br>\n\u201cLighthouse at Dawn\u201d: "))
        << refused->informativeText().toStdString();
    refused->close();
    EXPECT_TRUE(fs::exists(desk.object("clip-01/video.json")));

    // A new visibility is a new link, said before anything moves; the window follows the video there.
    QTest::keyClick(desk.find<QComboBox>("Visibility", editor), Qt::Key_Down);
    auto* askMove = dialogOver<QMessageBox>(editor);
    ASSERT_TRUE(askMove);
    EXPECT_TRUE(askMove->informativeText().contains("gets a new link")) << askMove->informativeText().toStdString();
    desk.click("Make Unlisted", askMove);
    ASSERT_TRUE(QTest::qWaitFor([&] { return editor->folder() != "clip-01"; }, 30000));
    EXPECT_FALSE(fs::exists(desk.object("clip-01")));
    EXPECT_NE(readFile(desk.object(editor->folder() + "/video.json")).find("\"unlisted\""), std::string::npos);
    EXPECT_TRUE(desk.find<QLabel>("Page address", editor)->text().endsWith(QString::fromStdString(editor->folder())));

    // The edit window can delete it: it names the video, and it closes when the video is gone.
    const auto folder = editor->folder();
    QPointer<VideoEditWindow> open(editor);
    desk.click("Delete the video", editor);
    ask = dialogOver<QMessageBox>(editor);
    ASSERT_TRUE(ask);
    EXPECT_EQ(ask->windowTitle(), "Delete \u201cLighthouse at Dawn\u201d?");
    EXPECT_TRUE(ask->informativeText().contains("This cannot be undone.")) << ask->informativeText().toStdString();
    desk.click("Delete", ask);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !open; }, 30000));
    EXPECT_FALSE(fs::exists(desk.object(folder)));
    EXPECT_EQ(library->list()->model()->rowCount(), 1);
}

}  // namespace vorlen::shell
