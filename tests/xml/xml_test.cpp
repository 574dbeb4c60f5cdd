// SPDX-License-Identifier: MIT
// Parsing from a string and from descriptors: the events match expat's own, repaired documents
// parse, trailers are dropped, and the digest covers exactly the parsed bytes. The ampersand
// repair on its own. Suspending, resuming and aborting a parse from its own handlers, the map
// fallback, and threads doing so at once. Pausing or stopping at arbitrary events, and cutting
// the repair's input anywhere, are the xml_parse and xml_escape fuzz targets' to check.
#include <umem.h>
#include <uxmlparser.h>

#include "call_table.hpp"
#include "log_capture.hpp"
#include "xml_test_util.hpp"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace pu::test;

TEST(XmlParse, EventsMatchExpatAloneForWellFormedDocuments) {
    for (const std::string &doc : {
             std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c --><r a=\"1\" "
                         "b='&lt;&amp;&#x41;'>t<?pi x?></r>"),
             std::string("<a:r xmlns:a=\"urn:a\" xmlns=\"urn:d\"><a:x a:y=\"1\">q</a:x><z/></a:r>"),
             std::string("<r><![CDATA[ <not> markup; ]]>after &#169; &#xA9;</r>"),
             bigDocument(20000),
         }) {
        const std::vector<std::string> reference = expatAlone(doc);
        ASSERT_FALSE(reference.empty()) << doc;
        // From the string, through a pipe in small uneven pieces, then with a digest.
        XmlRecorder fromBuf, fromFd, withDigest;
        EXPECT_EQ(parseBuf(doc, fromBuf), 0) << doc;
        EXPECT_EQ(parseFd(doc, fromFd, 7), 0) << doc;
        const DigestParse digest = parseWithDigest(doc, static_cast<int32_t>(doc.size()),
                                                   withDigest, nullptr, nullptr, 100);
        EXPECT_EQ(digest.result, 0) << doc;
        EXPECT_EQ(digest.digest, md5Of(doc)) << doc;
        for (const XmlRecorder *r : {&fromBuf, &fromFd, &withDigest}) {
            EXPECT_EQ(r->events, reference) << doc;
        }
    }
    EXPECT_TRUE(parseMapEmpty());
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
    checkRows({
        // The repair works on bytes: an "&" inside CDATA or a comment is rewritten like any
        // other, so CDATA shows the reference it got.
        {"CDATA", fromBuf("<r><![CDATA[a & b]]><!-- x & y --></r>"), "0 t:a &amp; b"},
        // The trailer is cut only when exactly two characters follow it.
        {"trailer, two after", fromBuf("<r>x</r>--end\r\n", "--end"), "0 t:x"},
        {"trailer, none after", fromBuf("<r>x</r>--end", "--end"), "-1"},
        {"trailer, one after", fromBuf("<r>x</r>--end\n", "--end"), "-1"},
        {"trailer longer than the text", fromBuf("<r/>", "a much longer trailer"), "0 /r"},
        {"nothing left", fromBuf("--end\r\n", "--end"), "-1"},
        {"mismatched", fromBuf("<r></s>"), "-1"},
        PU_ROW(parseFd("<r></s>", r), -1),
        // No handlers at all is fine.
        PU_ROW(uXmlParseFromBuf("<r>a&b</r>", nullptr, &r, nullptr, nullptr, nullptr), 0),
        PU_ROW(uXmlParseFromBuf(nullptr, nullptr, &r, nullptr, nullptr, nullptr), -1),
        PU_ROW(uXmlParseFromFd(0, uSocketReadNormalData, nullptr, &r, nullptr, nullptr, nullptr),
               -1),
        PU_ROW(uXmlParseFromFdWithDigestAndBreak(-1, 0, uSocketReadNormalData, nullptr, &r, nullptr,
                                                 nullptr, nullptr, nullptr, nullptr),
               -1),
        PU_ROW(parseWithDigest("", 0, r).result, -1),     // a stream that ends at once
        PU_ROW(parseWithDigest("<a/>", 1, r).result, -1), // a declared length of one byte
        PU_ROW(uXmlParseFromBuf("<a/>\r\n", "<a/>", &r, nullptr, nullptr, nullptr), -1),
        // The first piece keeps one byte beside a 2045-byte trailer.
        PU_ROW(parseWithDigest("<" + std::string(2047, ' ') + "</bad", 0, r,
                               std::string(2045, 'x').c_str())
                   .result,
               -1),
        PU_ROW(parseMapEmpty(), true),
    });
}

int gContinueCalls = 0;
int32_t stopAfterFirstPiece(void *user) {
    EXPECT_NE(user, nullptr);
    return ++gContinueCalls, 0;
}
int32_t keepGoing(void *) {
    return ++gContinueCalls, 1;
}

