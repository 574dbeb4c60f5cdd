// Calendar arithmetic for time plans.
#include <utimeplan.h>

#include <array>

namespace {

constexpr std::array<int32_t, 12> kDaysInMonth = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

constexpr bool isLeapYear(int32_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

} // namespace

extern "C" int32_t uTimePlanMonthMaxDay(int32_t year, int32_t month) {
    // A negative month is refused as well, so it never indexes the table.
    if (month > 11 || month < 0 || year < 0) {
        return -1;
    }
    if (month == 1 && isLeapYear(year)) {
        return 29;
    }
    return kDaysInMonth[static_cast<std::size_t>(month)];
}
