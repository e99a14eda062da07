#include "app/SiteWorkspace.hpp"

#include <fmt/format.h>

#include "app/SetupWords.hpp"
#include "core/base/Log.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Naming.hpp"

namespace vorlen::app {

namespace {

struct ScreenTitles {
    static constexpr const char* cannotRead = "Cannot Read the Video";
    static constexpr const char* cannotPublish = "Cannot Publish";
    static constexpr const char* publishingFailed = "Publishing Failed";
};

std::optional<std::string> nonEmpty(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

// A batch run in the middle of a sentence: "the sync", "the bulk upload".
const char* shortName(BatchRunKind kind) { return kind == BatchRunKind::vimeoSync ? "sync" : "bulk upload"; }

// "A Vimeo sync is running. Start the bulk upload when the sync ends or stops."
std::string heldByRunHere(BatchRunKind running, const std::string& nextStep) {
    return fmt::format("A {} is running. {} when the {} ends or stops.", displayName(running), nextStep, shortName(running));
}

// The batch run that holds the site, as far as its record can be read: a record
// that cannot be read does not hold back a publish, whose upload tells on its
// own of a bucket that does not answer.
std::optional<ActiveBatchRun> recordedRun(BatchRunService& service, const BucketAccess& access) {
    try {
        return service.activeRun(access);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        log().warn("The record of the batch run could not be read before the publish: {}", error.what());
        return std::nullopt;
    }
}

}  // namespace

std::shared_ptr<SiteWorkspace> SiteWorkspace::make(LocalSite local, Services services, Host host, MainQueue& mainQueue,
                                                   WorkspaceTiming timing) {
    return std::shared_ptr<SiteWorkspace>(new SiteWorkspace(std::move(local), std::move(services), std::move(host), mainQueue, timing));
}

SiteWorkspace::SiteWorkspace(LocalSite local, Services services, Host host, MainQueue& mainQueue, WorkspaceTiming timing)
    : local_(std::move(local)), services_(std::move(services)), host_(std::move(host)), mainQueue_(mainQueue), timing_(timing) {}

SiteWorkspace::~SiteWorkspace() {
    // Tasks hold only weak references; dropping them cancels and joins them.
    madeBulkUpload_.reset();
    madeVimeoSync_.reset();
    madePageSettings_.reset();
    madeViewers_.reset();
    madeBatchRunWatch_.reset();
    reviewModel_.reset();
    nameCheck_.reset();
    activity_.reset();
}

void SiteWorkspace::setScreen(Screen::Value value) {
    screen_.value = std::move(value);
    changed();
}

void SiteWorkspace::changed() {
    for (auto& observer : observers_) observer();
}

void SiteWorkspace::onMain(std::function<void(SiteWorkspace&)> work) {
    std::weak_ptr<SiteWorkspace> weak = weak_from_this();
    mainQueue_.post([weak, work = std::move(work)] {
        if (auto self = weak.lock()) work(*self);
    });
}

bool SiteWorkspace::drop(const std::vector<std::filesystem::path>& files) {
    std::vector<std::filesystem::path> subtitles;
    std::optional<std::filesystem::path> video;
    for (const auto& file : files) {
        if (isSubtitleFile(file))
            subtitles.push_back(file);
        else if (!video)
            video = file;  // a second video in the same drop is ignored
    }
    if (video) {
        if (!canStartVideo()) return false;
        startInspection(*video, std::move(subtitles));
        return true;
    }
    if (subtitles.empty()) return false;
    if (screen_.as<Screen::Inspecting>()) {
        pendingSubtitles_.insert(pendingSubtitles_.end(), subtitles.begin(), subtitles.end());
        return true;
    }
    if (screen_.as<ConfirmState>()) {
        addSubtitles(subtitles);
        return true;
    }
    return false;
}

void SiteWorkspace::startInspection(const std::filesystem::path& file, std::vector<std::filesystem::path> subtitles) {
    nameCheck_.reset();
    pendingSubtitles_ = std::move(subtitles);
    setScreen(Screen::Inspecting{file});
    auto service = services_.publish;
    activity_.reset();
    activity_.emplace(Task<void>::spawn([this, file, service] {
        std::optional<VideoInspection> inspection;
        std::exception_ptr error;
        try {
            inspection = service->inspect(file);
        } catch (...) {
            error = std::current_exception();
        }
        onMain([file, inspection, error](SiteWorkspace& self) {
            auto* inspecting = self.screen_.as<Screen::Inspecting>();
            if (!inspecting || inspecting->file != file) return;
            if (error) {
                try {
                    std::rethrow_exception(error);
                } catch (const Cancelled&) {
                    self.setScreen(Screen::Start{});
                } catch (const std::exception& failure) {
                    self.setScreen(Failure{ScreenTitles::cannotRead, failure.what(), std::nullopt, {}});
                }
                return;
            }
            ConfirmState confirm;
            confirm.inspection = *inspection;
            confirm.name = inspection->suggestedName;
            confirm.title = inspection->suggestedTitle;
            confirm.visibility = self.local_.lastVisibility;
            confirm.randomPart = Naming::randomPart();
            confirm.audioLoudness = {self.local_.settings.audioLoudness, self.local_.settings.audioLoudness};
            log().info("Inspected {}: it waits for the person to confirm the publish.", file.string());
            self.setScreen(std::move(confirm));
            auto pending = std::move(self.pendingSubtitles_);
            self.pendingSubtitles_.clear();
            if (!pending.empty()) self.addSubtitles(pending);
            self.beginNameCheck();
        });
    }));
}

void SiteWorkspace::addSubtitles(const std::vector<std::filesystem::path>& files) {
    auto service = services_.publish;
    // Subtitle files are small: reading them here keeps their order and the screen simple.
    auto* confirm = screen_.as<ConfirmState>();
    if (!confirm) return;
    for (const auto& file : files) {
        try {
            confirm->subtitleFiles.files.push_back(service->readSubtitle(file));
        } catch (const std::exception& error) {
            confirm->subtitleFiles.problem = error.what();
        }
    }
    changed();
}

void SiteWorkspace::editConfirm(const std::function<void(ConfirmState&)>& change) {
    auto* confirm = screen_.as<ConfirmState>();
    if (!confirm) return;
    std::string nameBefore = confirm->name;
    std::string folderBefore = confirm->folderName();
    change(*confirm);
    if (confirm->name != nameBefore) confirm->isNameTyped = true;
    if (confirm->folderName() != folderBefore) {
        beginNameCheck();
    } else {
        changed();
    }
}

void SiteWorkspace::beginNameCheck() {
    auto* confirm = screen_.as<ConfirmState>();
    if (!confirm) return;
    nameCheck_.reset();
    std::uint64_t generation = ++nameCheckGeneration_;
    std::string folder = confirm->folderName();
    if (confirm->name.empty() || !Naming::isValidName(folder)) {
        confirm->nameStatus = ConfirmState::Invalid{};
        changed();
        return;
    }
    auto access = readAccess();
    if (!access) return;
    confirm->nameStatus = ConfirmState::Checking{};
    changed();
    auto service = services_.publish;
    auto delay = timing_.nameCheckDelay;
    nameCheck_.emplace(Task<void>::spawn([this, generation, folder, service, access, delay] {
        // Typing does not query the bucket on every key: only a name left alone for the delay is checked.
        sleepFor(delay);
        ConfirmState::NameStatus status;
        try {
            status = ConfirmState::Resolved{service->resolveFolder(folder, *access)};
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            status = ConfirmState::Unavailable{error.what()};
        }
        if (isCancelled()) return;
        onMain([generation, status](SiteWorkspace& self) {
            auto* confirm = self.screen_.as<ConfirmState>();
            if (!confirm || generation != self.nameCheckGeneration_) return;
            confirm->nameStatus = status;
            self.changed();
        });
    }));
}

BucketAccess SiteWorkspace::access() const {
    BucketAccess access{local_.settings, std::nullopt};
    if (!local_.settings.isLocal() && services_.credentials) access.credentials = services_.credentials->read();
    return access;
}

std::optional<BucketAccess> SiteWorkspace::readAccess() {
    try {
        return access();
    } catch (const std::exception& error) {
        // The secret store's own words, on the screen rather than out of the main loop.
        setScreen(Failure{ScreenTitles::cannotPublish, error.what(), std::nullopt, {}});
        return std::nullopt;
    }
}

LibraryModel& SiteWorkspace::library() {
    if (!madeLibrary_) {
        madeLibrary_ = LibraryModel::make(services_.library.library, services_.publish, [this] { return access(); }, local_.settings, mainQueue_);
        // The pages follow every change of the library.
        if (services_.library.catalog) madeLibrary_->videosDidChange = [this] { catalog().requestRebuild(); };
    }
    return *madeLibrary_;
}

BatchRunWatch& SiteWorkspace::batchRunWatch() {
    if (!madeBatchRunWatch_)
        madeBatchRunWatch_ = BatchRunWatch::make(services_.batchRuns, [this] { return access(); },
                                                 [this] { return batchRunHere_.has_value(); }, mainQueue_,
                                                 timing_.batchRunWatchInterval);
    return *madeBatchRunWatch_;
}

std::optional<std::string> SiteWorkspace::videoRefusal() const {
    if (batchRunHere_) return heldByRunHere(*batchRunHere_, "Publish the video");
    if (screen_.isActive()) return std::string(SettingsError::busy);
    return std::nullopt;
}

void SiteWorkspace::beginBatchRun(BatchRunKind kind) {
    const auto start = fmt::format("Start the {}", shortName(kind));
    // A video on its way counts from its drop: the person may still confirm it.
    if (screen_.isActive())
        throw VorlenError::config(fmt::format("Vorlen is publishing a video. {} when that video is published or cancelled.", start));
    if (batchRunHere_) throw VorlenError::config(heldByRunHere(*batchRunHere_, start));
    batchRunHere_ = kind;
    if (madeBatchRunWatch_) madeBatchRunWatch_->checkNow();
    changed();
}

void SiteWorkspace::endBatchRun() {
    batchRunHere_.reset();
    changed();
}

std::optional<std::string> SiteWorkspace::foreignRun() {
    const auto& run = batchRunWatch().run();
    return run ? std::optional(run->message()) : std::nullopt;
}

void SiteWorkspace::batchRunEnded() {
    endBatchRun();
    // What the run published shows in the library and on the home page, also after a stop.
    if (madeLibrary_) madeLibrary_->refresh();
    if (services_.library.catalog) catalog().requestRebuild();
}

std::shared_ptr<BulkUploadModel> SiteWorkspace::bulkUpload() {
    if (!madeBulkUpload_) {
        BulkUploadModel::Host host{
            [this] { return access(); },
            [this] { return host_.macSettings ? host_.macSettings().lastUploadRate : std::nullopt; },
            [this] { return host_.macSettings ? host_.macSettings().uploadTuning : UploadTuning{}; },
            defaultComputerName(),
            [this] { return screen_.isActive(); },
            [this] { return batchRunHere_ == BatchRunKind::vimeoSync; },
            [this] { return foreignRun(); },
            [this] { beginBatchRun(BatchRunKind::bulkUpload); },
            [this] { batchRunEnded(); }};
        madeBulkUpload_ = BulkUploadModel::make(services_.bulk, std::move(host), mainQueue_);
    }
    return madeBulkUpload_;
}

std::shared_ptr<PageSettingsModel> SiteWorkspace::pageSettings() {
    if (!madePageSettings_) madePageSettings_ = PageSettingsModel::make(services_.pageSettings(), mainQueue_);
    return madePageSettings_;
}

std::shared_ptr<ViewersModel> SiteWorkspace::viewers() {
    if (!madeViewers_) madeViewers_ = ViewersModel::make(services_.viewers(), mainQueue_);
    return madeViewers_;
}

std::shared_ptr<VimeoSyncModel> SiteWorkspace::vimeoSync() {
    if (!madeVimeoSync_) {
        const auto selectionKey = SiteStorage(local_.id).vimeoSelectionsKey;
        VimeoSyncModel::Host host{
            [this] { return access(); },
            [this] { return host_.macSettings ? host_.macSettings().lastUploadRate : std::nullopt; },
            [this] { return host_.macSettings ? host_.macSettings().uploadTuning : UploadTuning{}; },
            defaultComputerName(),
            [this] { return screen_.isActive(); },
            [this] { return batchRunHere_ == BatchRunKind::bulkUpload; },
            [this] { return foreignRun(); },
            [this, selectionKey] {
                if (!host_.macSettings) return VimeoSelection{};
                const auto selections = host_.macSettings().vimeoSelections;
                const auto found = selections.find(selectionKey);
                return found == selections.end() ? VimeoSelection{} : found->second;
            },
            [this](const VimeoSelection& selection) {
                if (host_.saveVimeoSelection) host_.saveVimeoSelection(selection);
            },
            [this] { beginBatchRun(BatchRunKind::vimeoSync); },
            [this] { batchRunEnded(); }};
        madeVimeoSync_ = VimeoSyncModel::make(services_.vimeo, std::move(host), mainQueue_);
    }
    return madeVimeoSync_;
}

CatalogModel& SiteWorkspace::catalog() {
    if (!madeCatalog_)
        madeCatalog_ = CatalogModel::make(services_.library.catalog, [this] { return access(); }, mainQueue_,
                                          timing_.catalogInterval);
    return *madeCatalog_;
}

void SiteWorkspace::confirmPublish() {
    auto* confirm = screen_.as<ConfirmState>();
    if (!confirm) return;
    nameCheck_.reset();
    std::string folder = confirm->folderName();
    if (!Naming::isValidName(folder)) {
        setScreen(Failure{ScreenTitles::cannotPublish, Naming::invalidNameMessage(folder), std::nullopt, {}});
        return;
    }
    auto access = readAccess();
    if (!access) return;
    if (!local_.settings.isLocal() && !access->credentials) {
        setScreen(Failure{ScreenTitles::cannotPublish, SettingsError::missingToken, std::nullopt, {}});
        return;
    }
    PublishRequest request;
    request.source = confirm->inspection.source;
    request.name = folder;
    request.isNameTyped = confirm->isNameTyped;
    request.details = VideoDetails(confirm->title, nonEmpty(confirm->reference), nonEmpty(confirm->description), confirm->visibility);
    request.audioLoudness = confirm->audioLoudness.selection;
    request.access = std::move(*access);
    request.expectedUploadRate = host_.macSettings ? host_.macSettings().lastUploadRate : std::nullopt;
    request.posterReviewTimeLimit = timing_.posterReviewTimeLimit;
    request.uploadTuning = host_.macSettings ? host_.macSettings().uploadTuning : UploadTuning{};
    request.subtitles = confirm->subtitleFiles.files;
    startJob(std::move(request));
}

void SiteWorkspace::startJob(PublishRequest request) {
    std::uint64_t job = ++jobGeneration_;
    PublishingState state;
    state.request = request;
    state.built = request.built;
    setScreen(std::move(state));
    auto service = services_.publish;
    activity_.reset();
    activity_.emplace(Task<void>::spawn([this, job, request, service, batchRuns = services_.batchRuns] {
        std::optional<PublishedVideo> video;
        std::exception_ptr error;
        try {
            // Asked afresh for each publish, a retry too: the watch may be half a minute old.
            if (auto run = batchRuns ? recordedRun(*batchRuns, request.access) : std::nullopt) {
                onMain([job, message = run->message()](SiteWorkspace& self) { self.refuse(job, message); });
                return;
            }
            video = service->publish(request, [this, job](const PublishEvent& event) {
                onMain([job, event](SiteWorkspace& self) { self.apply(job, event); });
            });
        } catch (...) {
            error = std::current_exception();
        }
        onMain([job, video, error](SiteWorkspace& self) { self.finish(job, video, error); });
    }));
}

PublishingState* SiteWorkspace::currentJob() {
    if (auto* publishing = screen_.as<PublishingState>()) return publishing;
    if (auto* review = screen_.as<PosterReviewState>()) return &review->job;
    return nullptr;
}

void SiteWorkspace::apply(std::uint64_t job, const PublishEvent& event) {
    PublishingState* state = currentJob();
    if (!state || job != jobGeneration_) return;
    std::visit(
        [&](const auto& value) {
            using Event = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<Event, PublishEvent::Folder>) {
                state->folder = value.folder;
            } else if constexpr (std::is_same_v<Event, PublishEvent::Progress>) {
                state->progress = value.progress;
            } else if constexpr (std::is_same_v<Event, PublishEvent::Built>) {
                state->built = value.built;
            } else if constexpr (std::is_same_v<Event, PublishEvent::UploadLog>) {
                state->uploadLog = value.lines;
            } else if constexpr (std::is_same_v<Event, PublishEvent::ReviewPoster>) {
                if (!value.request.reply || !value.request.reply->isOpen() || screen_.as<PosterReviewState>()) return;
                reviewModel_ = PosterReviewModel::make(value.request, mainQueue_, [this] { showReview(); });
                screen_.value = PosterReviewState{reviewModel_->review(), *state};
            }
        },
        event.value);
    // A review answered by its timer, or confirmed, gives the screen back to the job.
    if (auto* review = screen_.as<PosterReviewState>(); review && !review->request.reply->isOpen()) {
        screen_.value = PublishingState(review->job);
        reviewModel_.reset();
    }
    changed();
}

void SiteWorkspace::showReview() {
    auto* review = screen_.as<PosterReviewState>();
    if (!review || !reviewModel_) return;
    static_cast<PosterReviewScreen&>(*review) = reviewModel_->review();
    changed();
}

void SiteWorkspace::finish(std::uint64_t job, std::optional<PublishedVideo> video, std::exception_ptr error) {
    PublishingState* state = currentJob();
    if (!state || job != jobGeneration_) return;
    reviewModel_.reset();
    if (video) {
        if (video->uploadRate && host_.recordUploadRate) host_.recordUploadRate(*video->uploadRate);
        local_.lastVisibility = state->request.details.visibility();
        if (host_.save) host_.save(local_);
        std::string folder = state->folder ? state->folder->name : state->request.name;
        if (madeLibrary_) madeLibrary_->refresh();
        if (services_.library.catalog) catalog().requestRebuild();
        setScreen(PublishedState{*video, linksFor(local_.settings, folder), false});
        return;
    }
    try {
        std::rethrow_exception(error);
    } catch (const Cancelled&) {
        setScreen(Screen::Start{});
    } catch (const std::exception& failure) {
        PublishRequest retry = state->request;
        retry.built = state->built;
        setScreen(Failure{ScreenTitles::publishingFailed, failure.what(), retry, state->uploadLog});
    }
}

void SiteWorkspace::refuse(std::uint64_t job, const std::string& message) {
    PublishingState* state = currentJob();
    if (!state || job != jobGeneration_) return;
    setScreen(Failure{ScreenTitles::cannotPublish, message, state->request, {}});
}

void SiteWorkspace::stop() {
    if (screen_.as<Screen::Inspecting>()) {
        activity_->cancel();
        setScreen(Screen::Start{});
        return;
    }
    PublishingState* state = currentJob();
    if (!state || !activity_) return;
    state->isStopping = true;
    activity_->cancel();
    if (auto* review = screen_.as<PosterReviewState>()) review->request.reply->cancel();
    changed();
}

bool SiteWorkspace::isJobRunning() const {
    return screen_.as<Screen::Inspecting>() || screen_.as<PublishingState>() || screen_.as<PosterReviewState>() ||
           batchRunHere_;
}

void SiteWorkspace::retry() {
    auto* failed = screen_.as<Failure>();
    if (!failed || !failed->retry) return;
    if (batchRunHere_) return setScreen(Failure{ScreenTitles::cannotPublish, *videoRefusal(), failed->retry, failed->uploadLog});
    startJob(*failed->retry);
}

void SiteWorkspace::reset() {
    if (screen_.isActive() && !screen_.as<ConfirmState>()) return;
    nameCheck_.reset();
    setScreen(Screen::Start{});
}

const PosterReviewScreen* SiteWorkspace::posterReview() const { return screen_.as<PosterReviewState>(); }

void SiteWorkspace::holdCountdown() {
    if (reviewModel_) reviewModel_->holdCountdown();
}

void SiteWorkspace::pickPosterFrame(double seconds) {
    if (reviewModel_) reviewModel_->pickPosterFrame(seconds);
}

void SiteWorkspace::pickPosterImage(const std::filesystem::path& file) {
    if (reviewModel_) reviewModel_->pickPosterImage(file);
}

void SiteWorkspace::useCurrentPoster() {
    if (reviewModel_) reviewModel_->useCurrentPoster();
}

void SiteWorkspace::publishWithoutPoster() {
    if (reviewModel_) reviewModel_->publishWithoutPoster();
}

void SiteWorkspace::confirmPoster() {
    auto* review = screen_.as<PosterReviewState>();
    if (!review || !reviewModel_) return;
    reviewModel_->confirmPoster();
    reviewModel_.reset();
    setScreen(PublishingState(review->job));
}

}  // namespace vorlen::app
