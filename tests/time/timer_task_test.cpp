// SPDX-License-Identifier: MIT
// The timer task and its arithmetic: elapsed time with its microsecond carry, jumps of the
// up-time, the time-zone poll, calendar-bound timers after the wall clock is set, heartbeat
// callbacks.
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

using ::testing::ElementsAre;

TEST(TimerArithmetic, DiffMsCoversEveryOrderOfTheTwoUpTimes) {
    std::uint32_t rest = 77;
    EXPECT_EQ(uTimerDiffMs(10, 100, 10, 1600, &rest), 1U);
    EXPECT_EQ(rest, 500U);
    EXPECT_EQ(uTimerDiffMs(10, 1600, 10, 1600, &rest), 0U); // same instant
    EXPECT_EQ(rest, 0U);
    EXPECT_EQ(uTimerDiffMs(10, 1600, 10, 100, &rest), 0U); // backwards within a second
    EXPECT_EQ(uTimerDiffMs(11, 0, 10, 999999, &rest), 0U); // backwards across seconds
    EXPECT_EQ(uTimerDiffMs(10, 0, 11, 500000, &rest), 1500U);
    EXPECT_EQ(rest, 0U);
    EXPECT_EQ(uTimerDiffMs(10, 900500, 12, 100000, &rest), 1199U); // borrows a second
    EXPECT_EQ(rest, 500U);
    EXPECT_EQ(uTimerDiffMs(10, 999999, 11, 0, nullptr), 0U); // 1 us
}

TEST(TimerArithmetic, AdjustCarriesMicrosecondsBothWays) {
    std::int32_t carry = 600;
    EXPECT_EQ(uTimerAdjust(10, 0, 10, 1500, &carry), 2); // 1 ms + the carry reaching 1100 us
    EXPECT_EQ(carry, 100);
    carry = 500;
    EXPECT_EQ(uTimerAdjust(10, 0, 10, 2500, &carry), 3); // exactly 1000 us already counts here
    EXPECT_EQ(carry, 0);
    carry = -1500;
    EXPECT_EQ(uTimerAdjust(10, 0, 10, 4000, &carry), 3);
    EXPECT_EQ(carry, -500);
    EXPECT_EQ(uTimerAdjust(10, 0, 20, 999999, nullptr), 10999); // 10 s is not a jump yet
}

TEST(TimerArithmetic, AdjustReportsAJumpAndRebases) {
    timerPowerHandle();
    EventCounter updated("SYSTEM_TIME_UPDATED");
    std::uint32_t seconds = 0, microseconds = 0, step = 0;
    const std::uint32_t rebases = platformSimTimeBaseUpdates(nullptr, nullptr, nullptr);

    std::int32_t carry = 999;
    EXPECT_EQ(uTimerAdjust(100, 250, 111, 0, &carry), 50); // 11 s forward
    EXPECT_EQ(carry, 999);                                 // a jump has no remainder
    platformSimWaitPoolsIdle();                            // the event is raised from the pool
    EXPECT_EQ(updated.count(), 1);
    EXPECT_EQ(updated.lastData(), 50U); // the number itself, not a pointer to it
    EXPECT_EQ(updated.lastLength(), 4U);
    EXPECT_EQ(platformSimTimeBaseUpdates(&seconds, &microseconds, &step), rebases + 1);
    EXPECT_EQ(seconds, 100U);
    EXPECT_EQ(microseconds, 250U);
    EXPECT_EQ(step, 50U);

    EXPECT_EQ(uTimerAdjust(100, 0, 99, 0, nullptr), 50); // backwards
    platformSimWaitPoolsIdle();
    EXPECT_EQ(updated.count(), 2);
}

