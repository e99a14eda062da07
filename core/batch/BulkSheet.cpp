#include "core/batch/BulkSheet.hpp"

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace vorlen {

namespace fs = std::filesystem;

namespace {

constexpr std::array addedColumnOrder{BulkAddedColumn::folder, BulkAddedColumn::pageURL, BulkAddedColumn::status};

bool sameName(std::string_view cell, std::string_view name) {
    return caseFolded(trimmed(cell)) == caseFolded(trimmed(name));
}

std::optional<std::int64_t> findColumn(const std::vector<std::string>& header, std::string_view name) {
    const auto cell = std::ranges::find_if(header, [&](const std::string& cellName) { return sameName(cellName, name); });
    if (cell == header.end()) return std::nullopt;
    return cell - header.begin();
}

bool isAddedColumnName(std::string_view name) {
    return std::ranges::any_of(addedColumnOrder, [&](BulkAddedColumn column) { return sameName(name, columnName(column)); });
}

bool isLineBreak(char32_t scalar) {
    return (scalar >= U'\n' && scalar <= U'\r') || scalar == U'\u0085' || scalar == U'\u2028' || scalar == U'\u2029';
}

// Spreadsheet programs show a cell's line breaks badly, so a note keeps its words on one line.
std::string oneLine(std::string_view text) {
    std::string line;
    std::u32string piece;
    const auto finishPiece = [&] {
        const std::string words = trimmed(toUtf8(piece));
        piece.clear();
        if (words.empty()) return;
        if (!line.empty()) line += ' ';
        line += words;
    };
    for (char32_t scalar : toUtf32(text)) {
        if (isLineBreak(scalar)) {
            finishPiece();
        } else {
            piece += scalar;
        }
    }
    finishPiece();
    return line;
}

std::optional<std::string> homeDirectory(const std::string& user) {
    if (user.empty()) {
        if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
        if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr) return entry->pw_dir;
        return std::nullopt;
    }
    if (const passwd* entry = ::getpwnam(user.c_str()); entry != nullptr) return entry->pw_dir;
    return std::nullopt;
}

// "~" and "~name" at the start, as a shell expands them.
std::optional<fs::path> expandedTilde(const std::string& text) {
    const std::size_t slash = text.find('/');
    const std::optional<std::string> home = homeDirectory(text.substr(1, slash == std::string::npos ? slash : slash - 1));
    if (!home) return std::nullopt;
    fs::path path = *home;
    if (slash != std::string::npos) path /= text.substr(slash + 1);
    if (!path.is_absolute()) return std::nullopt;
    return path;
}

// "file:///a%20b", "file://localhost/a", "file:/a"; anything else is not a file URL.
std::optional<fs::path> fileURLPath(std::string_view text) {
    std::string_view rest = text.substr(std::string_view("file:").size());
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const std::size_t pathStart = rest.find('/');
        if (pathStart == std::string_view::npos) return std::nullopt;
        const std::string host = asciiLowercased(rest.substr(0, pathStart));
        if (!host.empty() && host != "localhost") return std::nullopt;
        rest.remove_prefix(pathStart);
    }
    if (!rest.starts_with('/')) return std::nullopt;
    rest = rest.substr(0, rest.find_first_of("?#"));
    return fs::path(percentDecoded(rest));
}

fs::path resolvedFile(const std::string& text, const fs::path& directory) {
    std::optional<fs::path> path;
    if (text.starts_with("file:")) path = fileURLPath(text);
    if (!path && text.starts_with('~')) path = expandedTilde(text);
    // Appending an absolute path gives that path, so "/" needs no case of its own.
    if (!path) path = directory / text;
    return path->lexically_normal();
}

std::optional<std::string> presentCell(const std::vector<std::string>& row, std::int64_t index) {
    if (index < 0 || index >= static_cast<std::int64_t>(row.size())) return std::nullopt;
    std::string text = trimmed(row[static_cast<std::size_t>(index)]);
    if (text.empty()) return std::nullopt;
    return text;
}

std::optional<std::string> presentCell(const std::vector<std::string>& row, const std::optional<BulkSheetColumn>& column) {
    return column ? presentCell(row, column->index) : std::nullopt;
}

