#include "shell/VimeoWindow.hpp"

#include <atomic>

#include <QLineEdit>
#include <QTableView>

#include "app/VimeoWords.hpp"
#include "shell/DeskFixture.hpp"
#include "testing/LocalVimeo.hpp"

namespace vorlen::shell {

namespace {

// An account of four videos, one of them imported; its sync imports the first and
// holds the second in its download until the test lets it end.
class AccountOfFour final : public app::VimeoService {
public:
    std::atomic<bool> hasSavedToken = false;
    std::atomic<bool> isReleased = false;

    bool hasToken() override { return hasSavedToken; }
    void saveToken(const std::string&) override { hasSavedToken = true; }
    void forgetToken() override { hasSavedToken = false; }
    std::optional<VimeoStoredList> storedList() override { return std::nullopt; }
    VimeoStoredList readList(const std::function<void(const VimeoReadProgress&)>& onProgress) override {
        onProgress({4, 4});
        using Kind = VimeoPrivacy::Kind;
        return VimeoStoredList{VimeoAccount{"7", "Harbour Films", std::nullopt, "pro"}, *parseIso8601("2026-03-02T09:00:00Z"),
                               {video("11", "Harbour at Dawn", Kind::anybody, 95), video("12", "Lighthouse", Kind::unlisted, 184),
                                video("13", "Family Picnic", Kind::nobody, 1210), video("14", "Ferry Crossing", Kind::anybody, 63)}};
    }
    VimeoSyncPlan plan(const app::BucketAccess&, const VimeoStoredList& list) override {
        return VimeoSyncPlan::make(list.account, list.videos, list.readAt,
                                   {BulkBucketFolder{"ferry-crossing", "vimeo:14", true, AudioLoudness::web}},
                                   AudioLoudness::broadcast);
    }
    std::vector<VimeoLocalFile> scanFiles(const std::vector<std::filesystem::path>&,
                                          const std::function<void(const app::VimeoScanProgress&)>&) override {
        return {};
    }
    VimeoLocalFile localFile(const std::filesystem::path& file) override { return {file, std::nullopt}; }
    VimeoSyncResult sync(const app::VimeoSyncRequest& request,
                         const std::function<void(const VimeoSyncProgress&)>& onProgress) override {
        BatchSnapshot snapshot;
        snapshot.counts = {0, 1, 0, 0, 0, 1};
        snapshot.results[0] = bulkOutcome::Published{{"harbour-at-dawn", "http://localhost/harbour-at-dawn"}};
        BatchActiveItem active;
        active.item = 1;
        active.phase = BatchPhase::downloading;
        active.downloadFraction = 0.4;
        snapshot.activeItems.push_back(active);
        snapshot.eta = 95;
        onProgress(VimeoSyncProgress{&request.items, snapshot, {}});
        while (!isReleased) sleepFor(std::chrono::milliseconds(10));
        snapshot.counts = {0, 1, 0, 0, 1, 0};
        snapshot.results[1] = bulkOutcome::Failed{"The download of the video from Vimeo failed: HTTP 403"};
        return VimeoSyncResult{request.items, snapshot, {{"11", "Vorlen could not import the \u201cfr\u201d subtitles."}}};
    }

private:
    static VimeoVideo video(const std::string& id, const std::string& title, VimeoPrivacy::Kind privacy, double seconds) {
        VimeoVideo made;
        made.id = id;
        made.title = title;
        made.duration = seconds;
        made.created = *parseIso8601("2025-06-01T10:00:00Z") + std::chrono::days(std::stoi(id));
        made.privacy = VimeoPrivacy{privacy, ""};
        made.isReady = true;
        made.file = VimeoFile{"source", std::nullopt, PixelSize{1920, 1080}, std::nullopt};
        return made;
    }
};

// The program's Vimeo is the local one while this lives.
struct LocalVimeoEndpoint {
    explicit LocalVimeoEndpoint(const std::string& api) { ::setenv("VORLEN_VIMEO_API", api.c_str(), 1); }
    ~LocalVimeoEndpoint() { ::unsetenv("VORLEN_VIMEO_API"); }
};

}  // namespace

TEST(VimeoWindowTest, ATokenOpensTheAccountWhoseSelectedVideosAreImportedAndReported) {
    auto account = std::make_shared<AccountOfFour>();
    Desk desk(std::nullopt, [account](app::AppModel::Services& services) {
        services.vimeoService = [account](const app::LocalSite&, std::shared_ptr<RateLimiter>) { return account; };
    });
    ASSERT_TRUE(desk.find<QAbstractButton>("Import from Vimeo"));
    auto* vimeo = desk.window->openVimeoImport(desk.site);
    auto& model = vimeo->model();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.as<app::vimeoPhase::NeedsToken>() != nullptr; }, 30000));
    auto* token = desk.find<QLineEdit>("Personal Access Token", vimeo);
    ASSERT_TRUE(token);
    EXPECT_EQ(token->echoMode(), QLineEdit::Password);
    QTest::keyClicks(token, "a1b2c3d4e5");
    screenshot(vimeo, "51-vimeo-token");
    expectAccessibleNames(vimeo);

    desk.click("Read the Account", vimeo);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.as<app::VimeoPlanState>() != nullptr; }, 30000));
    EXPECT_TRUE(shownLabelText(vimeo, "Account").startsWith("Harbour Films"));
    auto* rows = vimeo->videos()->model();
    ASSERT_EQ(rows->rowCount(), 4);
    auto cell = [&](int row, int column, int role = Qt::DisplayRole) { return rows->index(row, column).data(role); };
    // The family video limits its viewers on Vimeo: it is not selected, and says why.
    EXPECT_EQ(cell(2, 4).toString(), "Only me");
    EXPECT_EQ(cell(2, 4, Qt::ToolTipRole).toString(), VimeoSyncPlan::limitedViewersNotice);
    EXPECT_EQ(cell(2, 0, Qt::CheckStateRole).toInt(), Qt::Unchecked);
    EXPECT_EQ(cell(3, 6).toString(), "Imported as \u201cferry-crossing\u201d \u00b7 different audio loudness");
    EXPECT_EQ(shownLabelText(vimeo, "Selected"), "2 videos selected");

    QTest::keyClicks(desk.find<QLineEdit>("Search", vimeo), "zebra");
    EXPECT_EQ(shownLabelText(vimeo, "Empty"), app::VimeoWords::noMatchingVideos);
    desk.find<QLineEdit>("Search", vimeo)->clear();
    ASSERT_EQ(rows->rowCount(), 4);
    // Only the harbour and the lighthouse go: the person deselects the lighthouse.
    rows->setData(rows->index(1, 0), Qt::Unchecked, Qt::CheckStateRole);
    EXPECT_EQ(shownLabelText(vimeo, "Selected"), "1 video selected");
    rows->setData(rows->index(1, 0), Qt::Checked, Qt::CheckStateRole);
    // The table came back after the search: its layout settles before the picture.
    QCoreApplication::sendPostedEvents();
    screenshot(vimeo, "52-vimeo-plan");
    expectAccessibleNames(vimeo);

    desk.click("Start", vimeo);
    ASSERT_TRUE(QTest::qWaitFor([&] {
        const auto* running = model.as<app::VimeoRunState>();
        return running && running->progress;
    }, 30000));
    const auto workspace = desk.model->workspace(desk.site);
    EXPECT_EQ(workspace->batchRunHere(), BatchRunKind::vimeoSync);
    EXPECT_EQ(shownLabelText(vimeo, "Estimate"), QString("About 1:35 left. ") + app::VimeoWords::timeLeftNote);
    auto* items = vimeo->items()->model();
    ASSERT_EQ(items->rowCount(), 2);
    EXPECT_EQ(items->index(1, 2).data().toString(), "Downloads  \u00b7  40%");
    screenshot(vimeo, "53-vimeo-running");

    account->isReleased = true;
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isRunning(); }, 30000));
    EXPECT_FALSE(workspace->batchRunHere());
    EXPECT_EQ(shownLabelText(vimeo, "Title"), app::VimeoWords::completedTitle);
    EXPECT_EQ(shownLabelText(vimeo, "Counts"), "Imported: 1, re-imported: 0, skipped: 0, failed: 1, left: 0");
    EXPECT_EQ(shownLabelText(vimeo, "Report"), "\u201cHarbour at Dawn\u201d: Vorlen could not import the \u201cfr\u201d subtitles.");
    EXPECT_EQ(items->index(1, 2).data().toString(), "Failed: The download of the video from Vimeo failed: HTTP 403");
    screenshot(vimeo, "54-vimeo-ended");

    desk.click("Back to the Videos", vimeo);
    EXPECT_TRUE(QTest::qWaitFor([&] { return model.as<app::VimeoPlanState>() != nullptr; }, 30000));
}

