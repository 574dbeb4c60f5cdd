// SPDX-License-Identifier: MIT
// Strings and CSV, each beside a C library or libcsv reference in the same run:
//   - uStrParseCsvData against libcsv on the same 1 MiB text, both producing one owned string
//     per field and handing each row to a callback that releases them;
//   - uStrSafeCopy against snprintf("%s"), uStrSafeCat against strncat, uStrCaseStr against
//     strcasestr, on short and 4 KiB strings.
#include <platform_utils.h>

#include "support/times_reporter.hpp"

#include <benchmark/benchmark.h>
#include <csv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// 1 MiB of CSV; rows end in "\r\n" or "\n". Arg(0): plain, empty and quoted fields, quoted
// ones holding commas, line breaks and doubled quotes; Arg(1): plain fields only; Arg(2): mostly
// quoted fields with doubled quotes and line breaks inside.
const std::string &csvText(std::int64_t mix) {
    static std::string texts[3];
    std::string &text = texts[mix];
    if (text.empty()) {
        std::mt19937 random(7);
        const char *plain[] = {"alpha", "12345", "2024-05-01", "x", "some longer plain text"};
        const char *quoted[] = {"\"a, b and c\"", "\"line one\nline two\"", "\"say \"\"hi\"\"\"",
                                "\"\"", "\"comma, \"\"quote\"\" and\r\nbreak\""};
        std::string out;
        while (out.size() < (1u << 20)) {
            const int fields = 4 + static_cast<int>(random() % 6);
            for (int f = 0; f < fields; ++f) {
                const unsigned pick = random() % 10;
                const unsigned kind = mix == 1 ? 0 : mix == 2 ? (pick < 8 ? 5 : 0) : pick;
                if (kind < 5) {
                    out += plain[random() % 5];
                } else if (kind < 8) {
                    out += quoted[random() % 5];
                } // else an empty field
                out += f + 1 < fields ? "," : (random() % 2 ? "\r\n" : "\n");
            }
        }
        text = out;
    }
    return text;
}

struct RowCount {
    size_t rows = 0;
    size_t fields = 0;
};

void releaseRow(void *userArg, uList *fields) {
    auto *count = static_cast<RowCount *>(userArg);
    for (uListNode *node = fields->head; node != nullptr; node = node->next) {
        uFree(node->data);
        ++count->fields;
    }
    ++count->rows;
}

void BM_CsvParse_uStrParseCsvData(benchmark::State &state) {
    const std::string &text = csvText(state.range(0));
    RowCount count;
    for (auto _ : state) {
        count = {};
        benchmark::DoNotOptimize(uStrParseCsvData(text.c_str(), 0, &count, releaseRow));
    }
    state.counters["rows"] = static_cast<double>(count.rows);
    state.counters["fields"] = static_cast<double>(count.fields);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_CsvParse_uStrParseCsvData)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

// The libcsv side does the same work: an owned copy of every field, released per row.
struct LibcsvRow {
    std::vector<char *> fields;
    RowCount count;
};

void libcsvField(void *field, size_t length, void *userArg) {
    auto *row = static_cast<LibcsvRow *>(userArg);
    auto *copy = static_cast<char *>(std::malloc(length + 1));
    std::memcpy(copy, field, length);
    copy[length] = '\0';
    row->fields.push_back(copy);
}

void libcsvRowEnd(int, void *userArg) {
    auto *row = static_cast<LibcsvRow *>(userArg);
    for (char *field : row->fields) {
        std::free(field);
        ++row->count.fields;
    }
    row->fields.clear();
    ++row->count.rows;
}

void BM_CsvParse_libcsv(benchmark::State &state) {
    const std::string &text = csvText(state.range(0));
    LibcsvRow row;
    for (auto _ : state) {
        row.count = {};
        csv_parser parser;
        csv_init(&parser, 0);
        csv_parse(&parser, text.data(), text.size(), libcsvField, libcsvRowEnd, &row);
        csv_fini(&parser, libcsvField, libcsvRowEnd, &row);
        csv_free(&parser);
    }
    state.counters["rows"] = static_cast<double>(row.count.rows);
    state.counters["fields"] = static_cast<double>(row.count.fields);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_CsvParse_libcsv)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

// ---- Bounded copies and searches: Arg(0) short strings, Arg(1) 4 KiB ------------------------

