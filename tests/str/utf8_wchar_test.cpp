// SPDX-License-Identifier: MIT
// UTF-8 helpers and the replaceable wide-character case operators.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Runs uStrRemoveTruncatedUTF8Char on a copy of bytes; returns (result, what is left).
std::pair<int32_t, std::string> trimmed(const std::string &bytes) {
    std::string buffer = bytes;
    const int32_t result = uStrRemoveTruncatedUTF8Char(buffer.data());
    return {result, std::string(buffer.c_str())};
}

TEST(StrUtf8, RemoveTruncatedHandlesEveryKindOfEnding) {
    using R = std::pair<int32_t, std::string>;
    EXPECT_EQ(trimmed("abc"), (R{0, "abc"}));
    EXPECT_EQ(trimmed("ab\xE4\xB8"), (R{1, "ab"}));                 // lead announces 3, 2 present
    EXPECT_EQ(trimmed("ab\xE4"), (R{1, "ab"}));                     // lead alone
    EXPECT_EQ(trimmed("ab\xE4\xB8\xAD"), (R{0, "ab\xE4\xB8\xAD"})); // complete
    EXPECT_EQ(trimmed("a\xC3\xA9"), (R{0, "a\xC3\xA9"}));
    EXPECT_EQ(trimmed("a\xF0\x9F\x98"), (R{1, "a"})); // 4-byte sequence cut
    EXPECT_EQ(trimmed("a\xF0\x9F\x98\x80"), (R{0, "a\xF0\x9F\x98\x80"}));
    EXPECT_EQ(trimmed("a\xC3\xA9\xA9"), (R{1, "a\xC3\xA9"})); // one byte beyond the announced
    EXPECT_EQ(trimmed("ab\xA9\xA9"), (R{1, "ab"}));           // stray continuations after ASCII
    EXPECT_EQ(trimmed("\xA9\xA9"), (R{1, ""}));               // nothing but continuations
    EXPECT_EQ(trimmed("ab\xFF"), (R{1, "ab"}));
    EXPECT_EQ(trimmed("ab\xFE\xA9"), (R{1, "ab"}));
    EXPECT_EQ(trimmed("ab\xFC\xA9"), (R{1, "ab"})); // a 6-byte lead, 2 present
    EXPECT_EQ(trimmed(""), (R{0, ""}));
    EXPECT_EQ(uStrRemoveTruncatedUTF8Char(nullptr), 0);

    // Cleared bytes are zeroed, not only cut off.
    char buffer[] = "ab\xE4\xB8";
    uStrRemoveTruncatedUTF8Char(buffer);
    EXPECT_EQ(buffer[3], '\0');
}

TEST(StrUtf8, LengthsAndCodePoints) {
    EXPECT_EQ(uStrUtf8CharLength("A"), 1);
    EXPECT_EQ(uStrUtf8CharLength("\xC3\xA9"), 2);
    EXPECT_EQ(uStrUtf8CharLength("\xE4\xB8\xAD"), 3);
    EXPECT_EQ(uStrUtf8CharLength("\xF0\x9F\x98\x80"), 4);
    EXPECT_EQ(uStrUtf8CharLength("\xA9"), -1);
    EXPECT_EQ(uStrUtf8CharLength("\xF8"), -1);
    EXPECT_EQ(uStrUtf8CharLength(nullptr), -1);
    EXPECT_EQ(uStrUtf8CharLength(""), 1);

    char dst[8];
    EXPECT_EQ(uStrUtf8ToUnicode("\xE4\xB8\xAD", dst, sizeof(dst)), 1);
    EXPECT_STREQ(dst, "4E2D");
    EXPECT_EQ(uStrUtf8ToUnicode("A", dst, sizeof(dst)), 1);
    EXPECT_STREQ(dst, "0041");
    EXPECT_EQ(uStrUtf8ToUnicode("\xF0\x9F\x98\x80", dst, sizeof(dst)), 1);
    EXPECT_STREQ(dst, "1F600");
    EXPECT_EQ(uStrUtf8ToUnicode("\xC3\x29", dst, sizeof(dst)), 1); // not validated: low bits
    EXPECT_STREQ(dst, "00E9");
    EXPECT_EQ(uStrUtf8ToUnicode("A", dst, 5), 0);
    EXPECT_EQ(uStrUtf8ToUnicode("\xA9", dst, sizeof(dst)), 0);
    EXPECT_EQ(uStrUtf8ToUnicode(nullptr, dst, sizeof(dst)), 0);
    EXPECT_EQ(uStrUtf8ToUnicode("A", nullptr, sizeof(dst)), 0);
}

int shoutCalls = 0;
int shout(const char *src, char *dst, uint32_t dstSize) {
    ++shoutCalls;
    return uStrSafeCopy(dst, dstSize, src) >= 0 ? 0 : -1;
}

// Restores the built-in operators after each test.
class StrWchar : public ::testing::Test {
  protected:
    void SetUp() override { saved_ = gWcharOpHook; }
    void TearDown() override { uStrRegisterWcharOperator(&saved_); }
    UStrWcharOps saved_{};
};

TEST_F(StrWchar, BuiltInOperatorsConvertAndRefuseShortBuffers) {
    char dst[16];
    ASSERT_EQ(uStrToUppercase("abc-x1", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "ABC-X1");
    ASSERT_EQ(uStrToLowercase("ABC-X1", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "abc-x1");
    EXPECT_EQ(uStrToUppercase("abcd", dst, 5), 0); // exact fit with terminator
    EXPECT_STREQ(dst, "ABCD");
    EXPECT_EQ(uStrToUppercase("abcd", dst, 4), -1); // no room for the terminator
    EXPECT_EQ(uStrToUppercase("abcd", dst, 0), -1);
    EXPECT_EQ(uStrToUppercase(nullptr, dst, sizeof(dst)), -1);
    EXPECT_EQ(uStrToLowercase("a", nullptr, 4), -1);
}

TEST_F(StrWchar, BuiltInOperatorsFoldNonAsciiUnderAUtf8Locale) {
    const char *saved = std::getenv("LC_ALL");
    const std::string restore = saved != nullptr ? saved : "";
    setenv("LC_ALL", "C.UTF-8", 1);
    char dst[16];
    const int32_t result = uStrToUppercase("\xC3\xA9t\xC3\xA9", dst, sizeof(dst)); // "été"
    if (saved != nullptr) {
        setenv("LC_ALL", restore.c_str(), 1);
    } else {
        unsetenv("LC_ALL");
    }
    ASSERT_EQ(result, 0);
    EXPECT_STREQ(dst, "\xC3\x89T\xC3\x89"); // "ÉTÉ"
}

TEST_F(StrWchar, RegistrationCopiesTheRecordAndNullDisables) {
    UStrWcharOps ops = {shout, nullptr};
    uStrRegisterWcharOperator(&ops);
    ops.toUppercase = nullptr; // a copy was taken: changing the caller's record changes nothing
    char dst[8];
    shoutCalls = 0;
    EXPECT_EQ(uStrToUppercase("abc", dst, sizeof(dst)), 0);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(shoutCalls, 1);
    EXPECT_EQ(uStrToLowercase("ABC", dst, sizeof(dst)), -1);

    uStrRegisterWcharOperator(nullptr); // ignored
    EXPECT_EQ(gWcharOpHook.toUppercase, &shout);
}

} // namespace
