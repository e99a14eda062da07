#include "app/BatchRunWatch.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

namespace vorlen::app {
namespace {

using namespace std::chrono_literals;

const ActiveBatchRun studioRun{BatchRunKind::bulkUpload, "Studio", SystemTime{}};

// Answers what the test set, counting the questions; duringCall runs while a question is out.
class FakeBatchRunService final : public BatchRunService {
public:
    std::optional<ActiveBatchRun> activeRun(const BucketAccess&) override {
        std::function<void()> during;
        {
            std::lock_guard lock(mutex_);
            ++calls_;
            during = duringCall;
        }
        if (during) during();
        std::lock_guard lock(mutex_);
        if (failure_) throw std::runtime_error(*failure_);
        return answer_;
    }
    void answer(std::optional<ActiveBatchRun> run) {
        std::lock_guard lock(mutex_);
        answer_ = std::move(run);
        failure_.reset();
    }
    void fail(std::string failure) {
        std::lock_guard lock(mutex_);
        failure_ = std::move(failure);
    }
    void onCall(std::function<void()> work) {
        std::lock_guard lock(mutex_);
        duringCall = std::move(work);
    }
    int calls() {
        std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    std::mutex mutex_;
    int calls_ = 0;
    std::optional<ActiveBatchRun> answer_;
    std::optional<std::string> failure_;
    std::function<void()> duringCall;
};

struct WatchFixture {
    PostedQueue queue;
    std::shared_ptr<FakeBatchRunService> service = std::make_shared<FakeBatchRunService>();
    std::atomic<bool> isRunningHere = false;
    int hereQuestions = 0;
    int changes = 0;
    std::shared_ptr<BatchRunWatch> watch;

    void start() {
        watch = BatchRunWatch::make(service, [] { return BucketAccess{}; },
                                    [this] {
                                        ++hereQuestions;
                                        return isRunningHere.load();
                                    },
                                    queue, 1ms);
        watch->onChange([this] { ++changes; });
    }
    // The watch asks without end: once question n is out, every answer before it has been taken in.
    void waitForCalls(int count) {
        queue.runUntil([&] { return service->calls() >= count; });
    }
};

TEST(BatchRunWatchTest, ShowsAnotherComputersRunAndWakesObserversOnlyWhenItChanges) {
    WatchFixture fixture;
    fixture.service->answer(studioRun);
    fixture.start();
    fixture.queue.runUntil([&] { return fixture.watch->run().has_value(); });
    EXPECT_EQ(fixture.watch->run(), studioRun);
    EXPECT_EQ(fixture.watch->run()->message(),
              "\u201cStudio\u201d is running a bulk upload on this site. You can start when that upload ends. If that "
              "computer stopped, you can start after about 5 minutes.");
    fixture.waitForCalls(4);
    EXPECT_EQ(fixture.changes, 1);

    fixture.service->answer(std::nullopt);
    fixture.queue.runUntil([&] { return !fixture.watch->run(); });
    fixture.waitForCalls(fixture.service->calls() + 3);
    EXPECT_EQ(fixture.changes, 2);
}

TEST(BatchRunWatchTest, AFailureToAskKeepsTheRunItKnew) {
    WatchFixture fixture;
    fixture.service->answer(studioRun);
    fixture.start();
    fixture.queue.runUntil([&] { return fixture.watch->run().has_value(); });
    fixture.service->fail("The bucket did not answer.");
    fixture.waitForCalls(fixture.service->calls() + 3);
    EXPECT_EQ(fixture.watch->run(), studioRun);
    EXPECT_EQ(fixture.changes, 1);
}

TEST(BatchRunWatchTest, ARunOfThisApplicationNeverShowsAsAnothers) {
    WatchFixture fixture;
    fixture.service->answer(studioRun);
    fixture.isRunningHere = true;
    fixture.start();
    fixture.queue.runUntil([&] { return fixture.hereQuestions >= 4; });
    EXPECT_EQ(fixture.service->calls(), 0) << "the bucket is not asked while the run is here";
    EXPECT_FALSE(fixture.watch->run());

    // The run here ends; a new one begins while the question is out, and its own record comes back.
    fixture.service->onCall([&] { fixture.isRunningHere = true; });
    fixture.isRunningHere = false;
    const int before = fixture.hereQuestions;
    // Asked before the question, after the answer, and before the next one.
    fixture.queue.runUntil([&] { return fixture.hereQuestions >= before + 3; });
    EXPECT_EQ(fixture.service->calls(), 1);
    EXPECT_FALSE(fixture.watch->run());
    EXPECT_EQ(fixture.changes, 0);
}

TEST(BatchRunWatchTest, ARunThatBeginsHereClearsTheShownRunAtOnce) {
    WatchFixture fixture;
    fixture.service->answer(studioRun);
    fixture.start();
    fixture.queue.runUntil([&] { return fixture.watch->run().has_value(); });
    fixture.isRunningHere = true;
    fixture.watch->checkNow();
    EXPECT_FALSE(fixture.watch->run());
    EXPECT_EQ(fixture.changes, 2);
}

}  // namespace
}  // namespace vorlen::app
