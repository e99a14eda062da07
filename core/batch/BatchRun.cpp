#include "core/batch/BatchRun.hpp"

#include <fmt/format.h>

#include <cmath>
#include <mutex>

#include "core/base/Clock.hpp"
#include "core/base/Task.hpp"
#include "core/batch/BatchRunLease.hpp"
#include "core/batch/BulkTimeEstimate.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/publish/Naming.hpp"
#include "core/site/SiteSettings.hpp"

namespace vorlen {

namespace {

namespace fs = std::filesystem;

// A finished build on its way to the upload.
struct UploadJob {
    std::int64_t item = 0;
    std::string folder;
    std::string requestedName;
    std::variant<std::shared_ptr<BuiltFolder>, std::shared_ptr<BuiltAudio>> built;
    std::optional<ReplacementTarget> target;
};

// An item in work, with what the estimate needs to know of it.
struct Active {
    BatchActiveItem shown;
    std::optional<std::uint64_t> expectedBytes;
    std::optional<std::uint64_t> builtBytes;
};

std::string failureText(const std::exception& error) { return error.what(); }

// A folder whose record this version cannot read could hold a reference that the run would publish again.
void refuseUnreadableRecords(const std::vector<LibraryVideo>& videos, BatchRunKind kind) {
    std::vector<std::pair<std::string, std::string>> unreadable;
    for (const auto& video : videos)
        if (const auto* bad = std::get_if<LibraryVideo::Unreadable>(&video.metadataFile))
            unreadable.emplace_back(video.folder, bad->reason);
    if (unreadable.empty()) return;
    const auto others = unreadable.size() - 1;
    const std::string more =
        others == 0 ? "" : fmt::format(" and {} other folder{}", others, others == 1 ? "" : "s");
    throw VorlenError::metadata(fmt::format(
        "The {0} did not start. In the bucket, the folder \u201c{1}\u201d{2} has a video.json that this version of "
        "Vorlen cannot read: {3} Vorlen cannot see the reference of such a folder, so it could publish a duplicate. "
        "Update Vorlen, then start the {0} again.",
        displayName(kind), unreadable.front().first, more, unreadable.front().second));
}

class Engine {
public:
    Engine(const BatchRun& run, BatchContext context, BulkReferenceIndex index)
        : run_(run), source_(*run.source), context_(std::move(context)), index_(std::move(index)) {
        counts_.alreadyDone = run.alreadyDone;
        counts_.left = source_.itemCount();
        estimate_.uploadRate = run.publisher.expectedUploadRate;
    }

    BatchSnapshot work() {
        {
            std::lock_guard lock(mutex_);
            sendSnapshot();
        }
        TaskGroup<void> uploads;
        for (std::int64_t item = 0; item < source_.itemCount(); ++item) {
            checkCancellation();
            {
                std::lock_guard lock(mutex_);
                BatchActiveItem shown;
                shown.item = item;
                active_.push_back(Active{shown, {}, {}});
                sendSnapshot();
            }
            auto job = walk(item, uploads);
            if (!job) continue;
            setPhase(item, BatchPhase::waitingForUpload);
            uploads.next();
            uploads.spawn([this, job = std::move(*job)]() mutable { upload(std::move(job)); });
        }
        while (uploads.next()) {
        }
        std::lock_guard lock(mutex_);
        return snapshot();
    }

private:
    // Resumes, decides and processes one item; gives the upload it needs, if any.
    std::optional<UploadJob> walk(std::int64_t item, TaskGroup<void>& uploads) {
        const auto resumed = source_.resume(item, context_);
        if (const auto* finished = std::get_if<batchResume::Finished>(&resumed)) {
            record(item, finished->outcome);
            return std::nullopt;
        }
        const auto& replacement = std::get<batchResume::Start>(resumed).replacement;
        const auto reference = source_.reference(item);
        for (;;) {
            BulkRowDecision decision;
            {
                std::lock_guard lock(mutex_);
                decision = index_.decide(item, reference, replacement);
            }
            if (const auto* skip = std::get_if<bulkDecision::Skip>(&decision)) {
                record(item, bulkOutcome::Skipped{location(skip->folder)});
                return std::nullopt;
            }
            if (std::holds_alternative<bulkDecision::NotFound>(decision)) {
                record(item, bulkOutcome::Failed{BatchRun::siteLacksVideo});
                return std::nullopt;
            }
            if (std::holds_alternative<bulkDecision::Wait>(decision)) {
                setPhase(item, BatchPhase::waitingForReference);
                if (uploads.isEmpty()) {
                    record(item, bulkOutcome::Failed{"Another row with the same reference did not finish, so Vorlen did "
                                                     "not publish this row."});
                    return std::nullopt;
                }
                uploads.next();
                continue;
            }
            std::vector<std::string> interrupted;
            std::optional<std::string> replaced;
            if (const auto* redo = std::get_if<bulkDecision::Redo>(&decision)) interrupted = redo->interruptedFolders;
            if (const auto* replace = std::get_if<bulkDecision::Replace>(&decision)) replaced = replace->folder;
            return process(item, reference, interrupted, replaced);
        }
    }

