// SPDX-License-Identifier: MIT
// Bounded copies at the edges of their size, the growing buffers, strict numbers, MAC texts,
// dates and times of day, and the replaceable wide-character case operators.
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

using pu::test::orNull;
using pu::test::take;

enum Op { Copy, NCopy, Cat, NCat };

// The call on a 32-byte buffer holding before: "<result>|<text>", a pointer result as 0 for the
// buffer and -1 for null; a byte written at or past size (or past the old text) fails.
std::string bounded(Op op, const char *before, int32_t size, const char *src, int32_t n) {
    char buf[32];
    std::memset(buf, 'X', sizeof(buf));
    std::strcpy(buf, before);
    const char *out = buf;
    long result = 0;
    switch (op) {
    case Copy:
        result = uStrSafeCopy(buf, size, src);
        break;
    case NCopy:
        out = uStrnSafeCopy(buf, size, src, n);
        break;
    case Cat:
        out = uStrSafeCat(buf, size, src);
        break;
    case NCat:
        out = uStrnSafeCat(buf, size, src, n);
        break;
    }
    result = out == buf ? result : -1;
    EXPECT_EQ(buf[std::max<size_t>(static_cast<size_t>(size), std::strlen(before) + 1)], 'X');
    return std::to_string(result) + "|" + buf;
}

TEST(StrCopy, StoresAtMostSizeMinusOne) {
    const struct {
        Op op;
        const char *before;
        int32_t size;
        const char *src;
        int32_t n;
        const char *expected;
    } rows[] = {{Copy, "", 5, "abcd", 0, "4|abcd"},
                {Copy, "", 5, "abcde", 0, "4|abcd"},
                {Copy, "", 1, "abc", 0, "0|"},
                {Copy, "keep", 0, "abc", 0, "-1|keep"},
                {Copy, "keep", 5, nullptr, 0, "-1|keep"},
                {NCopy, "", 8, "abcdef", 3, "0|abc"},
                {NCopy, "", 4, "abcdef", 4, "0|abc"},
                {NCopy, "keep", 0, "abc", 2, "0|keep"},
                {NCopy, "", 8, nullptr, 1, "-1|"},
                {Cat, "abc", 6, "xyz", 0, "0|abcxy"},
                {Cat, "abc", 7, "xyz", 0, "0|abcxyz"},
                {Cat, "abc", 4, "xyz", 0, "0|abc"},
                {Cat, "", 1, "abc", 0, "0|"},
                {Cat, "abc", 16, nullptr, 0, "0|abc"},
                {Cat, "abc", 0, "x", 0, "-1|abc"},
                {NCat, "ab", 16, "cdef", 2, "0|abcd"},
                {NCat, "abcd", 6, "xyz", 3, "0|abcdx"},
                {NCat, "ab", 6, "xyz", 3, "0|abxyz"},
                {NCat, "ab", 0, "x", 1, "-1|ab"}};
    for (const auto &r : rows) {
        EXPECT_EQ(bounded(r.op, r.before, r.size, r.src, r.n), r.expected)
            << r.op << " " << r.before << " " << r.size;
    }
    char dst[16] = "ab";
    std::memset(dst + 3, 'X', 13);
    uStrnSafeCat(dst, 16, "c", 5); // the byte n places on is cleared even when src is shorter
    EXPECT_EQ(dst[7], '\0');
    std::memset(dst, 'X', sizeof(dst));
    uStrnSafeCopy(dst, 8, "abcdef", 3);
    EXPECT_EQ(std::string(dst, 9), std::string("abc\0\0\0\0\0X", 9)); // zero-filled to size

    // Long sources on both sides of the short-copy path.
    std::string src;
    for (int i = 0; i < 150; ++i) {
        src += static_cast<char>('a' + i % 26);
    }
    for (int32_t size : {3, 63, 64, 65, 66, 67, 68, 152, 153, 154, 300}) {
        std::vector<char> buf(static_cast<size_t>(size) + 1, 'X');
        std::strcpy(buf.data(), "ab");
        uStrSafeCat(buf.data(), size, src.c_str());
        EXPECT_EQ(buf.data(), ("ab" + src).substr(0, static_cast<size_t>(size) - 1)) << size;
        EXPECT_EQ(buf.back(), 'X') << size;
        std::strcpy(buf.data(), "ab");
        uStrnSafeCat(buf.data(), size, src.c_str(), 70);
        EXPECT_EQ(buf.data(), ("ab" + src.substr(0, 70)).substr(0, size - 1)) << size;
        EXPECT_EQ(uStrSafeCopy(buf.data(), size, src.c_str()), std::min(size - 1, 150)) << size;
        EXPECT_EQ(buf.back(), 'X') << size;
    }
}

