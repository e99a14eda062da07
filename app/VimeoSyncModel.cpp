#include "app/VimeoSyncModel.hpp"

#include <algorithm>
#include <atomic>
#include <mutex>

#include "core/base/Text.hpp"

namespace vorlen::app {

namespace {

// The newest value that a worker reports, handed to the main thread one post at a time.
template <class T>
class Newest {
public:
    // True when no post waits for the value yet: the caller posts one.
    bool put(T value) {
        {
            std::lock_guard lock(mutex_);
            value_ = std::move(value);
        }
        return !isPosted_.exchange(true);
    }
    T take() {
        isPosted_.store(false);
        std::lock_guard lock(mutex_);
        return value_;
    }

private:
    std::mutex mutex_;
    T value_{};
    std::atomic<bool> isPosted_ = false;
};

struct RunProgress {
    BatchSnapshot snapshot;
    std::map<std::string, std::string> subtitleProblems;
};

bool passes(const VimeoPlanEntry& entry, VimeoPlanFilter filter) {
    const bool hasFile = entry.localFile || entry.vimeoFile;
    switch (filter) {
        case VimeoPlanFilter::notImported: return !entry.folder;
        case VimeoPlanFilter::imported: return entry.folder.has_value();
        case VimeoPlanFilter::differentAudioLoudness: return entry.hasDifferentAudioLoudness;
        case VimeoPlanFilter::withFiles: return hasFile;
        case VimeoPlanFilter::missingFiles: return !hasFile;
        case VimeoPlanFilter::all: break;
    }
    return true;
}

}  // namespace

std::vector<const VimeoPlanEntry*> VimeoPlanState::shownEntries() const {
    const auto wanted = foldedForComparison(trimmed(search));
    std::vector<const VimeoPlanEntry*> shown;
    for (const auto& entry : entries) {
        if (!passes(entry, filter)) continue;
        if (!wanted.empty() && entry.id != wanted && foldedForComparison(entry.title).find(wanted) == std::string::npos)
            continue;
        shown.push_back(&entry);
    }
    return shown;
}

std::string VimeoPlanState::emptyText() const {
    if (entries.empty()) return VimeoWords::noVideos;
    if (!trimmed(search).empty()) return VimeoWords::noMatchingVideos;
    return VimeoWords::emptyText(filter);
}

std::int64_t VimeoPlanState::selectedCount() const {
    return std::count_if(entries.begin(), entries.end(), [](const VimeoPlanEntry& entry) { return entry.isSelected; });
}

std::shared_ptr<VimeoSyncModel> VimeoSyncModel::make(std::shared_ptr<VimeoService> service, Host host, MainQueue& mainQueue) {
    return std::shared_ptr<VimeoSyncModel>(new VimeoSyncModel(std::move(service), std::move(host), mainQueue));
}

VimeoSyncModel::~VimeoSyncModel() {
    // Dropping the tasks cancels them and waits; what they post finds no model.
    loadTask_.reset();
    scanTask_.reset();
    inspections_.clear();
    runTask_.reset();
}

void VimeoSyncModel::changed() {
    for (const auto& observer : observers_) observer();
}

void VimeoSyncModel::onMain(std::function<void(VimeoSyncModel&)> work) {
    std::weak_ptr<VimeoSyncModel> weak = weak_from_this();
    mainQueue_.post([weak, work = std::move(work)] {
        if (auto self = weak.lock()) work(*self);
    });
}

void VimeoSyncModel::open() { load(nullptr, false); }

void VimeoSyncModel::refresh() { load(nullptr, true); }

void VimeoSyncModel::saveToken(const std::string& token) {
    const auto cleaned = trimmed(token);
    if (cleaned.empty()) return;
    load([cleaned](VimeoService& service) { service.saveToken(cleaned); }, true);
}

void VimeoSyncModel::forgetToken() {
    load([](VimeoService& service) { service.forgetToken(); }, false);
}

void VimeoSyncModel::load(std::function<void(VimeoService&)> before, bool readsVimeo) {
    if (isRunning()) return;
    const auto generation = ++loadGeneration_;
    scanTask_.reset();
    inspections_.clear();
    loadTask_.reset();
    phase_ = vimeoPhase::Opening{};
    // The site's access comes from the main thread; only the plan needs it.
    std::optional<BucketAccess> access;
    std::string accessFailure;
    try {
        access = host_.access();
    } catch (const std::exception& error) {
        accessFailure = error.what();
    }
    auto show = [this, generation](VimeoPhase phase) {
        onMain([generation, phase = std::move(phase)](VimeoSyncModel& self) mutable {
            if (generation != self.loadGeneration_) return;
            self.phase_ = std::move(phase);
            self.changed();
        });
    };
    loadTask_.emplace(Task<void>::spawn([this, generation, before, readsVimeo, access, accessFailure, show,
                                         service = service_] {
        std::optional<VimeoStoredList> list;
        try {
            if (before) before(*service);
            if (!service->hasToken()) return show(vimeoPhase::NeedsToken{});
            if (!readsVimeo) list = service->storedList();
            if (!list) {
                show(vimeoPhase::Reading{});
                auto latest = std::make_shared<Newest<VimeoReadProgress>>();
                list = service->readList([&](const VimeoReadProgress& progress) {
                    if (!latest->put(progress)) return;
                    onMain([generation, latest](VimeoSyncModel& self) {
                        auto newest = latest->take();
                        if (generation != self.loadGeneration_ || !self.as<vimeoPhase::Reading>()) return;
                        self.phase_ = vimeoPhase::Reading{newest};
                        self.changed();
                    });
                });
            }
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            return show(vimeoPhase::Unreadable{{VimeoWords::cannotRead, error.what()}});
        }
        if (!access) return show(vimeoPhase::Unreadable{{VimeoWords::cannotReadSite, accessFailure}});
        show(vimeoPhase::Planning{});
        try {
            auto plan = service->plan(*access, *list);
            onMain([generation, plan = std::move(plan)](VimeoSyncModel& self) mutable {
                if (generation == self.loadGeneration_) self.showPlan(std::move(plan));
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            show(vimeoPhase::Unreadable{{VimeoWords::cannotReadSite, error.what()}});
        }
    }));
    changed();
}

void VimeoSyncModel::showPlan(VimeoSyncPlan plan) {
    VimeoPlanState state;
    state.plan = std::move(plan);
    if (host_.loadSelection) state.selection = host_.loadSelection();
    rebuildEntries(state);
    phase_ = std::move(state);
    readLocalFiles();
    changed();
}

void VimeoSyncModel::readLocalFiles() {
    const auto& state = std::get<VimeoPlanState>(phase_);
    if (state.selection.folder) scanFolder(*state.selection.folder);
    for (const auto& [videoID, file] : state.selection.files) inspectChosen(videoID, file);
}

void VimeoSyncModel::chooseFolder(const std::filesystem::path& folder) {
    if (!as<VimeoPlanState>()) return;
    changeSelection([&](VimeoPlanState& state) { state.selection.folder = folder; });
    scanFolder(folder);
}

void VimeoSyncModel::scanFolder(const std::filesystem::path& folder) {
    auto& state = std::get<VimeoPlanState>(phase_);
    state.scan = VimeoScanProgress{};
    state.fileProblem.reset();
    std::vector<VimeoVideo> videos;
    for (const auto& entry : state.plan.entries) videos.push_back(entry.video);
    const auto generation = loadGeneration_;
    const auto scan = ++scanGeneration_;
    scanTask_.reset();
    scanTask_.emplace(Task<void>::spawn([this, generation, scan, folder, videos = std::move(videos), service = service_] {
        // Everything that a scan posts is dropped once another plan or scan stands.
        auto onPlan = [this, generation, scan](std::function<void(VimeoPlanState&)> work) {
            onMain([generation, scan, work = std::move(work)](VimeoSyncModel& self) {
                auto* state = std::get_if<VimeoPlanState>(&self.phase_);
                if (!state || generation != self.loadGeneration_ || scan != self.scanGeneration_) return;
                work(*state);
                self.rebuildEntries(*state);
                self.changed();
            });
        };
        try {
            auto latest = std::make_shared<Newest<VimeoScanProgress>>();
            const auto files = service->scanFiles({folder}, [&](const VimeoScanProgress& progress) {
                if (latest->put(progress))
                    onPlan([latest](VimeoPlanState& state) { state.scan = latest->take(); });
            });
            auto matches = VimeoFileMatcher::match(videos, files);
            onPlan([matches = std::move(matches)](VimeoPlanState& state) {
                state.folderMatches = matches;
                state.scan.reset();
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            onPlan([message = std::string(error.what())](VimeoPlanState& state) {
                state.fileProblem = message;
                state.scan.reset();
            });
        }
    }));
}

void VimeoSyncModel::chooseFile(const std::string& videoID, const std::filesystem::path& file) {
    if (!as<VimeoPlanState>()) return;
    inspectChosen(videoID, file);
}

void VimeoSyncModel::inspectChosen(const std::string& videoID, const std::filesystem::path& file) {
    const auto& state = std::get<VimeoPlanState>(phase_);
    const auto found = std::find_if(state.plan.entries.begin(), state.plan.entries.end(),
                                    [&](const VimeoSyncPlan::Entry& entry) { return entry.video.id == videoID; });
    if (found == state.plan.entries.end()) return;
    std::erase_if(inspections_, [](const Task<void>& task) { return task.isFinished(); });
    const auto generation = loadGeneration_;
    inspections_.push_back(Task<void>::spawn([this, generation, video = found->video, file, service = service_] {
        std::optional<VimeoFileMatch> match;
        std::string failure;
        try {
            match = VimeoFileMatcher::chosen(video, service->localFile(file));
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        onMain([generation, videoID = video.id, file, match = std::move(match), failure](VimeoSyncModel& self) {
            if (generation != self.loadGeneration_ || !self.as<VimeoPlanState>()) return;
            self.changeSelection([&](VimeoPlanState& state) {
                if (!match) {
                    state.fileProblem = failure;
                    return;
                }
                state.selection.files[videoID] = file;
                state.chosenMatches[videoID] = *match;
            });
        });
    }));
}

void VimeoSyncModel::rebuildEntries(VimeoPlanState& state) const {
    const auto& selection = state.selection;
    state.entries.clear();
    for (const auto& planned : state.plan.entries) {
        const auto& video = planned.video;
        VimeoPlanEntry entry;
        entry.id = video.id;
        entry.title = video.title;
        entry.created = video.created;
        entry.duration = video.duration;
        entry.privacy = VimeoWords::privacy(video.privacy);
        entry.limitsViewers = VimeoSyncPlan::limitsViewers(video.privacy);
        if (const auto* imported = std::get_if<vimeoDecision::Imported>(&planned.decision)) entry.folder = imported->folder;
        entry.isReady = video.isReady;
        entry.isInColdStorage = video.isInColdStorage;
        entry.vimeoFile = video.file;

        // A file chosen by hand stands over the folder's match once it is inspected.
        bool isChosen = false;
        if (const auto chosen = selection.files.find(video.id); chosen != selection.files.end()) {
            entry.choice.file = chosen->second;
            if (const auto match = state.chosenMatches.find(video.id); match != state.chosenMatches.end()) {
                entry.fileMatch = match->second;
                isChosen = true;
            }
        }
        if (!entry.fileMatch)
            if (const auto match = state.folderMatches.find(video.id); match != state.folderMatches.end())
                entry.fileMatch = match->second;
        if (entry.fileMatch) {
            entry.fileMatchText = VimeoFileMatcher::text(*entry.fileMatch, video, isChosen);
            if (const auto settled = VimeoFileMatcher::settledFile(*entry.fileMatch)) entry.localFile = settled->url;
        }
        const bool hasLocalFile = entry.localFile.has_value();

        const auto* available = std::get_if<vimeoDecision::Available>(&planned.decision);
        if (const auto chosen = selection.visibilities.find(video.id); chosen != selection.visibilities.end())
            entry.choice.visibility = chosen->second;
        entry.visibility = entry.choice.visibility.value_or(available ? available->visibility
                                                                      : VimeoSyncPlan::defaultVisibility(video.privacy));
        entry.hasDifferentAudioLoudness = state.plan.hasDifferentAudioLoudness(planned);
        entry.canBeSelected = VimeoSyncPlan::canBeSelected(planned, hasLocalFile);
        entry.canBeReimported = entry.folder && (hasLocalFile || video.file);
        if (entry.canBeSelected) {
            const auto choice = selection.choices.find(video.id);
            entry.isSelected = choice != selection.choices.end()
                                   ? choice->second
                                   : VimeoSyncPlan::selectedByDefault(planned, hasLocalFile, state.rule);
        } else {
            entry.isSelected = entry.canBeReimported && selection.reimports.contains(video.id);
        }
        state.entries.push_back(std::move(entry));
    }
}

void VimeoSyncModel::changeSelection(const std::function<void(VimeoPlanState&)>& change) {
    auto* state = std::get_if<VimeoPlanState>(&phase_);
    if (!state) return;
    const auto before = state->selection;
    change(*state);
    rebuildEntries(*state);
    if (state->selection != before && host_.saveSelection) host_.saveSelection(state->selection);
    changed();
}

void VimeoSyncModel::setFilter(VimeoPlanFilter filter) {
    changeSelection([&](VimeoPlanState& state) { state.filter = filter; });
}

void VimeoSyncModel::setSearch(const std::string& text) {
    changeSelection([&](VimeoPlanState& state) { state.search = text; });
}

void VimeoSyncModel::setSelected(const std::string& videoID, bool selected) {
    changeSelection([&](VimeoPlanState& state) {
        for (const auto& entry : state.entries) {
            if (entry.id != videoID) continue;
            if (entry.canBeSelected)
                state.selection.choices[videoID] = selected;
            else if (entry.canBeReimported && selected)
                state.selection.reimports.insert(videoID);
            else
                state.selection.reimports.erase(videoID);
        }
    });
}

void VimeoSyncModel::setVisibility(const std::string& videoID, VideoVisibility visibility) {
    changeSelection([&](VimeoPlanState& state) { state.selection.visibilities[videoID] = visibility; });
}

void VimeoSyncModel::setIncludesAutoGeneratedSubtitles(bool includes) {
    changeSelection([&](VimeoPlanState& state) { state.selection.includesAutoGeneratedSubtitles = includes; });
}

void VimeoSyncModel::setRule(VimeoSelectionRule rule) {
    changeSelection([&](VimeoPlanState& state) {
        const bool privateChanged = rule.includesPrivateVideos != state.rule.includesPrivateVideos;
        const bool passwordChanged = rule.includesPasswordVideos != state.rule.includesPasswordVideos;
        state.rule = rule;
        // The choice is written out, so that the selection stays as it is when the window opens again.
        for (std::size_t at = 0; at < state.entries.size(); ++at) {
            const auto& entry = state.entries[at];
            const auto& planned = state.plan.entries[at];
            if (!entry.canBeSelected || !entry.limitsViewers) continue;
            const bool isPassword = VimeoSyncPlan::isPasswordPrivacy(planned.video.privacy);
            if (isPassword ? passwordChanged : privateChanged)
                state.selection.choices[entry.id] =
                    VimeoSyncPlan::selectedByDefault(planned, entry.localFile.has_value(), rule);
        }
    });
}

void VimeoSyncModel::selectByDefault() {
    changeSelection([](VimeoPlanState& state) {
        state.selection.choices.clear();
        state.selection.reimports.clear();
    });
}

std::vector<VimeoSyncItem> VimeoSyncModel::selectedItems(const VimeoPlanState& state) const {
    std::vector<VimeoSyncItem> items;
    for (std::size_t at = 0; at < state.entries.size(); ++at) {
        const auto& entry = state.entries[at];
        if (!entry.isSelected) continue;
        items.push_back(VimeoSyncItem{std::int64_t(items.size()), state.plan.entries[at].video, entry.visibility,
                                      entry.localFile, entry.folder.has_value()});
    }
    return items;
}

std::optional<VimeoProblem> VimeoSyncModel::start() {
    const auto* state = as<VimeoPlanState>();
    if (!state) return std::nullopt;
    auto refusal = [](std::string message) { return VimeoProblem{VimeoWords::cannotStart, std::move(message)}; };
    if (host_.isPublishing && host_.isPublishing()) return refusal(VimeoWords::publishing);
    if (host_.isBulkUploading && host_.isBulkUploading()) return refusal(VimeoWords::bulkUploading);
    if (host_.activeRun)
        if (auto run = host_.activeRun()) return refusal(*run);
    auto items = selectedItems(*state);
    if (items.empty()) return std::nullopt;

    VimeoSyncRequest request;
    try {
        request.access = host_.access();
        if (host_.willStart) host_.willStart();
    } catch (const std::exception& error) {
        return refusal(error.what());
    }
    if (host_.expectedUploadRate) request.expectedUploadRate = host_.expectedUploadRate();
    if (host_.uploadTuning) request.uploadTuning = host_.uploadTuning();
    request.computerName = host_.computerName;
    request.items = std::move(items);
    request.includesAutoGeneratedSubtitles = state->selection.includesAutoGeneratedSubtitles;
    scanTask_.reset();
    inspections_.clear();
    phase_ = VimeoRunState{request, std::nullopt, {}, false};

    runTask_.emplace(Task<void>::spawn([this, request, service = service_] {
        auto latest = std::make_shared<Newest<RunProgress>>();
        // Called under the run's lock: it copies and hands over, never waits for the main thread.
        auto report = [&](const VimeoSyncProgress& progress) {
            if (!latest->put(RunProgress{progress.snapshot, progress.subtitleProblems})) return;
            onMain([latest](VimeoSyncModel& self) {
                auto newest = latest->take();
                self.showProgress(std::move(newest.snapshot), std::move(newest.subtitleProblems));
            });
        };
        try {
            auto result = service->sync(request, report);
            onMain([result = std::move(result)](VimeoSyncModel& self) mutable {
                self.end(VimeoEndState{VimeoEndState::Ending::completed, result.snapshot.counts, std::move(result.items),
                                       std::move(result.snapshot.results), std::move(result.subtitleProblems)});
            });
        } catch (const Cancelled&) {
            onMain([](VimeoSyncModel& self) {
                const auto* running = self.as<VimeoRunState>();
                if (!running) return;
                const auto& progress = running->progress;
                self.end(VimeoEndState{VimeoEndState::Ending::stopped, progress ? progress->counts : BulkRowCounts{},
                                       running->request.items,
                                       progress ? progress->results : std::map<std::int64_t, BulkRowOutcome>{},
                                       running->subtitleProblems});
            });
        } catch (const std::exception& error) {
            onMain([message = std::string(error.what())](VimeoSyncModel& self) {
                const auto* running = self.as<VimeoRunState>();
                const bool didStart = running && running->progress;
                self.end(vimeoPhase::Failed{{didStart ? VimeoWords::stoppedTitle : VimeoWords::didNotStart, message}});
            });
        }
    }));
    changed();
    return std::nullopt;
}

void VimeoSyncModel::showProgress(BatchSnapshot snapshot, std::map<std::string, std::string> subtitleProblems) {
    auto* running = std::get_if<VimeoRunState>(&phase_);
    if (!running) return;
    running->progress = std::move(snapshot);
    running->subtitleProblems = std::move(subtitleProblems);
    changed();
}

void VimeoSyncModel::stop() {
    auto* running = std::get_if<VimeoRunState>(&phase_);
    if (!running || running->isStopping || !runTask_) return;
    running->isStopping = true;
    runTask_->cancel();
    changed();
}

void VimeoSyncModel::end(VimeoPhase ended) {
    // The run's thread has posted its last word; joining it here waits only for its return.
    runTask_.reset();
    // A video imported again is no longer to re-import.
    if (const auto* report = std::get_if<VimeoEndState>(&ended); report && host_.loadSelection && host_.saveSelection) {
        auto selection = host_.loadSelection();
        for (const auto& [index, outcome] : report->results)
            if (!std::holds_alternative<bulkOutcome::Failed>(outcome) && std::size_t(index) < report->items.size())
                selection.reimports.erase(report->items[std::size_t(index)].video.id);
        host_.saveSelection(selection);
    }
    phase_ = std::move(ended);
    if (host_.didEnd) host_.didEnd();
    changed();
}

}  // namespace vorlen::app