TEST(XmlParse, DigestCoversExactlyTheBytesGivenToTheParser) {
    LogCapture quiet;
    const std::string doc = bigDocument(6000);
    const std::string stream = doc + "--b--\r\n";
    // Known length: the trailer and its line end are held back from the end.
    XmlRecorder known, cut, prefix, broken, whole;
    DigestParse p = parseWithDigest(stream, static_cast<int32_t>(stream.size()), known, "--b--");
    EXPECT_EQ(std::pair(p.result, p.digest), std::pair(0, md5Of(doc)));
    EXPECT_EQ(known.events, expatAlone(doc));
    // ...and cuts a long one in the middle (intended): here "</a>yyy" goes missing.
    const std::string cutAt2041 =
        "<r><a>" + std::string(2035, 'x') + "</a>" + std::string(3000, 'y') + "</r>--b--\r\n";
    p = parseWithDigest(cutAt2041, -1, cut, "--b--");
    EXPECT_EQ(std::pair(p.result, int(p.digest[0])), std::pair(-1, 0xAA))
        << "the digest is written only on success";
    // A declared length shorter than the stream stops there; what follows is never read.
    p = parseWithDigest(doc + "<garbage", static_cast<int32_t>(doc.size()), prefix);
    EXPECT_EQ(std::pair(p.result, p.digest), std::pair(0, md5Of(doc)));
    // The continue callback breaks the read successfully; it is asked after every piece but the
    // last: 6000+ bytes are three full pieces and a short one.
    p = parseWithDigest(doc, static_cast<int32_t>(doc.size()), broken, nullptr,
                        stopAfterFirstPiece);
    EXPECT_EQ(std::tuple(p.result, p.digest, gContinueCalls),
              std::tuple(0, md5Of(doc.substr(0, 2048)), 1));
    gContinueCalls = 0;
    EXPECT_EQ(parseWithDigest(doc, 0, whole, nullptr, keepGoing).result, 0);
    EXPECT_EQ(gContinueCalls, static_cast<int>(doc.size() / 2048));
    EXPECT_TRUE(parseMapEmpty());
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
        r.onStart = [](XmlRecorder &self, const std::string &name) {
            EXPECT_EQ(name == "b" ? uXmlParserPause(&self, 1) : 1, 1);
        };
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

TEST(XmlEscape, WellFormedReferencesPassAndEverythingElseIsRepaired) {
    for (const char *kept : {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;", "&#38;", "&#X26;",
                             "&#xBEEF;", "&#x;", "&#0000000000001;"}) {
        EXPECT_EQ(escaped(std::string("a") + kept + "b"), std::string("a") + kept + "b");
    }
    // Plain text, ";" outside a candidate and bytes of every value pass untouched.
    std::string binary = ";;a;";
    for (int c = 1; c < 256; ++c) {
        binary += c != '&' ? std::string(1, static_cast<char>(c)) : "";
    }
    checkRows({
        {"binary", escaped(binary), binary},
        PU_ROW(escaped("a&b"), "a&amp;b"),
        PU_ROW(escaped("x&"), "x&amp;"),
        PU_ROW(escaped("&nbsp;"), "&amp;nbsp;"),
        PU_ROW(escaped("&AMP;"), "&amp;AMP;"), // names are case-sensitive
        PU_ROW(escaped("&;"), "&amp;;"),       // too short to judge
        PU_ROW(escaped("&#;"), "&amp;#;"),
        PU_ROW(escaped("&#12a;"), "&amp;#12a;"),
        PU_ROW(escaped("&#x1g;"), "&amp;#x1g;"),
        PU_ROW(escaped("&amp"), "&amp;amp"),     // never closed
        PU_ROW(escaped("&&amp;"), "&amp;&amp;"), // a second "&" flushes the first candidate
        // The candidate limit is 16 bytes: a numeric reference of 17 is no longer judged.
        PU_ROW(escaped("&#00000000000001;"), "&amp;#00000000000001;"),
        PU_ROW(escaped("&abcdefghijklmno;x"), "&amp;abcdefghijklmno;x"),
    });
}

TEST(XmlEscape, BadArgumentsAreRefusedWithoutTouchingTheCount) {
    uXmlParserAmpState state{}, corrupt{};
    corrupt.pendingCount = 17; // never index past the candidate
    char out[16], *grown = nullptr;
    int32_t count = 77, room = 0;
    checkRows({
        PU_ROW(uXmlParserEscapeAmpersands(nullptr, 1, out, &count, 16, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 0, out, &count, 16, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 1, out, &count, 0, &state, 1), 2),
        PU_ROW(uXmlParserEscapeAmpersands("a", 1, out, &count, 16, &corrupt, 1), 2),
        PU_ROW(count, 77),
        PU_ROW(uXmlParserEscapeAmpersands("&&", 2, out, &count, 3, &state, 0), 1), // out is full
        // The buffer-growing form reports any refusal as -1, its own and the repair's.
        PU_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, nullptr, &count, &room, &state, 1), -1),
        PU_ROW(uXmlParserProcessXmlBufferWithAmp("a", 1, &grown, &count, &room, &corrupt, 1), -1),
    });
    uFree(grown);
}

