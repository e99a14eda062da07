#pragma once

#include <memory>

#include "app/BulkService.hpp"
#include "app/CorePublishService.hpp"
#include "core/library/LibraryCache.hpp"

namespace vorlen::app {

// Bulk uploads over the core's runner, with the site's pipeline and library cache.
class CoreBulkService final : public BulkService {
public:
    CoreBulkService(CorePipeline pipeline, std::shared_ptr<LibraryCache> cache)
        : publish_(pipeline), pipeline_(std::move(pipeline)), cache_(std::move(cache)) {}

    BulkSheetFile open(const std::filesystem::path& input) override { return BulkSheetFile::open(input); }
    BulkRunReport run(const BulkRunRequest& request, const std::function<void(const BulkProgress&)>& onProgress) override;
    std::optional<double> duration(const std::filesystem::path& file) override;

private:
    CorePublishService publish_;
    CorePipeline pipeline_;
    std::shared_ptr<LibraryCache> cache_;
};

}  // namespace vorlen::app