std::string source(int64_t kind) {
    return kind == 0 ? "short text, 24 chars" : std::string(4096, 'k');
}

void BM_Copy_uStrSafeCopy(benchmark::State &state) {
    const std::string src = source(state.range(0));
    std::vector<char> dst(8192);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            uStrSafeCopy(dst.data(), static_cast<uint32_t>(dst.size()), src.c_str()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Copy_uStrSafeCopy)->Arg(0)->Arg(1);

void BM_Copy_snprintf(benchmark::State &state) {
    const std::string src = source(state.range(0));
    std::vector<char> dst(8192);
    for (auto _ : state) {
        benchmark::DoNotOptimize(std::snprintf(dst.data(), dst.size(), "%s", src.c_str()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Copy_snprintf)->Arg(0)->Arg(1);

void BM_Cat_uStrSafeCat(benchmark::State &state) {
    const std::string src = source(state.range(0));
    std::vector<char> dst(8192);
    std::strcpy(dst.data(), "prefix: ");
    for (auto _ : state) {
        dst[8] = '\0';
        benchmark::DoNotOptimize(
            uStrSafeCat(dst.data(), static_cast<int32_t>(dst.size()), src.c_str()));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Cat_uStrSafeCat)->Arg(0)->Arg(1);

void BM_Cat_strncat(benchmark::State &state) {
    const std::string src = source(state.range(0));
    std::vector<char> dst(8192);
    std::strcpy(dst.data(), "prefix: ");
    for (auto _ : state) {
        dst[8] = '\0';
        benchmark::DoNotOptimize(std::strncat(dst.data(), src.c_str(), dst.size() - 9));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Cat_strncat)->Arg(0)->Arg(1);

// The needle sits at the very end of the haystack, whose text is mixed case.
std::string haystack(int64_t kind) {
    std::string text;
    const size_t length = kind == 0 ? 32 : 4096;
    while (text.size() + 8 < length) {
        text += "AbCdEfG ";
    }
    return text + "NeeDLE";
}

void BM_CaseStr_uStrCaseStr(benchmark::State &state) {
    const std::string text = haystack(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(uStrCaseStr(text.c_str(), "needle"));
    }
}
BENCHMARK(BM_CaseStr_uStrCaseStr)->Arg(0)->Arg(1);

void BM_CaseStr_strcasestr(benchmark::State &state) {
    const std::string text = haystack(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(strcasestr(text.c_str(), "needle"));
    }
}
BENCHMARK(BM_CaseStr_strcasestr)->Arg(0)->Arg(1);

} // namespace

int main(int argc, char **argv) {
    return pu::bench::runBenchmarks(argc, argv, [](const pu::bench::TimesReporter &times) {
        pu::bench::printRatios(
            times, "time relative to the reference (our time / reference time):",
            {
                {"uStrParseCsvData 1 MiB mixed vs libcsv", "BM_CsvParse_uStrParseCsvData/0",
                 "BM_CsvParse_libcsv/0"},
                {"uStrParseCsvData 1 MiB plain vs libcsv", "BM_CsvParse_uStrParseCsvData/1",
                 "BM_CsvParse_libcsv/1"},
                {"uStrParseCsvData 1 MiB mostly quoted vs libcsv", "BM_CsvParse_uStrParseCsvData/2",
                 "BM_CsvParse_libcsv/2"},
                {"uStrSafeCopy short vs snprintf", "BM_Copy_uStrSafeCopy/0", "BM_Copy_snprintf/0"},
                {"uStrSafeCopy 4 KiB vs snprintf", "BM_Copy_uStrSafeCopy/1", "BM_Copy_snprintf/1"},
                {"uStrSafeCat short vs strncat", "BM_Cat_uStrSafeCat/0", "BM_Cat_strncat/0"},
                {"uStrSafeCat 4 KiB vs strncat", "BM_Cat_uStrSafeCat/1", "BM_Cat_strncat/1"},
                {"uStrCaseStr short vs strcasestr", "BM_CaseStr_uStrCaseStr/0",
                 "BM_CaseStr_strcasestr/0"},
                {"uStrCaseStr 4 KiB vs strcasestr", "BM_CaseStr_uStrCaseStr/1",
                 "BM_CaseStr_strcasestr/1"},
            });
    });
}
