#include "app/BulkColumnRole.hpp"

#include "core/base/Text.hpp"

namespace vorlen::app {

const char* label(BulkColumnRole role) {
    switch (role) {
        case BulkColumnRole::file: return "File";
        case BulkColumnRole::title: return "Title";
        case BulkColumnRole::reference: return "Reference";
        case BulkColumnRole::description: return "Description";
        case BulkColumnRole::existingFolder: return "Existing folder";
    }
    return "";
}

const char* helpText(BulkColumnRole role) {
    switch (role) {
        case BulkColumnRole::file: return "The path of each video. A relative path starts in the spreadsheet\u2019s folder.";
        case BulkColumnRole::title: return "The page title and the folder name. Without it, the file name gives both.";
        case BulkColumnRole::reference:
            return "Your own ID for each video. Vorlen skips a reference that is already in the bucket.";
        case BulkColumnRole::description:
            return "The text under the player. It can have Markdown for bold, italics and links.";
        case BulkColumnRole::existingFolder:
            return "The folder or the page URL of each video in the site, as the CSV export of the library has them.";
    }
    return "";
}

BulkColumnChoice BulkColumnChoice::byLabels(const BulkSheet& sheet) {
    BulkColumnChoice choice;
    for (const auto role : bulkColumnRoles) choice[role] = sheet.column(label(role));
    return choice;
}

std::optional<BulkSheetColumn>& BulkColumnChoice::operator[](BulkColumnRole role) {
    switch (role) {
        case BulkColumnRole::file: return file;
        case BulkColumnRole::title: return title;
        case BulkColumnRole::reference: return reference;
        case BulkColumnRole::description: return description;
        case BulkColumnRole::existingFolder: break;
    }
    return existingFolder;
}

std::optional<BulkColumnMapping> BulkColumnChoice::mapping() const {
    if (!file) return std::nullopt;
    return BulkColumnMapping{*file, title, reference, description, existingFolder};
}

}  // namespace vorlen::app