TEST(VimeoWindowTest, AFolderOfDownloadedFilesStandsInForTheDownloadsThatTheTokenCannotGet) {
    const auto& vimeo = testing::LocalVimeo::shared();
    LocalVimeoEndpoint endpoint(vimeo.api());
    Desk desk;
    testing::ClipFolder clips;
    makeClip(clips, "Harbour at Dawn.mp4");
    auto* window = desk.window->openVimeoImport(desk.site);
    auto& model = window->model();
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.as<app::vimeoPhase::NeedsToken>() != nullptr; }, 30000));

    // Without the "Video Files" scope Vimeo offers no file: nothing can be selected.
    model.saveToken(testing::LocalVimeo::publicPrivateToken);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.as<app::vimeoPhase::Opening>() && !model.as<app::vimeoPhase::Reading>() &&
                                             !model.as<app::vimeoPhase::Planning>(); }, 60000));
    ASSERT_TRUE(model.as<app::VimeoPlanState>()) << shownLabelText(window, "Message").toStdString();
    EXPECT_EQ(model.as<app::VimeoPlanState>()->selectedCount(), 0);
    model.setFilter(app::VimeoPlanFilter::withFiles);
    EXPECT_EQ(shownLabelText(window, "Empty"), "No Videos with Files");

    model.chooseFolder(clips.path());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.as<app::VimeoPlanState>()->scan; }, 60000));
    const auto* plan = model.as<app::VimeoPlanState>();
    EXPECT_FALSE(plan->fileProblem);
    const auto shown = plan->shownEntries();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0]->id, "900000001");
    EXPECT_EQ(shown[0]->localFile, clips.path() / "Harbour at Dawn.mp4");
    EXPECT_TRUE(shown[0]->isSelected);
    EXPECT_EQ(plan->selectedCount(), 1);
    QCoreApplication::sendPostedEvents();
    screenshot(window, "55-vimeo-local-files");

    desk.click("Start", window);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.isRunning(); }, 180000));
    const auto* ended = model.as<app::VimeoEndState>();
    ASSERT_TRUE(ended) << shownLabelText(window, "Message").toStdString();
    EXPECT_EQ(ended->counts.published, 1);
    ASSERT_EQ(ended->results.size(), 1u);
    const auto* published = std::get_if<bulkOutcome::Published>(&ended->results.begin()->second);
    ASSERT_TRUE(published) << shownLabelText(window, "Counts").toStdString();
    const auto folder = published->location.folder;
    EXPECT_TRUE(fs::exists(desk.object(folder + "/master.m3u8")));

    // The site now has the video: the account opens again with it imported.
    desk.click("Back to the Videos", window);
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.as<app::VimeoPlanState>() != nullptr; }, 60000));
    model.setFilter(app::VimeoPlanFilter::imported);
    const auto imported = model.as<app::VimeoPlanState>()->shownEntries();
    ASSERT_EQ(imported.size(), 1u);
    EXPECT_EQ(imported[0]->folder, folder);
}

}  // namespace vorlen::shell