TEST(StrCopy, GrowingBuffers) {
    char *buf = nullptr;
    uint32_t capacity = 1234; // ignored for a null buffer
    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, "hello"), 0);
    EXPECT_EQ(capacity, 261u);
    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, std::string(255, 'a').c_str()), 0);
    EXPECT_EQ(capacity, 261u); // 260 characters still fit
    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, "b"), 0);
    EXPECT_EQ(capacity, 261u + 256);
    EXPECT_EQ(std::string(buf), "hello" + std::string(255, 'a') + "b");
    EXPECT_EQ(uStrDynamicCat(&buf, &capacity, nullptr), -1);
    uFree(buf);

    buf = nullptr;
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 10, "abcdef", 3), "abc");
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 10, "defgh", 5), "abcdefgh");
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 10, "xyz", 3), "abcdefghx"); // only one fits
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 10, "more", 4), "abcdefghx");
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 100, buf, 3), "abcdefghxabc"); // a piece of itself
    uFree(buf);
    for (int32_t n : {4, 6}) {
        buf = nullptr;
        EXPECT_EQ(take(uStrDynamicSafeNCat(&buf, 4, "abcdef", n)), "abc") << n;
    }
    buf = nullptr;
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 10, "a", 0), nullptr);
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 0, "a", 1), nullptr);
    EXPECT_EQ(buf, nullptr);
    EXPECT_EQ(uStrGetCopy(""), nullptr); // empty means absent
    EXPECT_EQ(take(uStrGetInt2StrCpy(INT32_MIN)), "-2147483648");
}

// Values and hex digits beyond what the C library's readers decide (fuzzed against them).
TEST(StrNumber, StrictWholeTextNumbers) {
    const struct {
        const char *text;
        int32_t tol, ul, digits;
    } rows[] = {{" 42\r\n", 0, 0, 1},
                {"42x", -1, -1, 0},
                {" \t", -1, -1, 1},
                {"-17", 0, -1, 0},
                {"12\v", -1, -1, 0},
                {" -1", 0, -1, 0},
                {"99999999999999999999999", -1, -1, 1}};
    for (const auto &r : rows) {
        long v = 7;
        unsigned long u = 7;
        errno = EINTR;
        EXPECT_EQ(uStrTol(r.text, &v, 10), r.tol) << r.text;
        EXPECT_EQ(uStrToUl(r.text, &u, 10), r.ul) << r.text;
        EXPECT_EQ(errno, EINTR) << r.text;                  // left as it was
        EXPECT_EQ(r.tol == 0 || v == 0, true) << r.text;    // cleared on failure
        EXPECT_EQ(uStrIsDigit(r.text), r.digits) << r.text; // blanks only: deliberately 1
    }
    EXPECT_EQ(uStrIsDigit("12 34"), 0); // one run of digits only
    long v = 0;
    EXPECT_EQ(uStrTol(std::to_string(LONG_MAX).c_str(), &v, 10), 0); // the limit is no error
    EXPECT_EQ(uStrTol("12", &v, 1), -1);
    double d = 0;
    EXPECT_EQ(uStrToDouble("\t-1e3\r\n", &d), 0);
    EXPECT_EQ(d, -1000.0);
    EXPECT_EQ(uStrToDouble("3.5 4", &d), -1);
    const std::pair<char, int32_t> hex[] = {{'0', 0},  {'9', 9},  {'a', 10}, {'f', 15},
                                            {'A', 10}, {'F', 15}, {'/', -1}, {':', -1},
                                            {'@', -1}, {'G', -1}, {'`', -1}, {'g', -1}};
    for (const auto &[c, value] : hex) {
        EXPECT_EQ(uStrHexCharToInteger(c), value) << c;
    }
}

TEST(StrMac, ValidationFormattingAndAddresses) {
    const struct {
        const char *mac;
        int32_t colon, valid;
    } checks[] = {{"00:1A:2b:3C:4d:5E", 1, 1},
                  {"001A2b3C4d5E", 0, 1},
                  {"00:1A:2b:3C:4d:5G", 1, 0},
                  {"00:1A:2b:3C:4d:5E:", 1, 0},
                  {"junk\n001A2b3C4d5E\nmore", 0, 1}}; // anchors are per line
    pu::test::fanOut(4, [&](int) {
        for (const auto &r : checks) {
            EXPECT_EQ(uStrCheckMacValidation(r.mac, r.colon), r.valid) << r.mac;
        }
    });
    const std::pair<const char *, const char *> formats[] = {
        {"001A2B3C4D5E", "00:1a:2b:3c:4d:5e"},
        {"00:1A:2B:3C:4D:5E", "00:1A:2B:3C:4D:5E"},
        {"001A:2B3C:4D5E", "00:1a:2b:3c:4d:5e"},
        {"001A2B3C4D", "-1"},
        {"001A2B3C4D5E6F", "-1"},
        {"001A2B3C4D5X", "-1"}};
    for (const auto &[mac, formatted] : formats) {
        char dst[32] = "";
        const int32_t result = uStrFormatMacWithColon(mac, dst, sizeof(dst));
        EXPECT_EQ(result == 0 ? std::string(dst) : std::to_string(result), formatted) << mac;
    }
    char dst[32];
    EXPECT_EQ(uStrFormatMacWithColon("001A2B3C4D5E", dst, 6), 0);
    EXPECT_STREQ(dst, "00:1a");
    const uint8_t digits[6] = {'0', '1', 'a', 'B', '9', 'f'};
    const char *expected[] = {"30:31:61:42:39:66", "303161423966", "30-31-61-42-39-66", "keep"};
    for (int32_t mode = 0; mode < 4; ++mode) {
        std::strcpy(dst, "keep");
        EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, mode, dst, sizeof(dst)), 0);
        EXPECT_STREQ(dst, expected[mode]);
    }
    const uint8_t raw[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}; // real MAC bytes fail
    EXPECT_EQ(uStrHexMacAddrToStr(raw, 6, 0, dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrHexMacAddrToStr(digits, 6, 0, dst, 5), -1);
    EXPECT_EQ(uStrIPv4ToStr(0xFFFFFFC0u, dst, 12), 0); // lowest byte first, cut to size
    EXPECT_EQ(uStrIPv4ToStr(1, nullptr, 12), -1);
    EXPECT_STREQ(dst, "192.255.255");
}

