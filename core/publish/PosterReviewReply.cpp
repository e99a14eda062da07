#include "core/publish/PosterReviewReply.hpp"

#include <thread>

#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

PosterReviewReply::TimerStart PosterReviewReply::sleepingTimer() {
    return [](BootClock::time_point deadline, std::function<void()> fire) {
        struct Shared {
            std::mutex mutex;
            std::condition_variable stopped;
            bool isStopped = false;
        };
        auto shared = std::make_shared<Shared>();
        // A thread of its own, detached: the reply stops the timer from inside
        // the timer's own call, where joining it would wait for itself.
        std::thread([shared, deadline, fire = std::move(fire)] {
            std::unique_lock lock(shared->mutex);
            while (!shared->isStopped) {
                auto now = BootClock::now();
                if (now >= deadline) break;
                shared->stopped.wait_for(lock, deadline - now);
            }
            if (shared->isStopped) return;
            lock.unlock();
            fire();
        }).detach();
        return [shared] {
            std::lock_guard lock(shared->mutex);
            shared->isStopped = true;
            shared->stopped.notify_all();
        };
    };
}

PosterReviewReply::PosterReviewReply(PosterDecision fallback, Countdown countdown)
    : fallback_(std::move(fallback)), countdown_(countdown), state_(Open{}) {}

std::shared_ptr<PosterReviewReply> PosterReviewReply::start(PosterDecision fallback, std::chrono::nanoseconds length,
                                                            const TimerStart& startTimer, BootClock::time_point now) {
    std::shared_ptr<PosterReviewReply> reply(new PosterReviewReply(std::move(fallback), {length, now + length}));
    // The timer holds the reply weakly, so that a finished review lets both go.
    std::weak_ptr<PosterReviewReply> weak = reply;
    auto stop = startTimer(reply->countdown_.deadline, [weak] {
        if (auto self = weak.lock()) self->answer(self->fallback_, true);
    });
    {
        std::lock_guard lock(reply->mutex_);
        auto* open = std::get_if<Open>(&reply->state_);
        // A timer that already fired, or a hold that came first, needs no stopping later.
        if (open != nullptr && !open->isHeld) {
            open->stopTimer = std::move(stop);
            return reply;
        }
    }
    if (stop) stop();
    return reply;
}

PosterDecision PosterReviewReply::decision() {
    CancellationHandler onCancel([this] { cancel(); });
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !std::holds_alternative<Open>(state_); });
    if (auto* answered = std::get_if<Answered>(&state_)) return answered->decision;
    throw Cancelled();
}

void PosterReviewReply::answer(PosterDecision decision, bool isTimer) {
    std::function<void()> stopTimer;
    {
        std::lock_guard lock(mutex_);
        auto* open = std::get_if<Open>(&state_);
        if (open == nullptr || (isTimer && open->isHeld)) return;
        stopTimer = std::move(open->stopTimer);
        state_ = Answered{std::move(decision)};
    }
    changed_.notify_all();
    if (stopTimer) stopTimer();
}

void PosterReviewReply::hold() {
    std::function<void()> stopTimer;
    {
        std::lock_guard lock(mutex_);
        auto* open = std::get_if<Open>(&state_);
        if (open == nullptr) return;
        open->isHeld = true;
        stopTimer = std::move(open->stopTimer);
        open->stopTimer = nullptr;
    }
    if (stopTimer) stopTimer();
}

void PosterReviewReply::cancel() {
    std::function<void()> stopTimer;
    {
        std::lock_guard lock(mutex_);
        auto* open = std::get_if<Open>(&state_);
        if (open == nullptr) return;
        stopTimer = std::move(open->stopTimer);
        state_ = Stopped{};
    }
    changed_.notify_all();
    if (stopTimer) stopTimer();
}

bool PosterReviewReply::isOpen() const {
    std::lock_guard lock(mutex_);
    return std::holds_alternative<Open>(state_);
}

bool PosterReviewReply::isHeld() const {
    std::lock_guard lock(mutex_);
    auto* open = std::get_if<Open>(&state_);
    return open != nullptr && open->isHeld;
}

}  // namespace vorlen
