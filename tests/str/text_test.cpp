// SPDX-License-Identifier: MIT
// Comparisons, searches, strippers, case folding, splitting and the UTF-8 helpers. Replacement,
// XML escaping, key/value lines and slot splitting are held to references by their fuzz targets;
// here are the rules those references do not state.
#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using pu::test::orNull;
using Fields = std::vector<std::string>;

// Where p points into base, or -1 for null.
long at(const char *base, const char *p) {
    return p != nullptr ? p - base : -1;
}

// uStrEqual, uStrCaseEqual, whether uStrTailCmp and uStrTailCaseCmp match, and where uStrStr and
// uStrCaseStr point (-1 for null).
std::string compared(const char *text, const char *other) {
    return std::to_string(uStrEqual(text, other)) + std::to_string(uStrCaseEqual(text, other)) +
           std::to_string(uStrTailCmp(text, other) == 0) +
           std::to_string(uStrTailCaseCmp(text, other) == 0) + " " +
           std::to_string(at(text, uStrStr(text, other))) + " " +
           std::to_string(at(text, uStrCaseStr(text, other)));
}

TEST(StrCompare, NullSafeComparisonsAndSearches) {
    const char bytes[] = {'a', '\0', 'a', 'b', 'a'};
    const char *hello = "Hello World", *quotes = R"(a\"b\\"c)", *escaped = R"(\\\"x")";
    pu::test::checkRows({
        // Null and "" are one absent value; a tail must be shorter-or-equal and non-empty.
        PU_ROW(compared(nullptr, ""), "1100 -1 -1"),
        PU_ROW(compared(".txt", ".txt"), "1111 0 0"),
        PU_ROW(compared("file.TXT", ".txt"), "0001 -1 4"),
        PU_ROW(compared("abc", ""), "0000 0 0"),
        PU_ROW(compared("", ""), "1100 0 0"),
        PU_ROW(compared("Hello World", "o w"), "0000 -1 4"),
        PU_ROW(compared("a1b1c12", "12"), "0011 5 5"),
        PU_ROW(compared("aaAAb", "aab"), "0001 -1 2"),
        PU_ROW(compared("a", nullptr), "0000 -1 -1"),
        PU_ROW(compared("a", "abc"), "0000 -1 -1"),
        PU_ROW(uStrTailCmp("", ""), -1),
        PU_ROW(at(hello, uStrChr(hello, 'o')) * 10 + at(hello, uStrReverseChr(hello, 'o')), 47),
        PU_ROW(uStrChr(nullptr, 'a') == uStrReverseChr(nullptr, 'a'), 1),
        PU_ROW(uStrAllChr("aaa", 'a') + uStrAllChr(hello, 'H') + uStrAllChr(nullptr, 'a'), 1),
        // Counting goes on past a NUL.
        PU_ROW(uStrCountTargetChar(bytes, 5, 'a'), 3),
        PU_ROW(uStrCountTargetChar(bytes, 1, 'a') + uStrCountTargetChar(bytes, 0, 'a'), 0),
        // An odd number of backslashes escapes a quote.
        PU_ROW(at(quotes, uStrFirstQuoteFind(quotes)), 6),
        PU_ROW(at(escaped, uStrFirstQuoteFind(escaped)), 5),
        PU_ROW(uStrFirstQuoteFind(R"(a\")"), nullptr),
        // An empty text is deliberately alphanumeric.
        PU_ROW(uStrIsAlphaDigit("abc123") + uStrIsAlphaDigit(""), 2),
        PU_ROW(uStrIsAlphaDigit("ab-1") + uStrIsAlphaDigit(nullptr), 0),
    });
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

// "<where the result points, -1 for null>|<text after>".
std::string stripped(Strip strip, const char *text) {
    std::string buffer = text;
    const long result = at(buffer.data(), strip(buffer.data()));
    return std::to_string(result) + "|" + buffer.c_str();
}

