#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/BulkColumnRole.hpp"
#include "app/PublishService.hpp"
#include "app/UploadSettings.hpp"
#include "core/batch/BulkRunner.hpp"
#include "core/batch/BulkSheet.hpp"

namespace vorlen::app {

struct BulkRunRequest {
    std::filesystem::path input;
    BulkColumnMapping mapping;
    ReimportMode reimport = ReimportMode::skip;
    BucketAccess access;
    std::optional<double> expectedUploadRate;
    UploadTuning uploadTuning;
    std::string computerName;
};

// A run that ended, or stopped with every finished row in the results copy.
struct BulkRunReport {
    std::filesystem::path output;
    BulkSheetSource source = BulkSheetSource::input;
    std::int64_t addedRowCount = 0;
    BulkRunResult result;
};

// Bulk uploads of one site.
class BulkService {
public:
    virtual ~BulkService() = default;
    // The spreadsheet and its results copy, as they are now; writes nothing.
    virtual BulkSheetFile open(const std::filesystem::path& input) = 0;
    // Prepares the results copy and publishes the rows that are not done. Progress
    // comes on a worker thread; a stop is the cancellation of the calling task.
    virtual BulkRunReport run(const BulkRunRequest& request, const std::function<void(const BulkProgress&)>& onProgress) = 0;
    // The length of a video file in seconds, when it can be read.
    virtual std::optional<double> duration(const std::filesystem::path& file) = 0;
};

}  // namespace vorlen::app
