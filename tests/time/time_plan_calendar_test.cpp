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

std::function<std::time_t()> parse(const char *s, int timeOnly = 1) {
    return [=] { return uTimePlanTimeStringParse(s, timeOnly); };
}
std::function<std::time_t()> compose(const char *s, std::uint32_t type, std::uint32_t date) {
    return [=] { return uTimePlanTimeCompose(s, type, date); };
}
std::function<std::time_t()> next(std::time_t t, std::uint32_t type) {
    return [=] { return timePlanNextTimeGet(t, type); };
}
std::function<std::time_t()> date(const char *s) {
    return [=] { return timePlanDateParse(s); };
}

// One calculation seen from a wall clock: what it gives and whether it logs.
struct Row {
    const char *what;
    std::time_t now;
    std::function<std::time_t()> call;
    std::time_t expected;
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

TEST(TimePlanCalendar, StringsCompositionAndSteps) {
    setZone("UTC0"); // the rows' times are local times
    const std::time_t mon = at(2026, 11, 23, 10);
    check({
        {"time of day", mon, parse("08:30"), at(2026, 11, 23, 8, 30)},
        {"null", mon, parse(nullptr), kFails},
        {"24:00 is tomorrow", mon, parse("24:00"), at(2026, 11, 24, 0)},
        {"seconds above 59 count as 0", mon, parse("08:30:75"), at(2026, 11, 23, 8, 30)},
        {"minute 60", mon, parse("23:60"), kFails, 1},
        {"once: always this year", mon, parse("12-31-23:59", 0), at(2026, 12, 31, 23, 59)},
        {"month 0 normalised", mon, parse("00-10-08:00", 0), at(2025, 12, 10)},
        {"month 13", mon, parse("13-01-08:00", 0), kFails},
        {"date: now's time of day", mon, date("2026-12-25"), at(2026, 12, 25, 10)},
        {"weekly today, even past", mon, compose("08:00", 2, 1), at(2026, 11, 23)},
        {"weekly 0 is Sunday", mon, compose("08:00", 2, 0), at(2026, 11, 29)},
        {"on a Sunday 7 is next week", at(2026, 11, 29, 10), compose("08:00", 2, 7),
         at(2026, 12, 6)},
        {"monthly 31 skips November", mon, compose("08:00", 3, 31), at(2026, 12, 31)},
        {"past December: February", at(2026, 12, 15), compose("08:00", 3, 10), at(2027, 2, 10)},
        {"February too short", at(2026, 12, 31), compose("08:00", 3, 30), at(2027, 3, 30)},
        {"daily with a date", mon, compose("08:00", 1, 1), kFails, 1},
        {"monthly 31 skips February", 0, next(at(2027, 1, 31), 3), at(2027, 3, 31)},
        {"monthly out of December skips January", 0, next(at(2026, 12, 5), 3), at(2027, 2, 5)},
        {"unknown never steps", 0, next(at(2026, 11, 23), 4), at(2026, 11, 23)},
    });
    setZone(kBerlin);
    check({
        {"spring day is 23 h", 0, next(at(2026, 3, 28), 1), at(2026, 3, 28) + 23 * 3600},
        {"autumn day is 25 h", 0, next(at(2026, 10, 24), 1), at(2026, 10, 24) + 25 * 3600},
        {"parsed before the change", at(2026, 3, 29, 1), parse("08:00"), at(2026, 3, 29)},
    });
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
        {t(24, 2), "22:00", "06:00", 1, t(23, 22), t(24, 6)},             // inside, begun yesterday
        {t(24, 6), "22:00", "06:00", 1, t(24, 22), t(25, 6)},             // at the end: the next
        {t(25, 6), "11-24-22:00", "11-24-06:00", 0, t(24, 22), t(25, 6)}, // its last second
        {t(23, 8, 30), "08:00", "09:00", 1, t(23, 8), t(23, 9)},          // open: past start kept
        {t(23, 9), "08:00", "09:00", 1, t(23, 8), t(23, 9)},              // its last second
        {t(23, 9, 0, 1), "08:00", "09:00", 2, t(29, 8), t(29, 9)},        // weekly: Sunday
        {t(23, 9), "08:00", "08:00", 1, t(24, 8), 0},                     // equal: no end
        {t(23, 10), "10:00", "", 1, t(23, 10), 0},
        {t(23, 9), "11-23-09:30", "11-23-10:00", 0, t(23, 9, 30), t(23, 10)},
        {t(23, 10), "11-23-08:00", "11-23-09:00", 0, kFails, kFails}, // once plans over
        {t(23, 10), "08:00", "23:60", 1, kFails, kFails, 2},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.start << "-" << r.end << " at " << r.now);
        setWallClock(r.now);
        LogCapture log;
        const uTimePlanInfo info = planInfo(r.start, r.end, r.type, 0);
        std::time_t from = kFails, to = kFails;
        EXPECT_EQ(timePlanTimeCalculation(&info, &from, &to), r.from == kFails ? -1 : 0);
        EXPECT_EQ(std::vector({from, to}), std::vector({r.from, r.to}));
        EXPECT_EQ(log.countContaining("platform.utils.timePlan", ""), r.logs);
    }
    setWallClock(0);
    std::time_t x = 0;
    EXPECT_EQ(timePlanTimeCalculation(nullptr, &x, &x), -1);
}

} // namespace
} // namespace pu::test
