// SPDX-License-Identifier: MIT
// Timers on the simulated clock: delays, the record pool, wake-up arming, calendar-bound timers,
// the timer task's measure of elapsed time, and timers worked on from several threads.
// Plans: time strings, composition, stepping and the next period on a chosen wall clock (in UTC
// and in a zone with daylight saving); then plans and pause groups on the simulated clock: once
// plans, how pauses find their group, ids, and refused input. Interval plans: every operation
// from every state against a model of the states, and ids.
// Last, timers and plans with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable. Then every exact log line
// of the time family, once: callers and log filters match these texts, misspellings included.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <call_table.hpp>
#include <log_capture.hpp>
#include <test_support.hpp>

#include <map>
#include <mutex>
#include <random>
#include <string>
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
                {-3'000'000, 1'294'967'296U, 0, true}}; // -3e9 + 2^32
    for (const auto &r : rows) {
        SCOPED_TRACE(r.seconds);
        const auto s = static_cast<std::uint32_t>(r.seconds);
        EXPECT_EQ(uTimerRemainGet(t.keep(uTimerAddSec(record, tag(1), s))), r.bySeconds);
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

std::uint32_t wakeId[3]; // wake-up timers by slot
TEST_F(TimerTest, TheDeviceWakeUpFollowsTheEarliestWakeUpTimer) {
    Timers t;
    const int handle = timerPowerHandle();
    setWallClock(1'700'000'000);
    auto w = [&](int slot, std::int64_t ms) {
        return [=, &t] { wakeId[slot] = t.add(ms, static_cast<std::uintptr_t>(slot), 1); };
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
        {"refreshed to the earliest", [] { uTimerRefresh(wakeId[2], 300); }, 1, 0, 300},
        {"it expires: the next is armed", [] { advance(300); }, 1, 0, 2700},
        {"deleting the earliest", [] { uTimerDel(wakeId[1]); }, 1, 0, 4700},
        {"deleting the last", [] { uTimerDel(wakeId[0]); }, 0, 1, -1},
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
        {10, 100, 10, 1600, 1, 500, 600, 2, 100},          // a carry reaching 1100 us
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
// deleted fires exactly once and every record goes back to the pool. The empty pool then refuses
// adds, and refreshes too: a refresh needs a spare record first.
struct Shot {
    std::atomic<int> fired{0};
    std::atomic<std::uint32_t> id{0};
    bool deleted = false; // written by its owner thread only, read after the join
};
void onShot(void *arg) {
    static_cast<Shot *>(arg)->fired.fetch_add(1);
}

TEST_F(TimerTest, ConcurrentAddRefreshDeleteWhileFiring) {
    constexpr int kThreads = 4, kEach = 100; // within the pool
    std::vector<Shot> shots(kThreads * kEach);
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
    advance(1000); // everything still pending is due within this
    for (std::size_t i = 0; i < shots.size(); ++i) {
        EXPECT_EQ(shots[i].fired.load(), shots[i].deleted ? 0 : 1) << "timer " << i;
    }
    Timers kept;
    const std::uint32_t early = kept.add(100, 1);
    const std::vector<std::uint32_t> fillers = exhaustPool();
    EXPECT_EQ(fillers.size() + 1, 1000U); // the whole pool of timerPowerHandle()
    uTimerRefresh(early, 40);
    EXPECT_EQ(std::vector({uTimerRemainGet(early), kept.add(10, 2)}), std::vector({100U, 0U}));
    for (std::uint32_t id : fillers) {
        uTimerDel(id);
    }
}

constexpr std::time_t kFails = -1;

std::time_t at(int y, int mo, int d, int h = 8, int mi = 0, int s = 0) {
    return localAt(y, mo, d, h, mi, s);
}

TEST(TimePlanCalendar, MonthLengthsAndTmCompare) {
    const std::int32_t days[][3] = {{2000, 1, 29},  {1900, 1, 28},  {2024, 1, 29},  {2023, 1, 28},
                                    {2023, 11, 31}, {2023, 12, -1}, {2023, -1, -1}, {-1, 0, -1},
                                    {2026, 0, 31}}; // by 400, by 100 only
    for (const auto &[year, month, n] : days) {
        EXPECT_EQ(uTimePlanMonthMaxDay(year, month), n) << year << "-" << month;
    }
    // Only year, month, day, hour, minute and second count, each outweighing the ones after it.
    const std::tm base{30, 20, 10, 15, 5, 126, 1, 100, 0, 0, nullptr};
    for (int std::tm::*field : {&std::tm::tm_year, &std::tm::tm_mon, &std::tm::tm_mday,
                                &std::tm::tm_hour, &std::tm::tm_min, &std::tm::tm_sec}) {
        std::tm later = base;
        later.*field += 1;
        later.tm_sec -= field == &std::tm::tm_sec ? 0 : 59;
        EXPECT_EQ(uTimePlanTmCompare(&later, &base), 1);
        EXPECT_EQ(uTimePlanTmCompare(&base, &later), -1);
    }
    const std::tm other{30, 20, 10, 15, 5, 126, 5, 7, 1, 0, nullptr}; // weekday, day of year, DST
    EXPECT_EQ(std::pair(uTimePlanTmCompare(&other, &base), uTimePlanTmCompare(nullptr, &base)),
              std::pair(0, 0));
}

using Times = std::vector<std::time_t>;
std::function<Times()> parse(const char *s, int timeOnly = 1) {
    return [=] { return Times{uTimePlanTimeStringParse(s, timeOnly)}; };
}
std::function<Times()> compose(const char *s, std::uint32_t type, std::uint32_t date) {
    return [=] { return Times{uTimePlanTimeCompose(s, type, date)}; };
}
// The next period of a plan, or kFails alone.
std::function<Times()> period(const char *start, const char *end, std::uint32_t type) {
    return [=] {
        const uTimePlanInfo info = planInfo(start, end, type, 0);
        std::time_t from = kFails, to = kFails;
        return timePlanTimeCalculation(&info, &from, &to) == 0 ? Times{from, to} : Times{kFails};
    };
}

// One calculation seen from a wall clock, and what it gives.
struct Row {
    const char *what;
    std::time_t now;
    std::function<Times()> call;
    Times expected;
};

TEST(TimePlanCalendar, StringsCompositionStepsAndPeriods) {
    setZone("UTC0"); // the rows' times are local times
    const std::time_t mon = nov(23, 10);
    const Row rows[] = {
        {"24:00 is tomorrow", mon, parse("24:00"), {nov(24, 0)}},
        {"seconds above 59 count as 0", mon, parse("08:30:75"), {nov(23, 8, 30)}},
        {"minute 60", mon, parse("23:60"), {kFails}},
        {"once: always this year", mon, parse("12-31-23:59", 0), {at(2026, 12, 31, 23, 59)}},
        {"weekly today, even past", mon, compose("08:00", 2, 1), {nov(23, 8)}},
        {"on a Sunday 7 is next week", nov(29, 10), compose("08:00", 2, 7), {at(2026, 12, 6)}},
        {"monthly 31 skips November", mon, compose("08:00", 3, 31), {at(2026, 12, 31)}},
        // Periods: an overnight one begun yesterday, a once plan in its last second; one still
        // open keeps its past start, up to its last second.
        {"overnight", nov(24, 2), period("22:00", "06:00", 1), {nov(23, 22), nov(24, 6)}},
        {"once", nov(25, 6), period("11-24-22:00", "11-24-06:00", 0), {nov(24, 22), nov(25, 6)}},
        {"last second", nov(23, 9), period("08:00", "09:00", 1), {nov(23, 8), nov(23, 9)}},
        {"equal: no end", nov(23, 9), period("08:00", "08:00", 1), {nov(24, 8), 0}},
        {"once, over", mon, period("11-23-08:00", "11-23-09:00", 0), {kFails}},
        {"bad end", mon, period("08:00", "23:60", 1), {kFails}},
    };
    LogCapture quiet;
    for (const Row &r : rows) {
        setWallClock(r.now);
        EXPECT_EQ(r.call(), r.expected) << r.what;
    }
    setWallClock(0);
    // Central European time (a POSIX rule, so no zone database is needed): a day stepped over the
    // change to summer time is 23 hours long, not 24.
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(timePlanNextTimeGet(at(2026, 3, 28), 1), at(2026, 3, 28) + 23 * 3600);
}

// A plan's status and next start.
std::pair<std::int32_t, std::time_t> status(std::int32_t id) {
    std::pair<std::int32_t, std::time_t> out{-1, 0};
    uTimePlanStatusQuery(id, &out.first, &out.second, nullptr);
    return out;
}

class Plans : public PlanTest {
  protected:
    void TearDown() override {
        clearAll();
        PlanTest::TearDown();
    }
    // Deletes every plan and pause, so their timers never reach another test.
    void clearAll() {
        for (std::int32_t id = 1; id <= 1000; ++id) { // pause groups ignore case
            uTimePlanDel(id);
            unpause("kitchen", id), unpause("held", id);
        }
        takeFired();
    }
    std::int32_t add(uTimePlanInfo info, char *group = nullptr) {
        info.pauseModule = group;
        return uTimePlanAdd(&info);
    }
    std::int32_t pause(const char *group, const char *from, const char *to) {
        const uTimePlanPauseInfo req = pauseReq(group, from, to);
        return uTimePlanPauseAdd(&req);
    }
};

TEST_F(Plans, OncePlansGoAfterTheirEnd) {
    setNow(nov(23, 10));
    LogCapture quiet;
    add(planInfo("11-23-10:00:05", "11-23-10:00:10", 0, 1));
    const std::int32_t p = add(planInfo("11-23-10:00:03", "", 0, 2));
    run({{0, nov(23, 10, 0, 3), {{2, nov(23, 10, 0, 3)}}},
         {0, nov(23, 10, 0, 10), {{1, nov(23, 10, 0, 5)}, {kEnd + 1, nov(23, 10, 0, 10)}}}});
    EXPECT_EQ(status(p).first, 0);
}

// Plans join a group by its exact name, while pauses find their group ignoring case: a pause
// given as "kitchen" joins the group first made as "KITCHEN", which holds only plans of
// "KITCHEN". Callers must spell a group the same way in plans and the pause that creates it.
TEST_F(Plans, PausesFindGroupsIgnoringCaseButPlansMatchExactly) {
    setNow(nov(23, 10));
    char lowerName[] = "kitchen", upper[] = "KITCHEN";
    const std::int32_t lower = add(planInfo("09:00", "11:00", 1, 1), lowerName);
    const std::int32_t caps = add(planInfo("09:00", "11:00", 1, 2), upper);
    for (const char *pauseAs : {"KITCHEN", "kitchen", "Kitchen"}) {
        ASSERT_GT(pause(pauseAs, "2026-11-23", "2026-11-24"), 0);
        EXPECT_EQ(std::pair(status(lower).first, status(caps).first), std::pair(2, 1)) << pauseAs;
    }
    clearAll(); // the pauses are deleted: the group holds nothing any more
    EXPECT_EQ(status(caps).first, 0);
    EXPECT_EQ(status(add(planInfo("09:00", "11:00", 1, 2), upper)).first, 2);
}

// Plans and pauses draw on the same 1000 ids; plans of a paused group hold an id but no timer.
// An unknown pause type gives 0, unlike the other refusals: callers test for an id above 0. A
// pause before init is refused too.
TEST_F(Plans, PlansAndPausesShareTheThousandIdsAndRefuseBadInput) {
    setNow(nov(23, 10));
    LogCapture quiet;
    const uTimePlanPauseInfo typed = pauseReq("kitchen", "2026-11-23", "2026-11-24", 1);
    checkRows({
        PU_ROW(uTimePlanPauseAdd(nullptr), -1),
        PU_ROW(uTimePlanPauseAdd(&typed), 0),
        PU_ROW(pause("kitchen", "2026-11-25", "2026-11-25") > 0, true), // one day
        PU_ROW((uTimePlanUninit(), pause("kitchen", "2026-11-26", "2026-11-27")), -1),
    });
    uTimePlanInit(); // starts empty
    char held[] = "held";
    ASSERT_GT(pause("held", "2026-11-23", "2026-11-24"), 0);
    std::vector<std::int32_t> plans;
    for (std::int32_t id; (id = add(planInfo("12:00", "13:00", 1, 1), held)) > 0;) {
        plans.push_back(id);
    }
    EXPECT_EQ(plans.size(), 999U);
    EXPECT_EQ(pause("kitchen", "2026-11-24", "2026-11-25"), -1);
    uTimePlanDel(plans.back());
    EXPECT_EQ(pause("kitchen", "2026-11-24", "2026-11-25"), plans.back()); // the freed id
    EXPECT_EQ(add(planInfo("12:00", "13:00", 1, 1), held), 0);
}

using Operation = std::int32_t (*)(std::int32_t);
constexpr Operation kStart = uIntervalPlanStart, kDel = uIntervalPlanDel,
                    kPause = uIntervalPlanPause, kResume = uIntervalPlanResume,
                    kComplete = uIntervalPlanComplete;

std::mutex mutex;
std::map<std::int32_t, std::string> codes; // callback codes per plan, in order

void noteCode(std::int32_t code, std::int32_t id) {
    std::lock_guard lock(mutex);
    codes[id] += static_cast<char>('0' + code);
}

// The callback codes since the last call.
std::string newCodes(std::int32_t id) {
    platformSimWaitPoolsIdle();
    std::lock_guard lock(mutex);
    return std::exchange(codes[id], "");
}

// Each operation waits for its callback: callbacks queued back to back may run in any order.
// Gives "+" or "-" for accepted or refused, then the codes it called back with.
std::string settled(Operation op, std::int32_t id) {
    const std::string result = op(id) == 0 ? "+" : "-"; // before the codes it causes
    return result + newCodes(id);
}

class IntervalPlans : public PlanTest {
  protected:
    void TearDown() override {
        LogCapture quiet; // waiting plans' timers go with their plans, not with uninit
        for (std::int32_t id = 1; id <= 100; ++id) {
            uIntervalPlanDel(id);
        }
        platformSimWaitPoolsIdle();
        PlanTest::TearDown();
    }
};

enum State { Added, Running, RunPaused, Waiting, WaitPaused, LastRun };

// A plan of 3 runs (1 for LastRun) 10 s apart, driven to the state.
std::int32_t planIn(State state) {
    const std::int32_t id = uIntervalPlanAdd(state == LastRun ? 1 : 3, 10, noteCode);
    const std::vector<Operation> path[] = {
        {}, {kStart}, {kStart, kPause}, {kStart, kComplete}, {kStart, kComplete, kPause}, {kStart}};
    for (Operation op : path[state]) {
        settled(op, id);
    }
    return id;
}

// What the state does from here: codes after the wait, then resume's result and codes, then
// delete's, then whether the plan still exists. Destroys the plan.
std::string fingerprint(std::int32_t id) {
    advance(10'000);
    std::string out = newCodes(id) + "/";
    out += settled(kResume, id) + "/";
    out += settled(kDel, id) + "/";
    LogCapture log;
    uIntervalPlanResume(id);
    const bool gone = log.countContaining("basalt.utils.intervalPlan", "invaild task") == 1;
    return out + (gone ? "" : "e");
}

TEST_F(IntervalPlans, EveryOperationFromEveryState) {
    // What each state does afterwards (see fingerprint), worked out from its contract; A added,
    // R running, P a paused run, W waiting, Q a paused wait, G gone.
    const std::map<std::string, char> kStateOf = {{"/-/-/e", 'A'},  {"/-/+1/", 'R'},
                                                  {"/+2/+1/", 'P'}, {"0/-/+1/", 'W'},
                                                  {"/+/+1/", 'Q'},  {"/-/-/", 'G'}};
    const Operation ops[] = {kStart, kDel, kPause, kResume, kComplete};
    // Cells: accepted (+) or refused (-), the callback codes, and the state afterwards.
    const char *const kModel[][5] = {
        // Start, Del, Pause, Resume, Complete
        {"+0>R", "->A", "->A", "->A", "->A"},   // Added: cannot even be deleted
        {"->R", "+1>G", "+3>P", "->R", "+4>W"}, // Running
        {"->P", "+1>G", "->P", "+2>R", "->P"},  // RunPaused
        {"+0>R", "+1>G", "+>Q", "->W", "->W"},  // Waiting
        {"->Q", "+1>G", "->Q", "+>W", "->Q"},   // WaitPaused
        {"->R", "+1>G", "+3>P", "->R", "+1>G"}, // LastRun: the last completion finishes
    };
    for (int state = Added; state <= LastRun; ++state) {
        for (int op = 0; op < 5; ++op) {
            const std::int32_t id = planIn(static_cast<State>(state));
            const std::string got = settled(ops[op], id) + ">";
            const auto next = kStateOf.find(fingerprint(id));
            EXPECT_EQ(got + (next != kStateOf.end() ? next->second : '?'), kModel[state][op])
                << "state " << state << " x operation " << op;
            settled(kDel, id);
        }
    }
}

TEST_F(IntervalPlans, IdsComeBackWhenTheSearchWraps) {
    LogCapture quiet;
    // Ids 1 to 100; a freed id comes back when the search wraps round.
    std::vector<std::int32_t> ids;
    for (std::int32_t id; (id = uIntervalPlanAdd(1, 0, noteCode)) > 0;) {
        ids.push_back(id);
    }
    EXPECT_EQ(ids.size(), 100U);
    settled(kStart, ids[5]), settled(kComplete, ids[5]);
    EXPECT_EQ(uIntervalPlanAdd(1, 0, noteCode), ids[5]);
    EXPECT_EQ(uIntervalPlanAdd(1, 0, noteCode), -1);
}

// Uninit leaves waiting plans' timers armed: one that fires finds no plan, or a new plan that
// was given its id, which it then starts.
TEST_F(IntervalPlans, TimersOutliveTheService) {
    const std::int32_t id = uIntervalPlanAdd(2, 1, noteCode),
                       other = uIntervalPlanAdd(2, 2, noteCode);
    for (std::int32_t plan : {id, other}) {
        settled(kStart, plan), settled(kComplete, plan);
    }
    uIntervalPlanUninit();
    LogCapture quiet;
    advance(1000); // the first timer fires into nothing
    EXPECT_EQ(newCodes(id), "");
    ASSERT_EQ(uIntervalPlanInit(), 0);
    EXPECT_EQ(std::vector({uIntervalPlanAdd(1, 1, noteCode), uIntervalPlanAdd(1, 1, noteCode)}),
              std::vector({id, other}));
    advance(1000); // the second timer starts the new plan that has its id
    EXPECT_EQ(newCodes(id) + "/" + newCodes(other), "/0");
}

class TimeAllocFailure : public PlanTest, public testing::WithParamInterface<AllocCase> {
  protected:
    void SetUp() override {
        PlanTest::SetUp();
        setWallClock(nov(23, 7));
    }
};

std::atomic<int> intervalCalls{0};

const AllocCase kCases[] = {
    // A timer that is added fires, even when only its device wake-up could not be armed.
    {"WakeUpTimer",
     [](const FailAlloc &fault) {
         const std::uint32_t id = uTimerAddWithWakeup(record, tag(5), 1000);
         EXPECT_TRUE(id != 0 || fault.hit());
         advance(1000);
         EXPECT_EQ(takeFired().size(), id != 0 ? 1U : 0U);
     }},
    {"WallClockTimer",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         const std::uint32_t id = uTimerEventAdd(nullptr, nullptr, nov(23, 8));
         EXPECT_TRUE(id != 0 || fault.hit());
         uTimerDel(id);
     }},
    {"TimePlanAdd",
     [](const FailAlloc &fault) {
         uTimePlanInfo info = planInfo("08:00", "09:00", 1, 7);
         char group[] = "alloc";
         info.pauseModule = group;
         const std::int32_t id = uTimePlanAdd(&info); // 0 only for a refused allocation
         EXPECT_TRUE(id != 0 || fault.hit());
         const std::int32_t kept = id != 0 ? id : uTimePlanAdd(&info);
         EXPECT_GT(kept, 0);
         uTimePlanDel(kept);
     }},
    {"TimePlanPauseAdd",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         AllocSteps steps(fault);
         uTimePlanPauseInfo req{0, "alloc", {"2026-11-25"}, "2026-11-26"};
         for (int i = 0; i < 2; ++i) {
             const std::int32_t id = uTimePlanPauseAdd(&req);
             EXPECT_TRUE(steps.failed(id < 0) || id > 0);
         }
         for (std::int32_t id = 1; id <= 1000; ++id) {
             unpause("alloc", id);
         }
     }},
    // Only a start callback that could not be queued is missing.
    {"IntervalPlanAddAndStart",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         intervalCalls = 0;
         auto count = [](std::int32_t, std::int32_t) { ++intervalCalls; };
         std::int32_t id = uIntervalPlanAdd(1, 1, count);
         EXPECT_EQ(id < 0, fault.hit());
         id = id < 0 ? uIntervalPlanAdd(1, 1, count) : id;
         const bool hitBefore = fault.hit();
         EXPECT_EQ(uIntervalPlanStart(id), 0);
         platformSimWaitPoolsIdle();
         EXPECT_EQ(intervalCalls.load(), fault.hit() && !hitBefore ? 0 : 1);
         EXPECT_EQ(uIntervalPlanDel(id), 0);
         platformSimWaitPoolsIdle();
     }},
};

PU_ALLOC_FAILURE_SWEEP(TimeAllocFailure, kCases);

constexpr const char *kTimer = "basalt.utils.timer";
constexpr const char *kPlan = "platform.utils.timePlan";
constexpr const char *kInterval = "basalt.utils.intervalPlan";

std::int32_t pause(std::int32_t type, const char *from, const char *to) {
    const uTimePlanPauseInfo req = pauseReq("catalogue", from, to, type);
    return uTimePlanPauseAdd(&req);
}
void twoPauses() {
    const std::int32_t first = pause(0, "2026-11-23", "2026-11-25");
    unpause("catalogue", pause(0, "2026-11-23", "2026-11-25"));
    unpause("catalogue", first);
}

TEST_F(PlanTest, LogCatalogue) {
    setWallClock(nov(23, 10));
    const uTimePlanInfo badStart = planInfo("8", "", 1, 0), daily = planInfo("08:00", "", 1, 0);
    checkLogRows({
        PU_LOG_ROW(uTimerInit(5000), 1, kTimer, "uTimer is already initialized."),
        PU_LOG_ROW(uTimePlanInit(), 1, kPlan, "uTimePlanInit: time plan is alreday init."),
        PU_LOG_ROW(uTimePlanTimeStringParse("23:60", 1), 1, kPlan,
                   "uTimePlanTimeStringParse: the param of timeStr is out of range "),
        PU_LOG_ROW(uTimePlanTimeCompose("08:00", 1, 1), 1, kPlan,
                   "uTimePlanTimeCompose: repeatType and repeatDate mismatch"),
        PU_LOG_ROW(uTimePlanAdd(&badStart), 1, kPlan,
                   "timePlanTimeCalculation: startTime or endTime Compose failed"),
        PU_LOG_ROW(pause(1, "", ""), 3, kPlan, "uTimePlanPauseAdd: pauseType not support"),
        PU_LOG_ROW(unpause("catalogue", 5, 1), 3, kPlan,
                   "uTimePlanPauseDel: pauseType not support"),
        PU_LOG_ROW(pause(0, "2026-02-30", "2026-11-24"), 0, kPlan,
                   "uTimePlanPauseTimeCalculation: pauseStartTime [2026-02-30] parse ERROR"),
        PU_LOG_ROW(pause(0, "2026-11-23", "tomorrow"), 0, kPlan,
                   "uTimePlanPauseTimeCalculation: pauseEndTime [tomorrow] parse ERROR"),
        PU_LOG_ROW(pause(0, "2026-11-25", "2026-11-24"), 0, kPlan,
                   "uTimePlanPauseTimeCalculation: pauseStartTime[2026-11-25] greater than "
                   "pauseEndTime[2026-11-24]"),
        PU_LOG_ROW(twoPauses(), 1, kPlan, "uTimePlanModulePauseStart: time plan has been paused"),
        PU_LOG_ROW(uIntervalPlanAdd(1, 1, nullptr), 2, kInterval,
                   "uIntervalPlanAdd, invaild param."),
        PU_LOG_ROW(uIntervalPlanPause(-1), 2, kInterval, "uIntervalPlanPause, invaild param."),
        PU_LOG_ROW(uIntervalPlanComplete(42), 2, kInterval, "uIntervalPlanComplete, invaild task!"),
        PU_LOG_ROW(
            (uIntervalPlanUninit(), uIntervalPlanAdd(1, 1, [](std::int32_t, std::int32_t) {})), 2,
            kInterval, "uIntervalPlanAdd, list not init!"),
        PU_LOG_ROW((uTimePlanUninit(), uTimePlanUninit()), 1, kPlan,
                   "uTimePlanUninit: time plan not init."),
        PU_LOG_ROW(uTimePlanAdd(&daily), 1, kPlan, "uTimePlanAdd: time plan is not init."),
    });
    uTimePlanInit(); // for the tear-down to stop quietly
}

} // namespace
} // namespace pu::test
