#include "shell/BulkWindow.hpp"

#include <QComboBox>
#include <QTableView>

#include "app/BulkWords.hpp"
#include "shell/DeskFixture.hpp"

namespace vorlen::shell {

TEST(BulkWindowTest, ASpreadsheetIsMappedThenItsRowsArePublishedAndReported) {
    Desk desk;
    testing::ClipFolder clips;
    makeClip(clips);
    const auto sheet = clips.path() / "films.csv";
    writeFileAtomically(sheet, "Path,Title,Reference\nharbour.mp4,Harbour at Dawn,H-1\nmissing.mp4,Missing Film,H-2\n");

    auto* bulk = desk.window->openBulkUpload(desk.site, sheet);
    auto& model = bulk->model();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.as<app::bulkPhase::Opening>(); }, 30000));
    ASSERT_TRUE(model.as<app::BulkMappingState>());
    // No column is named File: the person picks the one with the paths.
    EXPECT_EQ(shownLabelText(bulk, "Plan"), app::BulkWords::needsFile);
    EXPECT_FALSE(desk.find<QAbstractButton>("Start", bulk)->isEnabled());
    auto* file = desk.find<QComboBox>("File", bulk);
    ASSERT_TRUE(file);
    file->showPopup();
    QTest::keyClick(file->view(), Qt::Key_Down);
    QTest::keyClick(file->view(), Qt::Key_Return);
    EXPECT_EQ(file->currentText(), "Path");
    EXPECT_EQ(shownLabelText(bulk, "Plan"), "2 rows: 0 done earlier, 2 to publish.");
    EXPECT_EQ(desk.find<QComboBox>("Reference", bulk)->currentText(), "Reference");
    EXPECT_EQ(shownLabelText(bulk, "Results"),
              "No row is done yet. Vorlen writes the result of each row to \u201cfilms (published).csv\u201d.");
    screenshot(bulk, "41-bulk-mapping");
    expectAccessibleNames(bulk);

    desk.click("Start", bulk);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        const auto* running = model.as<app::BulkRunState>();
        return !running || (running->progress && !running->progress->activeItems.empty());
    }, 60000));
    // The run holds the site: no publish starts beside it.
    const auto workspace = desk.model->workspace(desk.site);
    if (model.isRunning()) {
        screenshot(bulk, "42-bulk-running");
        EXPECT_EQ(workspace->batchRunHere(), BatchRunKind::bulkUpload);
        EXPECT_FALSE(workspace->drop({clips.path() / "harbour.mp4"}));
    }

    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isRunning(); }, 120000));
    EXPECT_FALSE(workspace->batchRunHere());
    const auto* ended = model.as<app::BulkEndState>();
    ASSERT_TRUE(ended) << shownLabelText(bulk, "Message").toStdString();
    EXPECT_EQ(ended->ending, app::BulkEndState::Ending::completed);
    EXPECT_EQ(shownLabelText(bulk, "Title"), app::BulkWords::completedTitle);
    EXPECT_EQ(shownLabelText(bulk, "Counts"), "Published: 1, re-imported: 0, skipped: 0, failed: 1, left: 0");
    EXPECT_TRUE(shownLabelText(bulk, "Report").startsWith("Results: " + QString::fromStdString(ended->output.string())));
    auto* rows = bulk->rows()->model();
    ASSERT_EQ(rows->rowCount(), 2);
    auto cell = [&](int row, int column) { return rows->index(row, column).data().toString(); };
    EXPECT_EQ(cell(0, 1), "Harbour at Dawn");
    EXPECT_EQ(cell(0, 3), "Published");
    EXPECT_TRUE(cell(1, 3).startsWith("Failed: There is no file at")) << cell(1, 3).toStdString();
    EXPECT_TRUE(fs::exists(desk.object("harbour-at-dawn/master.m3u8")));
    screenshot(bulk, "43-bulk-ended");

    // The results file remembers the published row: opening the sheet again has one row done.
    bulk->open(sheet);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.as<app::BulkMappingState>() != nullptr; }, 30000));
    model.choose(app::BulkColumnRole::file, BulkSheetColumn{0, "Path"});
    EXPECT_EQ(shownLabelText(bulk, "Plan"), "2 rows: 1 done earlier, 1 to publish.");
    EXPECT_TRUE(desk.find<QAbstractButton>("Re-import Done Rows", bulk)->isEnabled());
}

}  // namespace vorlen::shell