void checkColumn(const std::vector<std::string>& header, const std::optional<BulkSheetColumn>& column, std::string_view role) {
    if (!column) return;
    const bool exists = column->index >= 0 && column->index < static_cast<std::int64_t>(header.size()) &&
                        sameName(header[static_cast<std::size_t>(column->index)], column->name);
    if (!exists) {
        throw VorlenError::config("The spreadsheet has no column “" + column->name + "” for the " + std::string(role) + ".");
    }
    if (isAddedColumnName(column->name)) {
        throw VorlenError::config("The " + std::string(role) + " cannot come from the column “" + column->name +
                                  "”, because Vorlen writes to that column.");
    }
}

}  // namespace

const char* columnName(BulkAddedColumn column) {
    switch (column) {
        case BulkAddedColumn::folder: return "Vorlen folder";
        case BulkAddedColumn::pageURL: return "Vorlen page URL";
        case BulkAddedColumn::status: return "Vorlen status";
    }
    return "";
}

BulkRowStatus statusOf(const BulkRowOutcome& outcome) {
    return std::visit(
        [](const auto& ended) -> BulkRowStatus {
            using Ended = std::decay_t<decltype(ended)>;
            if constexpr (std::is_same_v<Ended, bulkOutcome::Published>)
                return bulkStatus::Published{ended.location};
            else if constexpr (std::is_same_v<Ended, bulkOutcome::Replaced>)
                return bulkStatus::Replaced{ended.location, ended.problem};
            else if constexpr (std::is_same_v<Ended, bulkOutcome::Skipped>)
                return bulkStatus::Skipped{ended.location};
            else
                return bulkStatus::Failed{ended.message};
        },
        outcome);
}

std::string statusText(const BulkRowStatus& status) {
    using namespace bulkStatus;
    struct Text {
        std::string operator()(const Publishing&) const { return "Publishing"; }
        std::string operator()(const Published&) const { return "Published"; }
        std::string operator()(const Skipped& skipped) const {
            return "Skipped: already in the bucket (" + skipped.location.folder + ")";
        }
        std::string operator()(const Replacing&) const { return "Re-importing"; }
        std::string operator()(const Replaced& replaced) const {
            const std::string note = replaced.note ? oneLine(*replaced.note) : "";
            return note.empty() ? "Re-imported" : "Re-imported: " + note;
        }
        std::string operator()(const Failed& failed) const { return "Failed: " + oneLine(failed.message); }
        std::string operator()(const ReimportRequested&) const { return "To re-import"; }
    };
    return std::visit(Text{}, status);
}

BulkSheet BulkSheet::open(DelimitedText table) {
    if (table.rows.empty()) throw VorlenError::source("The spreadsheet is empty.");
    std::vector<std::string>& header = table.rows.front();
    if (std::ranges::all_of(header, [](const std::string& cell) { return trimmed(cell).empty(); })) {
        throw VorlenError::source("The first row of the spreadsheet is empty. It must be a header with the column names.");
    }

    std::array<std::optional<std::int64_t>, addedColumnOrder.size()> found;
    for (std::size_t i = 0; i < addedColumnOrder.size(); ++i) found[i] = findColumn(header, columnName(addedColumnOrder[i]));
    const bool isOutputCopy = std::ranges::all_of(found, [](const auto& position) { return position.has_value(); });
    if (!isOutputCopy) {
        // Cells of body rows wider than the header must not end up under an added column.
        std::size_t width = 0;
        for (const auto& row : table.rows) width = std::max(width, row.size());
        header.resize(width);
        for (std::size_t i = 0; i < addedColumnOrder.size(); ++i) {
            if (found[i]) continue;
            found[i] = static_cast<std::int64_t>(header.size());
            header.emplace_back(columnName(addedColumnOrder[i]));
        }
    }
    return BulkSheet{std::move(table), isOutputCopy, AddedColumnPositions{*found[0], *found[1], *found[2]}};
}

