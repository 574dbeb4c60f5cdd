// SPDX-License-Identifier: MIT
// Time strings, composition, stepping and the next period of a plan, on a chosen wall clock in
// UTC and in a zone with daylight saving.
#include "time_plan_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

constexpr const char *kModule = "platform.utils.timePlan";
// Central European time: summer time from the last Sunday of March 02:00 to the last Sunday of
// October 03:00. A POSIX rule, so the test needs no zone database.
constexpr const char *kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";

class Calendar : public ::testing::Test {
  protected:
    explicit Calendar(const char *tz = "UTC0") : zone_(tz) {}
    void TearDown() override { setWallClock(0); }
    // Monday 2026-11-23 10:00:00 unless a test says otherwise.
    void at(int year, int month, int day, int hour = 10, int minute = 0, int second = 0) {
        setWallClock(localAt(year, month, day, hour, minute, second));
    }

  private:
    Zone zone_;
};

class BerlinCalendar : public Calendar {
  protected:
    BerlinCalendar() : Calendar(kBerlin) {}
};

TEST(TimePlanMonth, LengthsAndRefusals) {
    EXPECT_EQ(uTimePlanMonthMaxDay(2000, 1), 29); // divisible by 400
    EXPECT_EQ(uTimePlanMonthMaxDay(1900, 1), 28); // by 100 only
    EXPECT_EQ(uTimePlanMonthMaxDay(2024, 1), 29);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 1), 28);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 11), 31);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 12), -1); // what makes the monthly roll-over land in Feb
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, -1), -1);
    EXPECT_EQ(uTimePlanMonthMaxDay(-1, 0), -1);
}

TEST_F(Calendar, TimeOfDayStrings) {
    at(2026, 11, 23);
    LogCapture log;
    EXPECT_EQ(uTimePlanTimeStringParse("08:30", 1), localAt(2026, 11, 23, 8, 30));
    EXPECT_EQ(uTimePlanTimeStringParse("24:00", 1), localAt(2026, 11, 24, 0, 0));
    EXPECT_EQ(uTimePlanTimeStringParse("08:30:75", 1), localAt(2026, 11, 23, 8, 30, 0));
    EXPECT_EQ(uTimePlanTimeStringParse("08:30:-5", 1), localAt(2026, 11, 23, 8, 30, 0));
    EXPECT_EQ(uTimePlanTimeStringParse("23:59:59", 1), localAt(2026, 11, 23, 23, 59, 59));
    EXPECT_EQ(log.lines().size(), 0U) << log.dump();

    const std::string outOfRange =
        "uTimePlanTimeStringParse: the param of timeStr is out of range ";
    for (const char *bad : {"23:60", "25:00", "-1:00", "08:-1"}) {
        EXPECT_EQ(uTimePlanTimeStringParse(bad, 1), -1) << bad;
    }
    EXPECT_EQ(log.count(1, kModule, outOfRange), 4) << log.dump();

    log.clear();
    for (const char *malformed : {"0830", "08:30:00:00", "", "08:30:00:00:00"}) {
        EXPECT_EQ(uTimePlanTimeStringParse(malformed, 1), -1) << malformed;
    }
    EXPECT_EQ(uTimePlanTimeStringParse(nullptr, 1), -1);
    EXPECT_EQ(log.lines().size(), 0U) << log.dump();
}

TEST_F(Calendar, DateAndTimeStringsOfOncePlans) {
    at(2026, 11, 23);
    LogCapture log;
    // The year is always the current one, never taken from the string.
    EXPECT_EQ(uTimePlanTimeStringParse("12-31-23:59", 0), localAt(2026, 12, 31, 23, 59));
    EXPECT_EQ(uTimePlanTimeStringParse("01-02-03:04:05", 0), localAt(2026, 1, 2, 3, 4, 5));
    // Month 0 and day 0 are not refused: mktime normalises them.
    EXPECT_EQ(uTimePlanTimeStringParse("00-10-08:00", 0), localAt(2025, 12, 10, 8, 0));
    EXPECT_EQ(uTimePlanTimeStringParse("03-00-08:00", 0), localAt(2026, 2, 28, 8, 0));
    EXPECT_EQ(uTimePlanTimeStringParse("02-30-08:00", 0), localAt(2026, 3, 2, 8, 0));
    // Too large month or day, or the wrong number of fields: refused without a message.
    for (const char *bad : {"13-01-08:00", "02-32-08:00", "2026-12-31-08:00", "12-31", "08:00"}) {
        EXPECT_EQ(uTimePlanTimeStringParse(bad, 0), -1) << bad;
    }
    EXPECT_EQ(log.lines().size(), 0U) << log.dump();
    EXPECT_EQ(uTimePlanTimeStringParse("12-31-24:01", 0), localAt(2027, 1, 1, 0, 1));
}

