#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "app/BulkColumnRole.hpp"
#include "app/BulkService.hpp"
#include "app/MainQueue.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// A failure to tell, with the spreadsheet it is about.
struct BulkProblem {
    std::filesystem::path input;
    std::string title;
    std::string message;
    bool operator==(const BulkProblem&) const = default;
};

// The columns that the person confirms before a run, and what they give.
struct BulkMappingState {
    struct NeedsFile {};
    struct Failed { std::string message; };
    using Plan = std::variant<BulkPlan, Failed, NeedsFile>;

    BulkSheetFile sheet;
    BulkColumnChoice choice;
    Plan plan = NeedsFile{};
    ReimportMode reimport = ReimportMode::skip;
    std::vector<BulkSheetColumn> columns;                // the person's columns
    std::vector<std::vector<std::string>> sampleRows;    // their cells, in the order of `columns`
    std::string origin;                                  // what was opened, in the person's words
    std::optional<std::string> newRows;                  // the rows that the results will take in
};

struct BulkRunState {
    BulkRunRequest request;
    std::optional<BatchSnapshot> progress;
    std::vector<BulkRow> rows;  // the run's items, known from its first progress
    bool isStopping = false;
    std::map<std::filesystem::path, double> durations;  // seconds, as they are read in the background
};

struct BulkEndState {
    enum class Ending { completed, stopped };
    std::filesystem::path input;
    Ending ending = Ending::completed;
    std::filesystem::path output;
    BulkSheetSource source = BulkSheetSource::input;
    std::int64_t addedRowCount = 0;
    BulkRowCounts counts;
    std::vector<BulkRow> rows;
    std::map<std::int64_t, BulkRowOutcome> results;  // by index in `rows`
    std::map<std::filesystem::path, double> durations;  // those the run had read
};

namespace bulkPhase {
struct Opening { std::filesystem::path input; };
struct Unreadable { BulkProblem problem; };
struct Empty { std::filesystem::path input; };
struct Failed { BulkProblem problem; };
}  // namespace bulkPhase

using BulkPhase = std::variant<bulkPhase::Opening, bulkPhase::Unreadable, bulkPhase::Empty, BulkMappingState,
                               BulkRunState, BulkEndState, bulkPhase::Failed>;

// The bulk upload of one site as its window shows it: a spreadsheet opened,
// its columns confirmed, its rows published. Lives on the main thread; the
// opening and the run go on tasks and come back through the main queue.
class BulkUploadModel : public std::enable_shared_from_this<BulkUploadModel> {
public:
    // What the model asks of the site around it.
    struct Host {
        std::function<BucketAccess()> access;  // may fail, as a secret store may
        std::function<std::optional<double>()> expectedUploadRate;
        std::function<UploadTuning()> uploadTuning;
        std::string computerName;
        std::function<bool()> isPublishing;
        std::function<bool()> isSyncing;
        // The words of a run that another computer holds on the site, if one does.
        std::function<std::optional<std::string>()> activeRun;
        std::function<void()> willStart;
        std::function<void()> didEnd;
    };

    static std::shared_ptr<BulkUploadModel> make(std::shared_ptr<BulkService> service, Host host, MainQueue& mainQueue);
    ~BulkUploadModel();

    const BulkPhase& phase() const { return phase_; }
    template <class T> const T* as() const { return std::get_if<T>(&phase_); }
    bool isRunning() const { return as<BulkRunState>() != nullptr; }
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    // Reads a spreadsheet and its results copy; not while a run goes on.
    void open(const std::filesystem::path& input);

    // The mapping: a column for a role, or none, and how rows whose video the site has are treated.
    void choose(BulkColumnRole role, std::optional<BulkSheetColumn> column);
    void setReimport(ReimportMode mode);
    // Clears the page address of the done rows in the results, so that the run re-imports them.
    std::optional<BulkProblem> reimportDoneRows();

    // Refused, with the reason, while another job holds the site or the mapping is not complete.
    std::optional<BulkProblem> start();
    // The rows in progress stop and delete what they uploaded; the run then ends as stopped.
    void stop();

private:
    BulkUploadModel(std::shared_ptr<BulkService> service, Host host, MainQueue& mainQueue)
        : service_(std::move(service)), host_(std::move(host)), mainQueue_(mainQueue) {}
    void changed();
    void onMain(std::function<void(BulkUploadModel&)> work);
    void showSheet(BulkSheetFile sheet);
    void replan(BulkMappingState& mapping) const;
    void showProgress(BatchSnapshot snapshot, std::vector<BulkRow> rows);
    void readDurations(const std::vector<BulkRow>& rows);
    void end(BulkPhase ended);

    std::shared_ptr<BulkService> service_;
    Host host_;
    MainQueue& mainQueue_;
    std::vector<std::function<void()>> observers_;

    BulkPhase phase_ = bulkPhase::Opening{};
    std::uint64_t openGeneration_ = 0;
    std::optional<Task<void>> openTask_;
    std::optional<Task<void>> runTask_;
    std::optional<Task<void>> durationTask_;
    // The newest progress of the run, handed to the main thread one post at a time.
    std::shared_ptr<std::atomic<bool>> progressPosted_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace vorlen::app
