#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/BatchRunService.hpp"
#include "app/MainQueue.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// Whether a batch run of another computer holds the site, asked of the bucket
// every interval for as long as the watch lives. Lives on the main thread; the
// service's calls run on a task and their answers come back through the queue.
// A run of this application never shows as another's, and a failure to ask
// keeps what was known.
class BatchRunWatch : public std::enable_shared_from_this<BatchRunWatch> {
public:
    using AccessSource = std::function<BucketAccess()>;
    static constexpr std::chrono::seconds defaultInterval{30};

    // The first question goes out at once.
    static std::shared_ptr<BatchRunWatch> make(std::shared_ptr<BatchRunService> service, AccessSource access,
                                               std::function<bool()> isRunningHere, MainQueue& mainQueue,
                                               std::chrono::nanoseconds interval = defaultInterval);

    const std::optional<ActiveBatchRun>& run() const { return run_; }
    // Observers hear only of a run that differs from the one before.
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }
    // Asks again now, without waiting for the interval: a run that began here shows at once.
    void checkNow();

private:
    BatchRunWatch(std::shared_ptr<BatchRunService> service, AccessSource access, std::function<bool()> isRunningHere,
                  MainQueue& mainQueue, std::chrono::nanoseconds interval)
        : service_(std::move(service)),
          access_(std::move(access)),
          isRunningHere_(std::move(isRunningHere)),
          mainQueue_(mainQueue),
          interval_(interval) {}
    // Hands a step's end to the main thread, where it runs unless the watch has
    // gone or a later step has begun.
    using HandBack = std::function<void(std::function<void(BatchRunWatch&)>)>;

    void ask();
    // The service's answer; absent when the question failed.
    void answered(const std::optional<std::optional<ActiveBatchRun>>& answer);
    void waitThenAsk();
    // Runs work on a task in place of the step before, which is cancelled.
    void startStep(std::function<void(const HandBack&)> work);
    void setRun(std::optional<ActiveBatchRun> run);

    std::shared_ptr<BatchRunService> service_;
    AccessSource access_;
    std::function<bool()> isRunningHere_;
    MainQueue& mainQueue_;
    std::chrono::nanoseconds interval_;
    std::vector<std::function<void()>> observers_;

    std::optional<ActiveBatchRun> run_;
    // The question out or the wait for the next one; one at a time.
    std::optional<Task<void>> step_;
    std::uint64_t stepNumber_ = 0;
};

}  // namespace vorlen::app
