// SPDX-License-Identifier: MIT
// Time strings, composition, stepping and the next period of a plan, on a chosen wall clock in
// UTC and in a zone with daylight saving.
#include "timer_harness.hpp"

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

// One calendar calculation seen from a wall clock: what it gives and whether it logs.
struct Row {
    const char *what;
    std::time_t now;
    std::function<std::time_t()> call;
    std::time_t expected;
    int logs = 0; // lines of the plan module
};

void check(const std::vector<Row> &rows) {
    for (const Row &r : rows) {
        SCOPED_TRACE(r.what);
        setWallClock(r.now);
        LogCapture log;
        EXPECT_EQ(r.call(), r.expected);
        EXPECT_EQ(log.countContaining("platform.utils.timePlan", ""), r.logs) << log.dump();
    }
    setWallClock(0);
}

std::function<std::time_t()> parse(const char *s, int timeOnly = 1) {
    return [=] { return uTimePlanTimeStringParse(s, timeOnly); };
}
std::function<std::time_t()> compose(const char *s, std::uint32_t type, std::uint32_t date) {
    return [=] { return uTimePlanTimeCompose(s, type, date); };
}
std::function<std::time_t()> next(std::time_t t, std::uint32_t type) {
    return [=] { return timePlanNextTimeGet(t, type); };
}

TEST(TimePlanCalendar, MonthLengths) {
    const struct {
        std::int32_t year, month, days;
    } rows[] = {{2000, 1, 29},  {1900, 1, 28},  {2024, 1, 29},  {2023, 1, 28},
                {2023, 11, 31}, {2023, 12, -1}, {2023, -1, -1}, {-1, 0, -1}}; // by 400, by 100 only
    for (const auto &r : rows) {
        EXPECT_EQ(uTimePlanMonthMaxDay(r.year, r.month), r.days) << r.year << "-" << r.month;
    }
}

TEST(TimePlanCalendar, TmCompareLooksAtTheSixFieldsOnly) {
    std::tm base{};
    base.tm_sec = 30;
    base.tm_min = 20;
    base.tm_hour = 10;
    base.tm_mday = 15;
    base.tm_mon = 5;
    base.tm_year = 126;
    base.tm_wday = 1;
    base.tm_yday = 100;
    int std::tm::*fields[] = {&std::tm::tm_year, &std::tm::tm_mon, &std::tm::tm_mday,
                              &std::tm::tm_hour, &std::tm::tm_min, &std::tm::tm_sec};
    for (int std::tm::*field : fields) {
        std::tm later = base;
        later.*field += 1;
        later.tm_sec -= field == &std::tm::tm_sec ? 0 : 59; // an earlier field outweighs later ones
        EXPECT_EQ(uTimePlanTmCompare(&later, &base), 1);
        EXPECT_EQ(uTimePlanTmCompare(&base, &later), -1);
    }
    std::tm other = base;
    other.tm_wday = 5, other.tm_yday = 7, other.tm_isdst = 1;
    EXPECT_EQ(uTimePlanTmCompare(&other, &base), 0);
    EXPECT_EQ(uTimePlanTmCompare(nullptr, &base), 0);
    EXPECT_EQ(uTimePlanTmCompare(&base, nullptr), 0);
}

TEST(TimePlanCalendar, Strings) {
    setZone("UTC0"); // the rows' times are local times
    const std::time_t now = at(2026, 11, 23, 10);
    check({
        {"time of day", now, parse("08:30"), at(2026, 11, 23, 8, 30)},
        {"24:00 is tomorrow", now, parse("24:00"), at(2026, 11, 24, 0)},
        {"seconds above 59 count as 0", now, parse("08:30:75"), at(2026, 11, 23, 8, 30)},
        {"negative seconds too", now, parse("08:30:-5"), at(2026, 11, 23, 8, 30)},
        {"last second", now, parse("23:59:59"), at(2026, 11, 23, 23, 59, 59)},
        {"minute 60", now, parse("23:60"), kFails, 1},
        {"hour 25", now, parse("25:00"), kFails, 1},
        {"hour -1", now, parse("-1:00"), kFails, 1},
        {"minute -1", now, parse("08:-1"), kFails, 1},
        {"no colon", now, parse("0830"), kFails},
        {"four fields", now, parse("08:30:00:00"), kFails},
        {"empty", now, parse(""), kFails},
        {"null", now, parse(nullptr), kFails},
        {"once: always this year", now, parse("12-31-23:59", 0), at(2026, 12, 31, 23, 59)},
        {"once with seconds", now, parse("01-02-03:04:05", 0), at(2026, 1, 2, 3, 4, 5)},
        {"month 0 normalised", now, parse("00-10-08:00", 0), at(2025, 12, 10)},
        {"day 0 normalised", now, parse("03-00-08:00", 0), at(2026, 2, 28)},
        {"Feb 30 normalised", now, parse("02-30-08:00", 0), at(2026, 3, 2)},
        {"24:01 of Dec 31", now, parse("12-31-24:01", 0), at(2027, 1, 1, 0, 1)},
        {"month 13", now, parse("13-01-08:00", 0), kFails},
        {"day 32", now, parse("02-32-08:00", 0), kFails},
        {"year given", now, parse("2026-12-31-08:00", 0), kFails},
        {"no time", now, parse("12-31", 0), kFails},
        {"time only", now, parse("08:00", 0), kFails},
        {"date: now's time of day", now, [] { return timePlanDateParse("2026-12-25"); },
         at(2026, 12, 25, 10)},
        {"date month 13", now, [] { return timePlanDateParse("2026-13-01"); }, kFails},
        {"date day 32", now, [] { return timePlanDateParse("2026-12-32"); }, kFails},
        {"date short", now, [] { return timePlanDateParse("2026-12"); }, kFails},
        {"date long", now, [] { return timePlanDateParse("2026-12-25-1"); }, kFails},
        {"date null", now, [] { return timePlanDateParse(nullptr); }, kFails},
    });
}

