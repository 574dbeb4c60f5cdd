// SPDX-License-Identifier: MIT
// DTMF digits, and validation and formatting of dates and times of day.
#include <umem.h>
#include <ustr.h>
#include <ustrconv.h>
#include <utimeplan.h>

#include "str/str_internal.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// Reads a decimal number with strtol at p; false when there is no digit to read. end receives
// the position after it.
bool readNumber(const char *p, long &value, const char *&end) {
    char *stop = nullptr;
    value = std::strtol(p, &stop, 10);
    end = stop;
    return stop != p;
}

// Reads "number<delimiter>" (delimiter '\0' meaning the end of the text) and moves p past it.
bool readField(const char *&p, char delimiter, long &value) {
    const char *end = nullptr;
    if (!readNumber(p, value, end) || *end != delimiter) {
        return false;
    }
    p = end + (delimiter == '\0' ? 0 : 1);
    return true;
}

bool validTimeOfDay(long hour, long minute, long second) {
    return hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
}

bool validTimeText(const char *text) {
    if (text == nullptr) {
        return false;
    }
    long hour = 0;
    long minute = 0;
    long second = 0;
    const char *p = text;
    return readField(p, ':', hour) && readField(p, ':', minute) && readField(p, '\0', second) &&
           validTimeOfDay(hour, minute, second);
}

} // namespace

extern "C" {

int32_t uStrDtmfCheck(const char *digits) {
    if (digits == nullptr || digits[0] == '\0') {
        return 0;
    }
    for (const char *p = digits; *p != '\0'; ++p) {
        const bool symbol =
            (*p >= '0' && *p <= '9') || *p == '*' || *p == '#' || (*p >= 'A' && *p <= 'D');
        if (!symbol) {
            return 0;
        }
    }
    return 1;
}

int32_t uStrCheckTimeRange(const char *start, const char *end) {
    return (validTimeText(start) && validTimeText(end)) ? 0 : -1;
}

int32_t uStrParseDateToTm(const char *date, struct tm *tm, int32_t checkDays) {
    if (date == nullptr || tm == nullptr) {
        return 0;
    }
    std::memset(tm, 0, sizeof(*tm));
    char text[32];
    uStrSafeCopy(text, sizeof(text), date);
    for (char *p = text; *p != '\0'; ++p) {
        if (*p == '/') {
            *p = '-';
        }
    }
    long year = 0;
    long month = 0;
    long day = 0;
    const char *p = text;
    if (!readField(p, '-', year) || !readField(p, '-', month) || !readField(p, '\0', day)) {
        return 0;
    }
    if (year < 1900 || year > 2100 || month < 1 || month > 12 || day < 1 || day > 31) {
        return 0;
    }
    if (checkDays != 0 &&
        day > uTimePlanMonthMaxDay(static_cast<int32_t>(year), static_cast<int32_t>(month - 1))) {
        return 0;
    }
    tm->tm_year = static_cast<int>(year - 1900);
    tm->tm_mon = static_cast<int>(month - 1);
    tm->tm_mday = static_cast<int>(day);
    tm->tm_isdst = -1;
    return 1;
}

char *uStrFormatTimeAsHHMMSS(const char *text) {
    if (text == nullptr || text[0] == '\0' || std::strlen(text) > 15) {
        return nullptr;
    }
    char copy[16];
    uStrSafeCopy(copy, sizeof(copy), text);
    uStrStripSpace(copy);
    int hour = 0;
    int minute = 0;
    int second = 0;
    int consumed = -1;
    if (std::sscanf(copy, "%d:%d:%d%n", &hour, &minute, &second, &consumed) != 3 || consumed < 0 ||
        static_cast<std::size_t>(consumed) != std::strlen(copy) ||
        !validTimeOfDay(hour, minute, second)) {
        return nullptr;
    }
    char formatted[16];
    std::snprintf(formatted, sizeof(formatted), "%02d:%02d:%02d", hour, minute, second);
    return uStrGetCopy(formatted);
}

} // extern "C"
