// SPDX-License-Identifier: MIT
// CSV: encoding and decoding single fields, splitting rows, and walking whole or chunked texts.
#include <platform_utils.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using Row = std::vector<std::string>;
using Rows = std::vector<Row>;

// Takes the fields out of a row list (the callback owns the strings) and frees them.
Row takeFields(uList *list) {
    Row row;
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        auto *text = static_cast<char *>(node->data);
        row.emplace_back(text);
        uFree(text);
    }
    return row;
}

void collectRow(void *userArg, uList *fields) {
    static_cast<Rows *>(userArg)->push_back(takeFields(fields));
}

struct Parsed {
    int32_t result;
    Rows rows;
};

Parsed parseData(const std::string &text, int32_t partial) {
    Parsed parsed{0, {}};
    parsed.result = uStrParseCsvData(text.c_str(), partial, &parsed.rows, collectRow);
    return parsed;
}

// Feeds text in chunks of the given sizes the way a stream reader does: the unconsumed rest is
// put in front of the next chunk, and a last call with partial 0 flushes.
Rows parseChunked(const std::string &text, const std::vector<size_t> &chunkSizes) {
    Rows rows;
    std::string carry;
    size_t offset = 0;
    for (size_t i = 0; offset < text.size(); ++i) {
        const size_t size = chunkSizes[i % chunkSizes.size()];
        std::string buffer = carry + text.substr(offset, size);
        offset += size;
        const int32_t consumed = uStrParseCsvData(buffer.c_str(), 1, &rows, collectRow);
        EXPECT_GE(consumed, 0);
        EXPECT_LE(static_cast<size_t>(consumed), buffer.size());
        carry = buffer.substr(static_cast<size_t>(consumed));
    }
    uStrParseCsvData(carry.c_str(), 0, &rows, collectRow);
    return rows;
}

Row parseRow(const char *text) {
    uList *list = uStrParseCsvRow(text);
    if (list == nullptr) {
        return {"<null>"};
    }
    Row row = takeFields(list);
    uListClearWithNodeNoNeedFree(list);
    EXPECT_EQ(uListUninit(list), 0);
    return row;
}

TEST(CsvEncode, DoublesQuotesAndNeverCutsAField) {
    char dst[16];
    int32_t needQuotes = 0;
    EXPECT_EQ(uStrEncodeCsv("plain", dst, sizeof(dst), &needQuotes), 0);
    EXPECT_STREQ(dst, "plain");
    EXPECT_EQ(needQuotes, 0);

    EXPECT_EQ(uStrEncodeCsv("a\"b", dst, 5, &needQuotes), 0); // exactly the doubled length + 1
    EXPECT_STREQ(dst, "a\"\"b");
    EXPECT_EQ(needQuotes, 1);
    EXPECT_EQ(uStrEncodeCsv("a\"b", dst, 4, nullptr), -1); // one short: emptied, not cut
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(uStrEncodeCsv("abc", dst, 3, nullptr), -1);
    EXPECT_STREQ(dst, "");
    EXPECT_EQ(uStrEncodeCsv("", dst, 1, nullptr), 0);
    EXPECT_STREQ(dst, "");

    for (const char *forcing : {"a,b", "a\rb", "a\nb", "\""}) {
        needQuotes = 0;
        EXPECT_EQ(uStrEncodeCsv(forcing, dst, sizeof(dst), &needQuotes), 0);
        EXPECT_EQ(needQuotes, 1) << forcing;
    }
    needQuotes = 1; // only ever set, never cleared
    EXPECT_EQ(uStrEncodeCsv("plain", dst, sizeof(dst), &needQuotes), 0);
    EXPECT_EQ(needQuotes, 1);

    EXPECT_EQ(uStrEncodeCsv(nullptr, dst, 4, nullptr), -1);
    EXPECT_EQ(uStrEncodeCsv("a", nullptr, 4, nullptr), -1);
    EXPECT_EQ(uStrEncodeCsv("a", dst, 0, nullptr), -1);
}