std::vector<BulkSheetColumn> BulkSheet::inputColumns() const {
    const std::vector<std::string>& header = table.rows.front();
    std::vector<BulkSheetColumn> columns;
    for (std::size_t index = 0; index < header.size(); ++index) {
        const auto position = static_cast<std::int64_t>(index);
        if (!isAddedColumn(position)) columns.push_back({position, header[index]});
    }
    while (!columns.empty() && trimmed(columns.back().name).empty()) columns.pop_back();
    return columns;
}

std::optional<BulkSheetColumn> BulkSheet::column(const std::string& name) const {
    const std::vector<std::string>& header = table.rows.front();
    const std::optional<std::int64_t> index = findColumn(header, name);
    if (!index) return std::nullopt;
    return BulkSheetColumn{*index, header[static_cast<std::size_t>(*index)]};
}

bool BulkSheet::isAddedColumn(std::int64_t column) const {
    return column == addedColumns.folder || column == addedColumns.pageURL || column == addedColumns.status;
}

void BulkSheet::checkMapping(const BulkColumnMapping& mapping) const {
    const std::vector<std::string>& header = table.rows.front();
    checkColumn(header, mapping.file, "file");
    checkColumn(header, mapping.title, "title");
    checkColumn(header, mapping.reference, "reference");
    checkColumn(header, mapping.description, "description");
    checkColumn(header, mapping.existingFolder, "existing folder");
}

std::vector<BulkRow> BulkSheet::rows(const BulkColumnMapping& mapping, const fs::path& directory) const {
    checkMapping(mapping);
    return rowsAsPlaced(mapping, directory);
}

std::vector<BulkRow> BulkSheet::rowsAsPlaced(const BulkColumnMapping& mapping, const fs::path& directory) const {
    std::vector<BulkRow> result;
    for (std::size_t index = 1; index < table.rows.size(); ++index) {
        const std::vector<std::string>& cells = table.rows[index];
        bool holdsSomething = false;
        for (std::size_t cell = 0; cell < cells.size() && !holdsSomething; ++cell) {
            holdsSomething = !isAddedColumn(static_cast<std::int64_t>(cell)) && !trimmed(cells[cell]).empty();
        }
        if (!holdsSomething) continue;

        BulkRow row;
        row.index = static_cast<std::int64_t>(index);
        if (auto file = presentCell(cells, mapping.file.index)) row.file = resolvedFile(*file, directory);
        row.title = presentCell(cells, mapping.title);
        row.reference = presentCell(cells, mapping.reference);
        row.description = presentCell(cells, mapping.description);
        row.existingFolder = presentCell(cells, mapping.existingFolder);
        row.folder = presentCell(cells, addedColumns.folder);
        row.pageURL = presentCell(cells, addedColumns.pageURL);
        row.statusText = presentCell(cells, addedColumns.status);
        result.push_back(std::move(row));
    }
    return result;
}

void BulkSheet::setStatus(std::int64_t row, const BulkRowStatus& status) {
    if (row < 1 || row >= static_cast<std::int64_t>(table.rows.size())) return;
    std::vector<std::string>& cells = table.rows[static_cast<std::size_t>(row)];
    const std::int64_t width = std::max({addedColumns.folder, addedColumns.pageURL, addedColumns.status}) + 1;
    if (static_cast<std::int64_t>(cells.size()) < width) cells.resize(static_cast<std::size_t>(width));
    std::string& folder = cells[static_cast<std::size_t>(addedColumns.folder)];
    std::string& pageURL = cells[static_cast<std::size_t>(addedColumns.pageURL)];

    using namespace bulkStatus;
    std::visit(
        [&](const auto& state) {
            using State = std::decay_t<decltype(state)>;
            if constexpr (std::is_same_v<State, Publishing> || std::is_same_v<State, Replacing>) {
                folder = state.folder;
                pageURL.clear();
            } else if constexpr (std::is_same_v<State, Published> || std::is_same_v<State, Skipped> ||
                                 std::is_same_v<State, Replaced>) {
                folder = state.location.folder;
                pageURL = state.location.pageURL;
            } else {
                pageURL.clear();
            }
        },
        status);
    cells[static_cast<std::size_t>(addedColumns.status)] = statusText(status);
}

}  // namespace vorlen
