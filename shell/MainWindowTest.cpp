#include "shell/MainWindow.hpp"

#include <fstream>

#include <QClipboard>
#include <QDropEvent>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QSlider>
#include <QToolButton>
#include <QUrl>

#include "core/batch/BatchRunRecord.hpp"
#include "shell/DeskFixture.hpp"
#include "shell/DropZone.hpp"
#include "shell/StartView.hpp"

namespace vorlen::shell {

namespace {

// Drops the files on a widget as a file manager would: enter, then drop.
void dropOn(QWidget* target, const std::vector<fs::path>& files) {
    QMimeData mime;
    QList<QUrl> urls;
    for (const auto& file : files) urls << QUrl::fromLocalFile(QString::fromStdString(file.string()));
    mime.setUrls(urls);
    QPoint centre = target->rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(centre), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &drop);
}

fs::path writeSubtitle(const fs::path& folder) {
    fs::path file = folder / "harbour.en.srt";
    std::ofstream(file) << "1\n00:00:00,500 --> 00:00:02,000\nThe boats come in.\n\n"
                           "2\n00:00:02,000 --> 00:00:02,900\nGulls.\n";
    return file;
}

bool isResolved(const app::Screen& screen) {
    auto* confirm = screen.as<app::ConfirmState>();
    return confirm && std::holds_alternative<app::ConfirmState::Resolved>(confirm->nameStatus);
}

// Drops the clip on the start screen and waits for the name check of the confirm screen.
void dropAndWaitForConfirm(Desk& desk, const fs::path& clip, std::vector<fs::path> more = {}) {
    auto* zone = named<DropZone>(desk.window.get(), "dropZone");
    ASSERT_NE(zone, nullptr);
    more.insert(more.begin(), clip);
    dropOn(zone, more);
    ASSERT_TRUE(desk.screen().as<app::Screen::Inspecting>() || desk.screen().as<app::ConfirmState>());
    ASSERT_TRUE(desk.waitFor<app::ConfirmState>());
    ASSERT_TRUE(QTest::qWaitFor([&] { return isResolved(desk.screen()); }, 20000));
}

}  // namespace

