// SPDX-License-Identifier: MIT
// Wake-up timers, observed through the power manager's recorded calls.
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

struct PowerCalls {
    std::uint32_t arms;
    std::uint32_t cancels;
};

PowerCalls powerCalls(int handle) {
    platformSimWaitPoolsIdle(); // arming from an add runs on the pool
    return {platformSimWakeUpArmCount(handle), platformSimWakeUpCancelCount(handle)};
}

constexpr std::uint32_t kWakeup = 1;

TEST_F(TimerTest, AddingArmsTheDeviceForTheEarliestWakeupTimer) {
    Timers timers;
    const PowerCalls start = powerCalls(handle_);
    timers.add(5000, 1, kWakeup);
    EXPECT_EQ(powerCalls(handle_).arms, start.arms + 1);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 5000);

    timers.add(3000, 2, kWakeup); // earlier: re-armed with its own delay
    EXPECT_EQ(powerCalls(handle_).arms, start.arms + 2);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 3000);

    timers.add(8000, 3, kWakeup); // later: nothing
    timers.add(100, 4);           // not a wake-up timer: nothing
    EXPECT_EQ(powerCalls(handle_).arms, start.arms + 2);

    timers.add(3000, 5, kWakeup); // same expiry as the earliest: goes before it and arms
    EXPECT_EQ(powerCalls(handle_).arms, start.arms + 3);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 3000);
    EXPECT_EQ(powerCalls(handle_).cancels, start.cancels);
}

TEST_F(TimerTest, DeletingTheEarliestRearmsAndDeletingTheLastCancels) {
    Timers timers;
    const std::uint32_t late = timers.add(5000, 1, kWakeup);
    const std::uint32_t early = timers.add(2000, 2, kWakeup);
    const std::uint32_t latest = timers.add(9000, 3, kWakeup);
    const std::uint32_t plain = timers.add(1000, 4);
    advance(500);
    const PowerCalls before = powerCalls(handle_);

    uTimerDel(latest); // not the earliest: the device wake-up stays
    uTimerDel(plain);
    EXPECT_EQ(powerCalls(handle_).arms, before.arms);
    EXPECT_EQ(powerCalls(handle_).cancels, before.cancels);

    uTimerDel(early); // re-armed for the next one, counted from the last pass
    EXPECT_EQ(powerCalls(handle_).arms, before.arms + 1);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 4500);

    uTimerDel(late); // the last one: cancelled
    EXPECT_EQ(powerCalls(handle_).cancels, before.cancels + 1);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), -1);
}

TEST_F(TimerTest, RefreshArmsOnlyWhenTheTimerBecomesTheEarliest) {
    Timers timers;
    const std::uint32_t first = timers.add(1000, 1, kWakeup);
    const std::uint32_t second = timers.add(4000, 2, kWakeup);
    const PowerCalls before = powerCalls(handle_);

    uTimerRefresh(first, 6000); // later: the armed wake-up is not moved
    EXPECT_EQ(powerCalls(handle_).arms, before.arms);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 1000);

    uTimerRefresh(second, 300);
    EXPECT_EQ(powerCalls(handle_).arms, before.arms + 1);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 300);
}

TEST_F(TimerTest, ExpiringWakeupTimersRearmAndMarkTheAppActiveWhileQueued) {
    Timers timers;
    timers.add(100, 1, kWakeup);
    timers.add(100, 2, kWakeup);
    timers.add(400, 3, kWakeup);
    const PowerCalls before = powerCalls(handle_);
    const int activeBefore = platformSimActiveAppCount(handle_);

    advance(100);
    EXPECT_EQ(Recorder::instance().fired().size(), 2U);
    EXPECT_EQ(platformSimActiveAppCount(handle_), activeBefore); // back to where it was
    EXPECT_GE(platformSimActiveAppPeak(handle_), activeBefore + 1);
    EXPECT_EQ(powerCalls(handle_).arms, before.arms + 1);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 300);

    // The last one expires: nothing is left to arm, and nothing is cancelled either.
    advance(300);
    EXPECT_EQ(powerCalls(handle_).arms, before.arms + 1);
    EXPECT_EQ(powerCalls(handle_).cancels, before.cancels);
}

TEST_F(TimerTest, CalendarBoundTimersAreWakeupTimers) {
    Timers timers;
    setWallClock(1'700'000'000);
    const PowerCalls before = powerCalls(handle_);
    const std::uint32_t id = timers.keep(uTimerEventAdd(Recorder::callback, tag(1), 1'700'000'090));
    EXPECT_EQ(uTimerRemainGet(id), 90000U);
    EXPECT_EQ(powerCalls(handle_).arms, before.arms + 1);
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 90000);
    EXPECT_EQ(uTimerEventAdd(Recorder::callback, tag(2), 1'699'999'999), 0U); // past
    setWallClock(0);
}

TEST_F(TimerTest, CalendarTimesATimerCannotReachAreRefused) {
    Timers timers;
    constexpr std::uint32_t kNow = 1'700'000'000;
    setWallClock(kNow);
    // Beyond 2,147,483 s either way the delay would wrap: 4,294,968 s ahead to 0.7 s, and
    // 3,000,000 s behind to about 15 days ahead.
    const struct {
        std::int64_t offset;
        bool armed;
        bool outOfRange;
    } cases[] = {
        {2'147'483, true, false},   {2'147'484, false, true},  {4'294'968, false, true},
        {-2'147'483, false, false}, {-3'000'000, false, true},
    };
    for (const auto &c : cases) {
        LogCapture capture;
        const std::uint32_t id = timers.keep(uTimerEventAdd(
            Recorder::callback, tag(1), static_cast<std::uint32_t>(kNow + c.offset)));
        EXPECT_EQ(id != 0, c.armed) << c.offset;
        if (c.armed) {
            EXPECT_EQ(uTimerRemainGet(id), static_cast<std::uint32_t>(c.offset * 1000));
        }
        EXPECT_EQ(
            capture.countContaining("basalt.utils.timer", "uTimerEventAdd: wall time out of range"),
            c.outOfRange ? 1 : 0)
            << c.offset;
    }
    setWallClock(0);
}

} // namespace
} // namespace pu::test
