// SPDX-License-Identifier: MIT
// Comparisons and searches that tolerate null, in-place strippers and ASCII case folding.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(StrEqual, NullAndEmptyAreOneAbsentValue) {
    EXPECT_EQ(uStrEqual(nullptr, ""), 1);
    EXPECT_EQ(uStrEqual("", nullptr), 1);
    EXPECT_EQ(uStrEqual(nullptr, nullptr), 1);
    EXPECT_EQ(uStrEqual("", ""), 1);
    EXPECT_EQ(uStrEqual("", "a"), 0);
    EXPECT_EQ(uStrEqual(nullptr, "a"), 0);
    EXPECT_EQ(uStrEqual("a", "a"), 1);
    EXPECT_EQ(uStrEqual("a", "A"), 0);
    EXPECT_EQ(uStrCaseEqual("abC", "ABc"), 1);
    EXPECT_EQ(uStrCaseEqual(nullptr, ""), 1);
    EXPECT_EQ(uStrCaseEqual("a", nullptr), 0);
}

TEST(StrTailCmp, ComparesTheEndAndRefusesShortOrEmpty) {
    EXPECT_EQ(uStrTailCmp("file.txt", ".txt"), 0);
    EXPECT_EQ(uStrTailCmp(".txt", ".txt"), 0);
    EXPECT_NE(uStrTailCmp("file.TXT", ".txt"), 0);
    EXPECT_EQ(uStrTailCaseCmp("file.TXT", ".txt"), 0);
    EXPECT_EQ(uStrTailCmp("txt", ".txt"), -1);
    EXPECT_EQ(uStrTailCmp("", ""), -1);
    EXPECT_EQ(uStrTailCmp("abc", ""), -1);
    EXPECT_EQ(uStrTailCmp(nullptr, "a"), -1);
    EXPECT_EQ(uStrTailCaseCmp("a", nullptr), -1);
}

TEST(StrSearch, NullSafeAndCaseInsensitive) {
    const char *text = "Hello World";
    EXPECT_EQ(uStrStr(text, "World"), text + 6);
    EXPECT_EQ(uStrStr(text, nullptr), nullptr);
    EXPECT_EQ(uStrStr(nullptr, "a"), nullptr);

    EXPECT_EQ(uStrCaseStr(text, "wORLD"), text + 6);
    EXPECT_EQ(uStrCaseStr(text, "o w"), text + 4);
    EXPECT_EQ(uStrCaseStr(text, ""), text);
    EXPECT_EQ(uStrCaseStr("", "a"), nullptr);
    const char *empty = "";
    EXPECT_EQ(uStrCaseStr(empty, ""), empty); // an empty needle wins over an empty haystack
    EXPECT_EQ(uStrCaseStr(text, "worlds"), nullptr);
    EXPECT_EQ(uStrCaseStr(nullptr, "a"), nullptr);
    EXPECT_EQ(uStrCaseStr(text, nullptr), nullptr);
    const char *digits = "a1b1c12";
    EXPECT_EQ(uStrCaseStr(digits, "12"), digits + 5); // a first character without case
    const char *repeats = "aaAAb";
    EXPECT_EQ(uStrCaseStr(repeats, "aab"), repeats + 2);

    EXPECT_EQ(uStrChr(text, 'o'), text + 4);
    EXPECT_EQ(uStrChr(text, 0), text + 11); // as strchr: the terminator
    EXPECT_EQ(uStrChr(nullptr, 'o'), nullptr);
    EXPECT_EQ(uStrReverseChr(text, 'o'), text + 7);
    EXPECT_EQ(uStrReverseChr(text, 0), nullptr); // never the terminator
    EXPECT_EQ(uStrReverseChr("", 'a'), nullptr);
    EXPECT_EQ(uStrReverseChr(text, 'z'), nullptr);
}

TEST(StrCharTests, AllCountQuoteAndAlnum) {
    EXPECT_EQ(uStrAllChr("aaa", 'a'), 1);
    EXPECT_EQ(uStrAllChr("aab", 'a'), 0);
    EXPECT_EQ(uStrAllChr("", 'a'), 0);
    EXPECT_EQ(uStrAllChr(nullptr, 'a'), 0);

    const char bytes[] = {'a', '\0', 'a', 'b', 'a'};
    EXPECT_EQ(uStrCountTargetChar(bytes, 5, 'a'), 3); // goes on past the NUL
    EXPECT_EQ(uStrCountTargetChar(bytes, 5, 0), 1);
    EXPECT_EQ(uStrCountTargetChar(bytes, 1, 'a'), 1);
    EXPECT_EQ(uStrCountTargetChar(bytes, 0, 'a'), -1);
    EXPECT_EQ(uStrCountTargetChar(nullptr, 3, 'a'), -1);

    const char *first = "\"at start";
    EXPECT_EQ(uStrFirstQuoteFind(first), first);
    const char *escaped = R"(a\"b\\"c)"; // one backslash escapes, two do not
    EXPECT_EQ(uStrFirstQuoteFind(escaped), escaped + 6);
    const char *three = R"(\\\"x")";
    EXPECT_EQ(uStrFirstQuoteFind(three), three + 5);
    EXPECT_EQ(uStrFirstQuoteFind(R"(a\")"), nullptr);
    EXPECT_EQ(uStrFirstQuoteFind("none"), nullptr);
    EXPECT_EQ(uStrFirstQuoteFind(nullptr), nullptr);

    EXPECT_EQ(uStrIsAlphaDigit("abc123"), 1);
    EXPECT_EQ(uStrIsAlphaDigit(""), 1); // deliberately true
    EXPECT_EQ(uStrIsAlphaDigit("ab c"), 0);
    EXPECT_EQ(uStrIsAlphaDigit("ab_c"), 0);
    EXPECT_EQ(uStrIsAlphaDigit(nullptr), 0);
}

