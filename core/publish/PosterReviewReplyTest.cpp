#include "core/publish/PosterReviewReply.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#include "core/base/Task.hpp"

namespace vorlen {
namespace {

using namespace std::chrono_literals;

// A timer that rings only when the test says so.
struct ManualTimer {
    std::function<void()> fire;
    BootClock::time_point deadline;
    std::atomic<int> stops = 0;

    PosterReviewReply::TimerStart starter() {
        return [this](BootClock::time_point at, std::function<void()> ring) {
            deadline = at;
            fire = std::move(ring);
            return [this] { ++stops; };
        };
    }
};

Poster named(const std::string& name) {
    Poster poster;
    poster.name = name;
    return poster;
}

std::string nameOf(const PosterDecision& decision) {
    return decision.poster ? decision.poster->name : "none";
}

TEST(PosterReviewReplyTest, TheTimerAnswersWithTheFallbackOnce) {
    ManualTimer timer;
    auto start = BootClock::now();
    auto reply = PosterReviewReply::start(PosterDecision::of(named("selected")), 20s, timer.starter(), start);
    EXPECT_EQ(reply->countdown().deadline, start + 20s);
    EXPECT_EQ(timer.deadline, start + 20s);
    EXPECT_TRUE(reply->isOpen());

    timer.fire();
    reply->answer(PosterDecision::of(named("late")), false);
    reply->hold();
    EXPECT_EQ(nameOf(reply->decision()), "selected");
    EXPECT_EQ(nameOf(reply->decision()), "selected");
}

TEST(PosterReviewReplyTest, AHoldBeforeTheTimerRunsLeavesTheAnswerToThePerson) {
    // The deadline has passed, but the hold takes the lock first.
    ManualTimer timer;
    auto reply = PosterReviewReply::start(PosterDecision::noPoster(), 20s, timer.starter(), BootClock::now() - 30s);
    reply->hold();
    EXPECT_EQ(timer.stops, 1);
    timer.fire();
    EXPECT_TRUE(reply->isOpen());
    EXPECT_TRUE(reply->isHeld());

    reply->answer(PosterDecision::of(named("picked")), false);
    EXPECT_EQ(nameOf(reply->decision()), "picked");
    EXPECT_EQ(timer.stops, 1);  // already forgotten by the hold
}

TEST(PosterReviewReplyTest, APersonsAnswerStopsTheTimer) {
    ManualTimer timer;
    auto reply = PosterReviewReply::start(PosterDecision::of(named("selected")), 20s, timer.starter());
    auto waiter = Task<PosterDecision>::spawn([&] { return reply->decision(); });
    reply->answer(PosterDecision::noPoster(), false);
    EXPECT_EQ(nameOf(waiter.value()), "none");
    EXPECT_EQ(timer.stops, 1);
    timer.fire();  // a timer that was already on its way changes nothing
    EXPECT_EQ(nameOf(reply->decision()), "none");
}

TEST(PosterReviewReplyTest, ATimerThatRingsWhileStartingIsNotStoppedLater) {
    auto ringAtOnce = [](BootClock::time_point, std::function<void()> fire) {
        fire();
        return std::function<void()>([] {});
    };
    auto reply = PosterReviewReply::start(PosterDecision::noPoster(), 0s, ringAtOnce);
    EXPECT_FALSE(reply->isOpen());
    EXPECT_EQ(nameOf(reply->decision()), "none");
}

TEST(PosterReviewReplyTest, CancellingTheWaiterCancelsTheReview) {
    ManualTimer timer;
    auto reply = PosterReviewReply::start(PosterDecision::of(named("selected")), 20s, timer.starter());
    auto waiter = Task<PosterDecision>::spawn([&] { return reply->decision(); });
    waiter.cancel();
    EXPECT_THROW(waiter.value(), Cancelled);
    EXPECT_FALSE(reply->isOpen());
    EXPECT_EQ(timer.stops, 1);

    reply->answer(PosterDecision::noPoster(), false);
    EXPECT_THROW(reply->decision(), Cancelled);

    auto other = PosterReviewReply::start(PosterDecision::noPoster(), 20s, timer.starter());
    other->cancel();
    EXPECT_THROW(other->decision(), Cancelled);
}

TEST(PosterReviewReplyTest, AHoldRacingTheTimerGivesExactlyOneDecision) {
    int timerWins = 0;
    for (int round = 0; round < 300; ++round) {
        ManualTimer timer;
        auto reply = PosterReviewReply::start(PosterDecision::of(named("fallback")), 20s, timer.starter());
        std::barrier together(2);
        std::thread ringer([&] {
            together.arrive_and_wait();
            timer.fire();
        });
        together.arrive_and_wait();
        reply->hold();
        ringer.join();
        reply->answer(PosterDecision::of(named("person")), false);
        auto decided = nameOf(reply->decision());
        // Either the timer came first and the person's answer was ignored, or
        // the hold came first and the timer was.
        ASSERT_TRUE(decided == "fallback" || decided == "person") << decided;
        EXPECT_EQ(nameOf(reply->decision()), decided);
        if (decided == "fallback") ++timerWins;
    }
    RecordProperty("timerWins", timerWins);
}

TEST(PosterReviewReplyTest, TheSleepingTimerAnswersAtTheDeadline) {
    auto reply = PosterReviewReply::start(PosterDecision::of(named("selected")), 1ms);
    EXPECT_EQ(nameOf(reply->decision()), "selected");
}

}  // namespace
}  // namespace vorlen
