// SPDX-License-Identifier: MIT
// uXmlParseFromBuf against expat's own XML_Parse with the same element and character handlers,
// on the same 1 MiB document: once with many references (every "&" goes through the repair's
// slow path) and once without any "&" (the repair should cost almost nothing). The bare-"&"
// variant, which expat alone cannot parse, is measured for ours only.
#include <uxmlparser.h>

#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstdio>
#include <string>

#include "support/times_reporter.hpp"

namespace {

enum class Amps { kNone, kReferences, kBare };

std::string makeDocument(Amps amps) {
    std::string doc = "<?xml version=\"1.0\"?>\n<feed>";
    for (int i = 0; doc.size() < (1u << 20); ++i) {
        const std::string n = std::to_string(i);
        const char *sep = amps == Amps::kNone ? ";" : amps == Amps::kReferences ? "&amp;" : "&";
        doc += "<entry id=\"" + n + "\"><title>Entry " + n + " of the feed</title><link href=\"" +
               "http://example.test/item?id=" + n + sep + "page=2" + sep + "sort=asc\"/><summary>" +
               "Text for entry " + n + (amps == Amps::kNone ? " and" : sep) +
               " a little more text so that character data dominates</summary></entry>\n";
    }
    return doc + "</feed>";
}

const std::string &document(Amps amps) {
    static const std::string docs[] = {makeDocument(Amps::kNone), makeDocument(Amps::kReferences),
                                       makeDocument(Amps::kBare)};
    return docs[static_cast<int>(amps)];
}

struct Counts {
    long elements = 0;
    long textBytes = 0;
};

void onStart(void *user, const char *, const char **) {
    ++static_cast<Counts *>(user)->elements;
}
void onEnd(void *user, const char *) {
    ++static_cast<Counts *>(user)->elements;
}
void onText(void *user, const char *, int length) {
    static_cast<Counts *>(user)->textBytes += length;
}

void runExpat(benchmark::State &state, Amps amps) {
    const std::string &doc = document(amps);
    for (auto _ : state) {
        Counts counts;
        XML_Parser parser = XML_ParserCreate(nullptr);
        XML_SetElementHandler(parser, onStart, onEnd);
        XML_SetCharacterDataHandler(parser, onText);
        XML_SetUserData(parser, &counts);
        if (XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) != XML_STATUS_OK) {
            state.SkipWithError("expat refused the document");
        }
        XML_ParserFree(parser);
        benchmark::DoNotOptimize(counts);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

void runOurs(benchmark::State &state, Amps amps) {
    const std::string &doc = document(amps);
    for (auto _ : state) {
        Counts counts;
        if (uXmlParseFromBuf(doc.c_str(), nullptr, &counts, onStart, onText, onEnd) != 0) {
            state.SkipWithError("uXmlParseFromBuf failed");
        }
        benchmark::DoNotOptimize(counts);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(doc.size()));
}

void BM_Xml_Expat_NoAmp(benchmark::State &state) {
    runExpat(state, Amps::kNone);
}
void BM_Xml_Ours_NoAmp(benchmark::State &state) {
    runOurs(state, Amps::kNone);
}
void BM_Xml_Expat_References(benchmark::State &state) {
    runExpat(state, Amps::kReferences);
}
void BM_Xml_Ours_References(benchmark::State &state) {
    runOurs(state, Amps::kReferences);
}
void BM_Xml_Ours_BareAmp(benchmark::State &state) {
    runOurs(state, Amps::kBare);
}
BENCHMARK(BM_Xml_Expat_NoAmp)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Ours_NoAmp)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Expat_References)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Ours_References)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Xml_Ours_BareAmp)->Unit(benchmark::kMillisecond);

// Speed relative to expat alone (expat time / our time): 1.0 is parity.
void printSummary(const pu::bench::TimesReporter &times) {
    pu::bench::printRatios(
        times, "speed relative to expat alone (expat time / our time):",
        {{"without any \"&\":", "BM_Xml_Expat_NoAmp", "BM_Xml_Ours_NoAmp", " (goal 0.95)"},
         {"with references (\"&amp;\"):", "BM_Xml_Expat_References", "BM_Xml_Ours_References",
          " (goal 0.80)"},
         {"bare \"&\" (ours) vs references (expat):", "BM_Xml_Expat_References",
          "BM_Xml_Ours_BareAmp"}});
}

} // namespace

int main(int argc, char **argv) {
    std::printf("documents: %zu bytes without \"&\", %zu with references, %zu with bare \"&\"\n",
                document(Amps::kNone).size(), document(Amps::kReferences).size(),
                document(Amps::kBare).size());
    return pu::bench::runBenchmarks(argc, argv, printSummary);
}
