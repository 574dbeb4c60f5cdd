// SPDX-License-Identifier: MIT
// Plans: time strings, composition, stepping and the next period on a chosen wall clock (in UTC
// and in a zone with daylight saving); then plans and pause groups on the simulated clock: when
// their callbacks run, plans added inside their period, once plans, time changes, how pauses find
// their group, ids, and refused input.
#include "timer_harness.hpp"

#include <call_table.hpp>
#include <log_capture.hpp>

namespace pu::test {
namespace {

// Central European time: summer time from the last Sunday of March 02:00 to the last Sunday of
// October 03:00. A POSIX rule, so the test needs no zone database.
constexpr const char *kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
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
    int std::tm::*fields[] = {&std::tm::tm_year, &std::tm::tm_mon, &std::tm::tm_mday,
                              &std::tm::tm_hour, &std::tm::tm_min, &std::tm::tm_sec};
    for (int std::tm::*field : fields) {
        std::tm later = base;
        later.*field += 1;
        later.tm_sec -= field == &std::tm::tm_sec ? 0 : 59;
        EXPECT_EQ(
            std::vector({uTimePlanTmCompare(&later, &base), uTimePlanTmCompare(&base, &later)}),
            std::vector({1, -1}));
    }
    const std::tm other{30, 20, 10, 15, 5, 126, 5, 7, 1, 0, nullptr};
    EXPECT_EQ(std::vector({uTimePlanTmCompare(&other, &base), uTimePlanTmCompare(nullptr, &base),
                           uTimePlanTmCompare(&base, nullptr)}),
              std::vector({0, 0, 0}));
}

using Times = std::vector<std::time_t>;
std::function<Times()> parse(const char *s, int timeOnly = 1) {
    return [=] { return Times{uTimePlanTimeStringParse(s, timeOnly)}; };
}
std::function<Times()> compose(const char *s, std::uint32_t type, std::uint32_t date) {
    return [=] { return Times{uTimePlanTimeCompose(s, type, date)}; };
}
std::function<Times()> next(std::time_t t, std::uint32_t type) {
    return [=] { return Times{timePlanNextTimeGet(t, type)}; };
}
// The next period of a plan, or kFails alone.
std::function<Times()> period(const char *start, const char *end, std::uint32_t type) {
    return [=] {
        const uTimePlanInfo info = planInfo(start, end, type, 0);
        std::time_t from = kFails, to = kFails;
        return timePlanTimeCalculation(&info, &from, &to) == 0 ? Times{from, to} : Times{kFails};
    };
}

// One calculation seen from a wall clock: what it gives and how many lines it logs.
struct Row {
    const char *what;
    std::time_t now;
    std::function<Times()> call;
    Times expected;
    int logs = 0;
};
void check(const std::vector<Row> &rows) {
    for (const Row &r : rows) {
        setWallClock(r.now);
        LogCapture log;
        EXPECT_EQ(r.call(), r.expected) << r.what;
        EXPECT_EQ(log.countContaining("platform.utils.timePlan", ""), r.logs) << r.what;
    }
    setWallClock(0);
}

TEST(TimePlanCalendar, StringsCompositionStepsAndPeriods) {
    setZone("UTC0"); // the rows' times are local times
    const std::time_t mon = nov(23, 10);
    check({
        {"null", mon, parse(nullptr), {kFails}},
        {"24:00 is tomorrow", mon, parse("24:00"), {nov(24, 0)}},
        {"seconds above 59 count as 0", mon, parse("08:30:75"), {nov(23, 8, 30)}},
        {"minute 60", mon, parse("23:60"), {kFails}, 1},
        {"once: always this year", mon, parse("12-31-23:59", 0), {at(2026, 12, 31, 23, 59)}},
        {"month 0 normalised", mon, parse("00-10-08:00", 0), {at(2025, 12, 10)}},
        {"date",
         mon,
         [] { return Times{timePlanDateParse("2026-12-25")}; },
         {at(2026, 12, 25, 10)}},
        {"weekly today, even past", mon, compose("08:00", 2, 1), {nov(23, 8)}},
        {"weekly 0 is Sunday", mon, compose("08:00", 2, 0), {nov(29, 8)}},
        {"on a Sunday 7 is next week", nov(29, 10), compose("08:00", 2, 7), {at(2026, 12, 6)}},
        {"monthly 31 skips November", mon, compose("08:00", 3, 31), {at(2026, 12, 31)}},
        {"past December: February", at(2026, 12, 15), compose("08:00", 3, 10), {at(2027, 2, 10)}},
        {"February too short", at(2026, 12, 31), compose("08:00", 3, 30), {at(2027, 3, 30)}},
        {"monthly 31 skips February", 0, next(at(2027, 1, 31), 3), {at(2027, 3, 31)}},
        {"monthly out of December skips January", 0, next(at(2026, 12, 5), 3), {at(2027, 2, 5)}},
        {"unknown never steps", 0, next(nov(23, 8), 4), {nov(23, 8)}},
        // Periods: an overnight one begun yesterday, at its end (the next one), a once plan in its
        // last second; an open one keeps its past start.
        {"overnight", nov(24, 2), period("22:00", "06:00", 1), {nov(23, 22), nov(24, 6)}},
        {"its end", nov(24, 6), period("22:00", "06:00", 1), {nov(24, 22), nov(25, 6)}},
        {"once", nov(25, 6), period("11-24-22:00", "11-24-06:00", 0), {nov(24, 22), nov(25, 6)}},
        {"open", nov(23, 8, 30), period("08:00", "09:00", 1), {nov(23, 8), nov(23, 9)}},
        {"last second", nov(23, 9), period("08:00", "09:00", 1), {nov(23, 8), nov(23, 9)}},
        {"weekly", nov(23, 9, 0, 1), period("08:00", "09:00", 2), {nov(29, 8), nov(29, 9)}},
        {"equal: no end", nov(23, 9), period("08:00", "08:00", 1), {nov(24, 8), 0}},
        {"once, over", mon, period("11-23-08:00", "11-23-09:00", 0), {kFails}},
        {"bad end", mon, period("08:00", "23:60", 1), {kFails}, 2},
        {"no plan",
         mon,
         [] { return Times{timePlanTimeCalculation(nullptr, nullptr, nullptr)}; },
         {kFails}},
    });
    setZone(kBerlin); // a day stepped over a change is 23 or 25 hours long, not 24
    check({
        {"spring", 0, next(at(2026, 3, 28), 1), {at(2026, 3, 28) + 23 * 3600}},
        {"autumn", 0, next(at(2026, 10, 24), 1), {at(2026, 10, 24) + 25 * 3600}},
    });
}

constexpr std::uintptr_t E = kEnd;

std::int32_t status(std::int32_t id, std::time_t *start = nullptr) {
    std::int32_t value = -1;
    uTimePlanStatusQuery(id, &value, start, nullptr);
    return value;
}

class Plans : public PlanTest {
  protected:
    void TearDown() override {
        clearAll();
        PlanTest::TearDown();
    }
    // Deletes every plan and pause, so their timers never reach another test or scenario.
    void clearAll() {
        for (std::int32_t id = 1; id <= 1000; ++id) {
            uTimePlanDel(id);
        }
        for (const auto &[group, id] : std::exchange(pauses_, {})) {
            unpause(group, id);
        }
        takeFired();
    }
    std::int32_t add(uTimePlanInfo info, char *group = nullptr) {
        info.pauseModule = group;
        return uTimePlanAdd(&info);
    }
    std::int32_t pause(const char *group, const char *from, const char *to) {
        const uTimePlanPauseInfo req = pauseReq(group, from, to);
        const std::int32_t id = uTimePlanPauseAdd(&req);
        pauses_.emplace_back(group, id);
        return id;
    }
    static std::function<void()> expectStatus(const std::int32_t &id, std::int32_t value,
                                              std::time_t start = 0) {
        return [&id, value, start] {
            std::time_t next = 0;
            EXPECT_EQ(status(id, &next), value) << "plan " << id;
            EXPECT_TRUE(start == 0 || next == start) << "plan " << id << " next " << next;
        };
    }
    std::vector<std::pair<const char *, std::int32_t>> pauses_;
};

TEST_F(Plans, Scenarios) {
    std::int32_t p = 0;
    auto addP = [&](uTimePlanInfo info) { return [=, this, &p] { EXPECT_GT(p = add(info), 0); }; };
    const auto addOnce = [&] {
        add(planInfo("11-23-10:00:05", "11-23-10:00:10", 0, 1));
        p = add(planInfo("11-23-10:00:03", "", 0, 2));
        EXPECT_EQ(add(planInfo("11-23-09:00", "", 0, 3)), 0); // over
    };
    const auto lateClock = [&] {
        expectStatus(p, 1, nov(23, 10, 0, 5))();
        uTimerCheckSysTimeUpdated();
        expectStatus(p, 1, nov(26, 10, 0, 5))();
    };
    const std::vector<std::tuple<const char *, std::time_t, std::vector<Step>>> scenarios = {
        {"added inside its period: starts silently",
         nov(23, 8, 30),
         {{0, nov(23, 8, 59, 59), {}, addP(planInfo("08:00", "09:00", 1, 7))},
          {0, nov(23, 9), {{E + 7, nov(23, 9)}}, expectStatus(p, 2)},
          {0, nov(24, 8), {{7, nov(24, 8)}}, expectStatus(p, 1, nov(24, 8))},
          {0, nov(24, 9), {{E + 7, nov(24, 9)}}}}},
        {"once plans go after their end",
         nov(23, 10),
         {{0, nov(23, 10, 0, 3), {{2, nov(23, 10, 0, 3)}}, addOnce},
          {0, nov(23, 10, 0, 10), {{1, nov(23, 10, 0, 5)}, {E + 1, nov(23, 10, 0, 10)}}},
          {0, nov(23, 10, 0, 30), {}, expectStatus(p, 0)}}},
        // Served a second late, a plan without an end skips its start and keeps no timer until
        // the next time change: a late start would surprise more than a missed one.
        {"late timer skips the start of a plan without an end",
         nov(23, 10),
         {{4000, 0, {}, addP(planInfo("10:00:05", "", 1, 4))},
          {0, nov(25, 10, 0, 30), {}, [&] { setNow(nov(23, 10, 0, 6)); }},
          {0, nov(26, 10, 0, 5), {{4, nov(26, 10, 0, 5)}}, lateClock}}},
    };
    for (const auto &[name, start, steps] : scenarios) {
        SCOPED_TRACE(name);
        setNow(start);
        LogCapture quiet;
        run(steps);
        clearAll();
    }
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
        EXPECT_EQ(std::vector({status(lower), status(caps)}), std::vector({2, 1})) << pauseAs;
    }
    clearAll(); // the pauses are deleted: the group holds nothing any more
    EXPECT_EQ(status(caps), 0);
    EXPECT_EQ(status(add(planInfo("09:00", "11:00", 1, 2), upper)), 2);
}

// Plans and pauses draw on the same 1000 ids; plans of a paused group hold an id but no timer.
TEST_F(Plans, PlansAndPausesShareTheThousandIds) {
    setNow(nov(23, 10));
    LogCapture quiet;
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

// An unknown pause type gives 0, unlike the other refusals: callers test for an id above 0. A
// pause before init is refused too.
TEST_F(Plans, RefusedInput) {
    setNow(nov(23, 10));
    LogCapture log;
    const uTimePlanPauseInfo typed = pauseReq("kitchen", "2026-11-23", "2026-11-24", 1);
    checkRows({
        PU_ROW(uTimePlanAdd(nullptr), 0),
        PU_ROW(uTimePlanPauseAdd(nullptr), -1),
        PU_ROW(uTimePlanPauseAdd(&typed), 0),
        PU_ROW(pause("kitchen", "2026-11-25", "2026-11-24"), -1),
        PU_ROW(pause("kitchen", "2026-11-25", "2026-11-25") > 0, true), // one day
        PU_ROW((uTimePlanUninit(), pause("kitchen", "2026-11-26", "2026-11-27")), -1),
    });
    uTimePlanInit();
}

} // namespace
} // namespace pu::test
