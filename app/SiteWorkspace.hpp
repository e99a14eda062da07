#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/BulkService.hpp"
#include "app/BatchRunService.hpp"
#include "app/BatchRunWatch.hpp"
#include "app/BulkUploadModel.hpp"
#include "app/VimeoService.hpp"
#include "app/VimeoSyncModel.hpp"
#include "app/CatalogModel.hpp"
#include "app/CredentialStore.hpp"
#include "app/LibraryModel.hpp"
#include "app/LibraryService.hpp"
#include "app/LocalSettings.hpp"
#include "app/MainQueue.hpp"
#include "app/PageSettingsModel.hpp"
#include "app/PosterReviewModel.hpp"
#include "app/PublishService.hpp"
#include "app/Screen.hpp"
#include "app/ViewersModel.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// The words of the settings' failures.
namespace SettingsError {
inline constexpr const char* notSetUp = "Set up Vorlen on this computer first.";
inline constexpr const char* missingToken =
    "Vorlen cannot find the R2 API Token of this site in the secret store. Set up the site again.";
inline constexpr const char* busy = "Wait until the current video is published, then try again.";
}  // namespace SettingsError

struct WorkspaceTiming {
    // Typing does not query the bucket on every key.
    std::chrono::nanoseconds nameCheckDelay = std::chrono::milliseconds(400);
    std::chrono::nanoseconds posterReviewTimeLimit = std::chrono::seconds(20);
    // A catalogue rebuild reads the whole library: at most one start in this time.
    std::chrono::nanoseconds catalogInterval = CatalogModel::defaultInterval;
    // How often the window asks whether another computer runs a batch run on the site.
    std::chrono::nanoseconds batchRunWatchInterval = BatchRunWatch::defaultInterval;
};

// One site on this computer and the publish flow of its window: a state machine
// of screens, driven on the main thread. Slow work runs in tasks and comes back
// through the main queue; a result for a screen that has moved on is dropped.
class SiteWorkspace : public PosterReviewActions, public std::enable_shared_from_this<SiteWorkspace> {
public:
    // How a workspace reaches the application.
    struct Host {
        std::function<LocalSettings()> macSettings;
        std::function<void(double)> recordUploadRate;
        std::function<void(const LocalSite&)> save;
        std::function<void(const VimeoSelection&)> saveVimeoSelection;
    };
    struct Services {
        std::shared_ptr<PublishService> publish;
        std::shared_ptr<CredentialStore> credentials;  // absent for a local site
        LibraryServices library;
        std::shared_ptr<BulkService> bulk;  // absent where bulk uploads are not offered
        // Whether a batch run holds the site: the watch needs it; without it a publish asks nothing.
        std::shared_ptr<BatchRunService> batchRuns;
        std::shared_ptr<VimeoService> vimeo;  // absent where Vimeo imports are not offered
        // Made when the page settings or the viewers are first opened; absent where they are not offered.
        std::function<std::shared_ptr<PageSettingsService>()> pageSettings{};
        std::function<std::shared_ptr<ViewerService>()> viewers{};
    };

    static std::shared_ptr<SiteWorkspace> make(LocalSite local, Services services, Host host, MainQueue& mainQueue,
                                               WorkspaceTiming timing = WorkspaceTiming());
    ~SiteWorkspace() override;

    const SiteID& id() const { return local_.id; }
    const LocalSite& local() const { return local_; }
    const Screen& screen() const { return screen_; }
    // Views learn of every change of the screen here.
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    bool canStartVideo() const { return !videoRefusal(); }
    // Why a new video cannot start now, in words for the person; absent when it can.
    std::optional<std::string> videoRefusal() const;
    // The workspace's copy of the site follows a new limit, so that saving the site keeps it.
    void setUploadLimit(UploadLimit limit) { local_.uploadLimit = limit; }
    // True from a drop until the inspection or the publish has ended, clean-up
    // included, and while a batch run of this application holds the site.
    bool isJobRunning() const;
    // Returns false when the drop is refused and nothing changed.
    bool drop(const std::vector<std::filesystem::path>& files);
    // Changes the fields of the confirm screen; a new name or visibility checks the folder name again.
    void editConfirm(const std::function<void(ConfirmState&)>& change);
    void confirmPublish();
    void stop();
    void retry();
    void reset();

