#pragma once

#include <optional>
#include <string>

#include "app/PublishService.hpp"
#include "core/net/Endpoints.hpp"
#include "core/base/Dates.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::app {

// A batch run that holds a site, as the application shows it.
struct ActiveBatchRun {
    static constexpr std::int64_t expiryMinutes = 5;

    BatchRunKind kind = BatchRunKind::bulkUpload;
    std::string computerName;
    SystemTime updated;  // when its computer last reported to the bucket

    // "“Studio” is running a bulk upload on this site. You can start when that upload ends. …"
    std::string message() const;
    bool operator==(const ActiveBatchRun&) const = default;
};

// Whether a batch run holds a site now, from this computer or another.
class BatchRunService {
public:
    virtual ~BatchRunService() = default;
    virtual std::optional<ActiveBatchRun> activeRun(const BucketAccess& access) = 0;
};

// Reads the site's batch record from its bucket.
class CoreBatchRunService final : public BatchRunService {
public:
    explicit CoreBatchRunService(Endpoints endpoints) : endpoints_(std::move(endpoints)) {}
    std::optional<ActiveBatchRun> activeRun(const BucketAccess& access) override;

private:
    Endpoints endpoints_;
};

}  // namespace vorlen::app
