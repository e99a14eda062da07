#include "app/LibraryExport.hpp"

#include <fmt/format.h>

#include "core/base/Dates.hpp"
#include "core/base/Files.hpp"

namespace vorlen::app::LibraryExport {

DelimitedText sheet(const std::vector<LibraryEntry>& entries) {
    DelimitedText sheet{{{"Title", "Reference", "Description", "Existing folder", "Visibility", "Duration", "Published",
                          "Page", "Problem"}},
                        DelimitedTextFormat{DelimitedTextDelimiter::comma, DelimitedTextLineEnding::crlf,
                                            DelimitedTextEncoding::utf8WithBOM, true}};
    for (const auto& entry : entries) {
        const auto* metadata = entry.video.metadata();
        const auto* details = metadata ? &metadata->details : nullptr;
        sheet.rows.push_back({
            entry.title,
            details && details->reference() ? *details->reference() : "",
            details && details->description() ? *details->description() : "",
            entry.folder(),
            entry.visibility ? rawValue(*entry.visibility) : "",
            entry.duration ? fmt::format("{:.3f}", *entry.duration) : "",
            entry.created ? formatIso8601(*entry.created) : "",
            entry.page,
            entry.problem.value_or(""),
        });
    }
    return sheet;
}

std::filesystem::path write(const std::vector<LibraryEntry>& entries, const std::filesystem::path& file) {
    const auto target = std::filesystem::is_directory(file) ? file / fileName : file;
    writeFileAtomically(target, sheet(entries).bytes());
    return target;
}

}  // namespace vorlen::app::LibraryExport
