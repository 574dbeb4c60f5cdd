// SPDX-License-Identifier: MIT
// Comparisons, searches, strippers, case folding, splitting, the UTF-8 helpers and CSV (against
// Python's csv module). Replacement, XML escaping, key/value lines, slot splitting, chunked CSV
// parsing and CSV decoding are held to references by their fuzz targets; here are the rules those
// references do not state.
#include "call_table.hpp"
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

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

// "<where the result points, -1 for null>|<text after>".
std::string stripped(char *(*strip)(char *), const char *text) {
    std::string buffer = text;
    const long result = at(buffer.data(), strip(buffer.data()));
    return std::to_string(result) + "|" + buffer.c_str();
}

TEST(StrCompare, ComparisonsSearchesStrippersAndCaseFolding) {
    const char bytes[] = {'a', '\0', 'a', 'b', 'a'};
    char text[] = "aZ09\xC3\xA9-z@[`{", angles[] = "<x>";
    const char *quotes = R"(a\"b\\"c)";
    pu::test::checkRows({
        // Null and "" are one absent value; a tail must be shorter-or-equal and non-empty.
        PU_ROW(compared(nullptr, ""), "1100 -1 -1"),
        PU_ROW(compared("file.TXT", ".txt"), "0001 -1 4"),
        PU_ROW(compared("aaAAb", "aab"), "0001 -1 2"),
        PU_ROW(compared("a1b1c12", "12"), "0011 5 5"),
        PU_ROW(compared(".txt", ".txt"), "1111 0 0"), // a tail may be the whole text
        PU_ROW(compared("a", "abc"), "0000 -1 -1"),
        PU_ROW(uStrTailCmp("", ""), -1),
        PU_ROW(at(text, uStrChr(text, '-')) * 10 + (uStrChr(nullptr, 'a') == nullptr), 61),
        PU_ROW(uStrAllChr("aaa", 'a') + uStrAllChr("aH", 'a') + uStrAllChr(nullptr, 'a'), 1),
        // Counting goes on past a NUL.
        PU_ROW(uStrCountTargetChar(bytes, 5, 'a'), 3),
        // An odd number of backslashes escapes a quote.
        PU_ROW(at(quotes, uStrFirstQuoteFind(quotes)), 6),
        // An empty text is deliberately alphanumeric.
        PU_ROW(uStrIsAlphaDigit("abc123") + uStrIsAlphaDigit(""), 2),
        PU_ROW(uStrIsAlphaDigit("ab-1") + uStrIsAlphaDigit(nullptr), 0),
        // Stripping a text of blanks only leaves "" but answers null; one quote pair goes.
        PU_ROW(stripped(uStrStripCrlf, "  \r\n"), "-1|"),
        PU_ROW(stripped(uStrStripCrlfDoubleQoute, " \" \t \" \r\n"), "-1|"),
        PU_ROW(stripped(uStrStripCrlfDoubleQoute, "\t\"\"a\"\"\r\n"), "0|\"a\""),
        PU_ROW(stripped(uStrBomCheckAndDelete, "\xEF\xBB\xBFtext"), "0|text"),
        // The sign stripper answers -1 for null and for a text the pair does not enclose.
        PU_ROW(uStrStripHeadAndTailSign(angles, '<', '>') * 10 + (angles[0] == 'x'), 1),
        PU_ROW(uStrStripHeadAndTailSign(nullptr, '<', '>') +
                   uStrStripHeadAndTailSign(text, '<', '>'),
               -2),
        PU_ROW((uStrToUpper(text), text), "AZ09\xC3\xA9-Z@[`{"),
        PU_ROW((uStrToLowerCase(text), text), "az09\xC3\xA9-z@[`{"),
    });
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
         PU_ROW(pu::test::orNull(pair != nullptr ? pair->value : nullptr), "v")});
    uStrKeyValueFree(pair);
}

TEST(StrUtf8, TruncatedEndingsLengthsAndCodePoints) {
    char dst[8], cut[] = "ab\xE4\xB8";
    // "<length> <result> <code point>".
    const auto decoded = [&](const char *text, int32_t size) {
        dst[0] = '\0';
        const int32_t result = uStrUtf8ToUnicode(text, dst, size);
        return std::to_string(uStrUtf8CharLength(text)) + " " + std::to_string(result) + " " + dst;
    };
    pu::test::checkRows({
        PU_ROW(uStrRemoveTruncatedUTF8Char(cut), 1), PU_ROW(cut, "ab"),
        PU_ROW((cut[0] = '\x80', cut[1] = 0, uStrRemoveTruncatedUTF8Char(cut)) * 10 + cut[0], 10),
        PU_ROW(decoded("\xE4\xB8\xAD", 8), "3 1 4E2D"),
        PU_ROW(decoded("\xF0\x9F\x98\x80", 8), "4 1 1F600"), PU_ROW(decoded("\xA9", 8), "-1 0 "),
        PU_ROW(uStrUtf8ToUnicode("A", dst, 5), 0), // no room for the terminator
    });
}

// Rows as "[field][field]\n". Like a caller may, it takes the fields out of the list itself and
// frees the last text without its node: the parser takes that node back.
void collect(void *userArg, uList *fields) {
    auto &out = *static_cast<std::string *>(userArg);
    while (uListSize(fields) > 1) {
        auto *text = static_cast<char *>(uListRemove(fields, 0));
        out += "[" + std::string(text) + "]";
        uFree(text);
    }
    out += "[" + std::string(static_cast<char *>(uListFirst(fields))) + "]\n";
    uFree(uListFirst(fields));
}

