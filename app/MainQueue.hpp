#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "core/base/Task.hpp"

namespace vorlen::app {

// The thread that owns the models. Work from other threads reaches them only
// through post(), in the order posted. The desktop window posts into Qt's event
// loop; the command line and the tests run a PostedQueue.
class MainQueue {
public:
    virtual ~MainQueue() = default;
    virtual void post(std::function<void()> work) = 0;
};

// A queue that the owning thread drains itself.
class PostedQueue final : public MainQueue {
public:
    void post(std::function<void()> work) override {
        std::lock_guard lock(mutex_);
        pending_.push_back(std::move(work));
        changed_.notify_all();
    }

    // Runs what is posted until nothing is left; returns how many ran.
    int drain() {
        int ran = 0;
        while (auto work = take(false)) {
            work();
            ++ran;
        }
        return ran;
    }

    // Runs posted work as it comes until done() holds after a piece of work.
    void runUntil(const std::function<bool()>& done) {
        while (!done()) {
            auto work = take(true);
            work();
        }
    }

    // Runs posted work while `task` runs, looking at it a few times a second, then
    // returns its result or passes on its failure.
    template <class T>
    T runWhile(Task<T>& task) {
        while (!task.isFinished())
            if (auto work = take(true, std::chrono::milliseconds(50))) work();
        drain();
        return task.value();
    }

private:
    std::function<void()> take(bool wait, std::chrono::milliseconds patience = std::chrono::milliseconds::max()) {
        std::unique_lock lock(mutex_);
        if (wait && patience == std::chrono::milliseconds::max())
            changed_.wait(lock, [&] { return !pending_.empty(); });
        else if (wait)
            changed_.wait_for(lock, patience, [&] { return !pending_.empty(); });
        if (pending_.empty()) return nullptr;
        auto work = std::move(pending_.front());
        pending_.pop_front();
        return work;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> pending_;
};

}  // namespace vorlen::app