TEST(CsvDecode, StripsOnePairAndUndoublesQuotes) {
    char *out = reinterpret_cast<char *>(1);
    EXPECT_EQ(uStrDecodeCsv("\"a,\"\"b\"\"\"", &out), 0);
    EXPECT_STREQ(out, "a,\"b\"");
    uFree(out);
    EXPECT_EQ(uStrDecodeCsv("plain", &out), 0);
    EXPECT_STREQ(out, "plain");
    uFree(out);
    EXPECT_EQ(uStrDecodeCsv("\"\"", &out), 0);
    EXPECT_STREQ(out, "");
    uFree(out);
    EXPECT_EQ(uStrDecodeCsv("\"\"\"", &out), 0); // pair stripped, lone quote left
    EXPECT_STREQ(out, "\"");
    uFree(out);
    EXPECT_EQ(uStrDecodeCsv("", &out), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(uStrDecodeCsv(nullptr, &out), -1);
    EXPECT_EQ(uStrDecodeCsv("a", nullptr), -1);

    // Encoding then decoding the enclosed text gives the original back.
    const char *original = "say \"hi\", then\r\nleave";
    char encoded[64] = "\"";
    ASSERT_EQ(uStrEncodeCsv(original, encoded + 1, sizeof(encoded) - 2, nullptr), 0);
    std::strcat(encoded, "\"");
    ASSERT_EQ(uStrDecodeCsv(encoded, &out), 0);
    EXPECT_STREQ(out, original);
    uFree(out);
}

TEST(CsvRow, SplitsAtCommasOutsideQuotes) {
    EXPECT_EQ(parseRow("a,b,c"), (Row{"a", "b", "c"}));
    EXPECT_EQ(parseRow("a,,c,"), (Row{"a", "", "c", ""}));
    EXPECT_EQ(parseRow("\"a,b\",\"say \"\"x\"\"\""), (Row{"a,b", "say \"x\""}));
    EXPECT_EQ(parseRow("  a, b ,  \"c\""), (Row{"a", "b ", "c"})); // leading spaces dropped
    EXPECT_EQ(parseRow("\"ab\"cd,e"), (Row{"abcd", "e"}));         // text after the closing quote
    EXPECT_EQ(parseRow("a\nb,c"), (Row{"a\nb", "c"}));             // no line-break rule here
    EXPECT_EQ(parseRow("x,\"open"), (Row{"x", "\"open"}));         // unterminated: raw text
    EXPECT_EQ(parseRow(","), (Row{"", ""}));
    EXPECT_EQ(parseRow(""), (Row{"<null>"}));
    EXPECT_EQ(parseRow("   "), (Row{"<null>"}));
    EXPECT_EQ(uStrParseCsvRow(nullptr), nullptr);
}

TEST(CsvData, RowsEndAtLineBreaksAndBlankLinesGiveNoRows) {
    Parsed parsed = parseData("a,,b\r\n\r\nc", 0);
    EXPECT_EQ(parsed.result, 9);
    EXPECT_EQ(parsed.rows, (Rows{{"a", "", "b"}, {"c"}}));

    parsed = parseData("x,y\nz", 1); // the incomplete last row waits for more
    EXPECT_EQ(parsed.result, 4);
    EXPECT_EQ(parsed.rows, (Rows{{"x", "y"}}));

    parsed = parseData("\"a,b\nc\",d\n", 0);
    EXPECT_EQ(parsed.rows, (Rows{{"a,b\nc", "d"}}));

    parsed = parseData("\n\r\n  \n a , b\r\r\n", 1); // blank and space-only lines are skipped
    EXPECT_EQ(parsed.result, 15);
    EXPECT_EQ(parsed.rows, (Rows{{"a ", "b"}}));

    parsed = parseData("\"\"\"q\"\"\",\"\",\"\"\"\"\n", 0);
    EXPECT_EQ(parsed.rows, (Rows{{"\"q\"", "", "\""}}));

    parsed = parseData("a,\"last \"\"q\"\"\"", 0); // a quoted field ending the text
    EXPECT_EQ(parsed.rows, (Rows{{"a", "last \"q\""}}));

    parsed = parseData("a,\"never closed\nb", 0);
    EXPECT_EQ(parsed.rows, (Rows{{"a", "never closed\nb"}}));
    parsed = parseData("a,\"never closed\nb", 1);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_TRUE(parsed.rows.empty());

    parsed = parseData("a,b,", 0);
    EXPECT_EQ(parsed.rows, (Rows{{"a", "b", ""}}));

    parsed = parseData("", 0);
    EXPECT_EQ(parsed.result, 0);
    EXPECT_TRUE(parsed.rows.empty());
    EXPECT_EQ(uStrParseCsvData(nullptr, 0, nullptr, collectRow), -1);
    // Without a callback the rows are parsed and released.
    EXPECT_EQ(uStrParseCsvData("a,b\nc", 0, nullptr, nullptr), 5);
    EXPECT_EQ(uStrParseCsvData("a,b\nc", 1, nullptr, nullptr), 4);
}

// A callback may also take the fields out of the list itself, or leave part of them in it.
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

TEST(CsvData, CallbacksMayRemoveFieldsFromTheList) {
    Rows rows;
    const char *text = "a,b,c\nd\ne,f,g,h,i\nj,k";
    EXPECT_EQ(uStrParseCsvData(text, 0, &rows, drainRow), static_cast<int32_t>(strlen(text)));
    EXPECT_EQ(rows, (Rows{{"a", "b", "c"}, {"d"}, {"e", "f", "g", "h", "i"}, {"j", "k"}}));
}

// Random well-formed CSV, quoted where a field needs it, with the fields it must give back.
struct Generated {
    std::string text;
    Rows rows;
};

Generated generateCsv(unsigned seed, size_t rowCount) {
    std::mt19937 random(seed);
    const std::string alphabet = "ab ,\"\r\nxyz\t'";
    Generated out;
    for (size_t r = 0; r < rowCount; ++r) {
        Row row;
        const size_t fields = 1 + random() % 5;
        for (size_t f = 0; f < fields; ++f) {
            std::string field;
            const size_t length = random() % 8;
            for (size_t i = 0; i < length; ++i) {
                field += alphabet[random() % alphabet.size()];
            }
            const bool mustQuote = field.find_first_of(",\"\r\n") != std::string::npos ||
                                   (!field.empty() && field[0] == ' ') ||
                                   (fields == 1 && field.empty());
            if (mustQuote || random() % 4 == 0) {
                std::string quoted = "\"";
                for (char c : field) {
                    quoted += c;
                    if (c == '"') {
                        quoted += '"';
                    }
                }
                out.text += quoted + "\"";
            } else {
                out.text += field;
            }
            out.text += f + 1 < fields ? "," : "";
            row.push_back(field);
        }
        const char *endings[] = {"\n", "\r\n", "\r", "\n\n", "\r\n\r\n"};
        if (r + 1 < rowCount || random() % 2 == 0) {
            out.text += endings[random() % 5];
        }
        out.rows.push_back(row);
    }
    return out;
}

TEST(CsvData, RandomWellFormedTextsGiveBackTheirFieldsWholeAndInChunks) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        const Generated generated = generateCsv(seed, 60);
        const Parsed whole = parseData(generated.text, 0);
        EXPECT_EQ(whole.result, static_cast<int32_t>(generated.text.size()));
        ASSERT_EQ(whole.rows, generated.rows) << "seed " << seed;
        for (const std::vector<size_t> &sizes :
             {std::vector<size_t>{1}, {2, 3}, {7}, {16, 1, 5}, {64}}) {
            ASSERT_EQ(parseChunked(generated.text, sizes), generated.rows) << "seed " << seed;
        }
    }
}