    std::optional<UploadJob> process(std::int64_t item, const std::optional<std::string>& reference,
                                     const std::vector<std::string>& interrupted,
                                     const std::optional<std::string>& replaced) {
        // Whatever the source made for this item goes on every way out.
        struct Discarding {
            std::function<void()> discard;
            ~Discarding() {
                if (discard) discard();
            }
        } discarding;
        try {
            const auto prepared = source_.prepare(item, [&](double fraction) {
                std::lock_guard lock(mutex_);
                if (auto* entry = find(item)) {
                    entry->shown.phase = BatchPhase::downloading;
                    entry->shown.downloadFraction = fraction;
                }
                sendSnapshot();
            });
            discarding.discard = prepared.discard;
            return build(item, reference, prepared, interrupted, replaced);
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            if (isCancelled()) throw Cancelled();
            record(item, bulkOutcome::Failed{failureText(error)});
            return std::nullopt;
        }
    }

    std::optional<UploadJob> build(std::int64_t item, const std::optional<std::string>& reference,
                                   const BatchPreparedItem& prepared, const std::vector<std::string>& interrupted,
                                   const std::optional<std::string>& replaced) {
        const auto& library = *context_.library;
        for (const auto& folder : interrupted) {
            if (!Naming::isValidName(folder))
                throw VorlenError::source(fmt::format(
                    "\u201c{}\u201d is not a video folder of the site, so Vorlen did not re-import the video.", folder));
            try {
                LibraryVideo video;
                video.folder = folder;
                video.prefix = library.destination.prefix + folder + "/";
                library.remove(video);
            } catch (const Cancelled&) {
                throw;
            } catch (const std::exception& error) {
                throw VorlenError::source(
                    fmt::format("Vorlen could not delete the interrupted folder \u201c{}\u201d: {}", folder, error.what()));
            }
        }

        Inspection inspection;
        try {
            // New audio may come from a file without a picture.
            inspection = replaced && run_.reimport == ReimportMode::audioOnly
                             ? inspectAudio(run_.publisher.tools, prepared.source)
                             : run_.publisher.inspect(prepared.source);
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            throw VorlenError::source(fmt::format("\u201c{}\u201d is not a video that Vorlen can publish: {}",
                                                  prepared.source.filename().string(), error.what()));
        }
        std::error_code sizeError;
        const auto size = fs::file_size(prepared.source, sizeError);
        {
            std::lock_guard lock(mutex_);
            if (!sizeError) {
                if (auto* entry = find(item)) entry->expectedBytes = size;
                estimate_.inspectedBytes += size;
                ++estimate_.inspectedCount;
            }
        }

        UploadJob job;
        job.item = item;
        if (replaced) {
            try {
                job.target = library.replacementTarget(*replaced);
            } catch (const Cancelled&) {
                throw;
            } catch (const std::exception& error) {
                throw VorlenError::source(
                    fmt::format("Vorlen could not read the video in \u201c{}\u201d: {}", *replaced, error.what()));
            }
            job.folder = *replaced;
        } else {
            auto name = prepared.name.value_or(Naming::folderNameForFile(prepared.source.filename().string()));
            if (prepared.visibility == VideoVisibility::unlisted) name = Naming::unlistedName(name);
            job.requestedName = name;
            job.folder = run_.publisher.resolveFolder(name, takenNames());
        }
        {
            std::lock_guard lock(mutex_);
            if (!replaced) reserved_[item] = job.folder;
            if (auto* entry = find(item)) {
                entry->shown.folder = job.folder;
                entry->shown.isReplacement = replaced.has_value();
                entry->shown.phase = BatchPhase::building;
            }
            source_.storeStart(item, job.folder, replaced.has_value());
            sendSnapshot();
        }

        const auto buildStarted = BootClock::now();
        const auto onProgress = [&](const PublishProgress& progress) { showProgress(item, progress); };
        std::uint64_t builtBytes = 0;
        if (job.target && run_.reimport == ReimportMode::audioOnly) {
            auto audio = library.buildAudio(*job.target, inspection, context_.audioLoudness, run_.publisher, onProgress);
            builtBytes = audio->byteCount();
            job.built = std::move(audio);
        } else if (job.target) {
            auto video = run_.publisher.build(inspection, job.target->metadata.details, context_.audioLoudness,
                                              job.target->metadata.created, onProgress);
            builtBytes = video->byteCount();
            job.built = std::move(video);
        } else {
            const VideoDetails details(prepared.title.value_or(inspection.suggestedTitle), reference,
                                       prepared.description, prepared.visibility);
            auto video = run_.publisher.build(inspection, details, context_.audioLoudness, prepared.created, onProgress,
                                              prepared.review, prepared.subtitles);
            builtBytes = video->byteCount();
            job.built = std::move(video);
        }
        std::lock_guard lock(mutex_);
        if (auto* entry = find(item)) {
            if (entry->expectedBytes) {
                estimate_.builtExpectedBytes += *entry->expectedBytes;
                estimate_.builtBytes += builtBytes;
                estimate_.buildSeconds += std::chrono::duration<double>(BootClock::now() - buildStarted).count();
            }
            entry->builtBytes = builtBytes;
        }
        return job;
    }

