#include "app/LibraryModel.hpp"

#include <mutex>

#include "app/LibraryWords.hpp"
#include "app/MediaCachePurge.hpp"

namespace vorlen::app {

std::shared_ptr<LibraryModel> LibraryModel::make(std::shared_ptr<LibraryService> service,
                                                 std::shared_ptr<PublishService> publish, AccessSource access,
                                                 SiteSummary site, MainQueue& mainQueue) {
    return std::shared_ptr<LibraryModel>(
        new LibraryModel(std::move(service), std::move(publish), std::move(access), std::move(site), mainQueue));
}

LibraryModel::~LibraryModel() {
    // Dropping the tasks cancels them and waits; what they post finds no model.
    changeTasks_.clear();
    bulkTask_.reset();
    subtitleTasks_.clear();
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

namespace {

using Note = LibraryModel::Note;
using Purge = LibraryModel::Purge;

std::string cannotChange(const std::string& title) { return fmt::format("Vorlen cannot change \u201c{}\u201d", title); }

}  // namespace

std::optional<LibraryModel::Problem> LibraryModel::refusal(const LibraryEntry& entry, bool fromEditWindow) const {
    const auto& folder = entry.folder();
    if (changes_.contains(folder) || (!fromEditWindow && editedVideos_.contains(folder)) || entry.problem)
        return Problem{cannotChange(entry.title),
                       "Vorlen cannot read the video.json of a video, its edit window is open, or a different change of "
                       "it runs now"};
    return std::nullopt;
}

std::optional<LibraryModel::Problem> LibraryModel::runChange(const LibraryEntry& entry, Change change, bool fromEditWindow,
                                                             ChangeWork work) {
    if (auto refused = refusal(entry, fromEditWindow)) return refused;
    const auto& folder = entry.folder();
    BucketAccess access;
    try {
        access = access_();
    } catch (const std::exception& error) {
        return Problem{cannotChange(entry.title), error.what()};
    }
    changes_[folder] = change;
    changed();
    changeTasks_.erase(folder);
    changeTasks_.emplace(folder, Task<void>::spawn([this, folder, access, work, service = service_, accountToken = accountToken] {
        PurgeToken token;
        const Purge purge = [&](const std::string& prefix, bool posterOnly) {
            purgeWithToken(token, accountToken, [&](const std::optional<std::string>& account) {
                service->purge(access, prefix, posterOnly, account);
            });
        };
        std::optional<Note> note;
        try {
            note = work(*service, access, purge);
        } catch (const Cancelled&) {
            return;
        }
        onMain([folder, note](LibraryModel& self) {
            self.changeTasks_.erase(folder);
            if (note) self.problem_ = note->problem;
            self.finishChange(folder);
        });
    }));
    return std::nullopt;
}

void LibraryModel::finishChange(const std::string& folder) {
    changes_.erase(folder);
    subtitles_.erase(folder);
    if (videosDidChange) videosDidChange();
    refresh();
}

namespace {

// The note of a failure of a change: the problem to show, its bulk line.
LibraryModel::Note failed(std::string title, const std::exception& error) {
    return {LibraryModel::Note::Kind::failed, {std::move(title), error.what()}, error.what()};
}

// Runs a change, then its purge; the first thing that remains is told.
template <class Change, class Afterwards>
std::optional<LibraryModel::Note> changeThenPurge(const std::string& refusedTitle, Change change, Afterwards afterwards) {
    try {
        if (auto note = change()) return note;
    } catch (const std::exception& error) {
        return failed(refusedTitle, error);
    }
    return afterwards();
}

// The purge after a change: what can stay in the cache is told in the change's words.
std::optional<Note> purged(const Purge& purge, const std::string& prefix, bool posterOnly, const std::string& title,
                           const std::function<std::string(const std::string&)>& message) {
    try {
        purge(prefix, posterOnly);
    } catch (const std::exception& error) {
        return Note{Note::Kind::inCache, {title, message(error.what())}, error.what()};
    }
    return std::nullopt;
}

// After a change that switched: its notes, then the purge, told as one note.
std::optional<Note> notesThenPurge(std::vector<std::string> notes, const Purge& purge, const std::string& prefix,
                                   const std::string& notesTitle, const std::string& inCacheTitle,
                                   const std::function<std::string(const std::string&)>& inCache) {
    try {
        purge(prefix, false);
    } catch (const std::exception& error) {
        if (notes.empty()) return Note{Note::Kind::inCache, {inCacheTitle, inCache(error.what())}, error.what()};
        notes.push_back(inCache(error.what()));
    }
    if (notes.empty()) return std::nullopt;
    std::string message = notes.front();
    for (std::size_t i = 1; i < notes.size(); ++i) message += "\n\n" + notes[i];
    return Note{Note::Kind::other, {notesTitle, message}, notes.front()};
}

}  // namespace

LibraryModel::ChangeWork LibraryModel::moveWork(const LibraryEntry& entry, VideoVisibility visibility) const {
    return [video = entry.video, visibility, title = entry.title](LibraryService& service, const BucketAccess& access,
                                                                 const Purge& purge) -> std::optional<Note> {
        return changeThenPurge(
            cannotChange(title),
            [&]() -> std::optional<Note> {
                const auto moved = service.changeVisibility(access, service.video(access, video.folder), visibility);
                if (!moved.oldFolderFailure) return std::nullopt;
                return Note{Note::Kind::oldFolderRemains,
                            {LibraryWords::oldFolderRemainsTitle(title),
                             LibraryWords::oldFolderRemains(video.folder, *moved.oldFolderFailure)},
                            *moved.oldFolderFailure};
            },
            [&] {
                return purged(purge, video.prefix, false, LibraryWords::oldFilesInCacheTitle(title),
                              LibraryWords::oldFilesInCache);
            });
    };
}

LibraryModel::ChangeWork LibraryModel::removeWork(const LibraryEntry& entry) const {
    return [video = entry.video, title = entry.title](LibraryService& service, const BucketAccess& access,
                                                     const Purge& purge) -> std::optional<Note> {
        return changeThenPurge(
            LibraryWords::deleteRefusedTitle(title),
            [&]() -> std::optional<Note> {
                service.remove(access, service.video(access, video.folder));
                return std::nullopt;
            },
            [&] {
                return purged(purge, video.prefix, false, LibraryWords::oldFilesInCacheTitle(title),
                              LibraryWords::oldFilesInCache);
            });
    };
}

std::optional<LibraryModel::Problem> LibraryModel::saveDetails(const LibraryEntry& entry, const VideoDetails& details,
                                                               bool fromEditWindow) {
    return runChange(entry, Change::saving, fromEditWindow,
                     [video = entry.video, details, title = entry.title](LibraryService& service, const BucketAccess& access,
                                                                        const Purge&) -> std::optional<Note> {
                         try {
                             service.saveDetails(access, service.video(access, video.folder), details);
                         } catch (const std::exception& error) {
                             return failed(cannotChange(title), error);
                         }
                         return std::nullopt;
                     });
}

std::optional<LibraryModel::Problem> LibraryModel::changeVisibility(const LibraryEntry& entry, VideoVisibility visibility,
                                                                    bool fromEditWindow) {
    return runChange(entry, Change::movingToNewLink, fromEditWindow, moveWork(entry, visibility));
}

namespace {

template <class MakePoster>
LibraryModel::ChangeWork posterWork(const LibraryEntry& entry, MakePoster makePoster) {
    return [video = entry.video, title = entry.title, makePoster](LibraryService& service, const BucketAccess& access,
                                                                 const Purge& purge) -> std::optional<Note> {
        return changeThenPurge(
            LibraryWords::posterRefusedTitle(title),
            [&]() -> std::optional<Note> {
                const auto changed = makePoster(service, access, service.video(access, video.folder));
                if (!changed.oldPosterFailure) return std::nullopt;
                return Note{Note::Kind::other, {LibraryWords::posterRefusedTitle(title), *changed.oldPosterFailure},
                            *changed.oldPosterFailure};
            },
            [&] {
                return purged(purge, video.prefix, true, LibraryWords::oldPosterInCacheTitle(title),
                              [](const std::string& failure) { return LibraryWords::posterNote + failure; });
            });
    };
}

}  // namespace

std::optional<LibraryModel::Problem> LibraryModel::changePoster(const LibraryEntry& entry, const std::filesystem::path& image,
                                                                bool fromEditWindow) {
    return runChange(entry, Change::changingPoster, fromEditWindow,
                     posterWork(entry, [image](LibraryService& service, const BucketAccess& access, const LibraryVideo& video) {
                         return service.changePoster(access, video, image);
                     }));
}

std::optional<LibraryModel::Problem> LibraryModel::changePosterToFrame(const LibraryEntry& entry, double seconds,
                                                                       bool fromEditWindow) {
    return runChange(entry, Change::changingPoster, fromEditWindow,
                     posterWork(entry, [seconds](LibraryService& service, const BucketAccess& access, const LibraryVideo& video) {
                         return service.changePosterToFrame(access, video, seconds);
                     }));
}

std::optional<LibraryModel::Problem> LibraryModel::remove(const LibraryEntry& entry, bool fromEditWindow) {
    return runChange(entry, Change::deleting, fromEditWindow, removeWork(entry));
}

std::optional<LibraryModel::Problem> LibraryModel::replaceVideo(const LibraryEntry& entry, const std::filesystem::path& file,
                                                                bool fromEditWindow) {
    ReplaceRequest request{file, entry.folder(), {}, site_.audioLoudness, {}, std::nullopt};
    return runChange(entry, Change::replacingVideo, fromEditWindow,
                     [request, video = entry.video, title = entry.title, publish = publish_](
                         LibraryService&, const BucketAccess& access, const Purge& purge) mutable -> std::optional<Note> {
                         request.access = access;
                         std::optional<VideoReplacement> replaced;
                         try {
                             replaced = publish->replace(request, {});
                         } catch (const Cancelled&) {
                             throw;
                         } catch (const std::exception& error) {
                             return failed(cannotChange(title), error);
                         }
                         return notesThenPurge(replaced->notes(), purge, video.prefix, LibraryWords::replacedWithNotesTitle(title),
                                               LibraryWords::oldVideoInCacheTitle(title), LibraryWords::oldVideoInCache);
                     });
}

LibraryModel::ChangeWork LibraryModel::audioWork(const LibraryEntry& entry, const std::optional<std::filesystem::path>& file,
                                                 AudioLoudness loudness) const {
    return [video = entry.video, file, loudness, title = entry.title](LibraryService& service, const BucketAccess& access,
                                                                     const Purge& purge) -> std::optional<Note> {
        std::optional<AudioReplacement> replaced;
        try {
            replaced = service.reimportAudio(access, service.video(access, video.folder), file, loudness, {});
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            return failed(cannotChange(title), error);
        }
        return notesThenPurge(replaced->notes(), purge, video.prefix, LibraryWords::newAudioWithNotesTitle(title),
                              LibraryWords::oldAudioInCacheTitle(title), LibraryWords::oldAudioInCache);
    };
}

std::optional<LibraryModel::Problem> LibraryModel::reimportAudio(const LibraryEntry& entry,
                                                                 const std::optional<std::filesystem::path>& file,
                                                                 AudioLoudness loudness, bool fromEditWindow) {
    return runChange(entry, Change::reimportingAudio, fromEditWindow, audioWork(entry, file, loudness));
}

std::optional<std::vector<PublishedSubtitle>> LibraryModel::subtitles(const LibraryEntry& entry) {
    const auto& folder = entry.folder();
    if (const auto found = subtitles_.find(folder); found != subtitles_.end()) return found->second;
    subtitles_.emplace(folder, std::nullopt);
    BucketAccess access;
    try {
        access = access_();
    } catch (const std::exception&) {
        return std::nullopt;
    }
    subtitleTasks_.erase(folder);
    subtitleTasks_.emplace(folder, Task<void>::spawn([this, folder, video = entry.video, access, service = service_] {
        std::vector<PublishedSubtitle> tracks;
        try {
            tracks = service->subtitles(access, video);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception&) {
            // A video whose manifests cannot be read shows no tracks; its changes say why.
        }
        onMain([folder, tracks](LibraryModel& self) {
            self.subtitles_[folder] = tracks;
            self.changed();
        });
    }));
    return std::nullopt;
}

std::optional<LibraryModel::Problem> LibraryModel::changeSubtitles(const LibraryEntry& entry, const SubtitleChange& change,
                                                                   bool fromEditWindow) {
    return runChange(entry, Change::changingSubtitles, fromEditWindow,
                     [change, video = entry.video, title = entry.title](
                         LibraryService& service, const BucketAccess& access, const Purge& purge) -> std::optional<Note> {
                         return changeThenPurge(
                             cannotChange(title),
                             [&]() -> std::optional<Note> {
                                 const auto result = service.changeSubtitles(access, service.video(access, video.folder), change);
                                 if (!result.oldFilesFailure) return std::nullopt;
                                 return Note{Note::Kind::other,
                                             {LibraryWords::oldSubtitlesStayTitle(title),
                                              LibraryWords::oldSubtitlesStay(*result.oldFilesFailure)},
                                             *result.oldFilesFailure};
                             },
                             [&] {
                                 return purged(purge, video.prefix, false, LibraryWords::oldSubtitlesInCacheTitle(title),
                                               LibraryWords::oldSubtitlesInCache);
                             });
                     });
}

void LibraryModel::changeVisibility(const std::vector<LibraryEntry>& entries, VideoVisibility visibility) {
    runBulk(entries, visibility == VideoVisibility::unlisted ? BulkChange::Action::makeUnlisted : BulkChange::Action::makePublic,
            [&](const LibraryEntry& entry) -> std::optional<ChangeWork> {
                if (entry.visibility == visibility) return std::nullopt;
                return moveWork(entry, visibility);
            });
}

void LibraryModel::remove(const std::vector<LibraryEntry>& entries) {
    runBulk(entries, BulkChange::Action::remove, [&](const LibraryEntry& entry) { return removeWork(entry); });
}

void LibraryModel::reimportAudio(const std::vector<LibraryEntry>& entries, AudioLoudness loudness) {
    runBulk(entries, BulkChange::Action::reimportAudio,
            [&](const LibraryEntry& entry) { return audioWork(entry, std::nullopt, loudness); });
}

namespace {

// One section a kind, one line a video.
std::string bulkReport(const std::vector<std::pair<std::string, Note>>& notes, bool removes) {
    std::string report;
    for (const auto kind : {Note::Kind::failed, Note::Kind::oldFolderRemains, Note::Kind::inCache}) {
        std::vector<std::string> lines;
        for (const auto& [title, note] : notes) {
            const auto noteKind = note.kind == Note::Kind::other ? Note::Kind::failed : note.kind;
            if (noteKind == kind) lines.push_back(fmt::format("\u201c{}\u201d: {}", title, note.detail));
        }
        if (lines.empty()) continue;
        const bool one = lines.size() == 1;
        std::string heading;
        switch (kind) {
            case Note::Kind::failed:
                heading = fmt::format("Vorlen could not {} {}:", removes ? "delete" : "change", one ? "this video" : "these videos");
                break;
            case Note::Kind::oldFolderRemains:
                heading = "These videos have new links, but Vorlen could not delete all of their old folders. Delete the "
                          "old folders in the library, so that the old links cannot work:";
                break;
            default: heading = "The old files of these videos can stay in the cache:"; break;
        }
        report += (report.empty() ? "" : "\n\n") + heading;
        for (const auto& line : lines) report += "\n" + line;
    }
    return report;
}

}  // namespace

void LibraryModel::runBulk(const std::vector<LibraryEntry>& entries, BulkChange::Action action,
                           const std::function<std::optional<ChangeWork>(const LibraryEntry&)>& workFor) {
    if (bulkChange_ || entries.empty()) return;
    const bool removes = action == BulkChange::Action::remove;
    BucketAccess access;
    try {
        access = access_();
    } catch (const std::exception& error) {
        problem_ = Problem{removes ? "Vorlen Could Not Delete the Videos" : "Vorlen Could Not Change the Videos", error.what()};
        changed();
        return;
    }
    // Refused videos go straight to the report, and videos that have what the
    // change gives count as done; the others wait their turn.
    bulkNotes_.clear();
    std::vector<std::tuple<std::string, std::string, ChangeWork>> work;  // folder, title, change
    for (const auto& entry : entries) {
        if (auto refused = refusal(entry, false)) {
            bulkNotes_.emplace_back(entry.title, Note{Note::Kind::failed, *refused, refused->message});
        } else if (auto change = workFor(entry)) {
            work.emplace_back(entry.folder(), entry.title, std::move(*change));
            changes_[entry.folder()] = Change::waiting;
        }
    }
    const auto count = static_cast<std::int64_t>(entries.size());
    bulkChange_ = BulkChange{action, count, count - static_cast<std::int64_t>(work.size())};
    changed();
    const Change running = removes                                          ? Change::deleting
                           : action == BulkChange::Action::reimportAudio ? Change::reimportingAudio
                                                                         : Change::movingToNewLink;
    bulkTask_.emplace(Task<void>::spawn([this, work, running, access, service = service_, accountToken = accountToken] {
        // One token for the run: a person is asked for the account token at most once.
        PurgeToken token;
        const Purge purge = [&](const std::string& prefix, bool posterOnly) {
            purgeWithToken(token, accountToken, [&](const std::optional<std::string>& account) {
                service->purge(access, prefix, posterOnly, account);
            });
        };
        for (const auto& [folder, title, change] : work) {
            onMain([folder, running](LibraryModel& self) {
                self.changes_[folder] = running;
                self.changed();
            });
            std::optional<Note> note;
            try {
                note = change(*service, access, purge);
            } catch (const Cancelled&) {
                return;
            }
            onMain([folder, title, note](LibraryModel& self) {
                if (note) self.bulkNotes_.emplace_back(title, *note);
                ++self.bulkChange_->finished;
                self.changes_.erase(folder);
                self.subtitles_.erase(folder);
                self.changed();
            });
        }
        onMain([](LibraryModel& self) { self.endBulk(); });
    }));
}

void LibraryModel::endBulk() {
    const bool removes = bulkChange_->action == BulkChange::Action::remove;
    bulkChange_.reset();
    bulkTask_.reset();
    if (!bulkNotes_.empty()) problem_ = Problem{removes ? "Not Every Video Was Deleted" : "Not Every Video Was Changed",
                                                bulkReport(bulkNotes_, removes)};
    bulkNotes_.clear();
    if (videosDidChange) videosDidChange();
    refresh();
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
