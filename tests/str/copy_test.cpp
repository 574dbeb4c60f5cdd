// SPDX-License-Identifier: MIT
// Bounded copies and concatenations: every boundary of size, and the growing buffers.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

TEST(StrSafeCopy, StoresAtMostSizeMinusOneAndReturnsWhatItStored) {
    char dst[8];
    EXPECT_EQ(uStrSafeCopy(dst, 5, "abcd"), 4); // exact fit is copied whole
    EXPECT_STREQ(dst, "abcd");
    EXPECT_EQ(uStrSafeCopy(dst, 5, "abcde"), 4); // one too long: cut
    EXPECT_STREQ(dst, "abcd");
    EXPECT_EQ(uStrSafeCopy(dst, 5, "abc"), 3);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(uStrSafeCopy(dst, 1, "abc"), 0);
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(uStrSafeCopy(dst, 5, ""), 0);
    EXPECT_STREQ(dst, "");

    std::memcpy(dst, "keep", 5);
    EXPECT_EQ(uStrSafeCopy(dst, 0, "abc"), -1);
    EXPECT_STREQ(dst, "keep");
    EXPECT_EQ(uStrSafeCopy(nullptr, 5, "abc"), -1);
    EXPECT_EQ(uStrSafeCopy(dst, 5, nullptr), -1);
    EXPECT_STREQ(dst, "keep");
}

TEST(StrSafeCopy, NeverWritesPastSize) {
    char dst[8];
    std::memset(dst, 'X', sizeof(dst));
    uStrSafeCopy(dst, 4, "abcdefgh");
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(dst[4], 'X');
}

TEST(StrnSafeCopy, ZeroFillsTheWholeBufferThenCopiesAtMostNAndSizeMinusOne) {
    char dst[8];
    std::memset(dst, 'X', sizeof(dst));
    EXPECT_EQ(uStrnSafeCopy(dst, 8, "abcdef", 3), dst);
    EXPECT_STREQ(dst, "abc");
    for (int i = 3; i < 8; ++i) {
        EXPECT_EQ(dst[i], '\0') << i;
    }
    EXPECT_STREQ(uStrnSafeCopy(dst, 8, "abcdef", 20), "abcdef");
    EXPECT_STREQ(uStrnSafeCopy(dst, 4, "abcdef", 20), "abc");
    EXPECT_STREQ(uStrnSafeCopy(dst, 4, "abcdef", 4), "abc"); // n == size: cut to size-1
    EXPECT_STREQ(uStrnSafeCopy(dst, 4, "abcdef", 3), "abc");
    EXPECT_STREQ(uStrnSafeCopy(dst, 8, "abcdef", 0), "");
    EXPECT_EQ(uStrnSafeCopy(nullptr, 8, "a", 1), nullptr);
    EXPECT_EQ(uStrnSafeCopy(dst, 8, nullptr, 1), nullptr);

    std::memset(dst, 'X', sizeof(dst));
    EXPECT_EQ(uStrnSafeCopy(dst, 0, "abc", 2), dst); // nothing may be written
    EXPECT_EQ(dst[0], 'X');
}

TEST(StrSafeCat, AppendsWithinSizeAndCutsSilently) {
    char dst[16] = "abc";
    EXPECT_STREQ(uStrSafeCat(dst, 6, "xyz"), "abcxy");
    std::strcpy(dst, "abc");
    EXPECT_STREQ(uStrSafeCat(dst, 7, "xyz"), "abcxyz"); // exact fit
    std::strcpy(dst, "abc");
    EXPECT_STREQ(uStrSafeCat(dst, 4, "xyz"), "abc"); // already full
    std::strcpy(dst, "abc");
    EXPECT_STREQ(uStrSafeCat(dst, 16, nullptr), "abc");
    EXPECT_EQ(uStrSafeCat(dst, 0, "x"), nullptr);
    EXPECT_EQ(uStrSafeCat(nullptr, 4, "x"), nullptr);

    std::memset(dst, 'X', sizeof(dst));
    dst[0] = '\0';
    uStrSafeCat(dst, 1, "abc");
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(dst[1], 'X');
}

TEST(StrSafeCat, LongSourcesAreCutAtEverySize) {
    std::string src;
    for (int i = 0; i < 150; ++i) {
        src += static_cast<char>('a' + i % 26);
    }
    for (int32_t size : {3, 60, 65, 66, 67, 68, 100, 152, 153, 154, 300}) {
        std::vector<char> dst(static_cast<size_t>(size) + 1, 'X');
        std::strcpy(dst.data(), "ab");
        uStrSafeCat(dst.data(), size, src.c_str());
        const std::string expected = ("ab" + src).substr(0, static_cast<size_t>(size) - 1);
        EXPECT_EQ(std::string(dst.data()), expected) << size;
        EXPECT_EQ(dst[static_cast<size_t>(size)], 'X') << size;

        std::strcpy(dst.data(), "ab");
        uStrnSafeCat(dst.data(), size, src.c_str(), 70);
        EXPECT_EQ(std::string(dst.data()), ("ab" + src.substr(0, 70)).substr(0, size - 1)) << size;
        EXPECT_EQ(dst[static_cast<size_t>(size)], 'X') << size;
    }
}

