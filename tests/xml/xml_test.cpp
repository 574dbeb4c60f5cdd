// SPDX-License-Identifier: MIT
// The XML parser. Parsing from a string and from descriptors: the events match expat's own,
// repaired documents parse, trailers are dropped, and the digest covers exactly the parsed bytes.
// The ampersand repair on its own. Suspending, resuming and aborting a parse from its own
// handlers, the map fallback, and threads doing so at once. Each uMalloc of a parse failing in
// turn, and every log line word for word. Pausing or stopping at arbitrary events, and cutting
// the repair's input anywhere, are the xml_parse and xml_escape fuzz targets' to check.
#include <expat.h>
#include <openssl/evp.h>
#include <umem.h>
#include <usocket.h>
#include <uxmlparser.h>

#include "call_table.hpp"
#include "fail_alloc.hpp"
#include "log_capture.hpp"
#include "test_support.hpp"

#include <unistd.h>

namespace pu::test {
namespace {

// The events one parse delivered, as text. Adjacent character data is merged: how expat splits
// text between calls depends on where its input was cut, which is not part of the contract.
struct XmlRecorder {
    std::vector<std::string> events;
    // Called after each start element is recorded, with its name.
    std::function<void(XmlRecorder &, const std::string &)> onStart;

    static void start(void *user, const char *name, const char **attributes) {
        auto *self = static_cast<XmlRecorder *>(user);
        std::string event = std::string("<") + name;
        for (const char **a = attributes; a != nullptr && *a != nullptr; a += 2) {
            event += std::string(" ") + a[0] + "=" + a[1];
        }
        self->events.push_back(event);
        if (self->onStart) {
            self->onStart(*self, name);
        }
    }
    static void text(void *user, const char *data, int length) {
        auto *self = static_cast<XmlRecorder *>(user);
        if (self->events.empty() || self->events.back().rfind("t:", 0) != 0) {
            self->events.emplace_back("t:");
        }
        self->events.back().append(data, static_cast<std::size_t>(length));
    }
    static void end(void *user, const char *name) {
        static_cast<XmlRecorder *>(user)->events.push_back(std::string("/") + name);
    }
};

// What expat alone delivers for doc through the same handlers; empty on a parse error.
std::vector<std::string> expatAlone(const std::string &doc) {
    XmlRecorder recorder;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(parser, XmlRecorder::start, XmlRecorder::end);
    XML_SetCharacterDataHandler(parser, XmlRecorder::text);
    XML_SetUserData(parser, &recorder);
    const bool ok = XML_Parse(parser, doc.data(), static_cast<int>(doc.size()), 1) == XML_STATUS_OK;
    XML_ParserFree(parser);
    return ok ? recorder.events : std::vector<std::string>{};
}

int32_t parseBuf(const std::string &doc, XmlRecorder &recorder, const char *trailer = nullptr) {
    return uXmlParseFromBuf(doc.c_str(), trailer, &recorder, XmlRecorder::start, XmlRecorder::text,
                            XmlRecorder::end);
}

// Runs parse on the read end of a pipe that holds data and then ends (all fits in the pipe).
int32_t throughPipe(const std::string &data, const std::function<int32_t(int)> &parse) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], data.data(), data.size()), static_cast<ssize_t>(data.size()));
    close(ends[1]);
    const int32_t result = parse(ends[0]);
    close(ends[0]);
    return result;
}

int32_t parseFd(const std::string &doc, XmlRecorder &recorder) {
    return throughPipe(doc, [&](int fd) {
        return uXmlParseFromFd(fd, uSocketReadNormalData, nullptr, &recorder, XmlRecorder::start,
                               XmlRecorder::text, XmlRecorder::end);
    });
}

// A well-formed document of at least size bytes: nested elements, attributes, text, references.
std::string bigDocument(std::size_t size) {
    std::string doc = "<?xml version=\"1.0\"?>\n<feed xmlns:m=\"urn:m\">";
    while (doc.size() < size) {
        doc += "<m:item kind=\"k&lt;\"><t>Item &amp; more</t>http://h/p?a=1&amp;b=2</m:item>\n";
    }
    return doc + "</feed>";
}

// The digest parse through a pipe; the digest starts as 0xAA bytes, to show whether it was
// written.
using Digest = std::array<unsigned char, 16>;

Digest md5Of(const std::string &bytes) {
    Digest digest{};
    EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_md5(), nullptr);
    return digest;
}

struct DigestParse {
    int32_t result;
    Digest digest;
};

