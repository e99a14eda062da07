#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <type_traits>
#include <variant>

#include <fmt/format.h>

#include "core/batch/BatchRun.hpp"
#include "core/batch/BulkSheet.hpp"

// The words of the bulk upload, for the window and the command line alike.
namespace vorlen::app::BulkWords {

inline constexpr const char* cannotOpen = "Cannot Open the Spreadsheet";
inline constexpr const char* cannotChangeResults = "Cannot Change the Results";
inline constexpr const char* cannotStart = "Cannot Start the Bulk Upload";
inline constexpr const char* didNotStart = "The Bulk Upload Did Not Start";
inline constexpr const char* stoppedTitle = "The Bulk Upload Stopped";
inline constexpr const char* uploadStoppedSuffix = " Upload Stopped";
inline constexpr const char* empty = "The spreadsheet has no rows below its header.";
inline constexpr const char* publishing =
    "Vorlen is publishing a video. Start the bulk upload when that video is published or cancelled.";
inline constexpr const char* syncing = "A Vimeo sync is running. Start the bulk upload when the sync ends or stops.";
inline constexpr const char* stopQuestion = "Stop the bulk upload?";
inline constexpr const char* stopExplanation =
    "The rows in progress stop, and Vorlen deletes the files that they uploaded. The results file keeps each finished "
    "row. To continue later, open the same spreadsheet again.";
inline constexpr const char* stopping = "Stopping. The rows in progress delete their uploaded files\u2026";
inline constexpr const char* completedTitle = "Bulk Upload Complete";
inline constexpr const char* needsFile = "Choose the column with the paths of the videos.";

// The choice for rows whose video the site has already.
inline const char* reimportChoice(ReimportMode mode) {
    switch (mode) {
        case ReimportMode::videoAndAudio: return "Re-import their video and audio";
        case ReimportMode::audioOnly: return "Re-import their audio only";
        case ReimportMode::skip: break;
    }
    return "Skip them";
}

// "3 rows: 1 done earlier, 2 to publish."
inline std::string plan(const BulkPlan& plan) {
    const auto rows = plan.rowCount + plan.newRowCount;
    return fmt::format("{} {}: {} done earlier, {} to publish.", rows, rows == 1 ? "row" : "rows", plan.doneCount,
                       rows - plan.doneCount);
}

inline std::string counts(const BulkRowCounts& counts) {
    return fmt::format("Published: {}, re-imported: {}, skipped: {}, failed: {}, left: {}", counts.published,
                       counts.replaced, counts.skipped, counts.failed, counts.left);
}

// How a row ended, in the words of the results' status column.
inline std::string outcome(const BulkRowOutcome& outcome) { return statusText(statusOf(outcome)); }

// What the mapping tells of the file that was opened.
inline std::string origin(BulkSheetSource source, const std::filesystem::path& output) {
    const auto name = output.filename().string();
    switch (source) {
        case BulkSheetSource::inputAsOutputCopy:
            return "This file holds the results of an earlier upload. Vorlen continues in it.";
        case BulkSheetSource::outputCopy: return fmt::format("Vorlen continues from the results in \u201c{}\u201d.", name);
        case BulkSheetSource::outputCopyWithDifferentInputColumns:
            return fmt::format("The columns of the spreadsheet are different from the columns in \u201c{0}\u201d. Vorlen "
                               "continues from the results, without the new rows of the spreadsheet. To start again, "
                               "move \u201c{0}\u201d to a different folder.",
                               name);
        case BulkSheetSource::input: break;
    }
    return fmt::format("No row is done yet. Vorlen writes the result of each row to \u201c{}\u201d.", name);
}

inline std::string newRows(std::int64_t count) {
    if (count == 1) return "The spreadsheet has 1 new row. Vorlen adds it to the results and publishes it.";
    return fmt::format("The spreadsheet has {} new rows. Vorlen adds them to the results and publishes them.", count);
}

inline std::string doneEarlier(std::int64_t count) {
    return count == 1 ? "1 row was done earlier." : fmt::format("{} rows were done earlier.", count);
}

inline std::string addedRows(std::int64_t count) {
    return count == 1 ? "Vorlen added 1 new row from the spreadsheet."
                      : fmt::format("Vorlen added {} new rows from the spreadsheet.", count);
}

inline std::string phase(BatchPhase phase) {
    switch (phase) {
        case BatchPhase::preparing: return "Prepares";
        case BatchPhase::downloading: return "Downloads";
        case BatchPhase::waitingForReference: return "Waits for a row with the same reference";
        case BatchPhase::building: return "Encodes";
        case BatchPhase::waitingForUpload: return "Waits for the upload before it";
        case BatchPhase::uploading: return "Uploads";
    }
    return "";
}

}  // namespace vorlen::app::BulkWords
