// SPDX-License-Identifier: MIT
// Timers on the simulated clock: expiry, delays, refresh and delete, callbacks that work on
// timers, the record pool, wake-up arming, calendar-bound timers and the timer task's measure.
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

struct Scenario {
    const char *name;
    std::vector<Step> steps;
};

std::uint32_t id[8];
std::uint32_t follower = 0;
void deleteAndRefresh(void *) {
    uTimerDel(id[2]);
    uTimerRefresh(id[3], 500);
    follower = uTimerAdd(Recorder::callback, tag(9), 50);
    Recorder::callback(tag(8));
}

TEST_F(TimerTest, Scenarios) {
    Timers t;
    auto remain = [](int slot, std::uint32_t ms) {
        return [=] { EXPECT_EQ(uTimerRemainGet(id[slot]), ms) << "timer " << slot; };
    };
    const Scenario scenarios[] = {
        {"expiry order, refused delays, zero delay",
         {{[&] {
               id[0] = t.add(300, 1), t.add(100, 2), t.add(200, 3), t.add(200, 4), t.add(0, 5);
               EXPECT_EQ(t.add(-1, 6), 0U);
               EXPECT_EQ(t.keep(uTimerAddWithWakeup(Recorder::callback, tag(6), INT64_MIN)), 0U);
           },
           0,
           0,
           {{5}}}, // even a pass that measured no time
          {nullptr, 99, 0, {}},
          {nullptr, 1, 0, {{2}}},
          {nullptr, 100, 0, {{3}, {4}}},
          {remain(0, 100), 100, 0, {{1}}},
          {remain(0, 0), 0, 0, {}}}},
        {"delays use the low 32 bits",
         {{[&] { id[0] = t.add((std::int64_t{1} << 32) + 5, 1), t.add(10, 2); }, 5, 0, {{1}}},
          {nullptr, 5, 0, {{2}}}}},
        {"refresh keeps the id and restarts from the last pass",
         {{[&] { id[0] = t.add(1000, 1), id[1] = t.add(600, 2); }, 250, 0, {}},
          {[&] {
               remain(0, 750)();
               uTimerRefresh(id[0], 300);
               uTimerRefresh(id[0], -1);
               uTimerRefresh(0, 10);
               uTimerRefresh(0xFFFFFFF0U, 10);
               remain(0, 300)();
               remain(1, 350)();
           },
           299,
           0,
           {}},
          {nullptr, 1, 0, {{1}}},
          {nullptr, 1000, 0, {{2}}}}}, // the old expiry passes without a second call
        {"deleting keeps the later timers on time",
         {{[&] {
               id[0] = t.add(100, 1), id[1] = t.add(200, 2), id[2] = t.add(300, 3);
               uTimerDel(id[1]);
               uTimerDel(id[1]);
               uTimerDel(0);
               uTimerDel(id[0]);
               remain(1, 0)();
               remain(2, 300)();
           },
           299,
           0,
           {}},
          {nullptr, 1, 0, {{3}}}}},
        {"a null callback expires like any other",
         {{[&] { id[0] = t.keep(uTimerAdd(nullptr, tag(1), 10)), t.add(10, 2), t.add(20, 3); },
           10,
           0,
           {{2}}},
          {remain(0, 0), 10, 0, {{3}}}}},
        {"callbacks may delete, refresh and add timers",
         {{[&] {
               t.keep(uTimerAdd(deleteAndRefresh, nullptr, 100));
               id[2] = t.add(200, 2), id[3] = t.add(150, 3);
           },
           100,
           0,
           {{8}}},
          {[&] { t.keep(follower), remain(2, 0)(), remain(3, 500)(); }, 50, 0, {{9}}},
          {nullptr, 450, 0, {{3}}}}},
    };
    for (const Scenario &s : scenarios) {
        SCOPED_TRACE(s.name);
        run(s.steps);
        t.clear();
    }
    for (const std::string &name : Recorder::instance().threadNames()) {
        EXPECT_EQ(name.rfind("tPool", 0), 0U) << name; // a pool worker, never "uTimer"
    }
}

TEST_F(TimerTest, SecondsAreMultipliedInThirtyTwoBits) {
    Timers t;
    // 2,147,483 s is the largest count whose product stays below 2^31; 4,294,968 s wraps to
    // 704 ms; 2,147,484 s wraps negative and is refused.
    const struct {
        std::uint32_t seconds;
        std::uint32_t remain;
    } rows[] = {{3, 3000}, {2147483, 2147483000U}, {2147484, 0}, {4294968, 704}};
    const std::uint32_t refreshed = t.add(100, 1);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.seconds);
        EXPECT_EQ(uTimerRemainGet(t.keep(uTimerAddSec(Recorder::callback, tag(1), r.seconds))),
                  r.remain);
        EXPECT_EQ(uTimerRemainGet(t.keep(uTimerAddSecWithWakeup(nullptr, nullptr, r.seconds))),
                  r.remain);
        const std::uint32_t before = uTimerRemainGet(refreshed);
        uTimerRefreshSec(refreshed, r.seconds);
        EXPECT_EQ(uTimerRemainGet(refreshed), r.remain != 0 ? r.remain : before);
    }
}

