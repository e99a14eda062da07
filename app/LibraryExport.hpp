#pragma once

#include <filesystem>
#include <vector>

#include "app/LibraryEntry.hpp"
#include "core/batch/DelimitedText.hpp"

namespace vorlen::app {

// The library as a spreadsheet: one row a video, with the columns that a bulk
// sheet reads back ("Title", "Reference", "Description", "Existing folder"), then
// what the library shows. UTF-8 with a byte order mark, so that spreadsheet
// programs take it as UTF-8, comma-separated, CRLF.
namespace LibraryExport {

inline constexpr const char* fileName = "Vorlen videos.csv";
inline constexpr const char* failureTitle = "Cannot Export the Videos";

DelimitedText sheet(const std::vector<LibraryEntry>& entries);

// Writes the sheet to `file`, or to "Vorlen videos.csv" inside it when it is a folder; gives where it went.
std::filesystem::path write(const std::vector<LibraryEntry>& entries, const std::filesystem::path& file);

}  // namespace LibraryExport

}  // namespace vorlen::app
