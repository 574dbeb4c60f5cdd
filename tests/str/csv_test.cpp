// SPDX-License-Identifier: MIT
// CSV: single fields, rows, and whole texts against Python's csv module. That chunked parsing
// gives the rows of a whole parse, and that decoding undoes encoding, is fuzzed.
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace {

using pu::test::takeStrings;
using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

void collectRow(void *userArg, uList *fields) {
    Row row;
    for (uListNode *node = fields->head; node != nullptr; node = node->next) {
        row.emplace_back(static_cast<char *>(node->data));
        uFree(node->data);
    }
    static_cast<Rows *>(userArg)->push_back(row);
}

// A callback may take fields out of the list itself and free the last without its node.
void drainRow(void *userArg, uList *fields) {
    Row row;
    while (uListSize(fields) > 1) {
        auto *text = static_cast<char *>(uListRemove(fields, 0));
        row.emplace_back(text);
        uFree(text);
    }
    row.emplace_back(static_cast<char *>(uListFirst(fields)));
    uFree(uListFirst(fields)); // its node stays in the list: the parser takes it back
    static_cast<Rows *>(userArg)->push_back(row);
}

Rows parse(const std::string &text, int32_t partial, int32_t *consumed = nullptr) {
    Rows rows;
    const int32_t result = uStrParseCsvData(text.c_str(), partial, &rows, collectRow);
    if (consumed != nullptr) {
        *consumed = result;
    }
    return rows;
}

TEST(CsvField, EncodeNeverCutsAndDecodeStripsOnePair) {
    const struct {
        const char *text;
        int32_t size, result, needQuotes;
        const char *encoded;
    } rows[] = {{"plain", 6, 0, 0, "plain"}, {"a\"b", 5, 0, 1, "a\"\"b"}, {"a\"b", 4, -1, 0, ""},
                {"abc", 3, -1, 0, ""},       {"", 1, 0, 0, ""},           {"a,b", 8, 0, 1, "a,b"},
                {"a\rb", 8, 0, 1, "a\rb"},   {"a\nb", 8, 0, 1, "a\nb"}};
    for (const auto &r : rows) {
        char dst[16] = "X";
        int32_t needQuotes = 0;
        EXPECT_EQ(uStrEncodeCsv(r.text, dst, r.size, &needQuotes), r.result) << r.text;
        EXPECT_STREQ(dst, r.encoded);
        EXPECT_TRUE(r.result != 0 || needQuotes == r.needQuotes) << r.text;
    }
    char dst[8];
    int32_t needQuotes = 1; // only ever set, never cleared
    EXPECT_EQ(uStrEncodeCsv("plain", dst, sizeof(dst), &needQuotes), 0);
    EXPECT_EQ(needQuotes, 1);
    EXPECT_EQ(uStrEncodeCsv("a", dst, 0, nullptr), -1);
    for (const auto &[text, decoded] :
         {std::pair<const char *, const char *>{"\"a,\"\"b\"\"\"", "a,\"b\""},
          {"\"\"", ""},
          {"\"\"\"", "\""},
          {"a\"\"b", "a\"b"}}) {
        char *out = nullptr;
        EXPECT_EQ(uStrDecodeCsv(text, &out), 0) << text;
        EXPECT_EQ(pu::test::take(out), decoded) << text;
    }
    char *out = dst;
    EXPECT_EQ(uStrDecodeCsv("", &out), -1);
    EXPECT_EQ(out, nullptr);
}

TEST(CsvRow, SplitsAtCommasOutsideQuotes) {
    const std::pair<const char *, Row> rows[] = {
        {"a,,c,", {"a", "", "c", ""}},
        {"\"a,b\",\"say \"\"x\"\"\"", {"a,b", "say \"x\""}},
        {"  a, b ,  \"c\"", {"a", "b ", "c"}}, // leading blanks dropped, trailing kept
        {"\"ab\"cd,e", {"abcd", "e"}},         // text after the closing quote
        {"a\nb,c", {"a\nb", "c"}},             // no line-break rule here
        {"x,\"open", {"x", "\"open"}},         // never closed: raw text
        {",", {"", ""}},
        {"   ", {}}};
    for (const auto &[text, fields] : rows) {
        EXPECT_EQ(takeStrings(uStrParseCsvRow(text)), fields) << text;
    }
}

TEST(CsvData, RowsLineBreaksAndPartialTexts) {
    const struct {
        const char *text;
        int32_t partial, consumed;
        Rows rows;
    } cases[] = {{"a,,b\r\n\r\nc", 0, 9, {{"a", "", "b"}, {"c"}}},
                 {"x,y\nz", 1, 4, {{"x", "y"}}}, // the incomplete last row waits for more
                 {"\n\r\n  \n a , b\r\r\n", 1, 15, {{"a ", "b"}}}, // blank lines give no rows
                 {"a,\"last \"\"q\"\"\"", 0, 14, {{"a", "last \"q\""}}},
                 {"a,\"never closed\nb", 0, 17, {{"a", "never closed\nb"}}},
                 {"a,\"never closed\nb", 1, 0, {}},
                 {"a,b,", 0, 4, {{"a", "b", ""}}}};
    for (const auto &c : cases) {
        int32_t consumed = -2;
        EXPECT_EQ(parse(c.text, c.partial, &consumed), c.rows) << c.text;
        EXPECT_EQ(consumed, c.consumed) << c.text;
    }
    EXPECT_EQ(uStrParseCsvData(nullptr, 0, nullptr, collectRow), -1);
    Rows drained;
    EXPECT_EQ(uStrParseCsvData("a,b,c\nd\ne,f", 0, &drained, drainRow), 11);
    EXPECT_EQ(drained, (Rows{{"a", "b", "c"}, {"d"}, {"e", "f"}}));
}

// Python's csv module reads every sample file (skipinitialspace: this parser drops leading blanks;
// the blank lines Python reports as empty rows are dropped). Fields end with \x1f, rows with
// \x1e, files with \x1d.
const char *kPythonReader = R"(
import csv, sys
out = sys.stdout.buffer
for name in sys.argv[1:]:
    with open(name, newline='', encoding='latin-1') as f:
        for row in csv.reader(f, skipinitialspace=True):
            if row:
                out.write(b''.join(x.encode('latin-1') + b'\x1f' for x in row) + b'\x1e')
    out.write(b'\x1d')
)";

