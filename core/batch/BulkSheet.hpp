#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/batch/BulkRowOutcome.hpp"
#include "core/batch/DelimitedText.hpp"

namespace vorlen {

// The three columns that a results copy adds to the person's columns, in this order.
enum class BulkAddedColumn { folder, pageURL, status };
// "Vorlen folder", "Vorlen page URL", "Vorlen status"
const char* columnName(BulkAddedColumn column);

struct BulkSheetColumn {
    std::int64_t index = 0;
    std::string name;
    bool operator==(const BulkSheetColumn&) const = default;
};

// Which of the person's columns play which role.
struct BulkColumnMapping {
    BulkSheetColumn file;
    std::optional<BulkSheetColumn> title;
    std::optional<BulkSheetColumn> reference;
    std::optional<BulkSheetColumn> description;
    std::optional<BulkSheetColumn> existingFolder;
};

// A row's state as the results copy records it.
namespace bulkStatus {
struct Publishing { std::string folder; };
struct Published { BulkPublishedLocation location; };
struct Skipped { BulkPublishedLocation location; };
struct Replacing { std::string folder; };
struct Replaced { BulkPublishedLocation location; std::optional<std::string> note; };
struct Failed { std::string message; };
struct ReimportRequested {};
}  // namespace bulkStatus

using BulkRowStatus = std::variant<bulkStatus::Publishing, bulkStatus::Published, bulkStatus::Skipped,
                                   bulkStatus::Replacing, bulkStatus::Replaced, bulkStatus::Failed,
                                   bulkStatus::ReimportRequested>;

// "Publishing", "Published", "Skipped: already in the bucket (<folder>)", ...
std::string statusText(const BulkRowStatus& status);
// How the copy records the end of a row.
BulkRowStatus statusOf(const BulkRowOutcome& outcome);

// A row as a run sees it: the mapped cells trimmed, empty cells absent.
struct BulkRow {
    std::int64_t index = 0;  // in the table, the header being 0
    std::optional<std::filesystem::path> file;
    std::optional<std::string> title;
    std::optional<std::string> reference;
    std::optional<std::string> description;
    std::optional<std::string> folder;      // "Vorlen folder"
    std::optional<std::string> pageURL;     // "Vorlen page URL"
    std::optional<std::string> statusText;  // "Vorlen status"
    std::optional<std::string> existingFolder;
};

// The counts of a mapping, before anything is written.
struct BulkPlan {
    std::int64_t rowCount = 0;
    std::int64_t doneCount = 0;
    std::int64_t newRowCount = 0;
    bool operator==(const BulkPlan&) const = default;
};

// A spreadsheet with the three added columns found or placed.
struct BulkSheet {
    struct AddedColumnPositions {
        std::int64_t folder = 0;
        std::int64_t pageURL = 0;
        std::int64_t status = 0;
    };

    DelimitedText table;
    bool isOutputCopy = false;  // all three added columns were in the header
    AddedColumnPositions addedColumns;

    // Fails for a table without rows or with an empty header.
    static BulkSheet open(DelimitedText table);

    // The person's columns: the header without the added columns and without empty trailing names.
    std::vector<BulkSheetColumn> inputColumns() const;
    // A header cell by name, trimmed and without regard to case.
    std::optional<BulkSheetColumn> column(const std::string& name) const;
    bool isAddedColumn(std::int64_t column) const;
    // Fails with the person's words for a mapped column that the header lacks or that Vorlen writes to.
    void checkMapping(const BulkColumnMapping& mapping) const;
    // The rows below the header that hold something, read with the mapping; a
    // mapping that does not fit the header fails with the person's words.
    std::vector<BulkRow> rows(const BulkColumnMapping& mapping, const std::filesystem::path& directory) const;
    // The same rows, read at the mapping's column positions without checking the names
    // (the input beside its results copy, whose columns were compared when it was opened).
    std::vector<BulkRow> rowsAsPlaced(const BulkColumnMapping& mapping, const std::filesystem::path& directory) const;
    // Out-of-range rows are ignored; notes and messages become one line.
    void setStatus(std::int64_t row, const BulkRowStatus& status);
};

// What was opened, for the report.
enum class BulkSheetSource { input, inputAsOutputCopy, outputCopy, outputCopyWithDifferentInputColumns };

// The person's spreadsheet and the results copy beside it, "<stem> (published).<ext>",
// which is the run's memory. The person's file is never written.
struct BulkSheetFile {
    std::filesystem::path input;
    std::filesystem::path output;
    BulkSheet sheet;
    BulkSheetSource source = BulkSheetSource::input;
    std::optional<BulkSheet> inputSheet;  // the input read afresh, when an earlier copy is continued

    static std::filesystem::path outputPath(const std::filesystem::path& input);
    // Finds or makes the pair; writes nothing.
    static BulkSheetFile open(const std::filesystem::path& input);

    // Checks the mapping, merges rows new in the input, writes the copy and gives its rows.
    std::vector<BulkRow> prepareForRun(const BulkColumnMapping& mapping);
    // Rows appended by the last prepareForRun.
    std::int64_t addedRowCount = 0;
    BulkPlan plan(const BulkColumnMapping& mapping) const;
    void setStatus(const BulkRow& row, const BulkRowStatus& status);
    // Writes the copy through a temporary file renamed over it.
    void save() const;
    // Clears the page address of done rows so that a run re-imports them.
    void requestReimport(const std::vector<BulkRow>& rows);
};

}  // namespace vorlen