DigestParse parseWithDigest(const std::string &stream, int32_t totalLength, XmlRecorder &r,
                            const char *trailer = nullptr,
                            uXmlContinueFn shouldContinue = nullptr) {
    DigestParse p{};
    p.digest.fill(0xAA);
    p.result = throughPipe(stream, [&](int fd) {
        return uXmlParseFromFdWithDigestAndBreak(fd, totalLength, uSocketReadNormalData, trailer,
                                                 &r, XmlRecorder::start, XmlRecorder::text,
                                                 XmlRecorder::end, p.digest.data(), shouldContinue);
    });
    return p;
}

// True when no parse is registered: a pause with nobody to fall back on fails.
bool parseMapEmpty() {
    static int nobody;
    return uXmlParserPause(&nobody, 1) == -1;
}

// Suspends the parse at every start element named `at` ("" for every element).
void pauseAt(XmlRecorder &recorder, std::string at) {
    recorder.onStart = [at](XmlRecorder &self, const std::string &name) {
        EXPECT_EQ(at.empty() || name == at ? uXmlParserPause(&self, 1) : 1, 1);
    };
}

TEST(XmlParse, EventsMatchExpatAloneForWellFormedDocuments) {
    for (const std::string &doc : {
             std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c --><r a=\"1\" "
                         "b='&lt;&amp;&#x41;'>t<?pi x?></r>"),
             std::string("<r><![CDATA[ <not> markup; ]]>after &#169; &#xA9;</r>"),
             bigDocument(20000),
         }) {
        const std::vector<std::string> reference = expatAlone(doc);
        ASSERT_FALSE(reference.empty()) << doc;
        // From the string, then through a pipe with a digest of a known length, which holds the
        // trailer and its line end back from the end of the stream.
        XmlRecorder fromBuf, withDigest;
        EXPECT_EQ(parseBuf(doc, fromBuf), 0) << doc;
        const std::string stream = doc + "--b--\r\n";
        const DigestParse digest =
            parseWithDigest(stream, static_cast<int32_t>(stream.size()), withDigest, "--b--");
        EXPECT_EQ(digest.result, 0) << doc;
        EXPECT_EQ(digest.digest, md5Of(doc)) << doc;
        for (const XmlRecorder *r : {&fromBuf, &withDigest}) {
            EXPECT_EQ(r->events, reference) << doc;
        }
    }
}

// A document's result from the string with a trailer, or with the repair (its text as events).
std::string fromBuf(const std::string &doc, const char *trailer = nullptr) {
    XmlRecorder r;
    const int32_t result = parseBuf(doc, r, trailer);
    return std::to_string(result) + (result == 0 && r.events.size() > 1 ? " " + r.events[1] : "");
}

TEST(XmlParse, RepairTrailersAndMalformedDocuments) {
    LogCapture quiet;
    XmlRecorder r;
    const std::string cut =
        "<r><a>" + std::string(2035, 'x') + "</a>" + std::string(3000, 'y') + "</r>--b--\r\n";
    checkRows({
        // The repair works on bytes: an "&" inside CDATA or a comment is rewritten like any
        // other, so CDATA shows the reference it got.
        {"CDATA", fromBuf("<r><![CDATA[a & b]]><!-- x & y --></r>"), "0 t:a &amp; b"},
        // The trailer is cut only when exactly two characters follow it.
        {"trailer, two after", fromBuf("<r>x</r>--end\r\n", "--end"), "0 t:x"},
        {"trailer, none after", fromBuf("<r>x</r>--end", "--end"), "-1"},
        {"trailer, one after", fromBuf("<r>x</r>--end\n", "--end"), "-1"},
        {"trailer longer than the text", fromBuf("<r/>", "a much longer trailer"), "0 /r"},
        {"nothing left", fromBuf("<a/>\r\n", "<a/>"), "-1"},
        PU_ROW(parseFd("<r></s>", r), -1),
        PU_ROW(uXmlParseFromBuf(nullptr, nullptr, &r, nullptr, nullptr, nullptr), -1),
        PU_ROW(uXmlParseFromFd(0, uSocketReadNormalData, nullptr, &r, nullptr, nullptr, nullptr),
               -1),
        PU_ROW(parseWithDigest("<a/>", 1, r).result, -1), // a declared length of one byte
        // The first piece keeps one byte beside a 2045-byte trailer.
        PU_ROW(parseWithDigest("<" + std::string(2047, ' ') + "</bad", 0, r,
                               std::string(2045, 'x').c_str())
                   .result,
               -1),
        // With the length unknown, the bytes held back for a trailer come off the first piece:
        // a document longer than a piece is cut in the middle (intended), here "</a>yyy", and
        // fails, and the digest is written only on success.
        {"cut", parseWithDigest(cut, -1, r, "--b--").digest[0], 0xAA},
    });
}

