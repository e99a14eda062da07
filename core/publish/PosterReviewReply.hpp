#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <variant>

#include "core/base/Clock.hpp"
#include "core/publish/Poster.hpp"

namespace vorlen {

// What the review decided: a poster, or none at all.
struct PosterDecision {
    std::optional<Poster> poster;

    static PosterDecision noPoster() { return {}; }
    static PosterDecision of(Poster poster) { return {std::move(poster)}; }
};

struct Countdown {
    std::chrono::nanoseconds length{};
    BootClock::time_point deadline;
};

// The one answer to a poster review. The person answers, or the timer answers
// with the fallback at the deadline; whichever comes first decides, and a held
// review can only be answered by the person.
class PosterReviewReply : public std::enable_shared_from_this<PosterReviewReply> {
public:
    // Calls fire at the deadline unless the returned function is called first.
    using TimerStart = std::function<std::function<void()>(BootClock::time_point deadline, std::function<void()> fire)>;

    // A timer on a thread of its own that sleeps until the deadline.
    static TimerStart sleepingTimer();

    static std::shared_ptr<PosterReviewReply> start(PosterDecision fallback, std::chrono::nanoseconds length,
                                                    const TimerStart& startTimer = sleepingTimer(),
                                                    BootClock::time_point now = BootClock::now());

    const PosterDecision& fallback() const { return fallback_; }
    const Countdown& countdown() const { return countdown_; }

    // Waits for the answer. Fails with Cancelled when the review was cancelled,
    // or when the waiting task is: that cancels the review.
    PosterDecision decision();

    void answer(PosterDecision decision, bool isTimer);
    // Stops the countdown for good: only the person can answer now.
    void hold();
    void cancel();

    bool isOpen() const;
    bool isHeld() const;

private:
    struct Open {
        std::function<void()> stopTimer;
        bool isHeld = false;
    };
    struct Answered {
        PosterDecision decision;
    };
    struct Stopped {};

    PosterReviewReply(PosterDecision fallback, Countdown countdown);

    PosterDecision fallback_;
    Countdown countdown_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::variant<Open, Answered, Stopped> state_;
};

}  // namespace vorlen
