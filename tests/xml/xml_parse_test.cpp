// SPDX-License-Identifier: MIT
// Parsing from a string and from descriptors: the events match expat's own, repaired documents
// parse, trailers are dropped, and the digest covers exactly the parsed bytes. Pausing or
// stopping at arbitrary events is the xml_parse fuzz target's.
#include <uxmlparser.h>

#include "call_table.hpp"
#include "xml_test_util.hpp"

#include <string>

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
        PU_ROW(parseWithDigest("", 0, r).result, -1), // a stream that ends at once
        PU_ROW(parseMapEmpty(), true),
    });
}

TEST(XmlParse, DescriptorStreamEndingOnAReadBoundaryFails) {
    // The last read then brings nothing, and an empty piece cannot be escaped: intended, since
    // callers size their streams with a trailer.
    LogCapture quiet;
    for (std::size_t size : {2047u, 2048u, 2049u}) {
        XmlRecorder r;
        EXPECT_EQ(parseFd("<r>" + std::string(size - 7, 'y') + "</r>", r), size == 2048 ? -1 : 0)
            << size;
    }
    EXPECT_TRUE(parseMapEmpty());
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

} // namespace
