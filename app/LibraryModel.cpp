#include "app/LibraryModel.hpp"

#include <mutex>

#include "app/LibraryWords.hpp"

namespace vorlen::app {

std::shared_ptr<LibraryModel> LibraryModel::make(std::shared_ptr<LibraryService> service, AccessSource access,
                                                 SiteSummary site, MainQueue& mainQueue) {
    return std::shared_ptr<LibraryModel>(new LibraryModel(std::move(service), std::move(access), std::move(site), mainQueue));
}

LibraryModel::~LibraryModel() {
    // Dropping the tasks cancels them and waits; what they post finds no model.
    changeTasks_.clear();
    refreshTask_.reset();
    thumbnailTask_.reset();
}

void LibraryModel::changed() {
    for (const auto& observer : observers_) observer();
}

void LibraryModel::onMain(std::function<void(LibraryModel&)> work) {
    std::weak_ptr<LibraryModel> weak = weak_from_this();
    mainQueue_.post([weak, work = std::move(work)] {
        if (auto self = weak.lock()) work(*self);
    });
}

std::vector<LibraryEntry> LibraryModel::entriesFrom(std::vector<LibraryVideo> videos) const {
    std::vector<LibraryEntry> entries;
    entries.reserve(videos.size());
    for (auto& video : videos) entries.push_back(LibraryEntry::from(std::move(video), site_));
    return entries;
}

void LibraryModel::refresh() {
    const auto generation = ++refreshGeneration_;
    refreshTask_.reset();
    refreshFailure_.reset();
    std::optional<BucketAccess> access;
    try {
        access = access_();
    } catch (const std::exception& error) {
        refreshFailure_ = error.what();
        refreshProgress_.reset();
        changed();
        return;
    }
    if (!listing_) {
        if (auto cached = service_->cachedVideos(*access)) {
            listing_ = Listing{entriesFrom(std::move(*cached)), false};
            ++listingGeneration_;
        }
    }
    refreshProgress_ = LibraryReadProgress{LibraryReadProgress::Listing{0}};

    struct LatestProgress {
        std::mutex mutex;
        LibraryReadProgress progress{LibraryReadProgress::Listing{0}};
    };
    auto latest = std::make_shared<LatestProgress>();
    auto posted = progressPosted_;
    refreshTask_.emplace(Task<void>::spawn([this, generation, access = *access, latest, posted, service = service_] {
        auto report = [&](const LibraryReadProgress& progress) {
            {
                std::lock_guard lock(latest->mutex);
                latest->progress = progress;
            }
            if (posted->exchange(true)) return;
            onMain([generation, latest, posted](LibraryModel& self) {
                posted->store(false);
                if (generation != self.refreshGeneration_ || !self.refreshTask_) return;
                std::lock_guard lock(latest->mutex);
                self.refreshProgress_ = latest->progress;
                self.changed();
            });
        };
        std::vector<LibraryVideo> videos;
        std::optional<std::string> failure;
        try {
            videos = service->read(access, report);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        onMain([generation, videos = std::move(videos), failure](LibraryModel& self) mutable {
            if (generation != self.refreshGeneration_) return;
            self.refreshTask_.reset();
            self.refreshProgress_.reset();
            self.refreshFailure_ = failure;
            if (!failure) {
                self.listing_ = Listing{self.entriesFrom(std::move(videos)), true};
                ++self.listingGeneration_;
            }
            self.changed();
        });
    }));
    // Told once the reading is under way, so that a view that asks sees it running.
    changed();
}

void LibraryModel::dismissProblem() {
    problem_.reset();
    changed();
}

void LibraryModel::setEditing(const std::string& folder, bool isEditing) {
    if (isEditing) editedVideos_.insert(folder);
    else editedVideos_.erase(folder);
}

std::optional<LibraryModel::Problem> LibraryModel::runChange(const LibraryEntry& entry, Change change, bool fromEditWindow,
                                                             ChangeWork work) {
    const auto& folder = entry.folder();
    if (changes_.contains(folder) || (!fromEditWindow && editedVideos_.contains(folder)) || entry.problem)
        return Problem{fmt::format("Vorlen cannot change \u201c{}\u201d", entry.title),
                       "Vorlen cannot read the video.json of a video, its edit window is open, or a different change of "
                       "it runs now"};
    BucketAccess access;
    try {
        access = access_();
    } catch (const std::exception& error) {
        return Problem{fmt::format("Vorlen cannot change \u201c{}\u201d", entry.title), error.what()};
    }
    changes_[folder] = change;
    changed();
    changeTasks_.erase(folder);
    changeTasks_.emplace(folder, Task<void>::spawn([this, folder, access, work, service = service_] {
        std::optional<Problem> problem;
        try {
            problem = work(*service, access);
        } catch (const Cancelled&) {
            return;
        }
        onMain([folder, problem](LibraryModel& self) {
            self.changeTasks_.erase(folder);
            self.changes_.erase(folder);
            if (problem) self.problem_ = problem;
            if (self.videosDidChange) self.videosDidChange();
            self.refresh();
        });
    }));
    return std::nullopt;
}

std::optional<LibraryModel::Problem> LibraryModel::saveDetails(const LibraryEntry& entry, const VideoDetails& details,
                                                               bool fromEditWindow) {
    return runChange(entry, Change::saving, fromEditWindow,
                     [video = entry.video, details, title = entry.title](LibraryService& service,
                                                                        const BucketAccess& access) -> std::optional<Problem> {
                         try {
                             service.saveDetails(access, service.video(access, video.folder), details);
                         } catch (const std::exception& error) {
                             return Problem{fmt::format("Vorlen cannot change \u201c{}\u201d", title), error.what()};
                         }
                         return std::nullopt;
                     });
}

std::optional<LibraryModel::Problem> LibraryModel::changeVisibility(const LibraryEntry& entry, VideoVisibility visibility,
                                                                    bool fromEditWindow) {
    return runChange(entry, Change::movingToNewLink, fromEditWindow,
                     [video = entry.video, visibility, title = entry.title](LibraryService& service,
                                                                           const BucketAccess& access) -> std::optional<Problem> {
                         VideoMove moved;
                         try {
                             moved = service.changeVisibility(access, service.video(access, video.folder), visibility);
                         } catch (const std::exception& error) {
                             return Problem{fmt::format("Vorlen cannot change \u201c{}\u201d", title), error.what()};
                         }
                         if (moved.oldFolderFailure)
                             return Problem{LibraryWords::oldFolderRemainsTitle(title),
                                            LibraryWords::oldFolderRemains(video.folder, *moved.oldFolderFailure)};
                         try {
                             service.purge(access, video.prefix, false);
                         } catch (const std::exception& error) {
                             return Problem{LibraryWords::oldFilesInCacheTitle(title), LibraryWords::oldFilesInCache(error.what())};
                         }
                         return std::nullopt;
                     });
}

std::optional<LibraryModel::Problem> LibraryModel::changePoster(const LibraryEntry& entry, const std::filesystem::path& image,
                                                                bool fromEditWindow) {
    return runChange(entry, Change::changingPoster, fromEditWindow,
                     [video = entry.video, image, title = entry.title](LibraryService& service,
                                                                      const BucketAccess& access) -> std::optional<Problem> {
                         try {
                             service.changePoster(access, service.video(access, video.folder), image);
                         } catch (const std::exception& error) {
                             return Problem{LibraryWords::posterRefusedTitle(title), error.what()};
                         }
                         try {
                             service.purge(access, video.prefix, true);
                         } catch (const std::exception& error) {
                             return Problem{LibraryWords::oldPosterInCacheTitle(title), LibraryWords::posterNote + error.what()};
                         }
                         return std::nullopt;
                     });
}

std::optional<LibraryModel::Problem> LibraryModel::remove(const LibraryEntry& entry, bool fromEditWindow) {
    return runChange(entry, Change::deleting, fromEditWindow,
                     [video = entry.video, title = entry.title](LibraryService& service,
                                                               const BucketAccess& access) -> std::optional<Problem> {
                         try {
                             service.remove(access, service.video(access, video.folder));
                         } catch (const std::exception& error) {
                             return Problem{LibraryWords::deleteRefusedTitle(title), error.what()};
                         }
                         try {
                             service.purge(access, video.prefix, false);
                         } catch (const std::exception& error) {
                             return Problem{LibraryWords::oldFilesInCacheTitle(title), LibraryWords::oldFilesInCache(error.what())};
                         }
                         return std::nullopt;
                     });
}

std::optional<std::filesystem::path> LibraryModel::thumbnail(const LibraryEntry& entry) {
    const auto* metadata = entry.video.metadata();
    if (!metadata || !metadata->poster) return std::nullopt;
    const auto key = entry.video.prefix + metadata->poster->name;
    if (const auto found = thumbnails_.find(key); found != thumbnails_.end()) return found->second;
    thumbnails_.emplace(key, std::nullopt);
    thumbnailQueue_.push_back(entry.video);
    if (!thumbnailTask_) loadNextThumbnail();
    return std::nullopt;
}

void LibraryModel::loadNextThumbnail() {
    thumbnailTask_.reset();
    if (thumbnailQueue_.empty()) return;
    auto video = std::move(thumbnailQueue_.front());
    thumbnailQueue_.pop_front();
    std::optional<BucketAccess> access;
    try {
        access = access_();
    } catch (const std::exception&) {
        thumbnailQueue_.clear();  // the reading shows why; thumbnails wait for the next one
        return;
    }
    thumbnailTask_.emplace(Task<void>::spawn([this, video = std::move(video), access = *access, service = service_] {
        std::optional<std::filesystem::path> file;
        try {
            file = service->thumbnail(access, video);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception&) {
            // A poster that cannot be fetched or decoded leaves its row without a picture.
        }
        onMain([key = video.prefix + video.metadata()->poster->name, file](LibraryModel& self) {
            self.thumbnails_[key] = file;
            self.loadNextThumbnail();
            if (file) self.changed();
        });
    }));
}

}  // namespace vorlen::app