TEST(CsvData, SampleFilesMatchPythonsCsvModule) {
    std::vector<std::string> files;
    std::string command = "python3 -c \"$PU_CSV_READER\"";
    for (const auto &entry : std::filesystem::directory_iterator(PU_TEST_DATA_DIR "/csv")) {
        files.push_back(entry.path().string());
        command += " '" + files.back() + "'";
    }
    ASSERT_GE(files.size(), 4u);
    setenv("PU_CSV_READER", kPythonReader, 1);
    FILE *pipe = popen((command + " 2>/dev/null").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::vector<Rows> expected;
    Rows rows;
    Row row;
    std::string field;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
        if (c == '\x1f') {
            row.push_back(std::exchange(field, {}));
        } else if (c == '\x1e') {
            rows.push_back(std::exchange(row, {}));
        } else if (c == '\x1d') {
            expected.push_back(std::exchange(rows, {}));
        } else {
            field += static_cast<char>(c);
        }
    }
    if (pclose(pipe) != 0) {
        GTEST_SKIP() << "python3 with its csv module is not available";
    }
    ASSERT_EQ(expected.size(), files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        EXPECT_FALSE(expected[i].empty()) << files[i];
        EXPECT_EQ(
            parse(pu::test::readFile("csv/" + std::filesystem::path(files[i]).filename().string()),
                  0),
            expected[i])
            << files[i];
    }
}

} // namespace