// The sample files are compared with what Python's csv module reads from them, run live when
// python3 is installed (scripts/install-deps.sh installs it); blank lines, which Python reports
// as empty rows, are dropped on its side. Leading spaces of a field are dropped by this parser,
// hence skipinitialspace. One run reads every file: fields end with \x1f, rows with \x1e and
// files with \x1d.
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

std::string readFile(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// Rows of every file as Python reads them, or an empty result when python3 cannot run.
std::vector<Rows> readWithPython(const std::vector<std::filesystem::path> &files) {
    const std::filesystem::path script = std::filesystem::temp_directory_path() /
                                         ("pu_csv_reader_" + std::to_string(getpid()) + ".py");
    std::ofstream(script) << kPythonReader;
    std::string command = "python3 '" + script.string() + "'";
    for (const auto &file : files) {
        command += " '" + file.string() + "'";
    }
    command += " 2>/dev/null";
    std::string output;
    if (FILE *pipe = popen(command.c_str(), "r"); pipe != nullptr) {
        char chunk[4096];
        size_t got = 0;
        while ((got = fread(chunk, 1, sizeof(chunk), pipe)) > 0) {
            output.append(chunk, got);
        }
        if (pclose(pipe) != 0) {
            output.clear();
        }
    }
    std::filesystem::remove(script);

    std::vector<Rows> perFile;
    Rows rows;
    Row row;
    std::string field;
    for (char c : output) {
        if (c == '\x1f') {
            row.push_back(field);
            field.clear();
        } else if (c == '\x1e') {
            rows.push_back(row);
            row.clear();
        } else if (c == '\x1d') {
            perFile.push_back(rows);
            rows.clear();
        } else {
            field += c;
        }
    }
    return perFile;
}

TEST(CsvData, SampleFilesMatchPythonsCsvModule) {
    const std::filesystem::path dir = std::filesystem::path(PU_TEST_DATA_DIR) / "csv";
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(dir)) {
        files.push_back(entry.path());
    }
    ASSERT_GE(files.size(), 4u);
    const std::vector<Rows> expected = readWithPython(files);
    if (expected.empty()) {
        GTEST_SKIP() << "python3 with its csv module is not available";
    }
    ASSERT_EQ(expected.size(), files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        ASSERT_FALSE(expected[i].empty()) << files[i];
        const std::string text = readFile(files[i]);
        EXPECT_EQ(parseData(text, 0).rows, expected[i]) << files[i];
        EXPECT_EQ(parseChunked(text, {3, 1, 8}), expected[i]) << files[i];
    }
}

} // namespace
