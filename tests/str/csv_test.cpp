// SPDX-License-Identifier: MIT
// CSV: single fields, rows, and whole texts against Python's csv module. That chunked parsing
// gives the rows of a whole parse, and that decoding undoes encoding, is fuzzed.
#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using Fields = std::vector<std::string>;

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

TEST(CsvField, EncodeNeverCutsAndDecodeStripsOnePair) {
    char dst[8] = "X";
    int32_t needQuotes = 1; // only ever set, never cleared
    char *out = dst;
    pu::test::checkRows(
        {PU_ROW(uStrEncodeCsv("a\"b", dst, 5, &needQuotes), 0), PU_ROW(dst, "a\"\"b"),
         PU_ROW(uStrEncodeCsv("a\"b", dst, 4, nullptr), -1), // a doubled quote is never cut
         PU_ROW(uStrEncodeCsv("abc", dst, 3, nullptr), -1),
         PU_ROW(uStrEncodeCsv("", dst, 1, nullptr), 0),
         PU_ROW(uStrEncodeCsv("a", dst, 0, nullptr), -1),
         PU_ROW(uStrEncodeCsv("plain", dst, 6, &needQuotes) + needQuotes, 1),
         PU_ROW(uStrDecodeCsv("\"a,\"\"b\"\"\"", &out), 0), PU_ROW(pu::test::take(out), "a,\"b\""),
         PU_ROW(uStrDecodeCsv("\"\"\"", &out), 0), PU_ROW(pu::test::take(out), "\""),
         PU_ROW(uStrDecodeCsv("a\"\"b", &out), 0), // unquoted: the pairs still fold
         PU_ROW(pu::test::take(out), "a\"b"),
         PU_ROW(uStrDecodeCsv("", &out) - (out == nullptr), -2)});
}

TEST(CsvRowAndData, SplitAtCommasOutsideQuotes) {
    const std::pair<const char *, Fields> rows[] = {
        {"a,,c,", {"a", "", "c", ""}},
        {"\"a,b\",\"say \"\"x\"\"\"", {"a,b", "say \"x\""}},
        {"  a, b ,  \"c\"", {"a", "b ", "c"}}, // leading blanks dropped, trailing kept
        {"\"ab\"cd,e", {"abcd", "e"}},         // text after the closing quote
        {"a\nb,c", {"a\nb", "c"}},             // no line-break rule here
        {"x,\"open", {"x", "\"open"}},         // never closed: raw text
        {"   ", {}}};
    for (const auto &[text, fields] : rows) {
        EXPECT_EQ(pu::test::takeStrings(uStrParseCsvRow(text)), fields) << text;
    }
    const struct {
        const char *text;
        int32_t partial;
        const char *parsed;
    } texts[] = {{"x,y\nz", 1, "4:[x][y]\n"}, // the incomplete last row waits for more
                 {"a,\"never closed\nb", 0, "17:[a][never closed\nb]\n"},
                 {"a,\"never closed\nb", 1, "0:"},
                 {"a,b,", 0, "4:[a][b][]\n"}};
    for (const auto &t : texts) {
        EXPECT_EQ(parse(t.text, t.partial), t.parsed) << t.text;
    }
    EXPECT_EQ(uStrParseCsvData(nullptr, 0, nullptr, collect), -1);
}

// Python's csv module reads each sample file (skipinitialspace: this parser drops leading blanks;
// the blank lines Python reports as empty rows are dropped), writing the rows as collect does.
TEST(CsvData, SampleFilesMatchPythonsCsvModule) {
    setenv("PU_CSV_READER", R"(
import csv, sys
with open(sys.argv[1], newline='', encoding='latin-1') as f:
    for row in csv.reader(f, skipinitialspace=True):
        if row:
            sys.stdout.buffer.write((''.join('[' + x + ']' for x in row) + '\n').encode('latin-1'))
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

} // namespace
