// SPDX-License-Identifier: MIT
// Parsing from a string and from descriptors: the events match expat's own, repaired documents
// parse, trailers are dropped, and the digest covers exactly the parsed bytes.
#include <uxmlparser.h>

#include "log_capture.hpp"
#include "xml_test_util.hpp"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace pu::test;

const std::string kWellFormed[] = {
    "<r/>",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- c --><r a=\"1\" b='&lt;&amp;&#x41;'>t<?pi "
    "x?></r>",
    "<a:r xmlns:a=\"urn:a\" xmlns=\"urn:d\"><a:x a:y=\"1\">q</a:x><z/></a:r>",
    "<r><![CDATA[ <not> markup; ]]>after &#169; &#xA9;</r>",
    "<r>caf\xc3\xa9 \xe2\x82\xac</r>",
};

TEST(XmlParse, EventsMatchExpatAloneForWellFormedDocuments) {
    const std::string big = bigDocument(20000, true);
    std::vector<std::string> documents(std::begin(kWellFormed), std::end(kWellFormed));
    documents.push_back(big);
    for (const std::string &doc : documents) {
        const ReferenceParse reference = expatAlone(doc);
        ASSERT_TRUE(reference.ok) << doc;
        XmlRecorder fromBuf;
        EXPECT_EQ(parseBuf(doc, fromBuf), 0) << doc;
        EXPECT_EQ(fromBuf.events, reference.events) << doc;
        // Through a pipe in small uneven pieces, then with a digest.
        XmlRecorder fromFd;
        EXPECT_EQ(parseFd(doc, fromFd, nullptr, 7), 0) << doc;
        EXPECT_EQ(fromFd.events, reference.events) << doc;
        DigestParse withDigest =
            parseWithDigest(doc, static_cast<int32_t>(doc.size()), nullptr, nullptr, 100);
        EXPECT_EQ(withDigest.result, 0) << doc;
        EXPECT_EQ(withDigest.recorder.events, reference.events) << doc;
        EXPECT_EQ(withDigest.digest, md5Of(doc)) << doc;
    }
    EXPECT_TRUE(parseMapEmpty());
}

TEST(XmlParse, RepairDoesNotKnowMarkup) {
    // The repair works on bytes: an "&" inside CDATA or a comment is rewritten like any other,
    // so CDATA shows the reference it got.
    XmlRecorder r;
    ASSERT_EQ(parseBuf("<r><![CDATA[a & b]]><!-- x & y --></r>", r), 0);
    EXPECT_EQ(r.allText(), "a &amp; b");
}

TEST(XmlParse, BufferTrailerIsCutOnlyWhenTwoCharactersFollowIt) {
    XmlRecorder r;
    EXPECT_EQ(parseBuf("<r>x</r>--end\r\n", r, "--end"), 0);
    EXPECT_EQ(r.allText(), "x");
    // Anywhere else the trailer is just text after the document, which expat refuses.
    LogCapture log;
    XmlRecorder notCut;
    EXPECT_EQ(parseBuf("<r>x</r>--end", notCut, "--end"), -1);
    XmlRecorder oneAfter;
    EXPECT_EQ(parseBuf("<r>x</r>--end\n", oneAfter, "--end"), -1);
    EXPECT_EQ(log.lines().size(), 2U) << log.dump();
    // Trailer longer than the text, and an empty trailer: nothing is cut, nothing overruns.
    XmlRecorder shortText;
    EXPECT_EQ(parseBuf("<r/>", shortText, "a much longer trailer"), 0);
    XmlRecorder emptyTrailer;
    EXPECT_EQ(parseBuf("<r/>\r\n", emptyTrailer, ""), 0);
    // What is left after cutting the trailer may be empty: that is no document.
    XmlRecorder nothingLeft;
    EXPECT_EQ(parseBuf("--end\r\n", nothingLeft, "--end"), -1);
}

TEST(XmlParse, DescriptorStreamEndingOnAReadBoundaryFails) {
    // The last read then brings nothing, and an empty piece cannot be escaped: intended, since
    // callers size their streams with a trailer.
    auto docOfSize = [](std::size_t size) { return "<r>" + std::string(size - 7, 'y') + "</r>"; };
    LogCapture log;
    for (std::size_t size : {2047u, 2049u, 4095u, 4097u}) {
        XmlRecorder r;
        EXPECT_EQ(parseFd(docOfSize(size), r), 0) << size;
    }
    XmlRecorder aligned;
    EXPECT_EQ(parseFd(docOfSize(2048), aligned), -1);
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_TRUE(parseMapEmpty());
}