    // The library and the catalogue of the site, made on first use. A publish
    // that ends refreshes the library and asks for a catalogue rebuild.
    LibraryModel& library();
    // The bulk upload of the site, made on first use. Its run holds the site like a
    // batch run of this application: no publish starts while it goes on.
    std::shared_ptr<BulkUploadModel> bulkUpload();
    // The Vimeo import of the site, made on first use; its sync holds the site as a bulk upload does.
    std::shared_ptr<VimeoSyncModel> vimeoSync();
    // The page settings and the viewers of the site, made on first use; making them
    // fails as the secret store does.
    std::shared_ptr<PageSettingsModel> pageSettings();
    std::shared_ptr<ViewersModel> viewers();
    CatalogModel& catalog();
    const Services& services() const { return services_; }
    // The bucket access of the site, or the secret store's failure.
    BucketAccess access() const;

    // The batch run (a bulk upload or a Vimeo sync) that this application runs
    // on the site. While one runs no video starts, and while a video is on its
    // way no batch run begins: beginBatchRun fails with the words to show.
    std::optional<BatchRunKind> batchRunHere() const { return batchRunHere_; }
    void beginBatchRun(BatchRunKind kind);
    void endBatchRun();
    // Another computer's batch run on the site, asked of the bucket while the
    // watch lives; made on first use.
    BatchRunWatch& batchRunWatch();

    // The poster review, on its own screen while a publish waits for it.
    const PosterReviewScreen* posterReview() const override;
    void holdCountdown() override;
    void pickPosterFrame(double seconds) override;
    void pickPosterImage(const std::filesystem::path& file) override;
    void useCurrentPoster() override;
    void publishWithoutPoster() override;
    void confirmPoster() override;

private:
    SiteWorkspace(LocalSite local, Services services, Host host, MainQueue& mainQueue, WorkspaceTiming timing);

    void setScreen(Screen::Value value);
    void changed();
    // Runs result on the main thread, if this workspace is still there.
    void onMain(std::function<void(SiteWorkspace&)> work);

    void startInspection(const std::filesystem::path& file, std::vector<std::filesystem::path> subtitles);
    void addSubtitles(const std::vector<std::filesystem::path>& files);
    void beginNameCheck();
    // The site's bucket access; a secret store that fails leaves the failure screen and nothing.
    std::optional<BucketAccess> readAccess();
    void startJob(PublishRequest request);
    void apply(std::uint64_t job, const PublishEvent& event);
    void finish(std::uint64_t job, std::optional<PublishedVideo> video, std::exception_ptr error);
    // A publish that did not start because another computer's batch run holds the site.
    void refuse(std::uint64_t job, const std::string& message);
    PublishingState* currentJob();
    // Copies the review model into the screen.
    void showReview();
    // The words of another computer's batch run on the site, if one holds it.
    std::optional<std::string> foreignRun();
    // A batch run of this application ended: the site is free, and the library and pages follow its changes.
    void batchRunEnded();

    LocalSite local_;
    Services services_;
    Host host_;
    MainQueue& mainQueue_;
    WorkspaceTiming timing_;
    Screen screen_;
    std::vector<std::function<void()>> observers_;

    std::optional<Task<void>> activity_;
    std::optional<Task<void>> nameCheck_;
    std::shared_ptr<PosterReviewModel> reviewModel_;  // while a review stands
    std::shared_ptr<LibraryModel> madeLibrary_;
    std::shared_ptr<CatalogModel> madeCatalog_;
    std::shared_ptr<BulkUploadModel> madeBulkUpload_;
    std::shared_ptr<VimeoSyncModel> madeVimeoSync_;
    std::shared_ptr<PageSettingsModel> madePageSettings_;
    std::shared_ptr<ViewersModel> madeViewers_;
    std::shared_ptr<BatchRunWatch> madeBatchRunWatch_;
    std::optional<BatchRunKind> batchRunHere_;
    std::uint64_t nameCheckGeneration_ = 0;
    std::uint64_t jobGeneration_ = 0;
    std::vector<std::filesystem::path> pendingSubtitles_;
};

}  // namespace vorlen::app