TEST(MainWindowTest, TheWholeRoadFromADropToTheLinks) {
    Desk desk;
    vorlen::testing::ClipFolder clips;
    auto clip = makeClip(clips);
    auto subtitle = writeSubtitle(clips.path());

    screenshot(desk.window.get(), "01-start");
    expectAccessibleNames(desk.window.get());
    // Enter on the drop zone opens the file chooser, and Escape dismisses it.
    auto* zone = named<DropZone>(desk.window.get(), "dropZone");
    EXPECT_TRUE(zone->hasFocus());
    QTest::keyClick(zone, Qt::Key_Return);
    QFileDialog* chooser = nullptr;

    ASSERT_TRUE(QTest::qWaitFor([&] { return (chooser = desk.window->findChild<QFileDialog*>()) && chooser->isVisible(); }));
    EXPECT_TRUE(QTest::qWaitForWindowActive(chooser));
    QTest::keyClick(chooser, Qt::Key_Escape);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !desk.window->findChild<QFileDialog*>(); }));
    EXPECT_TRUE(QTest::qWaitForWindowActive(desk.window.get()));

    dropOn(zone, {clip, subtitle});
    ASSERT_TRUE(desk.screen().as<app::Screen::Inspecting>());
    screenshot(desk.window.get(), "02-inspecting");
    ASSERT_TRUE(desk.waitFor<app::ConfirmState>()) << desk.describe();
    ASSERT_TRUE(QTest::qWaitFor([&] { return isResolved(desk.screen()); }, 20000));
    auto* title = desk.find<QLineEdit>("Title");
    auto* name = desk.find<QLineEdit>("Folder name");
    ASSERT_TRUE(title && name);
    EXPECT_TRUE(title->hasFocus());
    title->selectAll();
    QTest::keyClicks(title, "Harbour at Dawn");
    QTest::keyClick(title, Qt::Key_Tab);
    EXPECT_TRUE(name->hasFocus());
    name->selectAll();
    QTest::keyClicks(name, "Harbour");
    // A capital letter is no name: the check says so at once, and Publish waits for a valid one.
    auto* status = desk.find<QLabel>("Name check");
    EXPECT_TRUE(std::holds_alternative<app::ConfirmState::Invalid>(desk.screen().as<app::ConfirmState>()->nameStatus));
    EXPECT_TRUE(status->text().contains("is not a valid name"));
    EXPECT_FALSE(desk.find<QAbstractButton>("Publish")->isEnabled());
    name->selectAll();
    QTest::keyClicks(name, "harbour-dawn");
    ASSERT_TRUE(QTest::qWaitFor([&] { return isResolved(desk.screen()); }, 20000));
    const auto& confirm = *desk.screen().as<app::ConfirmState>();
    EXPECT_EQ(confirm.title, "Harbour at Dawn");
    EXPECT_EQ(confirm.name, "harbour-dawn");
    ASSERT_EQ(confirm.subtitleFiles.files.size(), 1u);
    EXPECT_TRUE(status->text().contains("is free"));
    screenshot(desk.window.get(), "03-confirm");
    expectAccessibleNames(desk.window.get());

    QTest::keyClick(name, Qt::Key_Return);
    ASSERT_TRUE(desk.screen().as<app::PublishingState>());
    ASSERT_TRUE(QTest::qWaitFor([&] {
        auto* job = desk.screen().as<app::PublishingState>();
        return !job || (job->progress && job->progress->stageFraction > 0.2);
    }, 60000));
    if (desk.screen().as<app::PublishingState>()) {
        screenshot(desk.window.get(), "04-publishing");
        expectAccessibleNames(desk.window.get());
    }

    auto* review = desk.waitFor<app::PosterReviewState>(120);
    ASSERT_TRUE(review) << desk.describe();
    EXPECT_TRUE(review->isCountingDown);
    auto* countdown = desk.find<QLabel>("Countdown");
    EXPECT_TRUE(countdown->text().startsWith("Vorlen uses this poster in ")) << countdown->text().toStdString();
    screenshot(desk.window.get(), "05-poster-countdown");
    desk.click("Stop the countdown, so that you have time to choose");
    review = desk.screen().as<app::PosterReviewState>();
    ASSERT_TRUE(review);
    EXPECT_FALSE(review->isCountingDown);
    EXPECT_TRUE(review->request.reply->isHeld());
    EXPECT_FALSE(desk.find<QAbstractButton>("Stop the countdown, so that you have time to choose"));

    // The twelve frames arrive one by one; the eighth becomes the poster.
    std::vector<QToolButton*> thumbnails;
    for (auto* button : desk.window->findChildren<QToolButton*>())
        if (button->isVisible() && button->isCheckable()) thumbnails.push_back(button);
    ASSERT_EQ(thumbnails.size(), 12u);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return std::all_of(thumbnails.begin(), thumbnails.end(), [](auto* b) { return b->toolTip().startsWith("Use"); }); },
        60000));
    double eighth = review->request.frames->sampleTimes().at(7);
    QTest::mouseClick(thumbnails[7], Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        auto* state = desk.screen().as<app::PosterReviewState>();
        return state && std::holds_alternative<app::PosterReviewState::Idle>(state->imageStatus) && state->poster &&
               state->poster->time == eighth;
    }, 30000));
    EXPECT_TRUE(thumbnails[7]->isChecked());
    screenshot(desk.window.get(), "06-poster-picked");
    expectAccessibleNames(desk.window.get());

    // The slider moves by keys; only where it comes to rest is read.
    auto* slider = desk.find<QSlider>("Position of the poster frame");
    ASSERT_TRUE(slider);
    slider->setFocus();
    for (int step = 0; step < 5; ++step) QTest::keyClick(slider, Qt::Key_Left);
    double rest = slider->value() / 10.0;
    ASSERT_TRUE(QTest::qWaitFor([&] {
        auto* state = desk.screen().as<app::PosterReviewState>();
        return state && state->poster && state->poster->time && std::abs(*state->poster->time - rest) < 1e-9;
    }, 30000));

    desk.click("Confirm");
    auto* published = desk.waitFor<app::PublishedState>(120);
    ASSERT_TRUE(published) << (desk.screen().as<app::Failure>() ? desk.screen().as<app::Failure>()->message : "");
    EXPECT_TRUE(QString::fromStdString(published->links.page).endsWith("/harbour-dawn")) << published->links.page;
    EXPECT_TRUE(fs::exists(desk.object("harbour-dawn/master.m3u8")));
    EXPECT_TRUE(fs::exists(desk.object("harbour-dawn/manifest.mpd")));
    auto* page = desk.find<QLineEdit>("Page address");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->text().toStdString(), published->links.page);
    EXPECT_EQ(desk.find<QLineEdit>("DASH address")->text().toStdString(), published->links.dash);
    desk.click("Copy the page address");
    EXPECT_EQ(QApplication::clipboard()->text().toStdString(), published->links.page);
    screenshot(desk.window.get(), "07-published");
    expectAccessibleNames(desk.window.get());

    // Escape dismisses the result and the drop zone takes the keyboard again.
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
    EXPECT_TRUE(desk.screen().as<app::Screen::Start>());
    EXPECT_TRUE(zone->hasFocus());
}