TEST(XmlParse, SuspendInTheDigestParseHoldsOnlyInTheLastPiece) {
    // In the last piece: success, the digest written, and a resume finishes the document. In an
    // earlier piece: the next piece meets a suspended parser and the parse fails.
    const std::string small = "<r><a/><b>x</b></r>",
                      large = "<r><b/>" + std::string(3000, 'z') + "</r>";
    for (const auto &[doc, result] : {std::pair{small, 0}, {large, -1}}) {
        SCOPED_TRACE(doc.size());
        LogCapture quiet;
        XmlRecorder r;
        pauseAt(r, "b");
        const DigestParse p = parseWithDigest(doc, static_cast<int32_t>(doc.size()), r);
        EXPECT_EQ(p.result, result);
        EXPECT_EQ(parseMapEmpty(), result != 0);
        if (result == 0) {
            EXPECT_EQ(p.digest, md5Of(doc));
            EXPECT_EQ(uXmlParserPause(&r, 0), 0);
            EXPECT_EQ(r.events, expatAlone(doc));
            EXPECT_TRUE(parseMapEmpty());
        }
    }
}

// The input escaped in one final chunk, or the refusal code.
std::string escaped(const std::string &input) {
    uXmlParserAmpState state{};
    std::vector<char> out(4096);
    int32_t count = -1;
    const int32_t result = uXmlParserEscapeAmpersands(
        input.data(), static_cast<int32_t>(input.size()), out.data(), &count, 4096, &state, 1);
    return result != 0 ? std::to_string(result)
                       : std::string(out.data(), static_cast<std::size_t>(count));
}

TEST(XmlEscape, WellFormedReferencesPassEverythingElseIsRepairedAndBadArgumentsAreRefused) {
    for (const char *kept : {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&#38;", "&#X26;",
                             "&#xBEEF;", "&#x;", "&#0000000000001;"}) {
        EXPECT_EQ(escaped(std::string("a") + kept + "b"), std::string("a") + kept + "b");
    }
    uXmlParserAmpState state{}, corrupt{};
    corrupt.pendingCount = 17; // never index past the candidate
    char out[16];
    int32_t count = 77, room = 0;
    checkRows({
        PU_ROW(escaped("x&"), "x&amp;"),
        PU_ROW(escaped("&nbsp;"), "&amp;nbsp;"),
        PU_ROW(escaped("&AMP;"), "&amp;AMP;"), // names are case-sensitive
        PU_ROW(escaped("&;"), "&amp;;"),       // too short to judge
        PU_ROW(escaped("&#12a;"), "&amp;#12a;"),
        PU_ROW(escaped("&amp"), "&amp;amp"),     // never closed
        PU_ROW(escaped("&&amp;"), "&amp;&amp;"), // a second "&" flushes the first candidate
        // The candidate limit is 16 bytes: a numeric reference of 17 is no longer judged.
        PU_ROW(escaped("&#00000000000001;"), "&amp;#00000000000001;"),
        // Refusals leave the count alone.
        PU_ROW(uXmlParserEscapeAmpersands(nullptr, 1, out, &count, 16, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 0, out, &count, 16, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 1, out, &count, 16, &corrupt, 1), 2),
        PU_ROW(count, 77),
        PU_ROW(uXmlParserEscapeAmpersands("&&", 2, out, &count, 3, &state, 0), 1), // out is full
        // The buffer-growing form reports any refusal as -1, its own and the repair's.
        PU_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, nullptr, &count, &room, &state, 1), -1),
    });
}

const std::string kDoc = "<r><a x=\"1&2\"/><b>t&amp;u</b><c>v</c></r>";
// What expat alone delivers for kDoc once its bare "&" is written as a reference.
const std::vector<std::string> kEvents =
    expatAlone("<r><a x=\"1&amp;2\"/><b>t&amp;u</b><c>v</c></r>");

