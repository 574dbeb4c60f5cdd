// SPDX-License-Identifier: MIT
// Strict number parsing, MAC and IPv4 formatting, dates and times of day.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(StrTol, AcceptsOnlyOneWholeNumber) {
    long v = 7;
    EXPECT_EQ(uStrTol(" 42\r\n", &v, 10), 0);
    EXPECT_EQ(v, 42);
    v = 7;
    EXPECT_EQ(uStrTol("42x", &v, 10), -1);
    EXPECT_EQ(v, 0); // cleared first
    EXPECT_EQ(uStrTol("4 2", &v, 10), -1);
    EXPECT_EQ(uStrTol("", &v, 10), -1);
    EXPECT_EQ(uStrTol(" \t\r\n", &v, 10), -1);
    EXPECT_EQ(uStrTol(nullptr, &v, 10), -1);
    EXPECT_EQ(uStrTol("-", &v, 10), -1);
    EXPECT_EQ(uStrTol("-17", &v, 10), 0);
    EXPECT_EQ(v, -17);
    EXPECT_EQ(uStrTol("ff", &v, 16), 0);
    EXPECT_EQ(v, 255);
    EXPECT_EQ(uStrTol("0x1F", &v, 0), 0);
    EXPECT_EQ(v, 31);
    EXPECT_EQ(uStrTol("12", &v, 1), -1); // invalid base
    EXPECT_EQ(uStrTol("12", nullptr, 10), 0);
    EXPECT_EQ(uStrTol("12\v", &v, 10), -1); // vertical tab is not stripped

    const std::string max = std::to_string(LONG_MAX);
    EXPECT_EQ(uStrTol(max.c_str(), &v, 10), 0); // the limit itself is no range error
    EXPECT_EQ(v, LONG_MAX);
    EXPECT_EQ(uStrTol("99999999999999999999999", &v, 10), -1);
    EXPECT_EQ(uStrTol("-99999999999999999999999", &v, 10), -1);
    const std::string nearMax = std::to_string(LONG_MAX - 1);
    EXPECT_EQ(uStrTol(nearMax.c_str(), &v, 10), 0);
    EXPECT_EQ(v, LONG_MAX - 1);
}

TEST(StrTol, LeavesErrnoAsItWas) {
    errno = EINTR;
    long v = 0;
    uStrTol("99999999999999999999999", &v, 10);
    EXPECT_EQ(errno, EINTR);
    unsigned long u = 0;
    uStrToUl("5", &u, 10);
    EXPECT_EQ(errno, EINTR);
}

TEST(StrToUl, RefusesMinusAndOverflow) {
    unsigned long v = 7;
    EXPECT_EQ(uStrToUl("-1", &v, 10), -1);
    EXPECT_EQ(v, 0u);
    EXPECT_EQ(uStrToUl(" -1", &v, 10), -1);
    EXPECT_EQ(uStrToUl(" 4000000000 ", &v, 10), 0);
    EXPECT_EQ(v, 4000000000ul);
    EXPECT_EQ(uStrToUl("999999999999999999999999", &v, 10), -1);
    EXPECT_EQ(uStrToUl("12a", &v, 10), -1);
    EXPECT_EQ(uStrToUl("12a", &v, 16), 0);
    EXPECT_EQ(v, 0x12au);
    EXPECT_EQ(uStrToUl("", &v, 10), -1);
}

TEST(StrToDouble, WholeTextOnly) {
    double d = 0;
    EXPECT_EQ(uStrToDouble("3.5  ", &d), 0);
    EXPECT_DOUBLE_EQ(d, 3.5);
    EXPECT_EQ(uStrToDouble("\t-1e3\r\n", &d), 0);
    EXPECT_DOUBLE_EQ(d, -1000.0);
    EXPECT_EQ(uStrToDouble("3.5x", &d), -1);
    EXPECT_EQ(uStrToDouble("3.5 4", &d), -1);
    EXPECT_EQ(uStrToDouble("x", &d), -1);
    EXPECT_EQ(uStrToDouble("  ", &d), -1);
    EXPECT_EQ(uStrToDouble(nullptr, &d), -1);
    EXPECT_EQ(uStrToDouble("2", nullptr), 0);
}

TEST(StrIsDigit, OneRunOfDigitsBetweenBlanks) {
    EXPECT_EQ(uStrIsDigit(" 12 "), 1);
    EXPECT_EQ(uStrIsDigit("\t12\r\n"), 1);
    EXPECT_EQ(uStrIsDigit("1 2"), 0);
    EXPECT_EQ(uStrIsDigit("  "), 1); // blanks only: deliberately 1
    EXPECT_EQ(uStrIsDigit(""), 0);
    EXPECT_EQ(uStrIsDigit(nullptr), 0);
    EXPECT_EQ(uStrIsDigit("-1"), 0);
    EXPECT_EQ(uStrIsDigit("1\v"), 0);
}

