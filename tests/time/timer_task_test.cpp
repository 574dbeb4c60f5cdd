// SPDX-License-Identifier: MIT
// The timer task and its arithmetic: elapsed time with its microsecond carry, jumps of the
// up-time, the time-zone poll, calendar-bound timers after the wall clock is set, heartbeat
// callbacks.
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

TEST(TimerArithmetic, DiffMsCoversEveryOrderOfTheTwoUpTimes) {
    const struct {
        std::uint32_t s0, us0, s1, us1, ms, rest;
    } rows[] = {
        {10, 100, 10, 1600, 1, 500},  {10, 1600, 10, 1600, 0, 0},
        {10, 1600, 10, 100, 0, 0},    {11, 0, 10, 999999, 0, 0},           // backwards
        {10, 0, 11, 500000, 1500, 0}, {10, 900500, 12, 100000, 1199, 500}, // borrows
        {10, 999999, 11, 0, 0, 1},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.s0 << "." << r.us0 << " -> " << r.s1 << "." << r.us1);
        std::uint32_t rest = 77;
        EXPECT_EQ(uTimerDiffMs(r.s0, r.us0, r.s1, r.us1, &rest), r.ms);
        EXPECT_EQ(rest, r.rest);
        EXPECT_EQ(uTimerDiffMs(r.s0, r.us0, r.s1, r.us1, nullptr), r.ms);
    }
}

TEST(TimerArithmetic, AdjustCarriesMicrosecondsAndReportsJumps) {
    timerPowerHandle();
    EventCounter updated("SYSTEM_TIME_UPDATED");
    const struct {
        std::uint32_t s0, us0, s1, us1;
        std::int32_t carry, ms, carryAfter;
        bool jump;
    } rows[] = {
        {10, 0, 10, 1500, 600, 2, 100, false}, // 1 ms and a carry reaching 1100 us
        {10, 0, 10, 2500, 500, 3, 0, false},   // exactly 1000 us already counts
        {10, 0, 10, 4000, -1500, 3, -500, false},
        {10, 0, 20, 999999, 0, 10999, 999, false}, // 10 s is not a jump yet
        {100, 250, 111, 0, 999, 50, 999, true},    // 11 s forward: no remainder
        {100, 250, 99, 0, 5, 50, 5, true},         // backwards
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.s0 << "." << r.us0 << " -> " << r.s1 << "." << r.us1);
        const int events = updated.count;
        const std::uint32_t rebases = platformSimTimeBaseUpdates(nullptr, nullptr, nullptr);
        std::int32_t carry = r.carry;
        EXPECT_EQ(uTimerAdjust(r.s0, r.us0, r.s1, r.us1, &carry), r.ms);
        EXPECT_EQ(carry, r.carryAfter);
        platformSimWaitPoolsIdle(); // the event is raised from the pool
        EXPECT_EQ(updated.count - events, r.jump ? 1 : 0);
        std::uint32_t s = 0, us = 0, step = 0;
        EXPECT_EQ(platformSimTimeBaseUpdates(&s, &us, &step) - rebases, r.jump ? 1U : 0U);
        if (r.jump) { // re-based on the up-time before the jump, raised with the number 50
            EXPECT_EQ(s, r.s0);
            EXPECT_EQ(us, r.us0);
            EXPECT_EQ(step, 50U);
            EXPECT_EQ(updated.lastData, 50U);
            EXPECT_EQ(updated.lastLength, 4U);
        }
    }
}

TEST_F(TimerTest, HeartbeatsMeasureUpTimeAndCarryMicroseconds) {
    Timers t;
    const std::uint32_t probe = t.add(3'600'000, 1);
    auto measured = [&](std::uint64_t us) {
        const std::uint32_t before = uTimerRemainGet(probe);
        platformSimAdvanceUs(us);
        platformSimHeartbeat();
        return before - uTimerRemainGet(probe);
    };
    EXPECT_EQ(measured(1'500'000), 1500U);
    EXPECT_EQ(measured(0), 0U);
    // The task's carry is unknown here. Step it by 1 us until it spills: then it is exactly 1 us.
    bool spilled = false;
    for (int i = 0; i < 1002 && !spilled; ++i) {
        spilled = measured(1) == 1U;
    }
    ASSERT_TRUE(spilled);
    const struct {
        std::uint64_t us;
        std::uint32_t ms;
    } rows[] = {{999, 0}, {1, 1}, {2'400, 2}, {1'600, 2}}; // carry 1000 us is not yet more
    for (const auto &r : rows) {
        EXPECT_EQ(measured(r.us), r.ms) << r.us;
    }
}

