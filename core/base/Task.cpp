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
    decltype(handlers_) handlers;
    decltype(children_) children;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        handlers.swap(handlers_);
        children.swap(children_);
    }
    for (auto& [id, handler] : handlers) handler();
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
    std::lock_guard lock(mutex_);
    handlers_.remove_if([id](const auto& entry) { return entry.first == id; });
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