TEST(StrHex, DigitsAndHashes) {
    EXPECT_EQ(uStrHexCharToInteger('0'), 0);
    EXPECT_EQ(uStrHexCharToInteger('9'), 9);
    EXPECT_EQ(uStrHexCharToInteger('a'), 10);
    EXPECT_EQ(uStrHexCharToInteger('F'), 15);
    EXPECT_EQ(uStrHexCharToInteger('g'), -1);
    EXPECT_EQ(uStrHexCharToInteger(-1), -1);

    uint8_t bytes[16];
    for (int i = 0; i < 16; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 17);
    }
    char dst[64];
    EXPECT_EQ(uStrHashToHex(bytes, 16, dst, 33), 0);
    EXPECT_STREQ(dst, "00112233445566778899aabbccddeeff");
    EXPECT_EQ(uStrHashToHex(bytes, 16, dst, 64), -1); // larger than needed: refused
    EXPECT_EQ(uStrHashToHex(bytes, 16, dst, 8), 0);   // smaller: cut
    EXPECT_STREQ(dst, "0011223");
    EXPECT_EQ(uStrHashToHex(bytes, 0, dst, 1), -1);
    EXPECT_EQ(uStrHashToHex(nullptr, 1, dst, 3), -1);
    EXPECT_EQ(uStrHashToHex(bytes, 1, nullptr, 3), -1);
    EXPECT_EQ(uStrHashToHex(bytes, 1, dst, 0), -1);
}

TEST(StrMac, ValidationFollowsThePatterns) {
    EXPECT_EQ(uStrCheckMacValidation("00:1A:2b:3C:4d:5E", 1), 1);
    EXPECT_EQ(uStrCheckMacValidation("001A2b3C4d5E", 0), 1);
    EXPECT_EQ(uStrCheckMacValidation("001A2b3C4d5E", 1), 0);
    EXPECT_EQ(uStrCheckMacValidation("00:1A:2b:3C:4d:5E", 0), 0);
    EXPECT_EQ(uStrCheckMacValidation("00:1A:2b:3C:4d:5G", 1), 0);
    EXPECT_EQ(uStrCheckMacValidation("00:1A:2b:3C:4d:5E:", 1), 0);
    EXPECT_EQ(uStrCheckMacValidation("00-1A-2b-3C-4d-5E", 1), 0);
    EXPECT_EQ(uStrCheckMacValidation("", 1), 0);
    EXPECT_EQ(uStrCheckMacValidation(nullptr, 1), 0);
    // Newline-sensitive anchors: a matching line inside a longer text matches.
    EXPECT_EQ(uStrCheckMacValidation("junk\n001A2b3C4d5E\nmore", 0), 1);
}

TEST(StrMac, ValidationIsSafeFromManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    std::vector<int> matches(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &matches] {
            for (int i = 0; i < 200; ++i) {
                matches[t] += uStrCheckMacValidation("00:11:22:33:44:55", 1) +
                              uStrCheckMacValidation("00112233445Z", 0);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    for (int count : matches) {
        EXPECT_EQ(count, 200);
    }
}

TEST(StrMac, FormatWithColon) {
    char dst[32];
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5E", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(uStrFormatMacWithColon("00:1A:2B:3C:4D:5E", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "00:1A:2B:3C:4D:5E"); // already colon form: case kept
    EXPECT_EQ(uStrFormatMacWithColon("001A:2B3C:4D5E", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "00:1a:2b:3c:4d:5e");
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D", dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5E6F", dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5", dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrFormatMacWithColon("00::1A2B3C4D5E", dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5X", dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5E", dst, 0), -1);
    EXPECT_EQ(uStrFormatMacWithColon(nullptr, dst, 8), -1);
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5E", dst, 6), 0); // cut
    EXPECT_STREQ(dst, "00:1a");
}

TEST(StrMac, HexMacAddrAcceptsOnlyDigitCharacterBytes) {
    const uint8_t digits[6] = {'0', '1', 'a', 'B', '9', 'f'};
    char dst[32];
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 0, dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "30:31:61:42:39:66");
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 1, dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "303161423966");
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 2, dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "30-31-61-42-39-66");
    std::strcpy(dst, "unchanged");
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 3, dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "unchanged");

    const uint8_t raw[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}; // real MAC bytes fail the test
    EXPECT_EQ(uStrHexMacAddrToStr(raw, 6, 0, dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 5, 0, dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 0, dst, 5), -1);
    EXPECT_EQ(uStrHexMacAddrToStr(nullptr, 6, 0, dst, 32), -1);
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 0, nullptr, 32), -1);
}