TEST(TimePlanCalendar, Composition) {
    setZone("UTC0"); // the rows' times are local times
    const std::time_t mon = at(2026, 11, 23, 10), sun = at(2026, 11, 29, 10);
    check({
        {"weekly today, even past", mon, compose("08:00", 2, 1), at(2026, 11, 23)},
        {"weekly Saturday", mon, compose("08:00", 2, 6), at(2026, 11, 28)},
        {"weekly 0 is Sunday", mon, compose("08:00", 2, 0), at(2026, 11, 29)},
        {"on a Sunday 0 is today", sun, compose("08:00", 2, 0), at(2026, 11, 29)},
        {"on a Sunday 7 is next week", sun, compose("08:00", 2, 7), at(2026, 12, 6)},
        {"weekly across the year end", at(2026, 12, 31), compose("08:00", 2, 2), at(2027, 1, 5)},
        {"monthly today", mon, compose("08:00", 3, 23), at(2026, 11, 23)},
        {"monthly next month", mon, compose("08:00", 3, 5), at(2026, 12, 5)},
        {"monthly 31 skips November", mon, compose("08:00", 3, 31), at(2026, 12, 31)},
        {"monthly 31 skips April", at(2027, 4, 10), compose("08:00", 3, 31), at(2027, 5, 31)},
        {"past December: February", at(2026, 12, 15), compose("08:00", 3, 10), at(2027, 2, 10)},
        {"December 31 still ahead", at(2026, 12, 15), compose("08:00", 3, 31), at(2026, 12, 31)},
        {"February too short", at(2026, 12, 31), compose("08:00", 3, 30), at(2027, 3, 30)},
        {"February 28", at(2026, 12, 31), compose("08:00", 3, 28), at(2027, 2, 28)},
        {"daily with a date", mon, compose("08:00", 1, 1), kFails, 1},
        {"once with a date", mon, compose("11-23-08:00", 0, 3), kFails, 1},
        {"weekday 8", mon, compose("08:00", 2, 8), kFails, 1},
        {"day 32", mon, compose("08:00", 3, 32), kFails, 1},
        {"empty", mon, compose("", 1, 0), kFails, 1},
        {"null", mon, compose(nullptr, 1, 0), kFails, 1},
        {"unknown types compose as daily", mon, compose("08:00", 9, 100), at(2026, 11, 23)},
        {"once", mon, compose("11-24-08:00", 0, 0), at(2026, 11, 24)},
    });
}

TEST(TimePlanCalendar, NextOccurrence) {
    setZone("UTC0"); // the rows' times are local times
    const std::time_t now = at(2026, 11, 23, 10), t = at(2026, 11, 23);
    check({
        {"daily over the year end", now, next(at(2026, 12, 31), 1), at(2027, 1, 1)},
        {"weekly over the year end", now, next(at(2026, 12, 29), 2), at(2027, 1, 5)},
        {"monthly 31 skips February", now, next(at(2027, 1, 31), 3), at(2027, 3, 31)},
        {"monthly 31 skips April", now, next(at(2027, 3, 31), 3), at(2027, 5, 31)},
        {"monthly 31 skips November", now, next(at(2027, 10, 31), 3), at(2027, 12, 31)},
        {"out of December skips January", now, next(at(2026, 12, 5), 3), at(2027, 2, 5)},
        {"and February", now, next(at(2027, 12, 31), 3), at(2028, 3, 31)},
        {"once never steps", now, next(t, 0), t},
        {"unknown never steps", now, next(t, 4), t},
        {"-1 stays", now, next(-1, 1), -1},
    });
    setZone(kBerlin); // the expected times are local times too
    check({
        {"spring day is 23 h", now, next(at(2026, 3, 28), 1), at(2026, 3, 28) + 23 * 3600},
        {"autumn day is 25 h", now, next(at(2026, 10, 24), 1), at(2026, 10, 24) + 25 * 3600},
        {"weekly over spring", now, next(at(2026, 3, 22), 2), at(2026, 3, 29)},
        {"monthly over spring", now, next(at(2026, 3, 15), 3), at(2026, 4, 15)},
        {"parsed before the change", at(2026, 3, 29, 1), parse("08:00"), at(2026, 3, 29)},
        {"composed before the change", at(2026, 10, 25, 1), compose("08:00", 1, 0),
         at(2026, 10, 25)},
    });
}

