#include "app/CatalogModel.hpp"

#include <gtest/gtest.h>

#include <condition_variable>
#include <thread>

namespace vorlen::app {
namespace {

using namespace std::chrono_literals;

// Rebuilds that wait until the test lets them end, so that requests can arrive during one.
class GatedCatalogService final : public CatalogService {
public:
    void rebuild(const BucketAccess&) override {
        std::unique_lock lock(mutex);
        ++started;
        changed.notify_all();
        changed.wait(lock, [&] { return released >= started; });
        if (failing) throw std::runtime_error("The bucket refused the catalogue.");
    }
    void release() {
        std::lock_guard lock(mutex);
        ++released;
        changed.notify_all();
    }
    int startedCount() {
        std::lock_guard lock(mutex);
        return started;
    }

    std::mutex mutex;
    std::condition_variable changed;
    int started = 0;
    int released = 0;
    bool failing = false;
};

struct CatalogFixture {
    PostedQueue queue;
    std::shared_ptr<GatedCatalogService> service = std::make_shared<GatedCatalogService>();
    std::shared_ptr<CatalogModel> model;

    explicit CatalogFixture(std::chrono::nanoseconds interval) {
        model = CatalogModel::make(service, [] { return BucketAccess{}; }, queue, interval);
    }
    // A start runs on the rebuild's own thread and posts nothing: look a few times a second.
    void waitForStarts(int count) {
        while (service->startedCount() < count) {
            queue.drain();
            std::this_thread::sleep_for(5ms);
        }
    }
    void finishRebuild() {
        service->release();
        queue.runUntil([&] { return !model->isRebuilding(); });
    }
};

TEST(CatalogModelTest, RequestsInARowStartOneRebuildNowAndOneAfterTheInterval) {
    CatalogFixture fixture(300ms);
    fixture.model->requestRebuild();
    fixture.model->requestRebuild();
    fixture.model->requestRebuild();
    ASSERT_TRUE(fixture.model->isRebuilding());
    fixture.finishRebuild();
    // The two requests made during the first rebuild wait for the interval together.
    EXPECT_TRUE(fixture.model->isBusy());
    fixture.waitForStarts(2);
    fixture.model->requestRebuild();  // during the second: one more after it
    fixture.finishRebuild();
    fixture.waitForStarts(3);
    fixture.finishRebuild();
    fixture.queue.drain();
    EXPECT_FALSE(fixture.model->isBusy());
    EXPECT_EQ(fixture.service->startedCount(), 3);
}

TEST(CatalogModelTest, AFailureShowsUntilTheNextRebuildStarts) {
    CatalogFixture fixture(0ns);
    fixture.service->failing = true;
    fixture.model->requestRebuild();
    fixture.finishRebuild();
    EXPECT_EQ(fixture.model->failure(), "The bucket refused the catalogue.");
    fixture.service->failing = false;
    fixture.model->requestRebuild();
    EXPECT_FALSE(fixture.model->failure());
    fixture.finishRebuild();
    EXPECT_FALSE(fixture.model->failure());
}

}  // namespace
}  // namespace vorlen::app