TEST_F(Calendar, WeeklyComposition) {
    at(2026, 11, 23);                                                            // a Monday
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 1), localAt(2026, 11, 23, 8, 0)); // today, even past
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 6), localAt(2026, 11, 28, 8, 0));
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 0), localAt(2026, 11, 29, 8, 0));
    at(2026, 11, 29); // a Sunday: 0 is today, 7 the Sunday after
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 0), localAt(2026, 11, 29, 8, 0));
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 7), localAt(2026, 12, 6, 8, 0));
    at(2026, 12, 31); // a Thursday, across the year end
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 2), localAt(2027, 1, 5, 8, 0));
}

TEST_F(Calendar, MonthlyCompositionRollsOverIntoFebruary) {
    at(2026, 11, 23);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 23), localAt(2026, 11, 23, 8, 0));
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 5), localAt(2026, 12, 5, 8, 0));
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 31), localAt(2026, 12, 31, 8, 0)); // November has 30
    at(2027, 4, 10);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 31), localAt(2027, 5, 31, 8, 0));
    // Past December the month restarts at February, not January.
    at(2026, 12, 15);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 10), localAt(2027, 2, 10, 8, 0));
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 31), localAt(2026, 12, 31, 8, 0));
    at(2026, 12, 31);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 30), localAt(2027, 3, 30, 8, 0)); // Feb is too short
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 28), localAt(2027, 2, 28, 8, 0));
}

TEST_F(Calendar, CompositionRefusesMismatchedRepeatDates) {
    at(2026, 11, 23);
    LogCapture log;
    const std::string mismatch = "uTimePlanTimeCompose: repeatType and repeatDate mismatch";
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 1, 1), -1);
    EXPECT_EQ(uTimePlanTimeCompose("11-23-08:00", 0, 3), -1);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 2, 8), -1);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 3, 32), -1);
    EXPECT_EQ(uTimePlanTimeCompose("", 1, 0), -1);
    EXPECT_EQ(uTimePlanTimeCompose(nullptr, 1, 0), -1);
    EXPECT_EQ(log.count(1, kModule, mismatch), 6) << log.dump();
    // Unknown repeat types are composed like daily, whatever their repeatDate.
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 9, 100), localAt(2026, 11, 23, 8, 0));
    EXPECT_EQ(uTimePlanTimeCompose("11-24-08:00", 0, 0), localAt(2026, 11, 24, 8, 0));
}

TEST_F(Calendar, NextOccurrence) {
    at(2026, 11, 23);
    EXPECT_EQ(timePlanNextTimeGet(localAt(2026, 12, 31, 8, 0), 1), localAt(2027, 1, 1, 8, 0));
    EXPECT_EQ(timePlanNextTimeGet(localAt(2026, 12, 29, 8, 0), 2), localAt(2027, 1, 5, 8, 0));
    EXPECT_EQ(timePlanNextTimeGet(localAt(2027, 1, 31, 8, 0), 3), localAt(2027, 3, 31, 8, 0));
    EXPECT_EQ(timePlanNextTimeGet(localAt(2027, 3, 31, 8, 0), 3), localAt(2027, 5, 31, 8, 0));
    EXPECT_EQ(timePlanNextTimeGet(localAt(2027, 10, 31, 8, 0), 3), localAt(2027, 12, 31, 8, 0));
    // A monthly step out of December skips January.
    EXPECT_EQ(timePlanNextTimeGet(localAt(2026, 12, 5, 8, 0), 3), localAt(2027, 2, 5, 8, 0));
    EXPECT_EQ(timePlanNextTimeGet(localAt(2027, 12, 31, 8, 0), 3), localAt(2028, 3, 31, 8, 0));
    // Once plans and unknown types never step.
    const std::time_t t = localAt(2026, 11, 23, 8, 0);
    EXPECT_EQ(timePlanNextTimeGet(t, 0), t);
    EXPECT_EQ(timePlanNextTimeGet(t, 4), t);
    EXPECT_EQ(timePlanNextTimeGet(-1, 1), -1);
}

