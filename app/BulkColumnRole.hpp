#pragma once

#include <optional>

#include "core/batch/BulkSheet.hpp"

namespace vorlen::app {

// The parts a column can play in a bulk upload, in the order the mapping shows them.
enum class BulkColumnRole { file, title, reference, description, existingFolder };
inline constexpr BulkColumnRole bulkColumnRoles[] = {BulkColumnRole::file, BulkColumnRole::title,
                                                     BulkColumnRole::reference, BulkColumnRole::description,
                                                     BulkColumnRole::existingFolder};
// "File", "Title", "Reference", "Description", "Existing folder"
const char* label(BulkColumnRole role);
const char* helpText(BulkColumnRole role);

// The column chosen for each role, or none.
struct BulkColumnChoice {
    std::optional<BulkSheetColumn> file, title, reference, description, existingFolder;

    // At first each role takes the column named like its label, without regard to case.
    static BulkColumnChoice byLabels(const BulkSheet& sheet);
    std::optional<BulkSheetColumn>& operator[](BulkColumnRole role);
    // Absent without a file column.
    std::optional<BulkColumnMapping> mapping() const;
};

}  // namespace vorlen::app
