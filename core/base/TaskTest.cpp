#include "core/base/Task.hpp"

#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <stdexcept>

using namespace vorlen;
using namespace std::chrono_literals;

namespace {

// Waits (cancellably) until cancelled; the shape of a long transfer.
void waitForCancellation() {
    for (;;) sleepFor(10s);
}

// Polls until done() holds or the limit passes.
void waitAtMost(std::chrono::milliseconds limit, const std::function<bool()>& done) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
}

}  // namespace

TEST(TaskTest, FailingChildCancelsItsSiblingsAndTheGroupRethrowsIt) {
    std::atomic<int> siblingsCancelled{0};
    auto run = [&] {
        TaskGroup<void> group;
        for (int i = 0; i < 3; ++i)
            group.spawn([&] {
                try {
                    waitForCancellation();
                } catch (const Cancelled&) {
                    ++siblingsCancelled;
                    throw;
                }
            });
        group.spawn([] { throw std::runtime_error("disk full"); });
        group.waitAll();
    };
    EXPECT_THROW(
        try { run(); } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "disk full");
            throw;
        },
        std::runtime_error);
    EXPECT_EQ(siblingsCancelled, 3);
}

TEST(TaskTest, NextDeliversResultsAsChildrenEndAndThenNothing) {
    TaskGroup<int> group;
    std::atomic<bool> releaseSlow{false};
    group.spawn([&] {
        while (!releaseSlow) sleepFor(1ms);
        return 2;
    });
    group.spawn([] { return 1; });
    EXPECT_EQ(group.next(), 1);
    releaseSlow = true;
    EXPECT_EQ(group.next(), 2);
    EXPECT_EQ(group.next(), std::nullopt);
}

TEST(TaskTest, CancellationReachesGrandchildrenButNotDetachedTasks) {
    std::atomic<bool> grandchildCancelled{false};
    std::atomic<bool> cleanupFinished{false};
    std::atomic<bool> cleanupSawCancellation{false};
    auto parent = Task<void>::spawn([&] {
        auto child = Task<void>::spawn([&] {
            try {
                waitForCancellation();
            } catch (const Cancelled&) {
                grandchildCancelled = true;
            }
        });
        try {
            waitForCancellation();
        } catch (const Cancelled&) {
            // The clean-up runs after the parent was cancelled and still completes.
            auto cleanup = Task<void>::detached([&] {
                sleepFor(20ms);
                cleanupSawCancellation = isCancelled();
                cleanupFinished = true;
            });
            cleanup.value();
            throw;
        }
    });
    sleepFor(20ms);
    parent.cancel();
    EXPECT_THROW(parent.value(), Cancelled);
    EXPECT_TRUE(grandchildCancelled);
    EXPECT_TRUE(cleanupFinished);
    EXPECT_FALSE(cleanupSawCancellation);
}

TEST(TaskTest, SleepEndsEarlyOnCancellation) {
    auto task = Task<void>::spawn([] { sleepFor(1h); });
    task.cancel();
    EXPECT_THROW(task.value(), Cancelled);
}

TEST(TaskTest, CancellationHandlerRunsOnceAndNotAfterItsScope) {
    std::atomic<int> calls{0};
    std::atomic<bool> installed{false};
    auto task = Task<void>::spawn([&] {
        CancellationHandler handler([&] { ++calls; });
        installed = true;
        waitForCancellation();
    });
    while (!installed) sleepFor(1ms);
    task.cancel();
    task.cancel();
    EXPECT_THROW(task.value(), Cancelled);
    EXPECT_EQ(calls, 1);

    std::atomic<int> late{0};
    std::atomic<bool> left{false};
    auto other = Task<void>::spawn([&] {
        { CancellationHandler handler([&] { ++late; }); }
        left = true;
        waitForCancellation();
    });
    // Cancelled only once the handler's scope has ended: a handler made after a cancel runs at once.
    while (!left) sleepFor(1ms);
    other.cancel();
    EXPECT_THROW(other.value(), Cancelled);
    EXPECT_EQ(late, 0);
}

TEST(TaskTest, HandlerInstalledAfterCancellationRunsAtOnce) {
    auto task = Task<int>::spawn([] {
        while (!isCancelled()) std::this_thread::yield();
        int calls = 0;
        CancellationHandler handler([&] { ++calls; });
        return calls;
    });
    task.cancel();
    EXPECT_EQ(task.value(), 1);
}

// HttpClient's handler writes into its caller's frame: the guard must not end while a call of it runs.
TEST(TaskTest, DroppingAGuardWaitsForItsRunningHandlerAndStopsOnesNotYetCalled) {
    std::atomic<bool> installed{false}, firstStarted{false}, firstEnded{false}, ownerPastFirst{false};
    std::atomic<int> laterCalls{0};
    bool firstEndedBeforeItsGuard = false;
    auto owner = Task<void>::spawn([&] {
        {
            CancellationHandler first([&] {
                firstStarted = true;
                // Holds the call open until the owner is past its guard, which a guard that waits never is.
                waitAtMost(200ms, [&] { return ownerPastFirst.load(); });
                firstEnded = true;
            });
            CancellationHandler later([&] { ++laterCalls; });
            installed = true;
            while (!firstStarted) std::this_thread::yield();
        }
        firstEndedBeforeItsGuard = firstEnded;
        ownerPastFirst = true;
    });
    while (!installed) std::this_thread::yield();
    // From another thread, so that the handler runs beside its owner.
    std::thread canceller([&] { owner.cancel(); });
    owner.value();
    canceller.join();
    EXPECT_TRUE(firstEndedBeforeItsGuard);
    EXPECT_EQ(laterCalls, 0);
}

TEST(TaskTest, HandlerMayDropItsOwnGuard) {
    auto scope = CancellationScope::makeRoot();
    std::optional<CancellationHandler> guard;
    int calls = 0;
    {
        ScopeBinding binding(scope);
        guard.emplace([&] {
            ++calls;
            guard.reset();
        });
    }
    scope->cancel();
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(guard);
}

TEST(TaskTest, WindowRunsAtMostWidthAtOnceAndStartsInListOrder) {
    std::mutex mutex;
    std::vector<std::size_t> startOrder;
    std::atomic<int> running{0}, peak{0};
    forEachInWindow(12, 3, [&](std::size_t index) {
        {
            std::lock_guard lock(mutex);
            startOrder.push_back(index);
        }
        int now = ++running;
        int seen = peak.load();
        while (now > seen && !peak.compare_exchange_weak(seen, now)) {}
        sleepFor(std::chrono::milliseconds(1 + index % 3));
        --running;
    });
    EXPECT_LE(peak, 3);
    ASSERT_EQ(startOrder.size(), 12u);
    // Items start in list order, give or take the ones that are starting at the same moment.
    for (std::size_t i = 0; i < startOrder.size(); ++i) EXPECT_LT(startOrder[i], i + 3);

    startOrder.clear();
    forEachInWindow(6, 1, [&](std::size_t index) { startOrder.push_back(index); });
    EXPECT_EQ(startOrder, (std::vector<std::size_t>{0, 1, 2, 3, 4, 5}));
}

TEST(TaskTest, WindowStopsStartingAfterAFailure) {
    std::atomic<int> started{0};
    EXPECT_THROW(forEachInWindow(100, 2,
                                 [&](std::size_t index) {
                                     ++started;
                                     if (index == 1) throw std::runtime_error("bad part");
                                     sleepFor(5ms);
                                 }),
                 std::runtime_error);
    EXPECT_LT(started, 10);
}
