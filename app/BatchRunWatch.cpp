#include "app/BatchRunWatch.hpp"

#include "core/base/Log.hpp"

namespace vorlen::app {

std::shared_ptr<BatchRunWatch> BatchRunWatch::make(std::shared_ptr<BatchRunService> service, AccessSource access,
                                                   std::function<bool()> isRunningHere, MainQueue& mainQueue,
                                                   std::chrono::nanoseconds interval) {
    auto made = std::shared_ptr<BatchRunWatch>(
        new BatchRunWatch(std::move(service), std::move(access), std::move(isRunningHere), mainQueue, interval));
    made->ask();
    return made;
}

void BatchRunWatch::checkNow() { ask(); }

void BatchRunWatch::startStep(std::function<void(const HandBack&)> work) {
    const auto step = ++stepNumber_;
    HandBack handBack = [weak = weak_from_this(), step, &queue = mainQueue_](std::function<void(BatchRunWatch&)> end) {
        queue.post([weak, step, end = std::move(end)] {
            if (auto self = weak.lock(); self && self->stepNumber_ == step) end(*self);
        });
    };
    step_.emplace(Task<void>::spawn([work = std::move(work), handBack = std::move(handBack)] { work(handBack); }));
}

void BatchRunWatch::ask() {
    if (isRunningHere_()) {
        setRun(std::nullopt);
        return waitThenAsk();
    }
    std::optional<BucketAccess> access;
    try {
        access = access_();
    } catch (const std::exception&) {
        return waitThenAsk();
    }
    startStep([service = service_, access = std::move(*access)](const HandBack& handBack) {
        std::optional<std::optional<ActiveBatchRun>> answer;
        try {
            answer = service->activeRun(access);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            log().debug("The record of the batch run could not be read: {}", error.what());
        }
        handBack([answer](BatchRunWatch& self) { self.answered(answer); });
    });
}

void BatchRunWatch::answered(const std::optional<std::optional<ActiveBatchRun>>& answer) {
    // A run that began here while the question was out is this application's own.
    if (isRunningHere_())
        setRun(std::nullopt);
    else if (answer)
        setRun(*answer);
    waitThenAsk();
}

void BatchRunWatch::waitThenAsk() {
    startStep([interval = interval_](const HandBack& handBack) {
        sleepFor(interval);
        handBack([](BatchRunWatch& self) { self.ask(); });
    });
}

void BatchRunWatch::setRun(std::optional<ActiveBatchRun> run) {
    if (run == run_) return;
    run_ = std::move(run);
    for (const auto& observer : observers_) observer();
}

}  // namespace vorlen::app
