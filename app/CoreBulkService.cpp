#include "app/CoreBulkService.hpp"

#include "app/Screen.hpp"
#include "core/batch/BatchRunLease.hpp"
#include "core/publish/SourceInfo.hpp"

namespace vorlen::app {

BulkRunReport CoreBulkService::run(const BulkRunRequest& request,
                                   const std::function<void(const BulkProgress&)>& onProgress) {
    auto file = BulkSheetFile::open(request.input);
    const auto rows = file.prepareForRun(request.mapping);
    const auto publisher = publish_.publisher(request.access, request.uploadTuning, request.expectedUploadRate);
    const BulkRunner runner{publisher,
                            Library{publisher.destination, CorePublishService::locationOf(request.access.site),
                                    publisher.upload, cache_},
                            linksFor(request.access.site, "").page, request.computerName,
                            BatchRunLease::renewalInterval};
    auto result = runner.run(file, rows, request.reimport, onProgress);
    return BulkRunReport{file.output, file.source, file.addedRowCount, std::move(result)};
}

std::optional<double> CoreBulkService::duration(const std::filesystem::path& file) {
    try {
        return inspectFile(Tools::locate(), file).durationSeconds;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

}  // namespace vorlen::app