    void upload(UploadJob job) {
        setPhase(job.item, BatchPhase::uploading);
        const auto onProgress = [&](const PublishProgress& progress) {
            std::lock_guard lock(mutex_);
            if (progress.uploadRate && *progress.uploadRate > 0 && std::isfinite(*progress.uploadRate))
                estimate_.uploadRate = progress.uploadRate;
            if (auto* entry = find(job.item)) entry->shown.progress = progress;
            sendSnapshot();
        };
        try {
            UploadJournal journal;
            const auto& library = *context_.library;
            if (const auto* audio = std::get_if<std::shared_ptr<BuiltAudio>>(&job.built)) {
                auto replaced = library.replaceAudio(*job.target, **audio, run_.publisher, journal, onProgress);
                record(job.item, bulkOutcome::Replaced{location(job.folder), problem(replaced.notes())});
                return;
            }
            auto& built = *std::get<std::shared_ptr<BuiltFolder>>(job.built);
            if (job.target) {
                auto replaced = library.replace(*job.target, built, run_.publisher, journal, onProgress);
                record(job.item, bulkOutcome::Replaced{location(job.folder), problem(replaced.notes())});
                return;
            }
            const auto published = run_.publisher.publish(
                built, UploadFolder{job.requestedName, job.folder, false}, journal, onProgress,
                [&](const std::string& folder) {
                    // Another computer took the folder first: the upload moved on to the next free name.
                    std::lock_guard lock(mutex_);
                    job.folder = folder;
                    reserved_[job.item] = folder;
                    if (auto* entry = find(job.item)) entry->shown.folder = folder;
                    source_.storeStart(job.item, folder, false);
                    sendSnapshot();
                });
            record(job.item, bulkOutcome::Published{location(job.folder)});
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            if (isCancelled()) throw Cancelled();
            record(job.item, bulkOutcome::Failed{failureText(error)});
        }
    }

    // Under the lock: the source keeps it first, since its failure ends the run.
    void record(std::int64_t item, const BulkRowOutcome& outcome) {
        std::lock_guard lock(mutex_);
        source_.storeOutcome(item, outcome);
        std::erase_if(active_, [&](const Active& entry) { return entry.shown.item == item; });
        std::optional<std::string> publishedFolder, replacedFolder;
        std::visit(
            [&](const auto& ended) {
                using Ended = std::decay_t<decltype(ended)>;
                if constexpr (std::is_same_v<Ended, bulkOutcome::Published>) {
                    publishedFolder = ended.location.folder;
                    ++counts_.published;
                } else if constexpr (std::is_same_v<Ended, bulkOutcome::Replaced>) {
                    replacedFolder = ended.location.folder;
                    ++counts_.replaced;
                } else if constexpr (std::is_same_v<Ended, bulkOutcome::Skipped>) {
                    ++counts_.skipped;
                } else {
                    ++counts_.failed;
                }
            },
            outcome);
        reserved_.erase(item);
        index_.finished(item, source_.reference(item), publishedFolder, replacedFolder);
        results_[item] = outcome;
        --counts_.left;
        sendSnapshot();
    }

