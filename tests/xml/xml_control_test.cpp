// SPDX-License-Identifier: MIT
// Suspending, resuming and aborting a parse from its own handlers, the map fallback, and many
// threads doing so at once.
#include <uxmlparser.h>

#include "log_capture.hpp"
#include "xml_test_util.hpp"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace pu::test;

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