TEST_F(BerlinCalendar, StepsKeepTheLocalTimeOverDaylightSavingChanges) {
    const std::time_t beforeSpring = localAt(2026, 3, 28, 8, 0);
    const std::time_t spring = timePlanNextTimeGet(beforeSpring, 1);
    EXPECT_EQ(spring, localAt(2026, 3, 29, 8, 0));
    EXPECT_EQ(spring - beforeSpring, 23 * 3600);
    const std::time_t beforeAutumn = localAt(2026, 10, 24, 8, 0);
    EXPECT_EQ(timePlanNextTimeGet(beforeAutumn, 1) - beforeAutumn, 25 * 3600);
    EXPECT_EQ(timePlanNextTimeGet(localAt(2026, 3, 22, 8, 0), 2), localAt(2026, 3, 29, 8, 0));
    EXPECT_EQ(timePlanNextTimeGet(localAt(2026, 3, 15, 8, 0), 3), localAt(2026, 4, 15, 8, 0));
    // Composed on the day of the change before it happened: 08:00 is summer time already.
    at(2026, 3, 29, 1, 0);
    EXPECT_EQ(uTimePlanTimeStringParse("08:00", 1), localAt(2026, 3, 29, 8, 0));
    at(2026, 10, 25, 1, 0);
    EXPECT_EQ(uTimePlanTimeCompose("08:00", 1, 0), localAt(2026, 10, 25, 8, 0));
}

TEST_F(BerlinCalendar, DatesCompareByLocalDay) {
    at(2026, 11, 23, 10, 0);
    EXPECT_EQ(timePlanDateParse("2026-12-25"), localAt(2026, 12, 25, 10, 0)); // now's time of day
    for (const char *bad : {"2026-13-01", "2026-12-32", "2026-12", "2026-12-25-1", ""}) {
        EXPECT_EQ(timePlanDateParse(bad), -1) << bad;
    }
    EXPECT_EQ(timePlanDateParse(nullptr), -1);

    // 23:30 UTC is already the next day here.
    const std::time_t lateUtc = 1795476600; // 2026-11-23 23:30:00 UTC
    EXPECT_EQ(timePlanDateCompare(lateUtc, localAt(2026, 11, 24, 0, 45)), 0);
    EXPECT_EQ(timePlanDateCompare(lateUtc, localAt(2026, 11, 24, 23, 59)), 0);
    EXPECT_EQ(timePlanDateCompare(lateUtc, localAt(2026, 11, 25, 0, 0)), -1);
    EXPECT_EQ(timePlanDateCompare(lateUtc, localAt(2026, 11, 23, 23, 59)), 1);
    EXPECT_EQ(timePlanDateCompare(localAt(2027, 1, 1), localAt(2026, 12, 31, 23)), 1);
    EXPECT_EQ(timePlanDateCompare(-1, lateUtc), -1);
    EXPECT_EQ(timePlanDateCompare(lateUtc, -1), -1);
}

struct Expected {
    std::time_t start;
    std::time_t end;
};

Expected periodOf(const char *startTime, const char *endTime, std::uint32_t repeatType = 1) {
    const uTimePlanInfo info = planInfo(startTime, endTime, repeatType, 0);
    Expected got{-2, -2};
    if (timePlanTimeCalculation(&info, &got.start, &got.end) != 0) {
        return {-1, -1};
    }
    return got;
}

#define EXPECT_PERIOD(got, s, e)                                                                   \
    do {                                                                                           \
        const Expected p = (got);                                                                  \
        EXPECT_EQ(p.start, (s));                                                                   \
        EXPECT_EQ(p.end, (e));                                                                     \
    } while (0)

