// SPDX-License-Identifier: MIT
// Comparisons, searches, strippers, case folding, splitting and the UTF-8 helpers. Replacement,
// XML escaping, key/value lines and slot splitting are held to references by their fuzz targets;
// here are the rules those references do not state.
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using pu::test::orNull;
using pu::test::takeStrings;
using Fields = std::vector<std::string>;

// Where p points into base, or -1 for null.
long at(const char *base, const char *p) {
    return p != nullptr ? p - base : -1;
}

TEST(StrCompare, NullSafeComparisonsAndSearches) {
    // Null and "" are one absent value; a tail must be shorter-or-equal and non-empty.
    const struct {
        const char *text, *other;
        int equal, caseEqual, tail, caseTail;
        long str, caseStr;
    } rows[] = {{nullptr, "", 1, 1, 0, 0, -1, -1},
                {"", nullptr, 1, 1, 0, 0, -1, -1},
                {".txt", ".txt", 1, 1, 1, 1, 0, 0},
                {"file.TXT", ".txt", 0, 0, 0, 1, -1, 4},
                {"abc", "", 0, 0, 0, 0, 0, 0},
                {"", "", 1, 1, 0, 0, 0, 0},
                {"Hello World", "o w", 0, 0, 0, 0, -1, 4},
                {"a1b1c12", "12", 0, 0, 1, 1, 5, 5},
                {"aaAAb", "aab", 0, 0, 0, 1, -1, 2},
                {"a", nullptr, 0, 0, 0, 0, -1, -1}};
    for (const auto &r : rows) {
        SCOPED_TRACE(orNull(r.text) + " / " + orNull(r.other));
        EXPECT_EQ(uStrEqual(r.text, r.other), r.equal);
        EXPECT_EQ(uStrCaseEqual(r.text, r.other), r.caseEqual);
        EXPECT_EQ(uStrTailCmp(r.text, r.other) == 0, r.tail == 1);
        EXPECT_EQ(uStrTailCaseCmp(r.text, r.other) == 0, r.caseTail == 1);
        EXPECT_EQ(at(r.text, uStrStr(r.text, r.other)), r.str);
        EXPECT_EQ(at(r.text, uStrCaseStr(r.text, r.other)), r.caseStr);
    }
    EXPECT_EQ(uStrTailCmp("", ""), -1);
    EXPECT_EQ(uStrTailCmp("a", "abc"), -1); // a tail longer than the text

    const struct {
        const char *text;
        char c;
        long chr, reverse;
        int all;
    } chars[] = {{"Hello World", 'o', 4, 7, 0}, {"aaa", 'a', 0, 2, 1}, {nullptr, 'a', -1, -1, 0}};
    for (const auto &r : chars) {
        EXPECT_EQ(at(r.text, uStrChr(r.text, r.c)), r.chr) << orNull(r.text) << r.c;
        EXPECT_EQ(at(r.text, uStrReverseChr(r.text, r.c)), r.reverse) << orNull(r.text) << r.c;
        EXPECT_EQ(uStrAllChr(r.text, r.c), r.all) << orNull(r.text) << r.c;
    }
    const char bytes[] = {'a', '\0', 'a', 'b', 'a'};
    EXPECT_EQ(uStrCountTargetChar(bytes, 5, 'a'), 3); // goes on past the NUL
    EXPECT_EQ(uStrCountTargetChar(bytes, 1, 'a'), 1);
    EXPECT_EQ(uStrCountTargetChar(bytes, 0, 'a'), -1);
    for (const auto &[text, first] : {std::pair<const char *, long>{"\"x", 0},
                                      {R"(a\"b\\"c)", 6},
                                      {R"(\\\"x")", 5},
                                      {R"(a\")", -1}}) {
        EXPECT_EQ(at(text, uStrFirstQuoteFind(text)), first) << text; // odd backslashes escape
    }
    for (const auto &[text, alnum] :
         {std::pair<const char *, int>{"abc123", 1}, {"ab-1", 0}, {"", 1}, {nullptr, 0}}) {
        EXPECT_EQ(uStrIsAlphaDigit(text), alnum) << orNull(text); // "" deliberately true
    }
}

using Strip = const char *(*)(char *);
const Strip space = [](char *s) -> const char * { return uStrStripSpace(s); };
const Strip crlf = [](char *s) -> const char * { return uStrStripCrlf(s); };
const Strip quoted = [](char *s) -> const char * { return uStrStripCrlfDoubleQoute(s); };
const Strip pair = [](char *s) -> const char * { return uStrStripDoubleQoute(s); };
const Strip brackets = [](char *s) -> const char * { return uStrStripDoubleBrackets(s); };
const Strip bom = [](char *s) -> const char * { return uStrBomCheckAndDelete(s); };
const Strip angles = [](char *s) -> const char * {
    return uStrStripHeadAndTailSign(s, '<', '>') == 0 ? s : nullptr;
};

