// SPDX-License-Identifier: MIT
// The parsers that build one list element per piece of an untrusted text, each at 10 KiB,
// 100 KiB and 1 MiB of input: uStrSep, uStrParseCsvRow, uStrParseCsvData, uParaUrlQuery and the
// RESTful path variables (distinct names, and one name repeated), every run including the
// release of the result (uListSpecialClear). Building must stay linear, so the time per byte
// must not grow with the input: after the runs a table gives it per size and the spread,
// largest over smallest, which should stay within 2.
#include <platform_utils.h>

#include "support/times_reporter.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr int64_t kSizes[] = {10 << 10, 100 << 10, 1 << 20};

// Repeats piece(i) joined by sep until the text reaches size bytes.
template <typename Piece> std::string repeated(int64_t size, const char *sep, Piece piece) {
    std::string text;
    for (int i = 0; static_cast<int64_t>(text.size()) < size; ++i) {
        if (i > 0) {
            text += sep;
        }
        text += piece(i);
    }
    return text;
}

std::string numberedText(int64_t size, const char *prefix, const char *sep) {
    return repeated(size, sep, [prefix](int i) { return prefix + std::to_string(i); });
}

void freeStrings(uList *list) {
    uListSpecialClear(list, nullptr);
    uListUninit(list);
}

void freePairs(uList *list) {
    uParaUrlDelete(list);
    uParaUrlUnInit(list);
}

void countBytes(benchmark::State &state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void BM_Lists_uStrSep(benchmark::State &state) {
    const std::string text = numberedText(state.range(0), "e", ",");
    for (auto _ : state) {
        freeStrings(uStrSep(text.c_str(), ","));
    }
    countBytes(state, text.size());
}

void BM_Lists_uStrParseCsvRow(benchmark::State &state) {
    const std::string text = numberedText(state.range(0), "f", ",");
    for (auto _ : state) {
        freeStrings(uStrParseCsvRow(text.c_str()));
    }
    countBytes(state, text.size());
}

void releaseRow(void *, uList *fields) {
    for (uListNode *node = fields->head; node != nullptr; node = node->next) {
        uFree(node->data);
    }
}

// One long row, so the row list grows as long as in uStrParseCsvRow.
void BM_Lists_uStrParseCsvData(benchmark::State &state) {
    const std::string text = numberedText(state.range(0), "f", ",") + "\n";
    for (auto _ : state) {
        benchmark::DoNotOptimize(uStrParseCsvData(text.c_str(), 0, nullptr, releaseRow));
    }
    countBytes(state, text.size());
}

void BM_Lists_uParaUrlQuery(benchmark::State &state) {
    const std::string text = repeated(state.range(0), "&", [](int i) {
        return "k" + std::to_string(i) + "=v" + std::to_string(i);
    });
    for (auto _ : state) {
        freePairs(uParaUrlQuery(text.c_str()));
    }
    countBytes(state, text.size());
}

void restful(benchmark::State &state, const std::string &url, const std::string &templ) {
    for (auto _ : state) {
        uList *pairs = nullptr;
        uParaUrlGetVariablesFromRestfulUrl(url.c_str(), templ.c_str(), &pairs);
        freePairs(pairs);
    }
    countBytes(state, url.size() + templ.size());
}

void BM_Lists_RestfulDistinctNames(benchmark::State &state) {
    const std::string url = "/" + numberedText(state.range(0) / 2, "", "/");
    const std::string templ = "/" + numberedText(state.range(0) / 2, "@v", "/");
    restful(state, url, templ);
}

void BM_Lists_RestfulOneName(benchmark::State &state) {
    const std::string url = "/" + repeated(state.range(0) / 2, "/", [](int) { return "x"; });
    const std::string templ = "/" + repeated(state.range(0) / 2, "/", [](int) { return "@a"; });
    restful(state, url, templ);
}

#define PU_LIST_BENCHMARK(fn)                                                                      \
    BENCHMARK(fn)->Arg(kSizes[0])->Arg(kSizes[1])->Arg(kSizes[2])->Unit(benchmark::kMicrosecond)

PU_LIST_BENCHMARK(BM_Lists_uStrSep);
PU_LIST_BENCHMARK(BM_Lists_uStrParseCsvRow);
PU_LIST_BENCHMARK(BM_Lists_uStrParseCsvData);
PU_LIST_BENCHMARK(BM_Lists_uParaUrlQuery);
PU_LIST_BENCHMARK(BM_Lists_RestfulDistinctNames);
PU_LIST_BENCHMARK(BM_Lists_RestfulOneName);

// Nanoseconds per byte at each size, and largest over smallest.
void printTable(const pu::bench::TimesReporter &reporter) {
    const char *names[] = {
        "BM_Lists_uStrSep",       "BM_Lists_uStrParseCsvRow",      "BM_Lists_uStrParseCsvData",
        "BM_Lists_uParaUrlQuery", "BM_Lists_RestfulDistinctNames", "BM_Lists_RestfulOneName"};
    std::printf("\n%-30s %12s %12s %12s %8s\n", "ns per byte (CPU)", "10 KiB", "100 KiB", "1 MiB",
                "spread");
    for (const char *name : names) {
        std::vector<double> perByte;
        for (int64_t size : kSizes) {
            const auto found =
                reporter.times().find(std::string(name) + "/" + std::to_string(size));
            // Times are in the benchmark's unit, microseconds.
            perByte.push_back(found == reporter.times().end()
                                  ? 0.0
                                  : found->second * 1000.0 / static_cast<double>(size));
        }
        const auto [low, high] = std::minmax_element(perByte.begin(), perByte.end());
        std::printf("%-30s %12.2f %12.2f %12.2f %8.2f\n", name + 9, perByte[0], perByte[1],
                    perByte[2], *low > 0 ? *high / *low : 0.0);
    }
}

} // namespace

int main(int argc, char **argv) {
    return pu::bench::runBenchmarks(argc, argv, printTable);
}
