// SPDX-License-Identifier: MIT
// Timers on the simulated clock: delays, the record pool, wake-up arming, calendar-bound timers,
// the timer task's measure of elapsed time, and timers worked on from several threads.
#include "timer_harness.hpp"

#include <log_capture.hpp>
#include <test_support.hpp>

#include <random>
#include <thread>

namespace pu::test {
namespace {

// A delay keeps only its low 32 bits, a negative one is refused. Seconds are multiplied by 1000
// in 32 bits: 2,147,484 s wraps negative and is refused, 4,294,968 s wraps to 704 ms. A
// calendar-bound timer refuses (and logs) what would wrap either way.
TEST_F(TimerTest, DelaysAndSecondsInThirtyTwoBits) {
    Timers t;
    EXPECT_EQ(std::vector({uTimerRemainGet(t.add((std::int64_t{1} << 32) + 5, 1)), t.add(-1, 1),
                           t.keep(uTimerAddWithWakeup(record, tag(1), INT64_MIN))}),
              std::vector({5U, 0U, 0U}));
    constexpr std::uint32_t kNow = 1'700'000'000;
    setWallClock(kNow);
    const struct {
        std::int64_t seconds;
        std::uint32_t bySeconds, byCalendar;
        bool outOfRange;
    } rows[] = {{2'147'483, 2'147'483'000U, 2'147'483'000U, false},
                {2'147'484, 0, 0, true},
                {4'294'968, 704, 0, true},
                {-1, 0, 0, false},
                {-3'000'000, 1'294'967'296U, 0, true}}; // -3e9 + 2^32
    const std::uint32_t refreshed = t.add(100, 1);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.seconds);
        const auto s = static_cast<std::uint32_t>(r.seconds);
        EXPECT_EQ(uTimerRemainGet(t.keep(uTimerAddSec(record, tag(1), s))), r.bySeconds);
        const std::uint32_t before = uTimerRemainGet(refreshed);
        uTimerRefreshSec(refreshed, s);
        EXPECT_EQ(uTimerRemainGet(refreshed), r.bySeconds != 0 ? r.bySeconds : before);
        LogCapture log;
        EXPECT_EQ(uTimerRemainGet(t.keep(uTimerEventAdd(nullptr, nullptr, kNow + s))),
                  r.byCalendar);
        EXPECT_EQ(log.countContaining("basalt.utils.timer", "out of range"), r.outOfRange ? 1 : 0);
    }
}

// Adds long timers until the pool is empty; returns their ids.
std::vector<std::uint32_t> exhaustPool() {
    LogCapture quiet; // the add that finds the pool empty logs
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id; (id = uTimerAdd(nullptr, nullptr, 3600 * 1000)) != 0;) {
        ids.push_back(id);
    }
    return ids;
}

std::uint32_t id[3]; // wake-up timers by slot
TEST_F(TimerTest, TheDeviceWakeUpFollowsTheEarliestWakeUpTimer) {
    Timers t;
    const int handle = timerPowerHandle();
    setWallClock(1'700'000'000);
    auto w = [&](int slot, std::int64_t ms) {
        return [=, &t] { id[slot] = t.add(ms, static_cast<std::uintptr_t>(slot), 1); };
    };
    const struct {
        const char *what;
        std::function<void()> act;
        std::uint32_t arms, cancels;
        std::int64_t delay;
    } rows[] = {
        {"first wake-up timer", w(0, 5000), 1, 0, 5000},
        {"earlier one", w(1, 3000), 1, 0, 3000},
        {"later one", w(2, 8000), 0, 0, 3000},
        {"refreshed to the earliest", [] { uTimerRefresh(id[2], 300); }, 1, 0, 300},
        {"it expires: the next is armed", [] { advance(300); }, 1, 0, 2700},
        {"deleting the earliest", [] { uTimerDel(id[1]); }, 1, 0, 4700},
        {"deleting the last", [] { uTimerDel(id[0]); }, 0, 1, -1},
        {"calendar-bound", [&] { t.keep(uTimerEventAdd(nullptr, nullptr, 1'700'000'090)); }, 1, 0,
         90'000},
        {"it goes too", [&] { t.clear(); }, 0, 1, -1},
    };
    for (const auto &r : rows) {
        platformSimWaitPoolsIdle();
        const std::uint32_t arms = platformSimWakeUpArmCount(handle);
        const std::uint32_t cancels = platformSimWakeUpCancelCount(handle);
        r.act();
        platformSimWaitPoolsIdle(); // arming runs on the pool
        EXPECT_EQ(platformSimWakeUpArmCount(handle) - arms, r.arms) << r.what;
        EXPECT_EQ(platformSimWakeUpCancelCount(handle) - cancels, r.cancels) << r.what;
        EXPECT_EQ(platformSimWakeUpDelay(handle), r.delay) << r.what;
        EXPECT_EQ(platformSimActiveAppCount(handle), 0) << r.what; // active only while queueing
    }
}

// uTimerDiffMs and uTimerAdjust over the same up-times: the millisecond part, the microsecond
// rest or carry, and the jumps (backwards, or forward by more than 10 s) that give 50 and raise
// "SYSTEM_TIME_UPDATED", on which the plans reschedule.
TEST(TimerArithmetic, ElapsedTimeCarryAndJumps) {
    timerPowerHandle();
    std::atomic<int> raised{0};
    const auto onUpdate = [](const char *, void *count, void *, std::uint32_t) {
        ++*static_cast<std::atomic<int> *>(count);
    };
    uEventCare("SYSTEM_TIME_UPDATED", onUpdate, &raised);
    const struct {
        std::uint32_t s0, us0, s1, us1, diff, rest;
        std::int32_t carry, adjusted, carryAfter;
    } rows[] = {
        {10, 100, 10, 1600, 1, 500, 600, 2, 100}, // a carry reaching 1100 us
        {10, 0, 10, 2500, 2, 500, 500, 3, 0},     // exactly 1000 us already counts
        {10, 0, 10, 4000, 4, 0, -1500, 3, -500},
        {10, 900500, 12, 100000, 1199, 500, 0, 1199, 500}, // borrows
        {10, 0, 20, 999999, 10999, 999, 0, 10999, 999},    // 10 s is not a jump yet
        {100, 250, 111, 0, 10999, 750, 999, 50, 999},      // 11 s forward: a jump, no remainder
        {11, 0, 10, 999999, 0, 0, 5, 50, 5},               // backwards
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.s0 << "." << r.us0 << " -> " << r.s1 << "." << r.us1);
        const int events = raised;
        std::uint32_t rest = 77;
        EXPECT_EQ(uTimerDiffMs(r.s0, r.us0, r.s1, r.us1, &rest), r.diff);
        EXPECT_EQ(rest, r.rest);
        std::int32_t carry = r.carry;
        EXPECT_EQ(uTimerAdjust(r.s0, r.us0, r.s1, r.us1, &carry), r.adjusted);
        EXPECT_EQ(carry, r.carryAfter);
        platformSimWaitPoolsIdle(); // the event is raised from the pool
        EXPECT_EQ(raised - events, r.adjusted == 50 ? 1 : 0);
    }
    uEventClear("SYSTEM_TIME_UPDATED", onUpdate);
}

TEST_F(TimerTest, CalendarBoundTimersFollowTheWallClock) {
    Timers t;
    advance(30'000); // the task has just re-synchronised: only the direct calls below do
    constexpr std::time_t t0 = 1'800'000'000;
    setWallClock(t0);
    checktimeoutCb(30'000);
    const std::uint32_t twoHours = t.keep(uTimerEventAdd(record, tag(1), t0 + 7200));
    t.keep(uTimerEventAdd(record, tag(2), t0 + 600));
    uTimerDel(uTimerEventAdd(record, tag(3), t0 + 900)); // forgotten with its timer
    t.keep(uTimerEventAdd(record, tag(4), t0 + 1));
    const std::uint32_t oneSecond = t.keep(uTimerEventAdd(record, tag(5), t0 + 2));
    const auto setClock = [&](std::time_t wall, std::uint32_t twoHoursLeft) {
        return [=] {
            setWallClock(wall), checktimeoutCb(30'000);
            EXPECT_EQ(uTimerRemainGet(twoHours), twoHoursLeft);
        };
    };
    // Wall clock moved by 32 s against 30 s of timer time: within a tenth, nothing moves. Set an
    // hour forward: each timer goes to its calendar time, one already past to 0, one with less
    // than 1 s left is left alone (one with 1 s left is moved). Exactly a tenth (33 s against 30 s)
    // counts as setting it. The task itself re-synchronises once 30 s of timer time have passed
    // (exactly 30 s included).
    run({{500, 0, {}},
         {0, 0, {}, setClock(t0 + 32, 7'199'500)},
         {0, 0, {}, [&] { uTimerRefresh(oneSecond, 1000); }},
         {500, 0, {{2}, {4}, {5}}, setClock(t0 + 32 + 3600, 3'568'000)},
         {0, 0, {}, [&] { uTimerRefresh(twoHours, 1'000'000); }},
         {0, 0, {}, setClock(t0 + 32 + 3600 + 33, 3'535'000)},
         {28'999, 0, {}, [] { setWallClock(t0 + 32 + 3600 + 33 + 600); }},
         {1, 0, {}, [&] { EXPECT_EQ(uTimerRemainGet(twoHours), 3'506'001U); }}});
    EXPECT_EQ(uTimerRemainGet(twoHours), 2'935'000U);
}

// Several threads add, refresh and delete timers while heartbeats expire them: every timer not
// deleted fires exactly once, so do the follow-ups their callbacks add, and every record goes
// back to the pool. The empty pool then refuses adds, and refreshes too: a refresh needs a spare
// record first.
struct Shot {
    std::atomic<int> fired{0};
    std::atomic<std::uint32_t> id{0};
    bool deleted = false;   // written by its owner thread only, read after the join
    Shot *follow = nullptr; // a follow-up timer its callback adds
};
void onShot(void *arg) {
    auto *shot = static_cast<Shot *>(arg);
    shot->fired.fetch_add(1);
    if (shot->follow != nullptr) {
        shot->follow->id.store(uTimerAdd(onShot, shot->follow, 3));
    }
}

TEST_F(TimerTest, ConcurrentAddRefreshDeleteWhileFiring) {
    constexpr int kThreads = 4, kEach = 100; // with their follow-ups, within the pool
    std::vector<std::uint32_t> fillers = exhaustPool();
    const std::size_t poolBefore = fillers.size();
    for (std::uint32_t id : fillers) {
        uTimerDel(id);
    }
    std::vector<Shot> shots(kThreads * kEach), follows(shots.size());
    std::atomic<bool> done{false};
    std::thread beater([&] {
        while (!done.load()) {
            advance(7);
        }
    });
    fanOut(kThreads, [&](int t) {
        std::mt19937 random(1234U + static_cast<unsigned>(t)); // a fixed mix of operations
        for (int i = t * kEach; i < (t + 1) * kEach; ++i) {
            Shot &shot = shots[i];
            shot.deleted = random() % 4 == 0; // deleted long before it could fire
            shot.follow = random() % 5 == 0 ? &follows[i] : nullptr;
            const std::int64_t delay = shot.deleted ? 3'600'000 : random() % 200;
            shot.id.store(uTimerAddWithOptions(onShot, &shot, delay, random() % 3 == 0 ? 1 : 0));
            ASSERT_NE(shot.id.load(), 0U);
            Shot &earlier = shots[t * kEach + random() % (i - t * kEach + 1)];
            if (!earlier.deleted) { // it may be expiring this very moment: it fires once either way
                uTimerRefresh(earlier.id.load(), static_cast<std::int32_t>(random() % 150));
            }
            if (shot.deleted) {
                uTimerDel(shot.id.load());
            }
        }
    });
    done.store(true);
    beater.join();
    advance(1000), advance(1000); // everything still pending is due within this
    for (std::size_t i = 0; i < shots.size(); ++i) {
        EXPECT_EQ(shots[i].fired.load(), shots[i].deleted ? 0 : 1) << "timer " << i;
        EXPECT_EQ(follows[i].fired.load(), shots[i].follow && !shots[i].deleted) << "follow " << i;
    }
    Timers kept;
    const std::uint32_t early = kept.add(100, 1);
    fillers = exhaustPool();
    EXPECT_EQ(fillers.size() + 1, poolBefore);
    uTimerRefresh(early, 40);
    EXPECT_EQ(std::vector({uTimerRemainGet(early), kept.add(10, 2)}), std::vector({100U, 0U}));
    for (std::uint32_t id : fillers) {
        uTimerDel(id);
    }
}

} // namespace
} // namespace pu::test
