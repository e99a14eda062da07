#pragma once

// Tasks on threads with cooperative cancellation. Every thread has a current
// cancellation scope; a task spawned from it gets a child scope, so cancelling
// a parent reaches all of its descendants. A detached task starts from a fresh
// root scope that no cancellation outside it reaches (clean-ups use it).

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "core/base/VorlenError.hpp"

namespace vorlen {

class CancellationScope;
using ScopePtr = std::shared_ptr<CancellationScope>;

// One node of the cancellation tree.
class CancellationScope : public std::enable_shared_from_this<CancellationScope> {
public:
    using HandlerId = std::uint64_t;

    static ScopePtr makeRoot();
    ScopePtr makeChild();

    // Cancels this scope and every scope below it; handlers run once, one after
    // another, outside the lock.
    void cancel();
    bool isCancelled() const;

    // Runs handler at once if already cancelled; returns 0 then.
    HandlerId addHandler(std::function<void()> handler);
    // A handler removed before cancel() reaches it is never called; one that runs
    // on another thread has returned when this returns.
    void removeHandler(HandlerId id);

private:
    struct RunningHandler {
        HandlerId id;
        std::thread::id thread;
    };

    CancellationScope() = default;

    mutable std::mutex mutex_;
    std::condition_variable handlerReturned_;
    bool cancelled_ = false;
    HandlerId nextId_ = 1;
    std::list<std::pair<HandlerId, std::function<void()>>> handlers_;
    std::optional<RunningHandler> running_;
    std::vector<std::weak_ptr<CancellationScope>> children_;
};

// The scope of the calling thread (a root scope for threads that no task made).
ScopePtr currentScope();

// Makes scope the current one of this thread while it lives.
class ScopeBinding {
public:
    explicit ScopeBinding(ScopePtr scope);
    ~ScopeBinding();
    ScopeBinding(const ScopeBinding&) = delete;
    ScopeBinding& operator=(const ScopeBinding&) = delete;

private:
    ScopePtr previous_;
};

bool isCancelled();
// Throws Cancelled when the current task is cancelled.
void checkCancellation();
// Sleeps, ending early with Cancelled when the current task is cancelled.
void sleepFor(std::chrono::nanoseconds duration);

// Runs a handler when the current task is cancelled while this guard lives
// (at once if it already is). The handler must be quick, thread-safe and must
// not throw: it kills a process or aborts a transfer. It may run on the thread
// that cancels; the guard's end waits for such a call, so the handler may use
// what lives as long as the guard.
class CancellationHandler {
public:
    explicit CancellationHandler(std::function<void()> handler);
    ~CancellationHandler();
    CancellationHandler(const CancellationHandler&) = delete;
    CancellationHandler& operator=(const CancellationHandler&) = delete;

private:
    ScopePtr scope_;
    CancellationScope::HandlerId id_;
};

namespace detail {

template <class T>
using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

template <class T>
struct TaskState {
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
    std::optional<Stored<T>> value;
    std::exception_ptr error;
};

template <class T, class F>
void runInto(TaskState<T>& state, F& work) {
    std::optional<Stored<T>> value;
    std::exception_ptr error;
    try {
        if constexpr (std::is_void_v<T>) {
            work();
            value.emplace();
        } else {
            value.emplace(work());
        }
    } catch (...) {
        error = std::current_exception();
    }
    std::lock_guard lock(state.mutex);
    state.value = std::move(value);
    state.error = error;
    state.finished = true;
    state.done.notify_all();
}

}  // namespace detail

// A unit of work on its own thread. Dropping a task that still runs cancels it
// and waits for it, so no task outlives the code that started it.
template <class T = void>
class Task {
public:
    // A child of the current task: it inherits the caller's cancellation.
    template <class F>
    static Task spawn(F work) { return Task(currentScope()->makeChild(), std::move(work)); }

    // A task that no cancellation outside it reaches.
    template <class F>
    static Task detached(F work) { return Task(CancellationScope::makeRoot(), std::move(work)); }

    Task(Task&&) noexcept = default;
    Task& operator=(Task&& other) noexcept {
        if (this != &other) {
            finish();
            scope_ = std::move(other.scope_);
            state_ = std::move(other.state_);
            thread_ = std::move(other.thread_);
        }
        return *this;
    }
    ~Task() { finish(); }