TEST_F(Calendar, PeriodsThatCrossMidnight) {
    const auto day = [](int d, int h) { return localAt(2026, 11, d, h, 0); };
    at(2026, 11, 23, 20); // before the period
    EXPECT_PERIOD(periodOf("22:00", "06:00"), day(23, 22), day(24, 6));
    at(2026, 11, 23, 23); // inside, before midnight
    EXPECT_PERIOD(periodOf("22:00", "06:00"), day(23, 22), day(24, 6));
    at(2026, 11, 24, 2); // inside, after midnight: began yesterday
    EXPECT_PERIOD(periodOf("22:00", "06:00"), day(23, 22), day(24, 6));
    at(2026, 11, 24, 6); // at the end: the next period
    EXPECT_PERIOD(periodOf("22:00", "06:00"), day(24, 22), day(25, 6));
    at(2026, 11, 24, 7);
    EXPECT_PERIOD(periodOf("22:00", "06:00"), day(24, 22), day(25, 6));
    // A once plan crossing midnight that has begun today is still ahead.
    EXPECT_PERIOD(periodOf("11-24-22:00", "11-24-06:00", 0), day(24, 22), day(25, 6));
}

TEST_F(Calendar, PeriodsWithinADay) {
    const auto t = [](int d, int h, int m = 0, int s = 0) { return localAt(2026, 11, d, h, m, s); };
    at(2026, 11, 23, 8, 30); // open period: the past start is kept
    EXPECT_PERIOD(periodOf("08:00", "09:00"), t(23, 8), t(23, 9));
    at(2026, 11, 23, 9, 0); // its last second
    EXPECT_PERIOD(periodOf("08:00", "09:00"), t(23, 8), t(23, 9));
    at(2026, 11, 23, 9, 0, 1);
    EXPECT_PERIOD(periodOf("08:00", "09:00"), t(24, 8), t(24, 9));
    EXPECT_PERIOD(periodOf("08:00", "09:00", 2), t(29, 8), t(29, 9)); // Sunday
    // Equal start and end mean no end.
    EXPECT_PERIOD(periodOf("08:00", "08:00"), t(24, 8), 0);
    EXPECT_PERIOD(periodOf("10:00", ""), t(23, 10), 0);
    EXPECT_PERIOD(periodOf("08:00", ""), t(24, 8), 0);
    EXPECT_PERIOD(periodOf("11-23-09:30", "11-23-10:00", 0), t(23, 9, 30), t(23, 10));
}

TEST_F(Calendar, PeriodFailures) {
    at(2026, 11, 23, 10);
    LogCapture log;
    // Over once plans fail without a message.
    EXPECT_PERIOD(periodOf("11-23-08:00", "11-23-09:00", 0), -1, -1);
    EXPECT_PERIOD(periodOf("11-23-08:00", "11-23-08:00", 0), -1, -1);
    EXPECT_PERIOD(periodOf("11-23-08:00", "", 0), -1, -1);
    EXPECT_PERIOD(periodOf("11-22-22:00", "11-22-06:00", 0), -1, -1);
    EXPECT_EQ(log.lines().size(), 0U) << log.dump();

    const std::string failed = "timePlanTimeCalculation: startTime or endTime Compose failed";
    EXPECT_PERIOD(periodOf("25:00", "09:00"), -1, -1);
    EXPECT_PERIOD(periodOf("08:00", "23:60"), -1, -1);
    EXPECT_PERIOD(periodOf("8", ""), -1, -1);
    EXPECT_EQ(log.count(1, kModule, failed), 3) << log.dump();

    const uTimePlanInfo info = planInfo("08:00", "09:00", 1, 0);
    std::time_t start = 0;
    EXPECT_EQ(timePlanTimeCalculation(nullptr, &start, &start), -1);
    EXPECT_EQ(timePlanTimeCalculation(&info, nullptr, &start), -1);
    EXPECT_EQ(timePlanTimeCalculation(&info, &start, nullptr), -1);
}

} // namespace
} // namespace pu::test