// Adds long timers until the pool is empty; returns their ids.
std::vector<std::uint32_t> exhaustPool() {
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id; (id = uTimerAdd(nullptr, nullptr, 3600 * 1000)) != 0;) {
        ids.push_back(id);
    }
    return ids;
}

TEST_F(TimerTest, ExhaustedPoolRefusesAddsAndRecovers) {
    Timers t;
    const std::uint32_t early = t.add(100, 1);
    std::vector<std::uint32_t> fillers;
    {
        LogCapture quiet;
        fillers = exhaustPool();
        ASSERT_GE(fillers.size(), static_cast<std::size_t>(kTestPoolBlocks - 50));
        EXPECT_EQ(quiet.countContaining("basalt.utils.timer", "timer malloc failed!"), 1);
    }
    for (std::uint32_t id : fillers) {
        t.keep(id);
    }
    run({{[&] { uTimerRefresh(early, 40); }, 40, 0, {}}, // refresh needs a spare record first
         {nullptr, 60, 0, {{1}}},                        // fired timers give their records back
         {[&] {
              EXPECT_NE(t.add(10, 2), 0U);
              EXPECT_EQ(t.add(10, 3), 0U);
              uTimerDel(fillers.back());
              EXPECT_NE(t.add(10, 4), 0U);
          },
          10,
          0,
          {{2}, {4}}}});
    t.clear();
    std::vector<std::uint32_t> refill = exhaustPool();
    EXPECT_EQ(refill.size(), fillers.size() + 1); // every record came back
    for (std::uint32_t id : refill) {
        uTimerDel(id);
    }
}

TEST_F(TimerTest, TheDeviceWakeUpFollowsTheEarliestWakeUpTimer) {
    Timers t;
    auto w = [&](int slot, std::int64_t ms, std::uint32_t opt = 1) {
        return [=, &t] { id[slot] = t.add(ms, static_cast<std::uintptr_t>(slot), opt); };
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
        {"plain timer", w(3, 100, 0), 0, 0, 3000},
        {"same expiry as the earliest", w(4, 3000), 1, 0, 3000},
        {"refreshed later", [] { uTimerRefresh(id[0], 6000); }, 0, 0, 3000},
        {"refreshed to the earliest", [] { uTimerRefresh(id[2], 300); }, 1, 0, 300},
        {"it expires: the next is armed", [] { advance(300); }, 1, 0, 2700},
        {"deleting a later one", [] { uTimerDel(id[0]); }, 0, 0, 2700},
        {"deleting the earliest", [] { uTimerDel(id[4]); }, 1, 0, 2700},
        {"deleting the last", [] { uTimerDel(id[1]); }, 0, 1, -1},
        {"calendar-bound timers wake up",
         [&] {
             setWallClock(1'700'000'000), t.keep(uTimerEventAdd(nullptr, nullptr, 1'700'000'090));
         },
         1, 0, 90'000},
        {"it goes too", [&] { t.clear(); }, 0, 1, -1},
    };
    const int active = platformSimActiveAppCount(handle_);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        platformSimWaitPoolsIdle();
        const std::uint32_t arms = platformSimWakeUpArmCount(handle_);
        const std::uint32_t cancels = platformSimWakeUpCancelCount(handle_);
        r.act();
        platformSimWaitPoolsIdle(); // arming runs on the pool
        EXPECT_EQ(platformSimWakeUpArmCount(handle_) - arms, r.arms);
        EXPECT_EQ(platformSimWakeUpCancelCount(handle_) - cancels, r.cancels);
        EXPECT_EQ(platformSimWakeUpDelay(handle_), r.delay);
    }
    EXPECT_EQ(platformSimActiveAppCount(handle_), active); // held only while callbacks queue
    EXPECT_GE(platformSimActiveAppPeak(handle_), active + 1);
}

} // namespace
} // namespace pu::test

namespace pu::test {
namespace {

// uTimerShow lists by expiry, and a timer added later goes before earlier ones of the same
// expiry: the order callbacks of one pass are handed on in.
TEST_F(TimerTest, ShowListsByExpiryNewestFirstAmongEqualExpiries) {
    Timers t;
    const std::uint32_t a = t.add(300, 1), b = t.add(100, 2), c = t.add(200, 3), d = t.add(200, 4);
    LogCapture capture;
    uTimerShow();
    auto entry = [](std::uint32_t timer, int ms) {
        return "id=[" + std::to_string(timer) + "] expires=[" + std::to_string(ms) + "]";
    };
    std::vector<std::string> listed;
    for (const LogLine &line : capture.lines()) {
        for (std::uint32_t timer : {a, b, c, d}) {
            if (line.message.rfind("id=[" + std::to_string(timer) + "]", 0) == 0) {
                listed.push_back(line.message);
            }
        }
    }
    EXPECT_EQ(listed, (std::vector<std::string>{entry(b, 100), entry(d, 200), entry(c, 200),
                                                entry(a, 300)}));
}

} // namespace
} // namespace pu::test