TEST(StrDate, DatesTimesAndDtmf) {
    struct tm tm;
    std::memset(&tm, 0x5A, sizeof(tm));
    ASSERT_EQ(uStrParseDateToTm("2024/2/29", &tm, 1), 1);
    EXPECT_EQ(std::to_string(tm.tm_year) + "-" + std::to_string(tm.tm_mon) + "-" +
                  std::to_string(tm.tm_mday) + " " + std::to_string(tm.tm_hour + tm.tm_isdst),
              "124-1-29 -1"); // zero-filled first, isdst -1
    const struct {
        const char *date;
        int32_t check, valid;
    } dates[] = {{"2024/2/30", 1, 0},  {"2024/2/30", 0, 1},  {"2000-02-29", 1, 1},
                 {"2100-12-31", 1, 1}, {"2023-02-29", 1, 0}, {"1900-02-29", 1, 0},
                 {"1899-12-31", 0, 0}, {"2101-01-01", 0, 0}, {"2100-13-01", 0, 0},
                 {"2100-01-32", 0, 0}, {"2024-01-01x", 0, 0}};
    for (const auto &r : dates) {
        EXPECT_EQ(uStrParseDateToTm(r.date, &tm, r.check), r.valid) << r.date << r.check;
    }
    EXPECT_EQ(uTimePlanMonthMaxDay(2023, 12), -1);

    EXPECT_EQ(uStrCheckTimeRange("00:00:00", "23:59:59"), 0);
    EXPECT_EQ(uStrCheckTimeRange("23:59:59", "7:5:0"), 0); // not compared with each other
    for (const char *bad : {"24:00:00", "12:60:00", "12:00:60", "-1:00:00", "12:00:00x", "12:00"}) {
        EXPECT_EQ(uStrCheckTimeRange("13:00:00", bad), -1) << bad;
        EXPECT_EQ(uStrCheckTimeRange(bad, "13:00:00"), -1) << bad;
    }
    const std::pair<const char *, const char *> times[] = {
        {"7:5:0", "07:05:00"},
        {" \t23:59:59\t ", "23:59:59"},
        {"000000012:00:00", "12:00:00"},
        {"0000000012:00:00", "(null)"}, // 16 characters: too long although the time is fine
        {"24:00:00", "(null)"}};
    for (const auto &[text, expected] : times) {
        char *formatted = uStrFormatTimeAsHHMMSS(text);
        EXPECT_EQ(orNull(formatted), expected) << text;
        uFree(formatted);
    }
    EXPECT_EQ(uStrDtmfCheck("0123456789*#ABCD"), 1);
    EXPECT_EQ(uStrDtmfCheck("12E"), 0);
}

int shout(const char *src, char *dst, uint32_t dstSize) {
    return uStrSafeCopy(dst, dstSize, src) >= 0 ? 0 : -1;
}

TEST(StrWchar, BuiltInOperatorsAndRegistration) {
    UStrWcharOps saved = gWcharOpHook;
    char dst[16];
    EXPECT_EQ(uStrToUppercase("ab-x", dst, 5), 0); // exact fit with terminator
    EXPECT_STREQ(dst, "AB-X");
    EXPECT_EQ(uStrToLowercase("ABCD", dst, 4), -1); // no room for the terminator
    UStrWcharOps ops = {shout, nullptr};
    uStrRegisterWcharOperator(&ops);
    ops.toUppercase = nullptr; // a copy was taken
    EXPECT_EQ(uStrToUppercase("abc", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(uStrToLowercase("ABC", dst, sizeof(dst)), -1); // null disables
    uStrRegisterWcharOperator(nullptr);                      // ignored
    EXPECT_EQ(gWcharOpHook.toUppercase, &shout);
    ops = {nullptr, shout}; // each direction on its own
    uStrRegisterWcharOperator(&ops);
    EXPECT_EQ(uStrToUppercase("abc", dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrToLowercase("ABC", dst, sizeof(dst)), 0);
    uStrRegisterWcharOperator(&saved);
}

} // namespace