TEST(MainWindowTest, AFailedUploadShowsItsLogAndRetriesWithoutEncodingAgain) {
    Desk desk;
    vorlen::testing::ClipFolder clips;
    auto cover = clips.make("cover.png", "-f lavfi -i color=c=orange:s=800x450 -frames:v 1");
    dropAndWaitForConfirm(desk, makeClip(clips));
    desk.click("Publish");
    ASSERT_TRUE(desk.waitFor<app::PosterReviewState>(120)) << desk.describe();

    // An image file from the chooser becomes the poster; the countdown stops while the person looks for one.
    desk.click("Choose an Image File\u2026");
    EXPECT_FALSE(desk.screen().as<app::PosterReviewState>()->isCountingDown);
    QFileDialog* chooser = nullptr;
    ASSERT_TRUE(QTest::qWaitFor([&] { return (chooser = desk.window->findChild<QFileDialog*>()) && chooser->isVisible(); }));
    auto* fileName = chooser->findChild<QLineEdit*>("fileNameEdit");
    ASSERT_TRUE(fileName);
    fileName->setText(QString::fromStdString(cover.string()));
    QTest::keyClick(fileName, Qt::Key_Return);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        auto* review = desk.screen().as<app::PosterReviewState>();
        return review && review->poster && !review->poster->time;
    }, 30000)) << desk.describe() << " dialog " << (desk.window->findChild<QFileDialog*>() != nullptr);
    EXPECT_TRUE(desk.find<QLabel>("Poster status")->text().startsWith("An image file"));

    // The site's folder becomes a file: every write of the upload fails.
    fs::path away = desk.siteFolder;
    away += ".away";
    fs::rename(desk.siteFolder, away);
    std::ofstream(desk.siteFolder) << "not a folder";
    desk.click("Confirm");
    auto* failure = desk.waitFor<app::Failure>(120);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->title, "Publishing Failed");
    ASSERT_TRUE(failure->retry);
    EXPECT_TRUE(failure->retry->built);
    EXPECT_TRUE(desk.find<QLabel>("Message")->text().toStdString() == failure->message);
    ASSERT_FALSE(failure->uploadLog.empty());
    EXPECT_TRUE(desk.find<QAbstractButton>("Retry")->hasFocus());
    desk.click("Copy the upload log");
    EXPECT_TRUE(QApplication::clipboard()->text().contains("upload started"));
    screenshot(desk.window.get(), "08-failed");
    expectAccessibleNames(desk.window.get());

    fs::remove(desk.siteFolder);
    fs::rename(away, desk.siteFolder);
    QTest::keyClick(desk.find<QAbstractButton>("Retry"), Qt::Key_Return);
    auto* job = desk.screen().as<app::PublishingState>();
    ASSERT_TRUE(job);
    EXPECT_TRUE(job->built);
    auto* published = desk.waitFor<app::PublishedState>(120);
    ASSERT_TRUE(published) << (desk.screen().as<app::Failure>() ? desk.screen().as<app::Failure>()->message : "");
    EXPECT_TRUE(fs::exists(desk.object(published->video.hlsKey)));
}

