#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/batch/BatchRunRecord.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

// A batch run's hold on its site: the record in the bucket, written by this run
// and renewed once a minute. A record not renewed for 300 seconds has no living
// holder and may be taken over; every write is conditional, so of two computers
// only one holds the site.
struct BatchRunLease {
    static constexpr std::chrono::seconds staleAfter{300};
    static constexpr std::chrono::seconds renewalInterval{60};
    // The present date; tests set another.
    using Now = std::function<std::chrono::system_clock::time_point()>;

    std::shared_ptr<Bucket> bucket;
    RetryPolicy retry;
    BatchRunRecord record;  // as this run last wrote it
    std::string etag;       // of the stored record, as last written or read

    // Takes the site for a run, or fails with batchRunInProgress naming the
    // holder, or with a conflict after three lost races.
    static BatchRunLease take(std::shared_ptr<Bucket> bucket, const RetryPolicy& retry, BatchRunKind kind,
                              const std::string& computerName, const Now& now = std::chrono::system_clock::now);
    // Renews the record every interval, on a clock that runs while the computer
    // sleeps, until cancelled or until another run took the site: batchRunLost.
    // Other failures are logged and tried again at the next renewal.
    [[noreturn]] void keep(std::chrono::nanoseconds interval = renewalInterval,
                           const Now& now = std::chrono::system_clock::now);
    // Deletes the record while it is this run's; failures are logged, never raised.
    void release() const;

    // Runs work while holding the site: takes the lease, keeps it beside the work,
    // and releases it after both have ended, also when cancelled. A lost lease
    // cancels the work and is the result.
    static void hold(std::shared_ptr<Bucket> bucket, const RetryPolicy& retry, BatchRunKind kind,
                     const std::string& computerName, std::chrono::nanoseconds interval,
                     const std::function<void()>& work);

    // The record of a living run, this computer's or another's, as of `now`.
    static std::optional<BatchRunRecord> currentRun(Bucket& bucket, const RetryPolicy& retry,
                                                    std::chrono::system_clock::time_point now);
};

}  // namespace vorlen