TEST(StrStrip, SpaceAndCrlfSetsDiffer) {
    char text[32] = " \t a b \t ";
    EXPECT_EQ(uStrStripSpace(text), text);
    EXPECT_STREQ(text, "a b");
    std::strcpy(text, "\r\n a \r\n");
    uStrStripSpace(text); // line ends are not blanks here
    EXPECT_STREQ(text, "\r\n a \r\n");
    std::strcpy(text, " \t ");
    EXPECT_EQ(uStrStripSpace(text), text);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(uStrStripSpace(nullptr), nullptr);

    std::strcpy(text, "\t\r\n a b \n\r ");
    EXPECT_EQ(uStrStripCrlf(text), text);
    EXPECT_STREQ(text, "a b");
    std::strcpy(text, "\va\f");
    EXPECT_EQ(uStrStripCrlf(text), text); // vertical tab and form feed are kept
    EXPECT_STREQ(text, "\va\f");
}

TEST(StrStrip, CrlfAnswersNullForAllBlankButNotForEmpty) {
    char blank[] = "  \r\n";
    EXPECT_EQ(uStrStripCrlf(blank), nullptr);
    EXPECT_STREQ(blank, "");
    char empty[] = "";
    EXPECT_EQ(uStrStripCrlf(empty), empty);
    EXPECT_EQ(uStrStripCrlf(nullptr), nullptr);

    char quotedBlank[] = " \" \t \" \r\n";
    EXPECT_EQ(uStrStripCrlfDoubleQoute(quotedBlank), nullptr);
    EXPECT_STREQ(quotedBlank, "");
    char quoted[] = "\t\" a \"\r\n";
    EXPECT_EQ(uStrStripCrlfDoubleQoute(quoted), quoted);
    EXPECT_STREQ(quoted, "a");
    char allBlank[] = "   ";
    EXPECT_EQ(uStrStripCrlfDoubleQoute(allBlank), allBlank); // the last strip sees ""
    EXPECT_STREQ(allBlank, "");
    EXPECT_EQ(uStrStripCrlfDoubleQoute(nullptr), nullptr);
}

TEST(StrStrip, EnclosingPairsOnlyWhenBothEndsMatch) {
    char inner[] = "\"a\"b\"";
    EXPECT_STREQ(uStrStripDoubleQoute(inner), "a\"b");
    char lone[] = "\"";
    EXPECT_STREQ(uStrStripDoubleQoute(lone), "\"");
    char pair[] = "\"\"";
    EXPECT_STREQ(uStrStripDoubleQoute(pair), "");
    char half[] = "\"a";
    EXPECT_STREQ(uStrStripDoubleQoute(half), "\"a");
    char twice[] = "\"\"a\"\"";
    EXPECT_STREQ(uStrStripDoubleQoute(twice), "\"a\""); // one pair only
    EXPECT_EQ(uStrStripDoubleQoute(nullptr), nullptr);

    char brackets[] = "[x]";
    EXPECT_STREQ(uStrStripDoubleBrackets(brackets), "x");
    char reversed[] = "]x[";
    EXPECT_STREQ(uStrStripDoubleBrackets(reversed), "]x[");

    char sign[] = "<x>";
    EXPECT_EQ(uStrStripHeadAndTailSign(sign, '<', '>'), 0);
    EXPECT_STREQ(sign, "x");
    EXPECT_EQ(uStrStripHeadAndTailSign(sign, '<', '>'), -1);
    char shortText[] = "<";
    EXPECT_EQ(uStrStripHeadAndTailSign(shortText, '<', '<'), -1);
    EXPECT_EQ(uStrStripHeadAndTailSign(nullptr, '<', '>'), -1);
}

TEST(StrStrip, ByteOrderMark) {
    char bom[] = "\xEF\xBB\xBFtext";
    EXPECT_EQ(uStrBomCheckAndDelete(bom), bom);
    EXPECT_STREQ(bom, "text");
    char onlyBom[] = "\xEF\xBB\xBF";
    EXPECT_STREQ(uStrBomCheckAndDelete(onlyBom), "");
    char partial[] = "\xEF\xBBtext";
    EXPECT_STREQ(uStrBomCheckAndDelete(partial), "\xEF\xBBtext");
    EXPECT_EQ(uStrBomCheckAndDelete(nullptr), nullptr);
}

TEST(StrCase, AsciiFoldingLeavesOtherBytesAlone) {
    char text[] = "aZ09\xC3\xA9-z";
    uStrToUpper(text);
    EXPECT_STREQ(text, "AZ09\xC3\xA9-Z");
    uStrToLower(text);
    EXPECT_STREQ(text, "az09\xC3\xA9-z");
    char key[] = "Content-TYPE";
    uStrToLowerCase(key);
    EXPECT_STREQ(key, "content-type");
    uStrToUpper(nullptr);
    uStrToLower(nullptr);
    uStrToLowerCase(nullptr);
}

} // namespace
