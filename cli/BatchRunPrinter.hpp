#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "core/batch/BatchRun.hpp"

namespace vorlen::cli {

// "published https://…", "failed: …": how an item of a batch run ended.
std::string outcomeText(const BulkRowOutcome& outcome);

// Writes a batch run's progress to standard error: a line for each change of an
// item's phase (and, while it encodes or downloads, at each tenth) and for its
// end, with the time left.
class BatchRunPrinter {
public:
    using ItemName = std::function<std::string(std::int64_t item)>;

    void operator()(const BatchSnapshot& snapshot, const ItemName& itemName);
    // The run got as far as its first report: it read the site.
    bool heardAny();

private:
    std::mutex mutex_;
    bool heardAny_ = false;
    std::set<std::int64_t> ended_;
    std::map<std::int64_t, std::pair<BatchPhase, int>> shown_;
};

}  // namespace vorlen::cli
