// SPDX-License-Identifier: MIT
// Plans: time strings, composition, stepping and the next period on a chosen wall clock (in UTC
// and in a zone with daylight saving); then plans and pause groups on the simulated clock: once
// plans, a late timer and a time change, how pauses find their group, ids, and refused input.
#include "timer_harness.hpp"

#include <call_table.hpp>
#include <log_capture.hpp>

namespace pu::test {
namespace {

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
        {"null", mon, parse(nullptr), {kFails}},
        {"24:00 is tomorrow", mon, parse("24:00"), {nov(24, 0)}},
        {"seconds above 59 count as 0", mon, parse("08:30:75"), {nov(23, 8, 30)}},
        {"minute 60", mon, parse("23:60"), {kFails}},
        {"once: always this year", mon, parse("12-31-23:59", 0), {at(2026, 12, 31, 23, 59)}},
        {"month 0 normalised", mon, parse("00-10-08:00", 0), {at(2025, 12, 10)}},
        {"weekly today, even past", mon, compose("08:00", 2, 1), {nov(23, 8)}},
        {"weekly 0 is Sunday", mon, compose("08:00", 2, 0), {nov(29, 8)}},
        {"on a Sunday 7 is next week", nov(29, 10), compose("08:00", 2, 7), {at(2026, 12, 6)}},
        {"monthly 31 skips November", mon, compose("08:00", 3, 31), {at(2026, 12, 31)}},
        {"past December: February", at(2026, 12, 15), compose("08:00", 3, 10), {at(2027, 2, 10)}},
        // Periods: an overnight one begun yesterday, at its end (the next one), a once plan in its
        // last second; one still open keeps its past start, up to its last second.
        {"overnight", nov(24, 2), period("22:00", "06:00", 1), {nov(23, 22), nov(24, 6)}},
        {"its end", nov(24, 6), period("22:00", "06:00", 1), {nov(24, 22), nov(25, 6)}},
        {"once", nov(25, 6), period("11-24-22:00", "11-24-06:00", 0), {nov(24, 22), nov(25, 6)}},
        {"last second", nov(23, 9), period("08:00", "09:00", 1), {nov(23, 8), nov(23, 9)}},
        {"weekly", nov(23, 9, 0, 1), period("08:00", "09:00", 2), {nov(29, 8), nov(29, 9)}},
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
    // Monthly 31 skips February.
    EXPECT_EQ(timePlanNextTimeGet(at(2027, 1, 31), 3), at(2027, 3, 31));
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
        for (std::int32_t id = 1; id <= 1000; ++id) {
            uTimePlanDel(id);
        }
        for (std::int32_t id = 1; id <= 1000; ++id) { // pause groups ignore case
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
    EXPECT_EQ(add(planInfo("11-23-09:00", "", 0, 3)), 0); // over
    run({{0, nov(23, 10, 0, 3), {{2, nov(23, 10, 0, 3)}}},
         {0, nov(23, 10, 0, 10), {{1, nov(23, 10, 0, 5)}, {kEnd + 1, nov(23, 10, 0, 10)}}}});
    EXPECT_EQ(status(p).first, 0);
}

// Served a second late, a plan without an end skips its start and keeps no timer until the next
// time change: a late start would surprise more than a missed one.
TEST_F(Plans, ALateTimerSkipsTheStartOfAPlanWithoutAnEnd) {
    setNow(nov(23, 10));
    LogCapture quiet;
    const std::int32_t p = add(planInfo("10:00:05", "", 1, 4));
    run({{4000, 0, {}}, {0, nov(25, 10, 0, 30), {}, [&] { setNow(nov(23, 10, 0, 6)); }}});
    EXPECT_EQ(status(p), std::pair(1, nov(23, 10, 0, 5)));
    uTimerCheckSysTimeUpdated();
    EXPECT_EQ(status(p), std::pair(1, nov(26, 10, 0, 5)));
    run({{0, nov(26, 10, 0, 5), {{4, nov(26, 10, 0, 5)}}}});
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
        PU_ROW(uTimePlanAdd(nullptr), 0),
        PU_ROW(uTimePlanPauseAdd(nullptr), -1),
        PU_ROW(uTimePlanPauseAdd(&typed), 0),
        PU_ROW(pause("kitchen", "2026-11-25", "2026-11-24"), -1),
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

} // namespace
} // namespace pu::test
