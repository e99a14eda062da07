#include "core/batch/BatchRunLease.hpp"

#include <fmt/format.h>

#include <cmath>

#include "core/base/Clock.hpp"
#include "core/base/Log.hpp"
#include "core/base/Random.hpp"
#include "core/base/Task.hpp"

namespace vorlen {

namespace {

const ObjectHeaders recordHeaders{"application/json", "no-cache", {}};

// A record dated in the future by a wrong clock counts as alive for as long as one in the past.
bool isAlive(const BatchRunRecord& record, std::chrono::system_clock::time_point now) {
    return std::abs(std::chrono::duration<double>(now - record.updated).count()) <
           std::chrono::duration<double>(BatchRunLease::staleAfter).count();
}

SystemTime wholeSeconds(std::chrono::system_clock::time_point time) { return std::chrono::floor<std::chrono::seconds>(time); }

// Waits on the clock that runs through sleep, so that a lid closed for an hour counts as an hour.
void waitThroughSleep(std::chrono::nanoseconds interval) {
    const auto until = BootClock::now() + interval;
    for (auto left = until - BootClock::now(); left > std::chrono::nanoseconds::zero(); left = until - BootClock::now())
        sleepFor(std::min<std::chrono::nanoseconds>(left, std::chrono::seconds(1)));
}

}  // namespace

BatchRunLease BatchRunLease::take(std::shared_ptr<Bucket> bucket, const RetryPolicy& retry, BatchRunKind kind,
                                  const std::string& computerName, const Now& now) {
    const auto id = randomUUID();
    for (int conflicts = 0;; ++conflicts) {
        const auto stored = retry.run([&](std::int64_t) { return bucket->taggedObject(BatchRunRecord::key); });
        std::optional<BatchRunRecord> found;
        if (stored) {
            found = BatchRunRecord::decoded(stored->data);
            // The earlier write of this call landed though its answer was lost.
            if (found->id == id) return BatchRunLease{bucket, retry, *found, stored->etag};
            if (isAlive(*found, now())) throw VorlenError::batchRunInProgress(found->kind, found->computerName);
        }
        const BatchRunRecord record{id, kind, computerName, wholeSeconds(now())};
        try {
            const auto etag = retry.run([&](std::int64_t) {
                return bucket->put(BatchRunRecord::key, RequestBody::bytes(record.encoded()), recordHeaders,
                                   stored ? WriteCondition::unchanged(stored->etag) : WriteCondition::absent());
            });
            if (!etag) throw VorlenError::config(fmt::format("the response for {} has no ETag", BatchRunRecord::key));
            return BatchRunLease{bucket, retry, record, *etag};
        } catch (const VorlenError& error) {
            if (!error.is<failure::Conflict>() || conflicts == 2) throw;
        }
    }
}

void BatchRunLease::keep(std::chrono::nanoseconds interval, const Now& now) {
    for (;;) {
        waitThroughSleep(interval);
        try {
            auto renewed = record;
            renewed.updated = wholeSeconds(now());
            try {
                const auto written = retry.run([&](std::int64_t) {
                    return bucket->put(BatchRunRecord::key, RequestBody::bytes(renewed.encoded()), recordHeaders,
                                       WriteCondition::unchanged(etag));
                });
                if (written) {
                    record = renewed;
                    etag = *written;
                }
            } catch (const VorlenError& error) {
                if (!error.is<failure::Conflict>()) throw;
                // The own earlier write may have landed with its answer lost.
                const auto stored = retry.run([&](std::int64_t) { return bucket->taggedObject(BatchRunRecord::key); });
                std::optional<BatchRunRecord> found;
                try {
                    if (stored) found = BatchRunRecord::decoded(stored->data);
                } catch (const VorlenError&) {
                }
                if (!found || found->id != record.id) throw VorlenError::batchRunLost();
                etag = stored->etag;
            }
        } catch (const Cancelled&) {
            throw;
        } catch (const VorlenError& error) {
            if (error.is<failure::BatchRunLost>()) throw;
            log().warn("The record of the batch run did not update: {}", error.text());
        } catch (const std::exception& error) {
            log().warn("The record of the batch run did not update: {}", error.what());
        }
    }
}

void BatchRunLease::release() const {
    try {
        const auto stored = retry.run([&](std::int64_t) { return bucket->object(BatchRunRecord::key); });
        if (!stored || BatchRunRecord::decoded(*stored).id != record.id) return;  // another run's is never deleted
        retry.run([&](std::int64_t) { bucket->remove(BatchRunRecord::key); });
    } catch (const std::exception& error) {
        log().warn("The record of the batch run was not deleted: {}", error.what());
    }
}

void BatchRunLease::hold(std::shared_ptr<Bucket> bucket, const RetryPolicy& retry, BatchRunKind kind,
                         const std::string& computerName, std::chrono::nanoseconds interval,
                         const std::function<void()>& work) {
    auto lease = take(std::move(bucket), retry, kind, computerName);
    std::exception_ptr failure;
    {
        TaskGroup<void> group;
        group.spawn([&] { lease.keep(interval); });
        group.spawn(work);
        // The first to end decides: the work's end, or the keeper's loss.
        try {
            group.next();
        } catch (...) {
            failure = std::current_exception();
        }
        group.cancelAll();
        for (;;) {
            try {
                if (!group.next()) break;
            } catch (...) {
            }
        }
    }
    // Out of reach of a cancellation, so that a stopped run frees its site.
    Task<void>::detached([&] { lease.release(); }).value();
    if (failure) std::rethrow_exception(failure);
}

std::optional<BatchRunRecord> BatchRunLease::currentRun(Bucket& bucket, const RetryPolicy& retry,
                                                        std::chrono::system_clock::time_point now) {
    const auto stored = retry.run([&](std::int64_t) { return bucket.object(BatchRunRecord::key); });
    if (!stored) return std::nullopt;
    auto record = BatchRunRecord::decoded(*stored);
    if (!isAlive(record, now)) return std::nullopt;
    return record;
}

}  // namespace vorlen
