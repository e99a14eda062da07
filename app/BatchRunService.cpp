#include "app/BatchRunService.hpp"

#include <fmt/format.h>

#include "app/CorePublishService.hpp"
#include "core/batch/BatchRunLease.hpp"

namespace vorlen::app {

std::string ActiveBatchRun::message() const {
    const bool isSync = kind == BatchRunKind::vimeoSync;
    return fmt::format("\u201c{}\u201d is running a {} on this site. You can start when that {} ends. If that computer "
                       "stopped, you can start after about {} minutes.",
                       computerName, displayName(kind), isSync ? "sync" : "upload", expiryMinutes);
}

std::optional<ActiveBatchRun> CoreBatchRunService::activeRun(const BucketAccess& access) {
    const auto bucket = CorePublishService::bucketFor(access, endpoints_);
    const auto record = BatchRunLease::currentRun(*bucket, RetryPolicy{}, std::chrono::system_clock::now());
    if (!record) return std::nullopt;
    return ActiveBatchRun{record->kind, record->computerName, record->updated};
}

}  // namespace vorlen::app