const std::string kDoc = "<r><a x=\"1&2\"/><b>t&amp;u</b><c>v</c></r>";
// What expat alone delivers for kDoc once its bare "&" is written as a reference.
const std::vector<std::string> kEvents =
    expatAlone("<r><a x=\"1&amp;2\"/><b>t&amp;u</b><c>v</c></r>");
const std::vector<std::string> kUntilB = {"<r", "<a x=1&2", "/a", "<b"};

// Suspends the parse at every start element named `at` ("" for every element).
void pauseAt(XmlRecorder &recorder, std::string at) {
    recorder.onStart = [at](XmlRecorder &self, const std::string &name) {
        EXPECT_EQ(at.empty() || name == at ? uXmlParserPause(&self, 1) : 1, 1);
    };
}

TEST(XmlControl, APausedParseIsResumedByItsOwnerOrAStrangerAndAStoppedOneOnlyFreed) {
    LogCapture quiet;
    static int stranger;
    // Intended: a pointer with no parse of its own reaches the most recent live parse for a
    // resume, but never for a stop.
    for (void *resumer : {static_cast<void *>(nullptr), static_cast<void *>(&stranger)}) {
        XmlRecorder r;
        pauseAt(r, "b");
        ASSERT_EQ(parseBuf(kDoc, r), 0);
        EXPECT_EQ(r.events, kUntilB);
        EXPECT_EQ(uXmlParserPause(&r, 1), 0); // suspending a suspended parse is refused by expat
        uXmlParserStop(&stranger);
        r.onStart = nullptr;
        EXPECT_EQ(uXmlParserPause(resumer != nullptr ? resumer : &r, 0), 0);
        EXPECT_EQ(r.events, kEvents);
        EXPECT_TRUE(parseMapEmpty());
    }
    EXPECT_EQ(uXmlParserPause(&stranger, 0) + uXmlParserPause(nullptr, 0), -2);
    // A suspended parse that is then stopped can only be cleaned up by a resume, which fails.
    XmlRecorder stopped;
    pauseAt(stopped, "b");
    ASSERT_EQ(parseBuf(kDoc, stopped), 0);
    uXmlParserStop(&stopped);
    EXPECT_EQ(uXmlParserPause(&stopped, 0), -1);
    EXPECT_EQ(stopped.events, kUntilB);
    EXPECT_TRUE(parseMapEmpty());
}

TEST(XmlControl, ResumeNeverTakesAParseThatIsStillRunning) {
    // A handler at <b> suspends or stops its parse (or not), then the parse is "resumed" while
    // it is still running, by the handler itself or by another thread. Only a parse that has
    // returned suspended can be resumed: here the resume gets -1, frees nothing, and the parse
    // goes on as the handler left it.
    const struct {
        const char *what;
        int before; // 0 nothing, 1 suspend, 2 stop
        bool otherThread;
        int32_t parseResult;
        const std::vector<std::string> &events;
    } cases[] = {
        {"resume alone", 0, false, 0, kEvents},
        {"suspend, resume", 1, false, 0, kEvents},
        {"stop, resume", 2, false, -1, kUntilB},
        {"suspend, other thread resumes", 1, true, 0, kEvents},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture log;
        XmlRecorder r;
        bool acted = false; // once: a wrongly granted resume may deliver <b> again
        r.onStart = [&c, &acted](XmlRecorder &self, const std::string &name) {
            if (name != "b" || std::exchange(acted, true)) {
                return;
            }
            EXPECT_EQ(c.before == 1 ? uXmlParserPause(&self, 1) : 1, 1);
            c.before == 2 ? uXmlParserStop(&self) : void();
            const auto resume = [&self] { EXPECT_EQ(uXmlParserPause(&self, 0), -1); };
            c.otherThread ? std::thread(resume).join() : resume();
        };
        EXPECT_EQ(parseBuf(kDoc, r), c.parseResult);
        EXPECT_EQ(c.before == 1 ? uXmlParserPause(&r, 0) : 0, 0);
        EXPECT_EQ(log.countContaining("utils.xmlparser", "uXmlParserPause"), 1) << log.dump();
        EXPECT_EQ(r.events, c.events);
        EXPECT_TRUE(parseMapEmpty());
    }
}

TEST(XmlControl, ThreadsRacingToResumeOneParseResumeEachStepOnce) {
    LogCapture quiet; // the refused resumes log their failure
    // Suspended at each of its four elements: every step is resumed by exactly one thread.
    for (int round = 0; round < 100; ++round) {
        quiet.clear();
        XmlRecorder r;
        pauseAt(r, "");
        ASSERT_EQ(parseBuf(kDoc, r), 0);
        std::atomic<int> resumed{0};
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

} // namespace