TEST_F(TimerTest, HeartbeatsMeasureUpTimeAndCarryMicroseconds) {
    Timers timers;
    const std::uint32_t probe = timers.add(3'600'000, 1);
    auto measured = [&](std::uint64_t us) {
        const std::uint32_t before = uTimerRemainGet(probe);
        platformSimAdvanceUs(us);
        platformSimHeartbeat();
        return before - uTimerRemainGet(probe);
    };
    EXPECT_EQ(measured(1'500'000), 1500U);
    EXPECT_EQ(measured(0), 0U);

    // The task's carry is unknown here (earlier tests may have left some). Step it by 1 us until
    // it spills: right after, it is exactly 1 us.
    bool spilled = false;
    for (int i = 0; i < 1002 && !spilled; ++i) {
        spilled = measured(1) == 1U;
    }
    ASSERT_TRUE(spilled);
    EXPECT_EQ(measured(999), 0U);   // carry 1000 us: not more than 1000, so nothing yet
    EXPECT_EQ(measured(1), 1U);     // 1001 us: one millisecond, 1 us left
    EXPECT_EQ(measured(2'400), 2U); // 2 ms, carry 401 us
    EXPECT_EQ(measured(1'600), 2U); // 1 ms + 600 us: carry 1001, one more millisecond
}

TEST_F(TimerTest, UpTimeJumpsAreReportedOnceAndTheTickFollowsTheMeasure) {
    Timers timers;
    EventCounter updated("SYSTEM_TIME_UPDATED");
    const std::uint32_t soon = timers.add(1000, 1);
    const std::uint32_t later = timers.add(20000, 2);
    const std::uint32_t rebases = platformSimTimeBaseUpdates(nullptr, nullptr, nullptr);
    const UpTime start = upTimeNow();

    platformSimSetUpTime(start.seconds - 5, start.microseconds); // backwards
    platformSimHeartbeat();
    EXPECT_EQ(updated.count(), 1);
    EXPECT_EQ(updated.lastData(), 50U);
    EXPECT_EQ(updated.lastLength(), 4U);
    std::uint32_t seconds = 0, microseconds = 0, step = 0;
    EXPECT_EQ(platformSimTimeBaseUpdates(&seconds, &microseconds, &step), rebases + 1);
    EXPECT_EQ(seconds, start.seconds); // the up-time before the jump
    EXPECT_EQ(microseconds, start.microseconds);
    EXPECT_EQ(step, 50U);
    EXPECT_EQ(uTimerRemainGet(soon), 1000U); // a backward jump is a tick of 0 ms

    advance(11'000); // forward by more than 10 s: reported, and the whole 11 s pass
    EXPECT_EQ(updated.count(), 2);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(1U));
    EXPECT_EQ(uTimerRemainGet(later), 9000U);

    advance(5000); // ordinary steps are not jumps
    advance(10'000);
    EXPECT_EQ(updated.count(), 2);
    EXPECT_EQ(platformSimTimeBaseUpdates(nullptr, nullptr, nullptr), rebases + 2);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(1U, 2U));
}

TEST_F(TimerTest, ATimeZoneChangeIsRaisedOnceWithinThirtySecondsOfTimerTime) {
    EventCounter changed("TIME_ZONE_CHANGED");
    advance(30'000); // settles the stored offset, whatever earlier tests left
    const int settled = changed.count();
    EXPECT_LE(settled, 1);

    platformSimSetTimeZoneOffset(3600);
    for (int i = 0; i < 3; ++i) {
        advance(10'000);
    }
    EXPECT_EQ(changed.count(), settled + 1);
    EXPECT_EQ(changed.lastData(), 0U);
    EXPECT_EQ(changed.lastLength(), 0U);
    for (int i = 0; i < 6; ++i) {
        advance(10'000);
    }
    EXPECT_EQ(changed.count(), settled + 1);
    platformSimSetTimeZoneOffset(0);
    advance(30'000);
    EXPECT_EQ(changed.count(), settled + 2);
}

TEST_F(TimerTest, CalendarBoundTimersFollowTheWallClock) {
    Timers timers;
    // A long pass first: the task has just re-synchronised, and the short passes below stay
    // inside one 30 s window, so only the direct calls re-synchronise.
    advance(30'000);
    constexpr std::time_t t0 = 1'800'000'000;
    setWallClock(t0);
    checktimeoutCb(30'000);

    const std::uint32_t twoHours =
        timers.keep(uTimerEventAdd(Recorder::callback, tag(1), t0 + 7200));
    const std::uint32_t tenMinutes =
        timers.keep(uTimerEventAdd(Recorder::callback, tag(2), t0 + 600));
    const std::uint32_t deleted = uTimerEventAdd(Recorder::callback, tag(3), t0 + 900);
    const std::uint32_t imminent = timers.keep(uTimerEventAdd(Recorder::callback, tag(4), t0 + 1));
    uTimerDel(deleted);
    EXPECT_EQ(uTimerRemainGet(twoHours), 7'200'000U);
    advance(500);
    EXPECT_EQ(uTimerRemainGet(imminent), 500U);

    // The wall clock moved with timer time, within a tenth: nothing moves. 32 s against 30 s of
    // timer time is 2 s of drift, below the 3 s limit.
    setWallClock(t0 + 32);
    checktimeoutCb(30'000);
    EXPECT_EQ(uTimerRemainGet(twoHours), 7'199'500U);

    // Set forward by one hour: each timer goes back to its calendar time; the one already past
    // goes to 0 s; the one with less than 1 s left is left alone and forgotten.
    setWallClock(t0 + 32 + 3600);
    checktimeoutCb(30'000);
    EXPECT_EQ(uTimerRemainGet(twoHours), (7200U - 3632U) * 1000U);
    EXPECT_EQ(uTimerRemainGet(tenMinutes), 0U); // due at the next pass
    EXPECT_EQ(uTimerRemainGet(imminent), 500U);
    EXPECT_EQ(uTimerRemainGet(deleted), 0U);
    advance(0);
    EXPECT_THAT(Recorder::instance().fired(), ElementsAre(2U));
    advance(500);
    EXPECT_EQ(Recorder::instance().count(4), 1);

    // Exactly a tenth of drift counts as setting the clock: 33 s against 30 s.
    uTimerRefresh(twoHours, 1'000'000);
    setWallClock(t0 + 32 + 3600 + 33);
    checktimeoutCb(30'000);
    EXPECT_EQ(uTimerRemainGet(twoHours), (7200U - 3665U) * 1000U);
    setWallClock(0);
}

int heartbeatCalls = 0; // heartbeats run on the calling thread in manual mode
void countHeartbeat() {
    ++heartbeatCalls;
}
void unregisterItself() {
    ++heartbeatCalls;
    uTimerUnregisterHeartBeatCb(unregisterItself);
}

TEST_F(TimerTest, HeartbeatCallbacksRunOncePerRegistration) {
    heartbeatCalls = 0;
    uTimerRegisterHeartBeatCb(countHeartbeat);
    uTimerRegisterHeartBeatCb(countHeartbeat);
    uTimerRegisterHeartBeatCb(nullptr); // ignored
    advance(10);
    EXPECT_EQ(heartbeatCalls, 2);
    uTimerUnregisterHeartBeatCb(countHeartbeat); // the first registration only
    advance(10);
    EXPECT_EQ(heartbeatCalls, 3);
    uTimerUnregisterHeartBeatCb(countHeartbeat);
    uTimerUnregisterHeartBeatCb(countHeartbeat); // no longer there
    advance(10);
    EXPECT_EQ(heartbeatCalls, 3);

    uTimerRegisterHeartBeatCb(unregisterItself);
    advance(10);
    advance(10);
    EXPECT_EQ(heartbeatCalls, 4);
}

} // namespace
} // namespace pu::test