TEST(XmlParse, DigestCoversExactlyTheBytesGivenToTheParser) {
    LogCapture quiet;
    const std::string doc = bigDocument(5000, true);
    const std::string trailer = "--b--";
    const std::string stream = doc + trailer + "\r\n";
    // Known length: the trailer and its line end are held back from the end.
    DigestParse known = parseWithDigest(stream, static_cast<int32_t>(stream.size()), "--b--");
    EXPECT_EQ(known.result, 0);
    EXPECT_EQ(known.digest, md5Of(doc));
    EXPECT_EQ(known.recorder.events, expatAlone(doc).events);

    // ...and cuts a long one in the middle (intended): here "</a>yyy" goes missing.
    const std::string cutAt2041 =
        "<r><a>" + std::string(2035, 'x') + "</a>" + std::string(3000, 'y') + "</r>--b--\r\n";
    DigestParse cut = parseWithDigest(cutAt2041, -1, "--b--");
    EXPECT_EQ(cut.result, -1);
    EXPECT_EQ(cut.digest[0], 0xAA) << "the digest is written only on success";

    // A declared length shorter than the stream stops there; what follows is never read.
    DigestParse prefix = parseWithDigest(doc + "<garbage", static_cast<int32_t>(doc.size()));
    EXPECT_EQ(prefix.result, 0);
    EXPECT_EQ(prefix.digest, md5Of(doc));

    EXPECT_TRUE(parseMapEmpty());
}

int gContinueCalls = 0;

int32_t stopAfterFirstPiece(void *user) {
    ++gContinueCalls;
    EXPECT_NE(user, nullptr);
    return 0;
}

int32_t keepGoing(void *) {
    ++gContinueCalls;
    return 1;
}

TEST(XmlParse, ContinueCallbackBreaksTheReadSuccessfully) {
    const std::string doc = bigDocument(6000, false);
    LogCapture log;
    gContinueCalls = 0;
    DigestParse broken =
        parseWithDigest(doc, static_cast<int32_t>(doc.size()), nullptr, stopAfterFirstPiece);
    EXPECT_EQ(broken.result, 0);
    EXPECT_EQ(gContinueCalls, 1);
    EXPECT_EQ(broken.digest, md5Of(doc.substr(0, 2048)));
    EXPECT_LT(broken.recorder.allText().size(), 2048u);

    // Asked after every piece but the last: 6000+ bytes are three full pieces and a short one.
    log.clear();
    gContinueCalls = 0;
    DigestParse whole = parseWithDigest(doc, 0, nullptr, keepGoing);
    EXPECT_EQ(whole.result, 0);
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
            if (name == "b") {
                EXPECT_EQ(uXmlParserPause(&self, 1), 1);
            }
        };
        Digest digest{};
        EXPECT_EQ(throughPipe(doc, 4096,
                              [&](int fd) {
                                  return uXmlParseFromFdWithDigestAndBreak(
                                      fd, static_cast<int32_t>(doc.size()), uSocketReadNormalData,
                                      nullptr, &r, XmlRecorder::start, XmlRecorder::text,
                                      XmlRecorder::end, digest.data(), nullptr);
                              }),
                  result);
        EXPECT_EQ(parseMapEmpty(), result != 0);
        if (result == 0) {
            EXPECT_EQ(digest, md5Of(doc));
            EXPECT_EQ(uXmlParserPause(&r, 0), 0);
            EXPECT_EQ(r.events, expatAlone(doc).events);
            EXPECT_TRUE(parseMapEmpty());
        }
    }
}

TEST(XmlParse, MalformedDocumentsAndBadArgumentsFail) {
    LogCapture log;
    XmlRecorder r;
    EXPECT_EQ(uXmlParseFromBuf(nullptr, nullptr, &r, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(uXmlParseFromBuf("<r/>", nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(uXmlParseFromFd(0, uSocketReadNormalData, nullptr, &r, nullptr, nullptr, nullptr),
              -1);
    EXPECT_EQ(uXmlParseFromFd(5, nullptr, nullptr, &r, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(
        uXmlParseFromFd(5, uSocketReadNormalData, nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(uXmlParseFromFdWithDigestAndBreak(-1, 0, uSocketReadNormalData, nullptr, &r, nullptr,
                                                nullptr, nullptr, nullptr, nullptr),
              -1);

    // No handlers at all is fine; the empty string is no document.
    EXPECT_EQ(uXmlParseFromBuf("<r>a&b</r>", nullptr, &r, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(parseBuf("", r), -1);
    for (const char *bad : {"<r>", "<r></s>", "<r a=1/>", "<r>&#0;</r>", "<r>&#x;</r>", "x"}) {
        EXPECT_EQ(parseBuf(bad, r), -1) << bad;
        XmlRecorder viaFd;
        EXPECT_EQ(parseFd(bad, viaFd), -1) << bad;
    }
    // A stream that ends at once.
    DigestParse empty = parseWithDigest("", 0);
    EXPECT_EQ(empty.result, -1);
    EXPECT_TRUE(parseMapEmpty());
}

} // namespace