TEST(XmlControl, ThreadsRacingToResumeOneParseResumeEachStepOnce) {
    LogCapture quiet; // the refused resumes log their failure
    static int stranger;
    // Suspended at each of its four elements: the first step is resumed by a stranger, every
    // other by exactly one of the threads.
    for (int round = 0; round < 100; ++round) {
        quiet.clear();
        XmlRecorder r;
        pauseAt(r, "");
        ASSERT_EQ(parseBuf(kDoc, r), 0);
        // Intended: a pointer with no parse of its own reaches the most recent live parse for a
        // resume, but never for a stop.
        uXmlParserStop(&stranger);
        ASSERT_EQ(uXmlParserPause(&stranger, 0), 0);
        std::atomic<int> resumed{1};
        fanOut(2, [&r, &resumed](int) {
            for (int tries = 0; resumed < 4 && tries < 100000; ++tries) {
                resumed += uXmlParserPause(&r, 0) == 0;
            }
        });
        ASSERT_EQ(resumed, 4);
        ASSERT_EQ(r.events, kEvents);
        ASSERT_TRUE(parseMapEmpty());
    }
}

TEST(XmlControl, AParserEnteredByHandIsTheCallersToFree) {
    // Reached by pause and stop, but never resumed or freed from the map.
    LogCapture quiet;
    static int user;
    XML_Parser parser = XML_ParserCreate(nullptr);
    uXmlParserAddMapItem(nullptr, &user);
    EXPECT_TRUE(parseMapEmpty());
    uXmlParserAddMapItem(parser, &user);
    EXPECT_EQ(uXmlParserPause(&user, 0), -1);
    uXmlParserDelMapItem(parser);
    EXPECT_TRUE(parseMapEmpty());
    XML_ParserFree(parser); // still the caller's: a freed parser would fail here under ASan
}

const AllocCase kAllocCases[] = {
    reportingCase("ParseFromBuf",
                  [] {
                      XmlRecorder r;
                      // The '&' makes the parse use its escape buffer.
                      const int32_t result = parseBuf("<a x='1'><b>t&amp;u</b></a>", r);
                      const std::vector<std::string> all = {"<a x=1", "<b", "t:t&u", "/b", "/a"};
                      EXPECT_EQ(r.events, result == 0 ? all : std::vector<std::string>{})
                          << "a parse that failed still ran";
                      // Nothing is left registered: a stale entry would hand a freed parser to
                      // expat here.
                      EXPECT_EQ(uXmlParserPause(&r, 1), -1);
                      uXmlParserStop(&r);
                      return result == -1;
                  }),
};

struct XmlAllocFailure : testing::TestWithParam<AllocCase> {
    // The parse map is made by the first parse and kept: made here, so that every run of the
    // sweep allocates alike and the failure reaches each allocation of a parse.
    static void SetUpTestSuite() {
        XmlRecorder r;
        ASSERT_EQ(parseBuf("<a/>", r), 0);
    }
};

PU_ALLOC_FAILURE_SWEEP(XmlAllocFailure, kAllocCases);

// Every log line of the XML family, word for word: callers match on these texts.
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
    // Resuming a parse from inside its own handler is refused: only a parse that has returned
    // suspended can be resumed, so a running one is never resumed or freed from elsewhere.
    XmlRecorder selfResume;
    selfResume.onStart = [](XmlRecorder &self, const std::string &) {
        EXPECT_EQ(uXmlParserPause(&self, 0), -1);
    };
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
        PU_LOG_ROW(
            parseWithDigest("", 0, r), 3, xml,
            "uXmlParseFromFdWithDigestAndBreak: Parse xml error totalRead[0] or parserResult[0]."),
        PU_LOG_ROW(parseWithDigest(doc, 0, r), 0, xml,
                   "uXmlParseFromFdWithDigestAndBreak: readLen:2048 !!!."),
        PU_LOG_ROW(parseWithDigest(doc, 0, r), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: XML_Parse :ok Or Read Finished :1 !!!."),
        PU_LOG_ROW(parseWithDigest("<r>", 0, r), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: XML_Parse :error Or Read Finished :1 !!!."),
        PU_LOG_ROW(parseWithDigest("</x>" + std::string(3000, ' '), 0, r), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: XML_Parse :error Or Read Finished :0 !!!."),
        PU_LOG_ROW(parseWithDigest(doc, 0, r, nullptr, [](void *) { return 0; }), 1, xml,
                   "uXmlParseFromFdWithDigestAndBreak: Break Parseing !!!."),
        PU_LOG_ROW(parseBuf("<r/>", selfResume), 3, xml,
                   "uXmlParserPause, parse xml error parserResult[0]."),
        PU_LOG_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, nullptr, &count, &count, &state, 1), 3,
                   xml, "uXmlParserProcessXmlBufferWithAmp: parser fail, reason=[2]."),
    });
}

} // namespace
} // namespace pu::test