    void setPhase(std::int64_t item, BatchPhase phase) {
        std::lock_guard lock(mutex_);
        if (auto* entry = find(item)) entry->shown.phase = phase;
        sendSnapshot();
    }

    void showProgress(std::int64_t item, const PublishProgress& progress) {
        std::lock_guard lock(mutex_);
        if (auto* entry = find(item)) entry->shown.progress = progress;
        sendSnapshot();
    }

    Active* find(std::int64_t item) {
        for (auto& entry : active_)
            if (entry.shown.item == item) return &entry;
        return nullptr;
    }

    std::vector<std::string> takenNames() {
        std::lock_guard lock(mutex_);
        std::vector<std::string> taken;
        for (const auto& [folder, video] : context_.videos) taken.push_back(folder);
        for (const auto& [item, folder] : reserved_) taken.push_back(folder);
        return taken;
    }

    BulkPublishedLocation location(const std::string& folder) const { return {folder, context_.pageBase + folder}; }

    static std::optional<std::string> problem(const std::vector<std::string>& notes) {
        if (notes.empty()) return std::nullopt;
        std::string joined;
        for (const auto& note : notes) joined += (joined.empty() ? "" : " ") + note;
        return joined;
    }

    // The work left: queued items, bytes still to send, and the build in work.
    std::optional<double> eta() const {
        BulkTimeEstimate::Work work;
        work.queued = std::max<std::int64_t>(0, counts_.left - std::int64_t(active_.size()));
        const Active* building = nullptr;
        for (const auto& entry : active_) {
            if (entry.shown.phase != BatchPhase::uploading) {
                building = &entry;
                continue;
            }
            if (const auto& progress = entry.shown.progress; progress && progress->stage == PublishProgress::Stage::uploading)
                work.uploadBytes += progress->uploadTotalBytes - std::min(progress->uploadedBytes, progress->uploadTotalBytes);
            else
                work.uploadBytes += entry.builtBytes.value_or(0);
        }
        if (building) {
            if (building->builtBytes) {
                work.build = BulkTimeEstimate::Work::Built{*building->builtBytes};
            } else if (building->expectedBytes) {
                double fraction = 1;
                if (building->shown.phase == BatchPhase::building)
                    fraction = building->shown.progress ? building->shown.progress->stageFraction : 0;
                work.build = BulkTimeEstimate::Work::Building{*building->expectedBytes, fraction};
            } else {
                work.build = BulkTimeEstimate::Work::Unknown{};
            }
        }
        return estimate_.secondsLeft(work);
    }

    BatchSnapshot snapshot() const {
        BatchSnapshot made{counts_, results_, {}, eta()};
        for (const auto& entry : active_) made.activeItems.push_back(entry.shown);
        return made;
    }

    void sendSnapshot() const {
        if (run_.onSnapshot) run_.onSnapshot(snapshot());
    }

    const BatchRun& run_;
    BatchSource& source_;
    const BatchContext context_;

    mutable std::mutex mutex_;
    BulkReferenceIndex index_;
    std::map<std::int64_t, std::string> reserved_;
    BulkRowCounts counts_;
    std::map<std::int64_t, BulkRowOutcome> results_;
    std::vector<Active> active_;
    BulkTimeEstimate estimate_;
};

}  // namespace

BatchSnapshot BatchRun::run() const {
    const auto& bucket = publisher.destination.bucket;
    const RetryPolicy retry{library.options.maxRetries, library.options.retryDelay, {}};
    BatchSnapshot result;
    BatchRunLease::hold(bucket, retry, kind, computerName, recordInterval, [&] {
        const auto videos = library.read();
        refuseUnreadableRecords(videos, kind);
        BatchContext context{&library, pageBase, {}, AudioLoudness::broadcast};
        if (const auto settings = retry.run([&](std::int64_t) { return SiteSettings::read(*bucket); }))
            context.audioLoudness = settings->audioLoudness;
        std::vector<BulkBucketFolder> folders;
        for (const auto& video : videos) {
            context.videos.emplace(video.folder, video);
            folders.push_back(BulkBucketFolder::of(video));
        }
        Engine engine(*this, std::move(context), BulkReferenceIndex::make(folders));
        result = engine.work();
    });
    return result;
}

}  // namespace vorlen
