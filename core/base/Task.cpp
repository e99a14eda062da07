#include "core/base/Task.hpp"

namespace vorlen {

namespace {
thread_local ScopePtr threadScope;
}

ScopePtr CancellationScope::makeRoot() { return ScopePtr(new CancellationScope()); }

ScopePtr CancellationScope::makeChild() {
    ScopePtr child = makeRoot();
    bool cancelNow = false;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) {
            cancelNow = true;
        } else {
            std::erase_if(children_, [](const auto& weak) { return weak.expired(); });
            children_.push_back(child);
        }
    }
    if (cancelNow) child->cancel();
    return child;
}

void CancellationScope::cancel() {
    decltype(children_) children;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        children.swap(children_);
    }
    // Handlers leave the list one at a time, so that removeHandler either takes
    // one out before its call or knows that it runs and waits for it.
    for (;;) {
        std::function<void()> handler;
        {
            std::lock_guard lock(mutex_);
            if (handlers_.empty()) break;
            running_ = RunningHandler{handlers_.front().first, std::this_thread::get_id()};
            handler = std::move(handlers_.front().second);
            handlers_.pop_front();
        }
        handler();
        // What the handler captured goes before its guard may end.
        handler = nullptr;
        {
            std::lock_guard lock(mutex_);
            running_.reset();
        }
        handlerReturned_.notify_all();
    }
    for (auto& weak : children)
        if (auto child = weak.lock()) child->cancel();
}

bool CancellationScope::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

CancellationScope::HandlerId CancellationScope::addHandler(std::function<void()> handler) {
    {
        std::lock_guard lock(mutex_);
        if (!cancelled_) {
            HandlerId id = nextId_++;
            handlers_.emplace_back(id, std::move(handler));
            return id;
        }
    }
    handler();
    return 0;
}

void CancellationScope::removeHandler(HandlerId id) {
    if (id == 0) return;
    std::unique_lock lock(mutex_);
    handlers_.remove_if([id](const auto& entry) { return entry.first == id; });
    // A handler that drops its own guard while it runs does not wait for itself.
    handlerReturned_.wait(lock, [&] {
        return !running_ || running_->id != id || running_->thread == std::this_thread::get_id();
    });
}

ScopePtr currentScope() {
    if (!threadScope) threadScope = CancellationScope::makeRoot();
    return threadScope;
}

ScopeBinding::ScopeBinding(ScopePtr scope) : previous_(std::move(threadScope)) { threadScope = std::move(scope); }
ScopeBinding::~ScopeBinding() { threadScope = std::move(previous_); }

bool isCancelled() { return currentScope()->isCancelled(); }

void checkCancellation() {
    if (isCancelled()) throw Cancelled();
}

void sleepFor(std::chrono::nanoseconds duration) {
    struct Wake {
        std::mutex mutex;
        std::condition_variable condition;
        bool woken = false;
    };
    auto wake = std::make_shared<Wake>();
    CancellationHandler handler([wake] {
        std::lock_guard lock(wake->mutex);
        wake->woken = true;
        wake->condition.notify_all();
    });
    {
        std::unique_lock lock(wake->mutex);
        wake->condition.wait_for(lock, duration, [&] { return wake->woken; });
    }
    checkCancellation();
}

CancellationHandler::CancellationHandler(std::function<void()> handler)
    : scope_(currentScope()), id_(scope_->addHandler(std::move(handler))) {}

CancellationHandler::~CancellationHandler() { scope_->removeHandler(id_); }

void forEachInWindow(std::size_t count, std::size_t width, const std::function<void(std::size_t)>& work) {
    if (count == 0) return;
    if (width == 0) width = 1;
    TaskGroup<void> group;
    std::size_t started = 0;
    std::exception_ptr firstError;
    while (started < count && started < width) {
        std::size_t index = started++;
        group.spawn([&work, index] { work(index); });
    }
    for (;;) {
        try {
            if (!group.next()) break;
        } catch (...) {
            if (!firstError) {
                firstError = std::current_exception();
                group.cancelAll();
            }
            continue;
        }
        if (!firstError && started < count && !isCancelled()) {
            std::size_t index = started++;
            group.spawn([&work, index] { work(index); });
        }
    }
    if (firstError) std::rethrow_exception(firstError);
    checkCancellation();
}

}  // namespace vorlen