// "<bytes consumed>:" and the rows.
std::string parse(const std::string &text, int32_t partial) {
    std::string rows;
    const int32_t consumed = uStrParseCsvData(text.c_str(), partial, &rows, collect);
    return std::to_string(consumed) + ":" + rows;
}

TEST(Csv, EncodeNeverCutsAndIncompleteRowsWait) {
    char dst[8] = "X";
    int32_t needQuotes = 1; // only ever set, never cleared
    pu::test::checkRows({
        PU_ROW(uStrEncodeCsv("a\"b", dst, 5, &needQuotes), 0),
        PU_ROW(dst, "a\"\"b"),
        PU_ROW(uStrEncodeCsv("a\"b", dst, 4, nullptr), -1), // a doubled quote is never cut
        PU_ROW(uStrEncodeCsv("plain", dst, 6, &needQuotes) + needQuotes, 1),
        PU_ROW(parse("x,y\nz", 1), "4:[x][y]\n"), // the incomplete last row waits for more
        PU_ROW(parse("a,\"never closed\nb", 1), "0:"),
    });
}

// Python's csv module reads each sample file (skipinitialspace: this parser drops leading blanks;
// the blank lines Python reports as empty rows are dropped), writing the rows as collect does.
TEST(CsvData, SampleFilesMatchPythonsCsvModule) {
    setenv("PU_CSV_READER", R"(
import csv, sys
rows = csv.reader(open(sys.argv[1], newline='', encoding='latin-1'), skipinitialspace=True)
out = ''.join(''.join('[' + x + ']' for x in row) + '\n' for row in rows if row)
sys.stdout.buffer.write(out.encode('latin-1'))
)",
           1);
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(PU_TEST_DATA_DIR "/csv")) {
        FILE *pipe =
            popen(("python3 -c \"$PU_CSV_READER\" '" + entry.path().string() + "'").c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string expected;
        for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
            expected += static_cast<char>(c);
        }
        if (pclose(pipe) != 0) {
            GTEST_SKIP() << "python3 with its csv module is not available";
        }
        const std::string text = pu::test::readFile("csv/" + entry.path().filename().string());
        EXPECT_EQ(parse(text, 0), std::to_string(text.size()) + ":" + expected) << entry.path();
        EXPECT_NE(expected, "") << entry.path();
        ++files;
    }
    EXPECT_GE(files, 4);
}

// The string helpers that allocate, with each of their uMalloc calls failing in turn: the
// documented failure value, partial results released, and the same call succeeding afterwards.
using Fields = std::vector<std::string>;

// A new string (or null) compared with the expected text and released; true when null.
bool ownedText(char *text, const char *expected) {
    const bool failed = text == nullptr;
    EXPECT_TRUE(failed || pu::test::take(text) == expected);
    return failed;
}

// A result list (or null) compared with the expected fields and released; true when null. Drained
// by hand: the shared drain may allocate, which would blur whose allocation failed.
bool ownedList(uList *list, const Fields &expected) {
    if (list == nullptr) {
        return true;
    }
    Fields fields;
    while (uListSize(list) > 0) {
        auto *text = static_cast<char *>(uListRemove(list, 0));
        fields.emplace_back(text);
        uFree(text);
    }
    uListUninit(list);
    EXPECT_EQ(fields, expected);
    return false;
}

void collectRow(void *userArg, uList *fields) {
    for (uListNode *node = fields->head; node != nullptr; node = node->next) {
        static_cast<Fields *>(userArg)->emplace_back(static_cast<char *>(node->data));
        uFree(node->data);
    }
}

// Each case reports a failure when any of its calls did: one allocation fails per run.
const pu::test::AllocCase kCases[] = {
    pu::test::reportingCase(
        "CopiesSplitsAndKeys",
        [] {
            char *buf = nullptr;
            EXPECT_EQ(uStrDynamicSafeNCat(&buf, 16, "abcdef", 3), buf);
            UStrKeyValue *rec = uStrKeyValueParse(" k = v ", "=");
            EXPECT_TRUE(rec == nullptr ||
                        (std::string(rec->key) == "k" && std::string(rec->value) == "v"));
            uStrKeyValueFree(rec);
            char upper[8] = "";
            const bool upperFailed = uStrToUppercase("ab", upper, 8) == -1;
            EXPECT_TRUE(upperFailed || std::string(upper) == "AB");
            return upperFailed | ownedText(uStrGetCopy("abc"), "abc") |
                   ownedText(uStrGetInt2StrCpy(-42), "-42") | ownedText(buf, "abc") |
                   ownedList(uStrSep("a,,b", ","), {"a", "b"}) |
                   ownedList(uStrParseCsvRow("a, \"b,c\",d"), {"a", "b,c", "d"}) | (rec == nullptr);
        }),
    pu::test::reportingCase(
        "ReplaceAndCsv",
        [] {
            char buf[32] = "a-a"; // nothing done when memory is short
            uStrReplaceKey(buf, sizeof buf, "a", "xyz");
            EXPECT_TRUE(std::string(buf) == "a-a" || std::string(buf) == "xyz-xyz");
            char *out = reinterpret_cast<char *>(1);
            const int32_t result = uStrDecodeCsv("\"a\"\"b\"", &out);
            EXPECT_EQ(result == -1, out == nullptr);
            // Memory short at the start fails the call; later a field that cannot be
            // made is dropped.
            Fields fields;
            const int32_t consumed = uStrParseCsvData("a,b\nc\n", 0, &fields, collectRow);
            EXPECT_TRUE(consumed == 6 || (consumed == -1 && fields.empty()));
            return (std::string(buf) == "a-a") | ownedText(out, "a\"b") | (fields.size() != 3);
        }),
};

class StrAllocFailure : public testing::TestWithParam<pu::test::AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(StrAllocFailure, kCases);

} // namespace
