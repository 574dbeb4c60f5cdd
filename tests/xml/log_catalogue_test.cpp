// SPDX-License-Identifier: MIT
// Every log line of the XML family, word for word: callers match on these texts.
#include <uxmlparser.h>

#include "call_table.hpp"
#include "fail_alloc.hpp"
#include "xml_test_util.hpp"

#include <gtest/gtest.h>

namespace {

using namespace pu::test;

int32_t stop(void *) {
    return 0;
}

TEST(XmlLog, Catalogue) {
    const char *xml = "utils.xmlparser";
    const std::string doc = bigDocument(3000), aligned = "<r>" + std::string(2041, 'y') + "</r>";
    XmlRecorder r;
    int32_t count = 0;
    uXmlParserAmpState state{};
    const auto failingAlloc = [](std::uint64_t n, auto call) {
        FailAlloc fault(n);
        return call();
    };
    // Resuming a parse from inside its own handler is refused.
    XmlRecorder selfResume;
    selfResume.onStart = [](XmlRecorder &self, const std::string &) { uXmlParserPause(&self, 0); };
    // The repair buffer is the last allocation of a parse from a string (the map made first).
    parseBuf("<r/>", r);
    const std::uint64_t before = allocCalls();
    parseBuf("<r/>", r);
    const std::uint64_t repairBuffer = allocCalls() - before;
    checkLogRows({
        PU_LOG_ROW(uXmlParseFromBuf(nullptr, nullptr, &r, nullptr, nullptr, nullptr), 3, xml,
                   "uXmlParseFromBuf: param error."),
        PU_LOG_ROW(failingAlloc(1, [&] { return parseBuf("<r/>", r); }), 3, xml,
                   "uXmlParseFromBuf: xml parse create failed."),
        PU_LOG_ROW(failingAlloc(repairBuffer, [&] { return parseBuf("<r/>", r); }), 3, xml,
                   "uXmlParseFromBuf: buf uMalloc error."),
        PU_LOG_ROW(parseBuf("<r>", r), 3, xml, "parse xml error parserResult[0]."),
        PU_LOG_ROW(
            uXmlParseFromFd(0, uSocketReadNormalData, nullptr, &r, nullptr, nullptr, nullptr), 3,
            xml, "uXmlParseFromFd: param error."),
        PU_LOG_ROW(failingAlloc(1, [&] { return parseFd("<r/>", r); }), 3, xml,
                   "uXmlParseFromFd: buf uMalloc error."),
        PU_LOG_ROW(failingAlloc(3, [&] { return parseFd("<r/>", r); }), 3, xml,
                   "uXmlParseFromFd: xml parse create failed."),
        // A stream ending on a read boundary fails: the last read brings nothing, and an empty
        // piece cannot be escaped. Intended, since callers size their streams with a trailer.
        PU_LOG_ROW(parseFd(aligned, r), 3, xml,
                   "uXmlParseFromFd: Parse xml error totalRead[2048] or parserResult[1]."),
        PU_LOG_ROW(uXmlParseFromFdWithDigestAndBreak(-1, 0, uSocketReadNormalData, nullptr, &r,
                                                     nullptr, nullptr, nullptr, nullptr, nullptr),
                   3, xml, "uXmlParseFromFdWithDigestAndBreak: param error."),
        PU_LOG_ROW(parseWithDigest("", 0, r), 3, xml,
                   "uXmlParseFromFdWithDigestAndBreak: Parse xml error totalRead[0] or "
                   "parserResult[0]."),
        PU_LOG_ROW(parseWithDigest(doc, 0, r), 0, xml,
                   "uXmlParseFromFdWithDigestAndBreak: readLen:2048 !!!."),
        PU_LOG_ROW(parseWithDigest(doc, 0, r), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: XML_Parse :ok Or Read Finished :1 !!!."),
        PU_LOG_ROW(parseWithDigest("<r>", 0, r), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: XML_Parse :error Or Read Finished :1 !!!."),
        PU_LOG_ROW(parseWithDigest("</x>" + std::string(3000, ' '), 0, r), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: XML_Parse :error Or Read Finished :0 !!!."),
        PU_LOG_ROW(parseWithDigest(doc, 0, r, nullptr, stop), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: Break Parseing !!!."),
        PU_LOG_ROW(parseBuf("<r/>", selfResume), 3, xml,
                   "uXmlParserPause, parse xml error parserResult[0]."),
        PU_LOG_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, nullptr, &count, &count, &state, 1), 3,
                   xml, "uXmlParserProcessXmlBufferWithAmp: parser fail, reason=[2]."),
    });
}

} // namespace