TEST(MainWindowTest, AQuitDuringTheUploadWaitsForItsCleanUp) {
    // One megabit a second keeps the upload running long enough to quit in the middle of it.
    Desk desk(app::UploadLimit::megabits(1));
    vorlen::testing::ClipFolder clips;
    dropAndWaitForConfirm(desk, makeClip(clips));
    desk.click("Publish");
    ASSERT_TRUE(desk.waitFor<app::PosterReviewState>(120)) << desk.describe();
    std::string folder = desk.screen().as<app::PosterReviewState>()->job.folder->name;
    desk.click("Confirm");
    ASSERT_TRUE(QTest::qWaitFor([&] {
        auto* job = desk.screen().as<app::PublishingState>();
        return !job || (job->progress && job->progress->stage == app::JobStage::uploading && job->progress->uploadedBytes > 0);
    }, 60000));
    ASSERT_TRUE(desk.screen().as<app::PublishingState>());
    EXPECT_TRUE(fs::exists(desk.object(folder)));

    desk.window->close();
    EXPECT_TRUE(desk.model->isQuitting());
    EXPECT_TRUE(desk.window->isVisible());
    EXPECT_TRUE(desk.screen().as<app::PublishingState>()->isStopping);
    screenshot(desk.window.get(), "09-stopping-to-quit");
    ASSERT_TRUE(QTest::qWaitFor([&] { return !desk.window->isVisible(); }, 60000));
    EXPECT_FALSE(desk.model->isJobRunning());
    EXPECT_FALSE(fs::exists(desk.object(folder)));
}

TEST(MainWindowTest, RefusedDropsAndAFileThatIsNoVideo) {
    Desk desk;
    testing::ClipFolder clips;
    auto* zone = named<DropZone>(desk.window.get(), "dropZone");

    // Subtitles alone have no video to go with: nothing changes, and the window says why.
    dropOn(zone, {writeSubtitle(clips.path())});
    EXPECT_TRUE(desk.screen().as<app::Screen::Start>());
    auto labels = desk.window->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
        return label->isVisible() && label->text() == "Drop subtitle files together with their video.";
    }));

    fs::path notAVideo = clips.path() / "notes.mp4";
    std::ofstream(notAVideo) << "these are notes, not a video";
    dropOn(zone, {notAVideo});
    auto* failure = desk.waitFor<app::Failure>(30);
    ASSERT_TRUE(failure) << desk.describe();
    EXPECT_EQ(failure->title, "Cannot Read the Video");
    EXPECT_EQ(desk.find<QLabel>("Message")->text().toStdString(), failure->message);
    EXPECT_FALSE(desk.find<QAbstractButton>("Retry"));
    EXPECT_FALSE(desk.find<QAbstractButton>("Copy the upload log"));
    EXPECT_TRUE(desk.find<QAbstractButton>("Done")->hasFocus());
    screenshot(desk.window.get(), "10-cannot-read");
    expectAccessibleNames(desk.window.get());
    QTest::keyClick(desk.find<QAbstractButton>("Done"), Qt::Key_Return);
    EXPECT_TRUE(desk.screen().as<app::Screen::Start>());
}

TEST(MainWindowTest, AnotherComputersBatchRunShowsAsABannerAndARunHereRefusesDrops) {
    Desk desk;
    FolderBucket bucket(desk.siteFolder);
    const BatchRunRecord record{"7d0c1c52-4c8a-4b8e-9a43-0d9f6e1f2b11", BatchRunKind::bulkUpload, "Studio iMac",
                                std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now())};
    bucket.put(BatchRunRecord::key, RequestBody::bytes(record.encoded()), {});
    // The window asks the bucket as it opens the site, then every half minute.
    desk.restart();
    auto* banner = named<QLabel>(desk.window.get(), "batchRunNotice");
    ASSERT_NE(banner, nullptr);
    ASSERT_TRUE(QTest::qWaitFor([&] { return banner->isVisible(); }, 20000));
    EXPECT_EQ(banner->text().toStdString(),
              "\u201cStudio iMac\u201d is running a bulk upload on this site. You can start when that upload ends. If "
              "that computer stopped, you can start after about 5 minutes.");
    screenshot(desk.window.get(), "11-batch-run-elsewhere");

    // A run of this window's own is never shown as another's, and no video starts beside it.
    desk.window->workspace()->beginBatchRun(BatchRunKind::bulkUpload);
    EXPECT_FALSE(banner->isVisible());
    dropOn(named<DropZone>(desk.window.get(), "dropZone"), {"/videos/harbour.mp4"});
    EXPECT_TRUE(desk.screen().as<app::Screen::Start>());
    auto labels = desk.window->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
        return label->isVisible() &&
               label->text() == "A bulk upload is running. Publish the video when the bulk upload ends or stops.";
    }));
    QApplication::processEvents();  // the header's layout makes room for the words
    screenshot(desk.window.get(), "12-batch-run-here");
    desk.window->workspace()->endBatchRun();
}

}  // namespace vorlen::shell