TEST(StrStrip, InPlaceStrippersAndCaseFolding) {
    char text[] = "aZ09\xC3\xA9-z@[`{";
    pu::test::checkRows(
        {PU_ROW(stripped(space, " \t a b \t "), "0|a b"),
         PU_ROW(stripped(space, "\r\n a \r\n"), "0|\r\n a \r\n"),
         PU_ROW(stripped(crlf, "\t\r\n a b \n\r "), "0|a b"),
         PU_ROW(stripped(crlf, "\va\f"), "0|\va\f"), PU_ROW(stripped(crlf, "  \r\n"), "-1|"),
         PU_ROW(stripped(quoted, " \" \t \" \r\n"), "-1|"),
         PU_ROW(stripped(quoted, "\t\" a \"\r\n"), "0|a"), PU_ROW(stripped(quoted, "   "), "0|"),
         PU_ROW(stripped(pair, "\"a\"b\""), "0|a\"b"), PU_ROW(stripped(pair, "\""), "0|\""),
         PU_ROW(stripped(pair, "\"\"a\"\""), "0|\"a\""), PU_ROW(stripped(brackets, "[x]"), "0|x"),
         PU_ROW(stripped(angles, "<x>"), "0|x"), PU_ROW(stripped(angles, "<"), "-1|<"),
         PU_ROW(stripped(bom, "\xEF\xBB\xBFtext"), "0|text"),
         PU_ROW(stripped(bom, "\xEF\xBBtext"), "0|\xEF\xBBtext"),
         PU_ROW((uStrToUpper(text), text), "AZ09\xC3\xA9-Z@[`{"),
         PU_ROW((uStrToLower(text), text), "az09\xC3\xA9-z@[`{"),
         PU_ROW((uStrToUpper(text), uStrToLowerCase(text), text), "az09\xC3\xA9-z@[`{")});
    for (Strip strip : {space, crlf, quoted, pair, angles, bom}) {
        EXPECT_EQ(strip(nullptr), nullptr); // angles: -1 from the sign stripper
    }
}

TEST(StrSplit, EmptyFieldsAndQuotedSlots) {
    EXPECT_EQ(pu::test::takeStrings(uStrSep("a,,b;c,", ",;")), (Fields{"a", "b", "c"}));
    EXPECT_EQ(pu::test::takeStrings(uStrSepIgnoreEmpty(",a,,b,", ",", 0)),
              (Fields{"", "a", "", "b", ""}));
    EXPECT_EQ(uStrSep(",,,", ","), nullptr); // nothing left: no list
    // A quote protects the separator only at the start of a field, and only when it closes.
    char slots[4][8];
    EXPECT_EQ(uStrListGet("\"a,b\", \"c,d\",\"e", slots[0], 4, 8, ","), 4u);
    EXPECT_EQ((Fields{slots[0], slots[1], slots[2], slots[3]}),
              (Fields{"a,b", "\"c", "d\"", "\"e"}));
    UStrKeyValue *pair = uStrKeyValueParse("k=v", "="); // a one-letter key is a key
    pu::test::checkRows(
        {PU_ROW(uStrListGet("abcdefghij,k", slots[0], 1, 8, ","), 1), // cut; the rest ignored
         PU_ROW(slots[0], "abcdefg"),
         PU_ROW(uStrListMatchKey("red, green ,blue", "green", ",", 1), 0), // exact: blanks count
         PU_ROW(uStrListMatchKey("red, green ,blue", "green", ",", 0), 1),
         PU_ROW(uStrListMatchKey(nullptr, "green", ",", 0), 0),
         PU_ROW(orNull(pair != nullptr ? pair->key : nullptr) + "/" + orNull(pair->value), "k/v")});
    uStrKeyValueFree(pair);
}

TEST(StrUtf8, TruncatedEndingsLengthsAndCodePoints) {
    const auto trimmed = [](const char *bytes) {
        char buffer[16] = {};
        std::strcpy(buffer, bytes);
        return std::to_string(uStrRemoveTruncatedUTF8Char(buffer)) + buffer;
    };
    // "<length> <result> <code point>".
    const auto decoded = [](const char *text, int32_t size) {
        char dst[8] = "";
        const int32_t result = uStrUtf8ToUnicode(text, dst, size);
        return std::to_string(uStrUtf8CharLength(text)) + " " + std::to_string(result) + " " + dst;
    };
    char buffer[5];
    pu::test::checkRows({
        PU_ROW(trimmed("ab\xE4\xB8"), "1ab"), PU_ROW(trimmed("ab\xE4\xB8\xAD"), "0ab\xE4\xB8\xAD"),
        PU_ROW(trimmed("a\xC3\xA9\xA9"), "1a\xC3\xA9"),
        PU_ROW(trimmed("\x80"), "1"), // nothing but continuation bytes
        PU_ROW(trimmed(""), "0"), PU_ROW(decoded("A", 8), "1 1 0041"),
        PU_ROW(decoded("\xC3\xA9", 8), "2 1 00E9"), PU_ROW(decoded("\xE4\xB8\xAD", 8), "3 1 4E2D"),
        PU_ROW(decoded("\xF0\x9F\x98\x80", 8), "4 1 1F600"), PU_ROW(decoded("\xA9", 8), "-1 0 "),
        PU_ROW(uStrUtf8CharLength(nullptr), -1),
        PU_ROW(uStrUtf8ToUnicode("A", buffer, 5), 0), // no room for the terminator
    });
}

} // namespace
