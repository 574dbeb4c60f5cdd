// SPDX-License-Identifier: MIT
// The JSON family against cJSON itself: the one-line and unescaped printers against cJSON's
// unformatted and formatted printers on the same 64 KiB tree, and a two-key uParaGetInt against
// parsing and looking up by hand.
#include "support/times_reporter.hpp"

#include <platform_utils.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// About 64 KiB of printed JSON: records with numbers of every shape, strings with and without
// escapes, nested objects and arrays.
std::string sampleText() {
    std::string text = "{\"meta\":{\"version\":3,\"device\":{\"serial\":\"AB-12\"}},\"records\":[";
    for (int i = 0; text.size() < 64 * 1024 - 200; ++i) {
        if (i > 0) {
            text += ',';
        }
        text += "{\"id\":" + std::to_string(i) + ",\"ratio\":" + std::to_string(i / 7.0) +
                ",\"big\":" + std::to_string(1234567890123LL + i) + ",\"name\":\"sensor " +
                std::to_string(i) + "\",\"note\":\"line\\nbreak \\\"quoted\\\"\"" +
                ",\"flags\":[true,false,null],\"pos\":{\"x\":-" + std::to_string(i % 13) +
                ",\"y\":0.5}}";
    }
    return text + "]}";
}

const std::string &text() {
    static const std::string kText = sampleText();
    return kText;
}

cJSON *tree() {
    static cJSON *const kTree = cJSON_Parse(text().c_str());
    return kTree;
}

template <char *(*printer)(const cJSON *)> void printWith(benchmark::State &state) {
    std::size_t bytes = 0;
    for (auto _ : state) {
        char *printed = printer(tree());
        bytes += std::strlen(printed);
        cJSON_free(printed);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_Print_Oneline(benchmark::State &state) {
    printWith<cJSON_Print_Oneline>(state);
}
void BM_Print_cJSON_PrintUnformatted(benchmark::State &state) {
    printWith<cJSON_PrintUnformatted>(state);
}
void BM_Print_Unescape(benchmark::State &state) {
    printWith<cJSON_PrintUnescape>(state);
}
void BM_Print_cJSON_Print(benchmark::State &state) {
    printWith<cJSON_Print>(state);
}
BENCHMARK(BM_Print_Oneline);
BENCHMARK(BM_Print_cJSON_PrintUnformatted);
BENCHMARK(BM_Print_Unescape);
BENCHMARK(BM_Print_cJSON_Print);

void BM_Get_uParaGetInt(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(uParaGetInt(text().c_str(), -1, 2, "meta", "version"));
    }
}

void BM_Get_cJSON_ParseAndLookUp(benchmark::State &state) {
    for (auto _ : state) {
        cJSON *root = cJSON_Parse(text().c_str());
        const cJSON *meta = cJSON_GetObjectItem(root, "meta");
        benchmark::DoNotOptimize(cJSON_GetObjectItem(meta, "version"));
        cJSON_Delete(root);
    }
}
BENCHMARK(BM_Get_uParaGetInt);
BENCHMARK(BM_Get_cJSON_ParseAndLookUp);

// Speed ratios (theirs over ours): 1.0 is parity, above 1 we are faster.
void printSummary(const pu::bench::TimesReporter &times) {
    pu::bench::printRatios(
        times, "speed relative to cJSON (cJSON time / our time):",
        {{"cJSON_Print_Oneline vs cJSON_PrintUnformatted:", "BM_Print_cJSON_PrintUnformatted",
          "BM_Print_Oneline"},
         {"cJSON_PrintUnescape vs cJSON_Print:", "BM_Print_cJSON_Print", "BM_Print_Unescape"},
         {"uParaGetInt (2 keys) vs parse + 2 lookups:", "BM_Get_cJSON_ParseAndLookUp",
          "BM_Get_uParaGetInt"}});
}

} // namespace

int main(int argc, char **argv) {
    std::printf("sample: %zu bytes of JSON\n", text().size());
    const int status = pu::bench::runBenchmarks(argc, argv, printSummary);
    cJSON_Delete(tree());
    return status;
}
