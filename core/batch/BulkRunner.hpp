#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/batch/BatchRun.hpp"
#include "core/batch/BulkSheet.hpp"

namespace vorlen {

// A bulk run as it goes: the engine's snapshot, whose item numbers index `items`.
struct BulkProgress {
    const std::vector<BulkRow>* items = nullptr;
    BatchSnapshot snapshot;
};

struct BulkRunResult {
    std::vector<BulkRow> items;  // the rows this run worked on
    BatchSnapshot snapshot;
};

// Publishes the rows of a spreadsheet that have no page address yet, with the
// results copy as the run's memory: each change of a row is saved at once, so a
// run stopped in any way goes on from the copy and the bucket.
struct BulkRunner {
    Publisher publisher;
    Library library;
    std::string pageBase;  // a page address is this followed by the folder name
    std::string computerName;
    std::chrono::nanoseconds recordInterval = std::chrono::seconds(60);

    // The copy must have been prepared for the run with the mapping that gave `rows`.
    BulkRunResult run(BulkSheetFile& file, const std::vector<BulkRow>& rows, ReimportMode reimport,
                      const std::function<void(const BulkProgress&)>& onProgress) const;
};

}  // namespace vorlen
