// SPDX-License-Identifier: MIT
// Bounded copies at the edges of their size, the growing buffers, strict numbers, MAC texts, dates
// and times of day, and texts whose sizes do not fit uMalloc's 32 bits.
#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

namespace {

using pu::test::take;

enum Op { Copy, NCopy, Cat, NCat };

// The call on a buffer holding before: "<result>|<text>", a pointer result as 0 for the buffer
// and -1 for null; a byte written at or past size (or past the old text) fails.
std::string bounded(Op op, const char *before, int32_t size, const char *src, int32_t n = 0) {
    std::vector<char> buf(std::max<std::size_t>(size, std::strlen(before) + 1) + 1, 'X');
    char *dst = std::strcpy(buf.data(), before);
    const long result = op == Copy ? uStrSafeCopy(dst, size, src)
                        : (op == NCopy ? uStrnSafeCopy(dst, size, src, n)
                                       : (op == Cat ? uStrSafeCat(dst, size, src)
                                                    : uStrnSafeCat(dst, size, src, n))) == dst
                            ? 0
                            : -1;
    EXPECT_EQ(buf.back(), 'X') << before << " " << size;
    return std::to_string(result) + "|" + dst;
}

TEST(StrCopy, StoresAtMostSizeMinusOne) {
    pu::test::checkRows({
        PU_ROW(bounded(Copy, "", 5, "abcde"), "4|abcd"),
        PU_ROW(bounded(Copy, "keep", 0, "abc"), "-1|keep"),
        PU_ROW(bounded(NCopy, "", 4, "abcdef", 4), "0|abc"),
        PU_ROW(bounded(NCopy, "keep", 0, "abc", 2), "0|keep"),
        PU_ROW(bounded(Cat, "abc", 6, "xyz"), "0|abcxy"),
        PU_ROW(bounded(Cat, "abc", 4, "xyz"), "0|abc"),
        PU_ROW(bounded(Cat, "abc", 0, "x"), "-1|abc"),
        PU_ROW(bounded(NCat, "abcd", 6, "xyz", 3), "0|abcdx"),
        PU_ROW(bounded(NCat, "ab", 0, "x", 1), "-1|ab"),
    });
    char dst[16] = "ab";
    std::memset(dst + 3, 'X', 13);
    uStrnSafeCat(dst, 16, "c", 5); // the byte n places on is cleared even when src is shorter
    EXPECT_EQ(dst[7], '\0');
    std::memset(dst, 'X', sizeof(dst));
    uStrnSafeCopy(dst, 8, "abcdef", 3);
    EXPECT_EQ(std::string(dst, 9), std::string("abc\0\0\0\0\0X", 9)); // zero-filled to size
}

TEST(StrCopy, GrowingBuffers) {
    char *buf = nullptr, *grown = nullptr, *none = nullptr;
    uint32_t capacity = 1234; // ignored for a null buffer
    pu::test::checkRows({
        // Capacity grows by 256 past what the text needs; 260 characters fit in the first.
        PU_ROW(uStrDynamicCat(&buf, &capacity, "hello") + capacity, 261),
        PU_ROW(uStrDynamicCat(&buf, &capacity, std::string(255, 'a').c_str()) + capacity, 261),
        PU_ROW(uStrDynamicCat(&buf, &capacity, "b") + capacity, 261 + 256),
        PU_ROW(take(buf), "hello" + std::string(255, 'a') + "b"),
        // At most size-1 in all; what does not fit is dropped, a piece of itself is fine.
        PU_ROW(uStrDynamicSafeNCat(&grown, 10, "abcdef", 3), "abc"),
        PU_ROW(uStrDynamicSafeNCat(&grown, 10, "defghxyz", 8), "abcdefghx"),
        PU_ROW((uStrDynamicSafeNCat(&grown, 100, grown, 3), take(grown)), "abcdefghxabc"),
        PU_ROW(uStrDynamicSafeNCat(&none, 10, "a", 0) == uStrGetCopy(""), 1), // empty means absent
    });
}

// What the C library's readers do not decide; agreement with them is fuzzed.
TEST(StrNumber, BlanksAloneAreDigitsAndHexDigits) {
    long v = 7;
    EXPECT_EQ(uStrIsDigit(" \t") + uStrIsDigit(" 42\r\n") * 2 + uStrIsDigit("12 34") * 4 +
                  uStrIsDigit("-1") * 8,
              3);
    EXPECT_EQ(uStrTol("99999999999999999999999", &v, 10) + v, -1); // cleared on failure
    double d = 0;
    EXPECT_EQ(uStrToDouble(" 2.5\r\n", &d) + d, 2.5);
    for (int c = 1; c < 256; ++c) {
        const int32_t want =
            std::isxdigit(c) ? std::stoi(std::string(1, char(c)), nullptr, 16) : -1;
        EXPECT_EQ(uStrHexCharToInteger(static_cast<char>(c)), want) << c;
    }
}

TEST(StrMac, ValidationFormattingAndAddresses) {
    pu::test::fanOut(4, [&](int) { // the patterns are compiled at first use; anchors are per line
        EXPECT_EQ(uStrCheckMacValidation("00:1A:2b:3C:4d:5E", 1), 1);
        EXPECT_EQ(uStrCheckMacValidation("junk\n001A2b3C4d5E\nmore", 0), 1);
        EXPECT_EQ(uStrCheckMacValidation("00:1A:2b:3C:4d:5E:", 1), 0);
    });
    char mac[32];
    const auto formatted = [&](const char *text, int32_t size) {
        const int32_t result = uStrFormatMacWithColon(text, mac, size);
        return result == 0 ? std::string(mac) : std::to_string(result);
    };
    pu::test::checkRows({
        PU_ROW(formatted("001A2B3C4D5E", 32), "00:1a:2b:3c:4d:5e"),
        PU_ROW(formatted("00:1A:2B:3C:4D:5E", 32), "00:1A:2B:3C:4D:5E"), // already valid: kept
        PU_ROW(formatted("001A:2B3C:4D5E", 32), "00:1a:2b:3c:4d:5e"),
        PU_ROW(formatted("001A2B3C4D5X", 32), "-1"),
        // Lowest byte first, cut to size.
        PU_ROW((uStrIPv4ToStr(0xFFFFFFC0u, mac, 12), mac), "192.255.255"),
    });
}

TEST(StrDate, DatesAndTimesOfDay) {
    struct tm tm;
    const std::tuple<const char *, int32_t, int32_t> dates[] = {
        {"2024/2/29", 1, 1},  {"2024/2/30", 1, 0},  {"2024/2/30", 0, 1},  {"2000-02-29", 1, 1},
        {"2100-12-31", 1, 1}, {"1900-02-29", 1, 0}, {"1899-12-31", 0, 0}, {"2101-01-01", 0, 0},
        {"2100-13-01", 0, 0}, {"2024-01-01x", 0, 0}};
    for (const auto &[date, check, valid] : dates) {
        EXPECT_EQ(uStrParseDateToTm(date, &tm, check), valid) << date << check;
    }
    pu::test::checkRows({
        PU_ROW(uStrCheckTimeRange("1:0:0", "24:00:00") + uStrCheckTimeRange("12:60:00", "1:0:0"),
               -2),
        PU_ROW(uStrCheckTimeRange("12:00:60", "1:0:0") + uStrCheckTimeRange("1:0:0", "12:00"), -2),
        PU_ROW(uStrCheckTimeRange("12:00:00x", "1:0:0"), -1),
        PU_ROW(uStrCheckTimeRange("23:59:59", "7:5:0"), 0), // not compared with each other
        PU_ROW(take(uStrFormatTimeAsHHMMSS(" \t7:5:0\t ")), "07:05:00"),
        // 16 characters are too long although the time is fine.
        PU_ROW(take(uStrFormatTimeAsHHMMSS("000000012:00:00")), "12:00:00"),
        PU_ROW(take(uStrFormatTimeAsHHMMSS("0000000012:00:00")), ""),
        PU_ROW(uStrDtmfCheck("0123456789*#ABCD") * 2 + uStrDtmfCheck("12E"), 2),
    });
}

// Texts whose sizes do not fit uMalloc's 32 bits, or wrap when tripled: refused, never given a
// wrapped small buffer. The texts cost almost no memory: one 2 MiB piece of 'a' mapped again and
// again, so only the page holding the terminator is ever copied.
constexpr std::size_t kPiece = std::size_t{2} << 20;

class HugeText {
  public:
    explicit HugeText(std::size_t length) : span_((length + kPiece) / kPiece * kPiece) {
        const int fd = memfd_create("huge-text", 0);
        void *base =
            mmap(nullptr, span_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        void *fill = fd >= 0 && ftruncate(fd, kPiece) == 0
                         ? mmap(nullptr, kPiece, PROT_WRITE, MAP_SHARED, fd, 0)
                         : MAP_FAILED;
        bool mapped = base != MAP_FAILED && fill != MAP_FAILED;
        if (fill != MAP_FAILED) {
            std::memset(fill, 'a', kPiece);
            munmap(fill, kPiece);
        }
        // Private mappings: the terminator's page alone is copied, the piece stays all 'a'.
        for (std::size_t at = 0; mapped && at < span_; at += kPiece) {
            mapped = mmap(static_cast<char *>(base) + at, kPiece, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_FIXED, fd, 0) != MAP_FAILED;
        }
        close(fd);
        if (mapped) {
            base_ = static_cast<char *>(base);
            base_[length] = '\0';
        } else if (base != MAP_FAILED) {
            munmap(base, span_);
        }
    }
    ~HugeText() {
        if (base_ != nullptr) {
            munmap(base_, span_);
        }
    }
    const char *text() const { return base_; }

  private:
    std::size_t span_;
    char *base_ = nullptr;
};

TEST(HugeLength, SizesThatWrapAreRefused) {
    if constexpr (sizeof(std::size_t) < 8) {
        GTEST_SKIP() << "no such texts in a 32-bit address space";
    }
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer shadows every page the walks touch: minutes for a test about arithmetic on
    // one thread. The plain and ASan builds run it.
    GTEST_SKIP() << "gigabyte walks under ThreadSanitizer";
#endif
    // 3 * length + 1 is 2^32 + 3: cut to 32 bits it was a 3-byte buffer.
    const HugeText url(1'431'655'766);
    ASSERT_NE(url.text(), nullptr);
    char *escaped = nullptr;
    EXPECT_EQ(uStrFileNameEscape(url.text(), &escaped), -1);
    EXPECT_EQ(escaped, nullptr);
    UStrUrlPara *rec = nullptr;
    EXPECT_EQ(uStrUrlParse(url.text(), &rec), -1);
    EXPECT_EQ(rec, nullptr);

    // length + 1 is 2^32 + 1, a 1-byte copy when cut to 32 bits.
    const HugeText text(std::size_t{UINT32_MAX} + 1);
    ASSERT_NE(text.text(), nullptr);
    EXPECT_EQ(uStrGetCopy(text.text()), nullptr);
    // The grown capacity would be 2^32 + 3 + 256: refused before the capacity changes.
    char *buf = uStrGetCopy("abc");
    std::uint32_t capacity = 4;
    EXPECT_EQ(uStrDynamicCat(&buf, &capacity, text.text()), -1);
    EXPECT_EQ(capacity, 4U);
    EXPECT_STREQ(buf, "abc");
    uFree(buf);
}

} // namespace