TEST(TimePlanCalendar, DatesCompareByLocalDay) {
    setZone(kBerlin);
    const std::time_t lateUtc = 1795476600; // 2026-11-23 23:30 UTC, already the 24th here
    const struct {
        std::time_t a, b;
        std::int32_t order;
    } rows[] = {{lateUtc, at(2026, 11, 24, 0, 45), 0},
                {lateUtc, at(2026, 11, 24, 23, 59), 0},
                {lateUtc, at(2026, 11, 25, 0), -1},
                {lateUtc, at(2026, 11, 23, 23, 59), 1},
                {at(2027, 1, 1, 0), at(2026, 12, 31, 23), 1},
                {-1, lateUtc, -1},
                {lateUtc, -1, -1}};
    for (const auto &r : rows) {
        EXPECT_EQ(timePlanDateCompare(r.a, r.b), r.order) << r.a << " " << r.b;
    }
}

TEST(TimePlanCalendar, Periods) {
    setZone("UTC0");
    const auto t = [](int d, int h, int m = 0, int s = 0) { return at(2026, 11, d, h, m, s); };
    const struct {
        std::time_t now;
        const char *start, *end;
        std::uint32_t type;
        std::time_t from, to; // kFails: the calculation fails
        int logs = 0;
    } rows[] = {
        {t(23, 20), "22:00", "06:00", 1, t(23, 22), t(24, 6)}, // before, over midnight
        {t(23, 23), "22:00", "06:00", 1, t(23, 22), t(24, 6)}, // inside, before midnight
        {t(24, 2), "22:00", "06:00", 1, t(23, 22), t(24, 6)},  // inside, begun yesterday
        {t(24, 6), "22:00", "06:00", 1, t(24, 22), t(25, 6)},  // at the end: the next
        {t(24, 7), "11-24-22:00", "11-24-06:00", 0, t(24, 22), t(25, 6)},
        {t(23, 8, 30), "08:00", "09:00", 1, t(23, 8), t(23, 9)}, // open: past start kept
        {t(23, 9), "08:00", "09:00", 1, t(23, 8), t(23, 9)},     // its last second
        {t(23, 9, 0, 1), "08:00", "09:00", 1, t(24, 8), t(24, 9)},
        {t(23, 9, 0, 1), "08:00", "09:00", 2, t(29, 8), t(29, 9)}, // weekly: Sunday
        {t(23, 9), "08:00", "08:00", 1, t(24, 8), 0},              // equal: no end
        {t(23, 10), "10:00", "", 1, t(23, 10), 0},
        {t(23, 10), "08:00", "", 1, t(24, 8), 0},
        {t(23, 9), "11-23-09:30", "11-23-10:00", 0, t(23, 9, 30), t(23, 10)},
        {t(23, 10), "11-23-08:00", "11-23-09:00", 0, kFails, kFails}, // once plans over
        {t(23, 10), "11-23-08:00", "", 0, kFails, kFails},
        {t(23, 10), "11-23-08:00", "11-23-08:00", 0, kFails, kFails},
        {t(23, 10), "11-22-22:00", "11-22-06:00", 0, kFails, kFails},
        {t(23, 10), "25:00", "09:00", 1, kFails, kFails, 2},
        {t(23, 10), "08:00", "23:60", 1, kFails, kFails, 2},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.start << "-" << r.end << " at " << r.now);
        setWallClock(r.now);
        LogCapture log;
        const uTimePlanInfo info = planInfo(r.start, r.end, r.type, 0);
        std::time_t from = kFails, to = kFails;
        EXPECT_EQ(timePlanTimeCalculation(&info, &from, &to), r.from == kFails ? -1 : 0);
        if (r.from != kFails) {
            EXPECT_EQ(from, r.from);
            EXPECT_EQ(to, r.to);
        }
        EXPECT_EQ(log.countContaining("platform.utils.timePlan", ""), r.logs);
    }
    setWallClock(0);
    const uTimePlanInfo info = planInfo("08:00", "09:00", 1, 0);
    std::time_t x = 0;
    EXPECT_EQ(timePlanTimeCalculation(nullptr, &x, &x), -1);
    EXPECT_EQ(timePlanTimeCalculation(&info, nullptr, &x), -1);
    EXPECT_EQ(timePlanTimeCalculation(&info, &x, nullptr), -1);
}

} // namespace
} // namespace pu::test
