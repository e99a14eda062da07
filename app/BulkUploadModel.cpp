#include "app/BulkUploadModel.hpp"

#include <mutex>
#include <set>

#include "app/BulkWords.hpp"
#include "core/base/Text.hpp"

namespace vorlen::app {

namespace {

constexpr std::size_t sampleRowCount = 5;

// The rows below the header that hold something in the person's columns, up to `limit`.
std::vector<std::size_t> rowsWithContent(const BulkSheet& sheet, std::size_t limit) {
    std::vector<std::size_t> found;
    const auto& rows = sheet.table.rows;
    for (std::size_t row = 1; row < rows.size() && found.size() < limit; ++row) {
        for (std::size_t cell = 0; cell < rows[row].size(); ++cell) {
            if (!sheet.isAddedColumn(std::int64_t(cell)) && !trimmed(rows[row][cell]).empty()) {
                found.push_back(row);
                break;
            }
        }
    }
    return found;
}

std::vector<std::vector<std::string>> sampleRows(const BulkSheet& sheet, const std::vector<BulkSheetColumn>& columns) {
    std::vector<std::vector<std::string>> samples;
    for (const auto row : rowsWithContent(sheet, sampleRowCount)) {
        const auto& cells = sheet.table.rows[row];
        auto& sample = samples.emplace_back();
        for (const auto& column : columns) {
            const auto at = std::size_t(column.index);
            sample.push_back(at < cells.size() ? cells[at] : std::string());
        }
    }
    return samples;
}

}  // namespace

std::shared_ptr<BulkUploadModel> BulkUploadModel::make(std::shared_ptr<BulkService> service, Host host,
                                                       MainQueue& mainQueue) {
    return std::shared_ptr<BulkUploadModel>(new BulkUploadModel(std::move(service), std::move(host), mainQueue));
}

BulkUploadModel::~BulkUploadModel() {
    // Dropping the tasks cancels them and waits; what they post finds no model.
    openTask_.reset();
    durationTask_.reset();
    runTask_.reset();
}

void BulkUploadModel::changed() {
    for (const auto& observer : observers_) observer();
}

void BulkUploadModel::onMain(std::function<void(BulkUploadModel&)> work) {
    std::weak_ptr<BulkUploadModel> weak = weak_from_this();
    mainQueue_.post([weak, work = std::move(work)] {
        if (auto self = weak.lock()) work(*self);
    });
}

void BulkUploadModel::open(const std::filesystem::path& input) {
    if (isRunning()) return;
    const auto generation = ++openGeneration_;
    phase_ = bulkPhase::Opening{input};
    openTask_.reset();
    openTask_.emplace(Task<void>::spawn([this, generation, input, service = service_] {
        std::optional<BulkSheetFile> sheet;
        std::string failure;
        try {
            sheet = service->open(input);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        onMain([generation, input, sheet = std::move(sheet), failure](BulkUploadModel& self) mutable {
            if (generation != self.openGeneration_) return;
            self.openTask_.reset();
            if (sheet)
                self.showSheet(std::move(*sheet));
            else
                self.phase_ = bulkPhase::Unreadable{{input, BulkWords::cannotOpen, failure}};
            self.changed();
        });
    }));
    changed();
}

void BulkUploadModel::showSheet(BulkSheetFile sheet) {
    const bool hasRows = !rowsWithContent(sheet.sheet, 1).empty() ||
                         (sheet.inputSheet && !rowsWithContent(*sheet.inputSheet, 1).empty());
    if (!hasRows) {
        phase_ = bulkPhase::Empty{sheet.input};
        return;
    }
    BulkMappingState mapping;
    mapping.choice = BulkColumnChoice::byLabels(sheet.sheet);
    mapping.columns = sheet.sheet.inputColumns();
    mapping.sampleRows = sampleRows(sheet.sheet, mapping.columns);
    mapping.origin = BulkWords::origin(sheet.source, sheet.output);
    mapping.sheet = std::move(sheet);
    replan(mapping);
    phase_ = std::move(mapping);
}

void BulkUploadModel::replan(BulkMappingState& mapping) const {
    mapping.newRows.reset();
    const auto columns = mapping.choice.mapping();
    if (!columns) {
        mapping.plan = BulkMappingState::NeedsFile{};
        return;
    }
    try {
        const auto plan = mapping.sheet.plan(*columns);
        mapping.plan = plan;
        if (plan.newRowCount > 0) mapping.newRows = BulkWords::newRows(plan.newRowCount);
    } catch (const std::exception& error) {
        mapping.plan = BulkMappingState::Failed{error.what()};
    }
}

void BulkUploadModel::choose(BulkColumnRole role, std::optional<BulkSheetColumn> column) {
    auto* mapping = std::get_if<BulkMappingState>(&phase_);
    if (!mapping) return;
    mapping->choice[role] = std::move(column);
    replan(*mapping);
    changed();
}

void BulkUploadModel::setReimport(ReimportMode mode) {
    auto* mapping = std::get_if<BulkMappingState>(&phase_);
    if (!mapping) return;
    mapping->reimport = mode;
    changed();
}

std::optional<BulkProblem> BulkUploadModel::reimportDoneRows() {
    auto* mapping = std::get_if<BulkMappingState>(&phase_);
    if (!mapping) return std::nullopt;
    const auto columns = mapping->choice.mapping();
    if (!columns) return std::nullopt;
    auto& file = mapping->sheet;
    try {
        auto rows = file.sheet.rows(*columns, file.input.parent_path());
        std::erase_if(rows, [](const BulkRow& row) { return !row.pageURL; });
        file.requestReimport(rows);
    } catch (const std::exception& error) {
        return BulkProblem{file.input, BulkWords::cannotChangeResults, error.what()};
    }
    replan(*mapping);
    changed();
    return std::nullopt;
}

std::optional<BulkProblem> BulkUploadModel::start() {
    auto* mapping = std::get_if<BulkMappingState>(&phase_);
    if (!mapping) return std::nullopt;
    const auto& input = mapping->sheet.input;
    auto refusal = [&](std::string message) { return BulkProblem{input, BulkWords::cannotStart, std::move(message)}; };
    if (host_.isPublishing && host_.isPublishing()) return refusal(BulkWords::publishing);
    if (host_.isSyncing && host_.isSyncing()) return refusal(BulkWords::syncing);
    if (host_.activeRun)
        if (auto run = host_.activeRun()) return refusal(*run);
    const auto columns = mapping->choice.mapping();
    if (const auto* failed = std::get_if<BulkMappingState::Failed>(&mapping->plan)) return refusal(failed->message);
    if (!columns) return std::nullopt;

    BulkRunRequest request;
    request.input = input;
    request.mapping = *columns;
    request.reimport = mapping->reimport;
    try {
        request.access = host_.access();
    } catch (const std::exception& error) {
        return refusal(error.what());
    }
    if (host_.expectedUploadRate) request.expectedUploadRate = host_.expectedUploadRate();
    if (host_.uploadTuning) request.uploadTuning = host_.uploadTuning();
    request.computerName = host_.computerName;
    if (host_.willStart) host_.willStart();
    // The counts of a stopped run come from its last progress; the mapping knows the rest of its report.
    const auto source = mapping->sheet.source;
    const auto* plan = std::get_if<BulkPlan>(&mapping->plan);
    const std::int64_t addedRows = plan ? plan->newRowCount : 0;
    phase_ = BulkRunState{request, std::nullopt, {}, false, {}};

    struct Latest {
        std::mutex mutex;
        BatchSnapshot snapshot;
        std::vector<BulkRow> rows;
    };
    auto latest = std::make_shared<Latest>();
    auto posted = progressPosted_;
    runTask_.emplace(Task<void>::spawn([this, request, source, addedRows, latest, posted, service = service_] {
        // Called under the run's lock: it copies and hands over, never waits for the main thread.
        auto report = [&](const BulkProgress& progress) {
            {
                std::lock_guard lock(latest->mutex);
                latest->snapshot = progress.snapshot;
                if (latest->rows.empty() && progress.items) latest->rows = *progress.items;
            }
            if (posted->exchange(true)) return;
            onMain([latest, posted](BulkUploadModel& self) {
                posted->store(false);
                std::lock_guard lock(latest->mutex);
                self.showProgress(latest->snapshot, latest->rows);
            });
        };
        try {
            auto ran = service->run(request, report);
            onMain([input = request.input, ran = std::move(ran)](BulkUploadModel& self) mutable {
                auto& result = ran.result;
                self.end(BulkEndState{input, BulkEndState::Ending::completed, ran.output, ran.source, ran.addedRowCount,
                                      result.snapshot.counts, std::move(result.items), std::move(result.snapshot.results), {}});
            });
        } catch (const Cancelled&) {
            onMain([input = request.input, source, addedRows](BulkUploadModel& self) {
                const auto* running = std::get_if<BulkRunState>(&self.phase_);
                if (!running) return;
                const auto& progress = running->progress;
                self.end(BulkEndState{input, BulkEndState::Ending::stopped, BulkSheetFile::outputPath(input), source,
                                      progress ? addedRows : 0, progress ? progress->counts : BulkRowCounts{},
                                      running->rows, progress ? progress->results : std::map<std::int64_t, BulkRowOutcome>{}, {}});
            });
        } catch (const std::exception& error) {
            onMain([input = request.input, message = std::string(error.what())](BulkUploadModel& self) {
                const auto* running = std::get_if<BulkRunState>(&self.phase_);
                const bool didStart = running && running->progress;
                self.end(bulkPhase::Failed{{input, didStart ? BulkWords::stoppedTitle : BulkWords::didNotStart, message}});
            });
        }
    }));
    changed();
    return std::nullopt;
}

void BulkUploadModel::showProgress(BatchSnapshot snapshot, std::vector<BulkRow> rows) {
    auto* running = std::get_if<BulkRunState>(&phase_);
    if (!running) return;
    running->progress = std::move(snapshot);
    if (running->rows.empty() && !rows.empty()) {
        running->rows = std::move(rows);
        readDurations(running->rows);
    }
    changed();
}

void BulkUploadModel::readDurations(const std::vector<BulkRow>& rows) {
    std::vector<std::filesystem::path> files;
    std::set<std::filesystem::path> seen;
    for (const auto& row : rows)
        if (row.file && seen.insert(*row.file).second) files.push_back(*row.file);
    durationTask_.emplace(Task<void>::spawn([this, files = std::move(files), service = service_] {
        for (const auto& file : files) {
            checkCancellation();
            const auto seconds = service->duration(file);
            if (!seconds) continue;
            onMain([file, seconds = *seconds](BulkUploadModel& self) {
                auto* running = std::get_if<BulkRunState>(&self.phase_);
                if (!running) return;
                running->durations[file] = seconds;
                self.changed();
            });
        }
    }));
}

void BulkUploadModel::stop() {
    auto* running = std::get_if<BulkRunState>(&phase_);
    if (!running || running->isStopping || !runTask_) return;
    running->isStopping = true;
    runTask_->cancel();
    changed();
}

void BulkUploadModel::end(BulkPhase ended) {
    // The run's thread has posted its last word; joining it here waits only for its return.
    runTask_.reset();
    durationTask_.reset();
    auto* report = std::get_if<BulkEndState>(&ended);
    if (auto* running = std::get_if<BulkRunState>(&phase_); running && report) report->durations = std::move(running->durations);
    phase_ = std::move(ended);
    if (host_.didEnd) host_.didEnd();
    changed();
}

}  // namespace vorlen::app