TEST(StrIPv4, LowestByteFirst) {
    char dst[16];
    EXPECT_EQ(uStrIPv4ToStr(0x0100A8C0u, dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "192.168.0.1");
    EXPECT_EQ(uStrIPv4ToStr(0xFFFFFFFFu, dst, 8), 0);
    EXPECT_STREQ(dst, "255.255");
    EXPECT_EQ(uStrIPv4ToStr(1, nullptr, 16), -1);
}

TEST(StrTimes, DtmfAndTimeRanges) {
    EXPECT_EQ(uStrDtmfCheck("0123456789*#ABCD"), 1);
    for (const char *bad : {"12a", "E", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(uStrDtmfCheck(bad), 0) << (bad ? bad : "null");
    }

    EXPECT_EQ(uStrCheckTimeRange("00:00:00", "23:59:59"), 0);
    EXPECT_EQ(uStrCheckTimeRange("23:59:59", "7:5:0"), 0); // not compared with each other
    for (const char *bad : {"24:00:00", "12:60:00", "12:00:60", "-1:00:00", "12:00:00x", "12:00",
                            "12::00", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(uStrCheckTimeRange("13:00:00", bad), -1) << (bad ? bad : "null");
        EXPECT_EQ(uStrCheckTimeRange(bad, "13:00:00"), -1) << (bad ? bad : "null");
    }
}

TEST(StrDate, ParsesAndChecksMonthLengthsOnRequest) {
    struct tm tm;
    std::memset(&tm, 0x5A, sizeof(tm));
    EXPECT_EQ(uStrParseDateToTm("2024/2/29", &tm, 1), 1);
    EXPECT_EQ(tm.tm_year, 124);
    EXPECT_EQ(tm.tm_mon, 1);
    EXPECT_EQ(tm.tm_mday, 29);
    EXPECT_EQ(tm.tm_isdst, -1);
    EXPECT_EQ(tm.tm_hour, 0); // zero-filled first

    EXPECT_EQ(uStrParseDateToTm("2024/2/30", &tm, 1), 0);
    EXPECT_EQ(uStrParseDateToTm("2024/2/30", &tm, 0), 1);
    EXPECT_EQ(tm.tm_mday, 30);
    for (const char *date : {"2000-02-29", "2024-12-31", "1900-01-01", "2100-12-31"}) {
        EXPECT_EQ(uStrParseDateToTm(date, &tm, 1), 1) << date;
    }
    for (const char *date : {"2023-02-29", "1900-02-29", "2024-04-31"}) {
        EXPECT_EQ(uStrParseDateToTm(date, &tm, 1), 0) << date;
    }
    for (const char *date : {"1899-12-31", "2101-01-01", "2100-13-01", "2100-00-01", "2100-01-32",
                             "2100-01-00", "2024-01-01x", "2024-01", "2024.01.01"}) {
        EXPECT_EQ(uStrParseDateToTm(date, &tm, 0), 0) << date;
    }
    EXPECT_EQ(uStrParseDateToTm(nullptr, &tm, 0), 0);
    EXPECT_EQ(uStrParseDateToTm("2024-01-01", nullptr, 0), 0);
}

TEST(StrDate, MonthMaxDay) {
    EXPECT_EQ(uTimePlanMonthMaxDay(2000, 1), 29);
    EXPECT_EQ(uTimePlanMonthMaxDay(1900, 1), 28);
    EXPECT_EQ(uTimePlanMonthMaxDay(2024, 1), 29);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 1), 28);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 0), 31);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 3), 30);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 11), 31);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 12), -1);
    EXPECT_EQ(uTimePlanMonthMaxDay(-1, 0), -1);
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, -1), -1);
}

TEST(StrTimeOfDay, FormatsAsHHMMSS) {
    const std::pair<const char *, const char *> good[] = {
        {"7:5:0", "07:05:00"}, {" \t23:59:59\t ", "23:59:59"}, {"000000012:00:00", "12:00:00"}};
    for (const auto &[text, expected] : good) {
        char *formatted = uStrFormatTimeAsHHMMSS(text);
        EXPECT_STREQ(formatted, expected) << text;
        uFree(formatted);
    }
    // "0000000012:00:00" is 16 characters: too long although the time is fine.
    for (const char *bad : {"24:00:00", "12:00:60", "12:00", "12:00:00x", "0000000012:00:00", "",
                            static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(uStrFormatTimeAsHHMMSS(bad), nullptr) << (bad ? bad : "null");
    }
}

} // namespace