TEST_F(TimerTest, UpTimeJumpsAreReportedOnceAndTheTickFollowsTheMeasure) {
    Timers t;
    EventCounter updated("SYSTEM_TIME_UPDATED");
    const std::uint32_t soon = t.add(1000, 1);
    const std::uint32_t later = t.add(20000, 2);
    const std::uint32_t rebases = platformSimTimeBaseUpdates(nullptr, nullptr, nullptr);
    std::uint32_t s0 = 0, us0 = 0;
    osaGetSysUpTime(&s0, &us0);
    platformSimSetUpTime(s0 - 5, us0); // backwards: a tick of 0 ms
    platformSimHeartbeat();
    std::uint32_t s = 0, us = 0, step = 0;
    EXPECT_EQ(platformSimTimeBaseUpdates(&s, &us, &step), rebases + 1);
    EXPECT_EQ(s, s0);
    EXPECT_EQ(us, us0);
    EXPECT_EQ(uTimerRemainGet(soon), 1000U);
    run({{[] { platformSimAdvanceMs(10'000); }, 1000, 0, {{1}}}, // 11 s in one pass: a jump
         {[&] {
              EXPECT_EQ(uTimerRemainGet(later), 9000U);
              advance(5000), advance(10'000); // 10 s in one pass is not a jump yet
          },
          0,
          0,
          {{2}}}});
    EXPECT_EQ(updated.count, 2);
    EXPECT_EQ(platformSimTimeBaseUpdates(nullptr, nullptr, nullptr), rebases + 2);
}

TEST_F(TimerTest, ATimeZoneChangeIsRaisedOnceWithinThirtySecondsOfTimerTime) {
    EventCounter changed("TIME_ZONE_CHANGED");
    advance(30'000); // settles the stored offset, whatever earlier tests left
    const int settled = changed.count;
    const struct {
        std::int32_t offset;
        int beats; // of 10 s
        int raised;
    } rows[] = {{3600, 3, 1}, {3600, 6, 0}, {0, 3, 1}};
    for (const auto &r : rows) {
        const int before = changed.count;
        platformSimSetTimeZoneOffset(r.offset);
        for (int i = 0; i < r.beats; ++i) {
            advance(10'000);
        }
        EXPECT_EQ(changed.count - before, r.raised) << r.offset;
    }
    EXPECT_LE(settled, 1);
    EXPECT_EQ(changed.lastData, 0U);
    EXPECT_EQ(changed.lastLength, 0U);
}

TEST_F(TimerTest, CalendarTimesATimerCannotReachAreRefused) {
    Timers t;
    constexpr std::uint32_t kNow = 1'700'000'000;
    setWallClock(kNow);
    // Beyond 2,147,483 s either way the delay would wrap: 4,294,968 s ahead to 0.7 s, and
    // 3,000,000 s behind to about 15 days ahead.
    const struct {
        std::int64_t offset;
        bool armed, outOfRange;
    } rows[] = {{90, true, false},        {2'147'483, true, false}, {2'147'484, false, true},
                {4'294'968, false, true}, {-1, false, false},       {-2'147'483, false, false},
                {-3'000'000, false, true}};
    for (const auto &r : rows) {
        LogCapture log;
        const std::uint32_t id =
            t.keep(uTimerEventAdd(nullptr, nullptr, static_cast<std::uint32_t>(kNow + r.offset)));
        EXPECT_EQ(id != 0, r.armed) << r.offset;
        EXPECT_EQ(uTimerRemainGet(id), r.armed ? static_cast<std::uint32_t>(r.offset * 1000) : 0U);
        EXPECT_EQ(log.countContaining("basalt.utils.timer", "out of range"), r.outOfRange ? 1 : 0)
            << r.offset;
    }
}

TEST_F(TimerTest, CalendarBoundTimersFollowTheWallClock) {
    Timers t;
    advance(30'000); // the task has just re-synchronised: only the direct calls below do
    constexpr std::time_t t0 = 1'800'000'000;
    setWallClock(t0);
    checktimeoutCb(30'000);
    const std::uint32_t twoHours = t.keep(uTimerEventAdd(Recorder::callback, tag(1), t0 + 7200));
    t.keep(uTimerEventAdd(Recorder::callback, tag(2), t0 + 600));
    uTimerDel(uTimerEventAdd(Recorder::callback, tag(3), t0 + 900)); // forgotten with its timer
    t.keep(uTimerEventAdd(Recorder::callback, tag(4), t0 + 1));
    // Wall clock moved by 32 s against 30 s of timer time: within a tenth, nothing moves. Set an
    // hour forward: each timer goes to its calendar time, one already past to 0, one with less
    // than 1 s left is left alone. Exactly a tenth (33 s against 30 s) counts as setting it.
    const std::time_t wall[] = {t0 + 32, t0 + 32 + 3600, t0 + 32 + 3600 + 33};
    const std::uint32_t twoHoursLeft[] = {7'199'500, 3568'000, 3535'000};
    run({{nullptr, 500, 0, {}},
         {[&] { setWallClock(wall[0]), checktimeoutCb(30'000); }, 0, 0, {}},
         {[&] { EXPECT_EQ(uTimerRemainGet(twoHours), twoHoursLeft[0]); }, 0, 0, {}},
         {[&] { setWallClock(wall[1]), checktimeoutCb(30'000); }, 0, 0, {{2}}},
         {[&] { EXPECT_EQ(uTimerRemainGet(twoHours), twoHoursLeft[1]); }, 500, 0, {{4}}},
         {[&] {
              uTimerRefresh(twoHours, 1'000'000), setWallClock(wall[2]), checktimeoutCb(30'000);
          },
          0,
          0,
          {}}});
    EXPECT_EQ(uTimerRemainGet(twoHours), twoHoursLeft[2]);
}

int beats = 0; // heartbeat callbacks run on the calling thread in manual mode
void countBeat() {
    ++beats;
}
void unregisterItself() {
    ++beats;
    uTimerUnregisterHeartBeatCb(unregisterItself);
}

TEST_F(TimerTest, HeartbeatCallbacksRunOncePerRegistration) {
    const struct {
        std::function<void()> act;
        int beats;
    } rows[] = {
        {[] { uTimerRegisterHeartBeatCb(countBeat), uTimerRegisterHeartBeatCb(countBeat); }, 2},
        {[] { uTimerRegisterHeartBeatCb(nullptr), uTimerUnregisterHeartBeatCb(countBeat); }, 1},
        {[] { uTimerUnregisterHeartBeatCb(countBeat), uTimerUnregisterHeartBeatCb(countBeat); }, 0},
        {[] { uTimerRegisterHeartBeatCb(unregisterItself); }, 1},
        {nullptr, 0},
    };
    for (const auto &r : rows) {
        if (r.act) {
            r.act();
        }
        beats = 0;
        advance(10);
        EXPECT_EQ(beats, r.beats);
    }
}

} // namespace
} // namespace pu::test