TEST(StrnSafeCat, LimitsByNAndBySize) {
    char dst[16] = "ab";
    EXPECT_STREQ(uStrnSafeCat(dst, 16, "cdef", 2), "abcd");
    EXPECT_STREQ(uStrnSafeCat(dst, 6, "xyz", 3), "abcdx"); // room 2 is not > n 3: cut by size
    std::strcpy(dst, "ab");
    EXPECT_STREQ(uStrnSafeCat(dst, 6, "xyz", 3), "abxyz"); // room 4 > n 3
    std::strcpy(dst, "ab");
    EXPECT_STREQ(uStrnSafeCat(dst, 16, "xyz", 0), "ab");

    // The byte n places on is cleared even when src is shorter.
    std::memset(dst, 'X', sizeof(dst));
    std::strcpy(dst, "ab");
    uStrnSafeCat(dst, 16, "c", 5);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(dst[7], '\0');

    EXPECT_EQ(uStrnSafeCat(dst, 0, "x", 1), nullptr);
    EXPECT_EQ(uStrnSafeCat(nullptr, 4, "x", 1), nullptr);
    EXPECT_STREQ(uStrnSafeCat(dst, 16, nullptr, 1), "abc");
}

TEST(StrDynamicCat, StartsAt261ForHelloAndGrowsOnlyWhenNeeded) {
    char *buf = nullptr;
    uint32_t capacity = 1234; // ignored for a null buffer
    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, "hello"), 0);
    EXPECT_STREQ(buf, "hello");
    EXPECT_EQ(capacity, 261u);

    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, " world"), 0);
    EXPECT_STREQ(buf, "hello world");
    EXPECT_EQ(capacity, 261u);

    // 11 + 249 = 260 < 261 still fits; one more byte does not.
    const std::string fits(249, 'a');
    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, fits.c_str()), 0);
    EXPECT_EQ(capacity, 261u);
    ASSERT_EQ(uStrDynamicCat(&buf, &capacity, "b"), 0);
    EXPECT_EQ(capacity, 260u + 1 + 256);
    EXPECT_EQ(std::strlen(buf), 261u);
    EXPECT_EQ(buf[260], 'b');

    EXPECT_EQ(uStrDynamicCat(nullptr, &capacity, "x"), -1);
    EXPECT_EQ(uStrDynamicCat(&buf, nullptr, "x"), -1);
    EXPECT_EQ(uStrDynamicCat(&buf, &capacity, nullptr), -1);
    uFree(buf);
}

TEST(StrDynamicSafeNCat, TakesExactlyNBytesAndCapsTheWholeBuffer) {
    char *buf = nullptr;
    ASSERT_NE(uStrDynamicSafeNCat(&buf, 10, "abcdef", 3), nullptr);
    EXPECT_STREQ(buf, "abc");
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 10, "defgh", 5), "abcdefgh"); // 3 + 5 < 10
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 10, "xyz", 3), "abcdefghx");  // only 1 fits
    char *full = buf;
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 10, "more", 4), full); // full: unchanged
    EXPECT_STREQ(buf, "abcdefghx");
    uFree(buf);

    // A fresh buffer whose piece reaches maxSize is cut to maxSize-1 characters.
    buf = nullptr;
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 4, "abcdef", 6), "abc");
    uFree(buf);
    buf = nullptr;
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 4, "abcd", 4), "abc");
    uFree(buf);

    // The piece may come from the buffer itself.
    buf = uStrGetCopy("abc");
    EXPECT_STREQ(uStrDynamicSafeNCat(&buf, 100, buf, 3), "abcabc");
    uFree(buf);

    buf = nullptr;
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 10, "a", 0), nullptr);
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 0, "a", 1), nullptr);
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 10, "a", -1), nullptr);
    EXPECT_EQ(uStrDynamicSafeNCat(nullptr, 10, "a", 1), nullptr);
    EXPECT_EQ(uStrDynamicSafeNCat(&buf, 10, nullptr, 1), nullptr);
    EXPECT_EQ(buf, nullptr);
}

TEST(StrGetCopy, EmptyMeansAbsent) {
    EXPECT_EQ(uStrGetCopy(""), nullptr);
    EXPECT_EQ(uStrGetCopy(nullptr), nullptr);
    char *copy = uStrGetCopy("abc");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "abc");
    uFree(copy);

    char *number = uStrGetInt2StrCpy(-2147483647 - 1);
    EXPECT_STREQ(number, "-2147483648");
    uFree(number);
    number = uStrGetInt2StrCpy(0);
    EXPECT_STREQ(number, "0");
    uFree(number);
}

} // namespace