TEST(StrStrip, InPlaceStrippers) {
    // Each row: "<where the result points, -1 for null>|<text after>".
    const struct {
        Strip strip;
        const char *text, *expected;
    } rows[] = {{space, " \t a b \t ", "0|a b"},
                {space, "\r\n a \r\n", "0|\r\n a \r\n"},
                {crlf, "\t\r\n a b \n\r ", "0|a b"},
                {crlf, "\va\f", "0|\va\f"},
                {crlf, "  \r\n", "-1|"},
                {quoted, " \" \t \" \r\n", "-1|"},
                {quoted, "\t\" a \"\r\n", "0|a"},
                {quoted, "   ", "0|"},
                {pair, "\"a\"b\"", "0|a\"b"},
                {pair, "\"", "0|\""},
                {pair, "\"\"", "0|"},
                {pair, "\"\"a\"\"", "0|\"a\""},
                {brackets, "[x]", "0|x"},
                {angles, "<x>", "0|x"},
                {angles, "<", "-1|<"},
                {bom, "\xEF\xBB\xBFtext", "0|text"},
                {bom, "\xEF\xBBtext", "0|\xEF\xBBtext"}};
    for (const auto &r : rows) {
        std::string buffer = r.text;
        const long result = at(buffer.data(), r.strip(buffer.data()));
        EXPECT_EQ(std::to_string(result) + "|" + buffer.c_str(), r.expected) << r.text;
    }
    for (Strip strip : {space, crlf, quoted, pair, angles, bom}) {
        EXPECT_EQ(strip(nullptr), nullptr);
    }
    char open[] = "<";
    EXPECT_EQ(uStrStripHeadAndTailSign(open, '<', '>') + uStrStripHeadAndTailSign(nullptr, 0, 0),
              -2);

    char text[] = "aZ09\xC3\xA9-z@[`{";
    uStrToUpper(text);
    EXPECT_STREQ(text, "AZ09\xC3\xA9-Z@[`{");
    uStrToLower(text);
    EXPECT_STREQ(text, "az09\xC3\xA9-z@[`{");
    uStrToUpper(text);
    uStrToLowerCase(text);
    EXPECT_STREQ(text, "az09\xC3\xA9-z@[`{");
}

TEST(StrSplit, EmptyFieldsAndQuotedSlots) {
    EXPECT_EQ(takeStrings(uStrSep("a,,b;c,", ",;")), (Fields{"a", "b", "c"}));
    EXPECT_EQ(takeStrings(uStrSepIgnoreEmpty(",a,,b,", ",", 0)), (Fields{"", "a", "", "b", ""}));
    EXPECT_EQ(uStrSep(",,,", ","), nullptr); // nothing left: no list
    // A quote protects the separator only at the start of a field, and only when it closes.
    char slots[4][8];
    EXPECT_EQ(uStrListGet("\"a,b\", \"c,d\",\"e", slots[0], 4, 8, ","), 4u);
    EXPECT_EQ((Fields{slots[0], slots[1], slots[2], slots[3]}),
              (Fields{"a,b", "\"c", "d\"", "\"e"}));
    EXPECT_EQ(uStrListGet("abcdefghij,k", slots[0], 1, 8, ","), 1u); // cut; the rest ignored
    EXPECT_STREQ(slots[0], "abcdefg");
    EXPECT_EQ(uStrListMatchKey("red, green ,blue", "green", ",", 1), 0); // exact: blanks count
    EXPECT_EQ(uStrListMatchKey(nullptr, "green", ",", 0), 0);
    UStrKeyValue *pair = uStrKeyValueParse("k=v", "="); // a one-letter key is a key
    ASSERT_NE(pair, nullptr);
    EXPECT_EQ(orNull(pair->key) + "/" + orNull(pair->value), "k/v");
    uStrKeyValueFree(pair);
    EXPECT_EQ(uStrListMatchKey("red, green ,blue", "green", ",", 0), 1);
}

TEST(StrUtf8, TruncatedEndingsLengthsAndCodePoints) {
    const struct {
        const char *bytes;
        int32_t result;
        const char *left;
    } trims[] = {{"ab\xE4\xB8", 1, "ab"},
                 {"ab\xE4\xB8\xAD", 0, "ab\xE4\xB8\xAD"},
                 {"a\xC3\xA9\xA9", 1, "a\xC3\xA9"},
                 {"\x80", 1, ""}, // nothing but continuation bytes
                 {"", 0, ""}};
    for (const auto &r : trims) {
        char buffer[16] = {};
        std::strcpy(buffer, r.bytes);
        EXPECT_EQ(uStrRemoveTruncatedUTF8Char(buffer), r.result) << r.left;
        EXPECT_STREQ(buffer, r.left);
    }
    const struct {
        const char *text;
        int32_t length;
        const char *codePoint;
    } chars[] = {
        {"A", 1, "0041"},
        {"\xC3\xA9", 2, "00E9"},
        {"\xE4\xB8\xAD", 3, "4E2D"},
        {"\xF0\x9F\x98\x80", 4, "1F600"},
        {"\xA9", -1, ""},
    };
    for (const auto &r : chars) {
        char dst[8] = "";
        EXPECT_EQ(uStrUtf8CharLength(r.text), r.length) << r.codePoint;
        EXPECT_EQ(uStrUtf8ToUnicode(r.text, dst, sizeof(dst)), r.length > 0 ? 1 : 0);
        EXPECT_STREQ(dst, r.codePoint);
    }
    char dst[5];
    EXPECT_EQ(uStrUtf8ToUnicode("A", dst, 5), 0); // no room for the terminator
    EXPECT_EQ(uStrUtf8CharLength(nullptr), -1);
}

} // namespace