    void cancel() { scope_->cancel(); }
    bool isFinished() const {
        std::lock_guard lock(state_->mutex);
        return state_->finished;
    }

    // Waits for the end and returns the result or rethrows the failure. The wait
    // itself ignores cancellation, so awaiting a clean-up always lets it finish.
    T value() {
        join();
        if (state_->error) std::rethrow_exception(state_->error);
        if constexpr (!std::is_void_v<T>) return std::move(*state_->value);
    }

private:
    template <class F>
    Task(ScopePtr scope, F work) : scope_(std::move(scope)), state_(std::make_shared<detail::TaskState<T>>()) {
        thread_ = std::thread([scope = scope_, state = state_, work = std::move(work)]() mutable {
            ScopeBinding binding(scope);
            detail::runInto<T>(*state, work);
        });
    }
    void join() {
        if (thread_.joinable()) thread_.join();
    }
    void finish() {
        if (thread_.joinable()) {
            scope_->cancel();
            thread_.join();
        }
    }

    ScopePtr scope_;
    std::shared_ptr<detail::TaskState<T>> state_;
    std::thread thread_;
};

// Children that run at once; results come back in the order they end.
// A group's children inherit the cancellation of the task that made the group.
// Leaving the group's scope cancels the children that still run and waits for them.
template <class T = void>
class TaskGroup {
public:
    using Result = detail::Stored<T>;

    TaskGroup() : scope_(currentScope()->makeChild()), shared_(std::make_shared<Shared>()) {}
    ~TaskGroup() {
        scope_->cancel();
        for (auto& thread : threads_)
            if (thread.joinable()) thread.join();
    }
    TaskGroup(const TaskGroup&) = delete;
    TaskGroup& operator=(const TaskGroup&) = delete;

    template <class F>
    void spawn(F work) {
        auto child = scope_->makeChild();
        {
            std::lock_guard lock(shared_->mutex);
            ++shared_->running;
        }
        threads_.emplace_back([child, shared = shared_, work = std::move(work)]() mutable {
            ScopeBinding binding(child);
            detail::TaskState<T> state;
            detail::runInto<T>(state, work);
            std::lock_guard lock(shared->mutex);
            --shared->running;
            shared->ended.push_back(Ended{std::move(state.value), state.error});
            shared->changed.notify_all();
        });
    }

    // The next child to end: its value, or its failure rethrown. Empty when no child is left.
    std::optional<Result> next() {
        std::unique_lock lock(shared_->mutex);
        shared_->changed.wait(lock, [&] { return !shared_->ended.empty() || shared_->running == 0; });
        if (shared_->ended.empty()) return std::nullopt;
        Ended ended = std::move(shared_->ended.front());
        shared_->ended.pop_front();
        lock.unlock();
        if (ended.error) std::rethrow_exception(ended.error);
        return std::move(ended.value);
    }

    // Waits for all children. The first failure cancels the rest, and is rethrown
    // once they have ended.
    std::vector<Result> waitAll() {
        std::vector<Result> results;
        std::exception_ptr firstError;
        for (;;) {
            try {
                auto result = next();
                if (!result) break;
                results.push_back(std::move(*result));
            } catch (...) {
                if (!firstError) {
                    firstError = std::current_exception();
                    cancelAll();
                }
            }
        }
        if (firstError) std::rethrow_exception(firstError);
        return results;
    }

    void cancelAll() { scope_->cancel(); }
    bool isEmpty() const {
        std::lock_guard lock(shared_->mutex);
        return shared_->running == 0 && shared_->ended.empty();
    }

private:
    struct Ended {
        std::optional<Result> value;
        std::exception_ptr error;
    };
    struct Shared {
        mutable std::mutex mutex;
        std::condition_variable changed;
        std::size_t running = 0;
        std::deque<Ended> ended;
    };

    ScopePtr scope_;
    std::shared_ptr<Shared> shared_;
    std::vector<std::thread> threads_;
};

// Runs work(i) for i in 0..<count with at most `width` at once, starting the
// next index in order as one ends. The first failure cancels the rest and is
// rethrown after they end.
void forEachInWindow(std::size_t count, std::size_t width, const std::function<void(std::size_t)>& work);

}  // namespace vorlen
