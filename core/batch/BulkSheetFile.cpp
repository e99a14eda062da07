#include "core/batch/BulkSheet.hpp"

#include "core/base/Files.hpp"
#include "core/base/Random.hpp"
#include "core/base/Text.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <utility>

namespace vorlen {

namespace {

constexpr std::string_view copySuffix = " (published)";

bool sameInputColumns(const std::vector<BulkSheetColumn>& left, const std::vector<BulkSheetColumn>& right) {
    return std::ranges::equal(left, right, [](const BulkSheetColumn& a, const BulkSheetColumn& b) {
        return trimmed(a.name) == trimmed(b.name);
    });
}

// What makes a row the same row in the input and in its copy: the file it names and its reference.
using RowKey = std::pair<std::optional<std::string>, std::optional<std::string>>;

RowKey rowKey(const BulkRow& row) {
    return {row.file ? std::optional(row.file->string()) : std::nullopt, row.reference};
}

// The input's rows that the copy does not hold yet. Each row of the copy accounts for one
// input row with its key, so that two identical rows in the input need two in the copy.
std::vector<BulkRow> newInputRows(const BulkSheetFile& file, const BulkColumnMapping& mapping) {
    if (file.source != BulkSheetSource::outputCopy || !file.inputSheet) return {};
    const fs::path directory = file.input.parent_path();
    std::map<RowKey, std::int64_t> unclaimed;
    for (const BulkRow& row : file.sheet.rows(mapping, directory)) ++unclaimed[rowKey(row)];
    std::vector<BulkRow> added;
    for (BulkRow& row : file.inputSheet->rowsAsPlaced(mapping, directory)) {
        std::int64_t& count = unclaimed[rowKey(row)];
        if (count > 0) {
            --count;
        } else {
            added.push_back(std::move(row));
        }
    }
    return added;
}

}  // namespace

fs::path BulkSheetFile::outputPath(const fs::path& input) {
    return input.parent_path() / (input.stem().string() + std::string(copySuffix) + input.extension().string());
}

BulkSheetFile BulkSheetFile::open(const fs::path& chosen) {
    BulkSheetFile file;
    file.input = fs::absolute(chosen);
    file.output = outputPath(file.input);
    if (!fs::exists(file.output)) {
        file.sheet = BulkSheet::open(DelimitedText::read(file.input));
        if (file.sheet.isOutputCopy && file.input.stem().string().ends_with(copySuffix)) {
            // The person picked a results copy itself: going on in it makes no copy of a copy.
            file.output = file.input;
            file.source = BulkSheetSource::inputAsOutputCopy;
        } else {
            // Spreadsheet programs guess the encoding of a file without a mark, and often wrongly.
            file.sheet.table.format.encoding = DelimitedTextEncoding::utf8WithBOM;
            file.source = BulkSheetSource::input;
        }
        return file;
    }
    file.sheet = BulkSheet::open(DelimitedText::read(file.output));
    BulkSheet inputSheet = BulkSheet::open(DelimitedText::read(file.input));
    if (sameInputColumns(file.sheet.inputColumns(), inputSheet.inputColumns())) {
        file.source = BulkSheetSource::outputCopy;
        file.inputSheet = std::move(inputSheet);
    } else {
        file.source = BulkSheetSource::outputCopyWithDifferentInputColumns;
    }
    return file;
}

std::vector<BulkRow> BulkSheetFile::prepareForRun(const BulkColumnMapping& mapping) {
    // A mapping that does not fit writes nothing.
    sheet.checkMapping(mapping);
    const std::vector<BulkRow> added = newInputRows(*this, mapping);
    for (const BulkRow& row : added) {
        std::vector<std::string> cells = inputSheet->table.rows[static_cast<std::size_t>(row.index)];
        for (std::size_t column = 0; column < cells.size(); ++column) {
            if (sheet.isAddedColumn(static_cast<std::int64_t>(column))) cells[column].clear();
        }
        sheet.table.rows.push_back(std::move(cells));
    }
    addedRowCount = static_cast<std::int64_t>(added.size());
    save();
    return sheet.rows(mapping, input.parent_path());
}

BulkPlan BulkSheetFile::plan(const BulkColumnMapping& mapping) const {
    const std::vector<BulkRow> rows = sheet.rows(mapping, input.parent_path());
    return BulkPlan{
        .rowCount = static_cast<std::int64_t>(rows.size()),
        .doneCount = std::ranges::count_if(rows, [](const BulkRow& row) { return row.pageURL.has_value(); }),
        .newRowCount = static_cast<std::int64_t>(newInputRows(*this, mapping).size()),
    };
}

void BulkSheetFile::setStatus(const BulkRow& row, const BulkRowStatus& status) { sheet.setStatus(row.index, status); }

void BulkSheetFile::save() const {
    const std::string bytes = sheet.table.bytes();
    const fs::path temporary = output.parent_path() / (randomUUID() + ".tmp");
    try {
        FileHandle handle(temporary, O_WRONLY | O_CREAT | O_EXCL);
        writeAll(handle.fd(), bytes, temporary);
        // After a crash the copy must show every row that was reported finished.
        if (::fsync(handle.fd()) != 0) throwErrno("cannot flush", temporary);
        handle.close();
        fs::rename(temporary, output);
    } catch (...) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        throw;
    }
}

void BulkSheetFile::requestReimport(const std::vector<BulkRow>& rows) {
    for (const BulkRow& row : rows) setStatus(row, bulkStatus::ReimportRequested{});
    save();
}

}  // namespace vorlen
