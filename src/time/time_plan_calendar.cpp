// SPDX-License-Identifier: MIT
// Calendar arithmetic for time plans: parsing time and date strings into local calendar times,
// composing a plan's first occurrence and stepping to the next one.
#include "time_plan_calendar.hpp"

#include <platform_os.h>
#include <ustr.h>
#include <utimeplan.h>

#include "core/log_modules.hpp"

#include <array>
#include <cstdlib>

namespace {

constexpr std::array<int32_t, 12> kDaysInMonth = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr int kItemSize = 16;
constexpr int kMaxItems = 4;
constexpr int kTimePartSize = 12;

constexpr bool isLeapYear(int32_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Up to four fields of str split at sep, each at most 15 characters.
struct Items {
    char text[kMaxItems][kItemSize];
    uint32_t count;

    Items(const char *str, const char *sep)
        : text{}, count(uStrListGet(str, &text[0][0], kMaxItems, kItemSize, sep)) {}
    int value(int index) const { return std::atoi(text[index]); }
};

// The monthly step: one month on, then further while the month is too short for day. Moving past
// December restarts at February (month 1), not January: plans depend on that, so it stays.
void advanceToMonthWithDay(struct tm &tm, int32_t day) {
    while (day > uTimePlanMonthMaxDay(tm.tm_year + 1900, tm.tm_mon)) {
        ++tm.tm_mon;
        if (tm.tm_mon > 11) {
            ++tm.tm_year;
            tm.tm_mon = 1;
        }
    }
}

// Reads "HH:MM" or "HH:MM:SS" into tm. False for a malformed or out-of-range time.
bool readTimeOfDay(const char *text, struct tm &tm) {
    const Items items(text, ":");
    if (items.count != 2 && items.count != 3) {
        return false;
    }
    // Unsigned, so a negative hour or minute is out of range too. Hour 24 is meant to be
    // accepted: mktime turns it into 00 of the next day.
    const auto hour = static_cast<uint32_t>(items.value(0));
    const auto minute = static_cast<uint32_t>(items.value(1));
    if (hour > 24 || minute > 59) {
        pu::log::info(pu::log::kTimePlan, "%s: the param of timeStr is out of range ",
                      "uTimePlanTimeStringParse");
        return false;
    }
    uint32_t second = 0;
    if (items.count == 3 && static_cast<uint32_t>(items.value(2)) <= 59) {
        second = static_cast<uint32_t>(items.value(2));
    }
    tm.tm_hour = static_cast<int>(hour);
    tm.tm_min = static_cast<int>(minute);
    tm.tm_sec = static_cast<int>(second);
    return true;
}

bool repeatDateFits(uint32_t repeatType, uint32_t repeatDate) {
    switch (repeatType) {
    case U_TIME_PLAN_ONCE:
    case U_TIME_PLAN_DAILY:
        return repeatDate == 0;
    case U_TIME_PLAN_WEEKLY:
        return repeatDate <= 7;
    case U_TIME_PLAN_MONTHLY:
        return repeatDate <= 31;
    default:
        return true;
    }
}

} // namespace

namespace pu::timeplan {

bool localTm(time_t t, struct tm &tm) {
    return localtime_r(&t, &tm) != nullptr;
}

time_t makeLocalTime(struct tm tm) {
    // The daylight-saving flag is left to mktime: a field moved across a change (a day on, a
    // month on) must be read with the offset of its new date, not that of the old one.
    tm.tm_isdst = -1;
    return mktime(&tm);
}

struct tm nowTm() {
    struct tm tm {};
    (void)localTm(time(nullptr), tm);
    return tm;
}

} // namespace pu::timeplan

using pu::timeplan::localTm;
using pu::timeplan::makeLocalTime;
using pu::timeplan::nowTm;

extern "C" {

int32_t uTimePlanMonthMaxDay(int32_t year, int32_t month) {
    // A negative month is refused as well, so it never indexes the table.
    if (month > 11 || month < 0 || year < 0) {
        return -1;
    }
    if (month == 1 && isLeapYear(year)) {
        return 29;
    }
    return kDaysInMonth[static_cast<std::size_t>(month)];
}

int32_t uTimePlanTmCompare(const struct tm *a, const struct tm *b) {
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    const std::array<std::pair<int, int>, 6> fields = {{{a->tm_year, b->tm_year},
                                                        {a->tm_mon, b->tm_mon},
                                                        {a->tm_mday, b->tm_mday},
                                                        {a->tm_hour, b->tm_hour},
                                                        {a->tm_min, b->tm_min},
                                                        {a->tm_sec, b->tm_sec}}};
    for (const auto &[left, right] : fields) {
        if (left != right) {
            return left > right ? 1 : -1;
        }
    }
    return 0;
}

time_t uTimePlanTimeStringParse(const char *str, int32_t timeOnly) {
    if (str == nullptr) {
        return -1;
    }
    struct tm tm = nowTm();
    char timePart[kTimePartSize] = {};
    if (timeOnly != 0) {
        uStrSafeCopy(timePart, sizeof timePart, str);
    } else {
        const Items items(str, "-");
        if (items.count != 3) {
            return -1;
        }
        // Only too large values are refused; month 0 or day 0 are left to mktime to normalise.
        const int month = items.value(0) - 1;
        const int day = items.value(1);
        if (month > 11 || day > 31) {
            return -1;
        }
        tm.tm_mon = month;
        tm.tm_mday = day;
        uStrSafeCopy(timePart, sizeof timePart, items.text[2]);
    }
    if (!readTimeOfDay(timePart, tm)) {
        return -1;
    }
    return makeLocalTime(tm);
}

time_t uTimePlanTimeCompose(const char *str, uint32_t repeatType, uint32_t repeatDate) {
    if (str == nullptr || str[0] == '\0' || !repeatDateFits(repeatType, repeatDate)) {
        pu::log::info(pu::log::kTimePlan, "%s: repeatType and repeatDate mismatch",
                      "uTimePlanTimeCompose");
        return -1;
    }
    if (repeatType == U_TIME_PLAN_ONCE) {
        return uTimePlanTimeStringParse(str, 0);
    }
    const time_t today = uTimePlanTimeStringParse(str, 1);
    struct tm tm {};
    if (today == -1 || !localTm(today, tm)) {
        return -1;
    }
    const auto date = static_cast<int32_t>(repeatDate);
    if (repeatType == U_TIME_PLAN_WEEKLY) {
        // repeatDate 7 is the Sunday of the coming week.
        tm.tm_mday += date - tm.tm_wday + (tm.tm_wday > date ? 7 : 0);
    } else if (repeatType == U_TIME_PLAN_MONTHLY) {
        if (tm.tm_mday > date) {
            ++tm.tm_mon;
        }
        advanceToMonthWithDay(tm, date);
        tm.tm_mday = date;
    }
    return makeLocalTime(tm);
}

time_t timePlanDateParse(const char *str) {
    if (str == nullptr) {
        return -1;
    }
    const Items items(str, "-");
    if (items.count != 3) {
        return -1;
    }
    struct tm tm = nowTm();
    tm.tm_year = items.value(0) - 1900;
    tm.tm_mon = items.value(1) - 1;
    tm.tm_mday = items.value(2);
    if (tm.tm_mon > 11 || tm.tm_mday > 31) {
        return -1;
    }
    return makeLocalTime(tm);
}

int32_t timePlanDateCompare(time_t a, time_t b) {
    struct tm left {};
    struct tm right {};
    if (a == -1 || b == -1 || !localTm(a, left) || !localTm(b, right)) {
        return -1;
    }
    left.tm_hour = right.tm_hour;
    left.tm_min = right.tm_min;
    left.tm_sec = right.tm_sec;
    return uTimePlanTmCompare(&left, &right);
}

time_t timePlanNextTimeGet(time_t t, uint32_t repeatType) {
    struct tm tm {};
    if (t == -1 || !localTm(t, tm)) {
        return -1;
    }
    switch (repeatType) {
    case U_TIME_PLAN_DAILY:
        ++tm.tm_mday;
        break;
    case U_TIME_PLAN_WEEKLY:
        tm.tm_mday += 7;
        break;
    case U_TIME_PLAN_MONTHLY:
        ++tm.tm_mon;
        advanceToMonthWithDay(tm, tm.tm_mday);
        break;
    default:
        return t; // never stepped
    }
    return makeLocalTime(tm);
}

} // extern "C"
