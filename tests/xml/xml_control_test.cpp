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

TEST(XmlControl, PauseInAHandlerKeepsTheParserUntilResumed) {
    XmlRecorder r;
    pauseAt(r, "b");
    ASSERT_EQ(parseBuf(kDoc, r), 0);
    EXPECT_EQ(r.events, kUntilB);
    EXPECT_FALSE(parseMapEmpty());
    EXPECT_EQ(uXmlParserPause(&r, 1), 0); // suspending a suspended parse is refused by expat
    r.onStart = nullptr;
    EXPECT_EQ(uXmlParserPause(&r, 0), 0);
    EXPECT_EQ(r.events, kEvents);
    EXPECT_TRUE(parseMapEmpty());
    EXPECT_EQ(uXmlParserPause(&r, 0), -1) << "nothing left to resume";
}

TEST(XmlControl, ResumeNeverTakesAParseThatIsStillRunning) {
    // A handler at <b> does `before`, then its parse is "resumed" while it is still running, by
    // the handler itself or by another thread (with the parse's own or a stranger's pointer).
    // Only a parse that has returned suspended can be resumed: here the resume gets -1, frees
    // nothing, and the parse goes on as `before` left it.
    enum class Before { Nothing, Suspend, Stop };
    enum class By { Handler, OtherThread, Stranger };
    struct Case {
        const char *what;
        Before before;
        By by;
        bool suspendAtA; // so that <b> runs inside a resume rather than inside the parse
        int32_t parseResult;
        int resumesAfterwards;
        const std::vector<std::string> &events;
    };
    const Case cases[] = {
        {"resume alone", Before::Nothing, By::Handler, false, 0, 0, kEvents},
        {"suspend, resume", Before::Suspend, By::Handler, false, 0, 1, kEvents},
        {"stop, resume", Before::Stop, By::Handler, false, -1, 0, kUntilB},
        {"suspend, other thread resumes", Before::Suspend, By::OtherThread, false, 0, 1, kEvents},
        {"suspend in a resume, other thread resumes", Before::Suspend, By::OtherThread, true, 0, 2,
         kEvents},
        {"stop, stranger resumes on another thread", Before::Stop, By::Stranger, false, -1, 0,
         kUntilB},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture log;
        XmlRecorder r;
        bool acted = false; // once: a wrongly granted resume may deliver <b> again
        r.onStart = [&c, &acted](XmlRecorder &self, const std::string &name) {
            EXPECT_EQ(name == "a" && c.suspendAtA ? uXmlParserPause(&self, 1) : 1, 1);
            if (name != "b" || std::exchange(acted, true)) {
                return;
            }
            if (c.before == Before::Suspend) {
                EXPECT_EQ(uXmlParserPause(&self, 1), 1);
            } else if (c.before == Before::Stop) {
                uXmlParserStop(&self);
            }
            static int stranger;
            void *user = c.by == By::Stranger ? static_cast<void *>(&stranger) : &self;
            const auto resume = [user] { EXPECT_EQ(uXmlParserPause(user, 0), -1); };
            c.by == By::Handler ? resume() : std::thread(resume).join();
        };
        EXPECT_EQ(parseBuf(kDoc, r), c.parseResult);
        for (int i = 0; i < c.resumesAfterwards; ++i) {
            EXPECT_EQ(uXmlParserPause(&r, 0), 0);
        }
        EXPECT_EQ(log.countContaining("utils.xmlparser", "uXmlParserPause"), 1) << log.dump();
        EXPECT_EQ(r.events, c.events);
        EXPECT_TRUE(parseMapEmpty());
    }
    // A suspended parse that is then stopped can only be cleaned up by a resume, which fails.
    XmlRecorder stopped;
    pauseAt(stopped, "b");
    ASSERT_EQ(parseBuf(kDoc, stopped), 0);
    uXmlParserStop(&stopped);
    EXPECT_EQ(uXmlParserPause(&stopped, 0), -1);
    EXPECT_EQ(stopped.events, kUntilB);
    EXPECT_TRUE(parseMapEmpty());
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

TEST(XmlControl, StrangersHandRegisteredParsersAndStop) {
    LogCapture quiet;
    static int stranger, user;
    // Intended: a pointer with no parse of its own reaches the most recent live parse for a
    // resume, but never for a stop.
    XmlRecorder owner;
    owner.onStart = [](XmlRecorder &self, const std::string &name) {
        uXmlParserStop(&stranger);
        EXPECT_EQ(name == "b" ? uXmlParserPause(&self, 1) : 1, 1);
    };
    ASSERT_EQ(parseBuf(kDoc, owner), 0);
    owner.onStart = nullptr;
    EXPECT_EQ(uXmlParserPause(&stranger, 0), 0);
    EXPECT_EQ(owner.events, kEvents);
    // The fallback needs someone to fall back on, and a pointer to begin with.
    EXPECT_EQ(uXmlParserPause(&stranger, 0) + uXmlParserPause(&stranger, 1) +
                  uXmlParserPause(nullptr, 0),
              -3);
    uXmlParserStop(nullptr);
    // A parser entered by hand is reached by pause and stop, but never resumed or freed from
    // the map: its owner frees it after taking it out.
    XML_Parser parser = XML_ParserCreate(nullptr), other = XML_ParserCreate(nullptr);
    uXmlParserAddMapItem(nullptr, &user);
    EXPECT_TRUE(parseMapEmpty());
    uXmlParserAddMapItem(parser, &user);
    EXPECT_EQ(uXmlParserPause(&user, 0), -1);
    EXPECT_EQ(uXmlParserPause(&stranger, 0), -1); // the fallback finds it running as well
    uXmlParserDelMapItem(parser);
    EXPECT_TRUE(parseMapEmpty());
    uXmlParserDelMapItem(parser);
    XML_ParserFree(parser); // still the caller's: a freed parser would fail here under ASan
    // Only the removed parser's entry goes.
    XmlRecorder r;
    pauseAt(r, "b");
    ASSERT_EQ(parseBuf(kDoc, r), 0);
    uXmlParserAddMapItem(other, &user);
    uXmlParserDelMapItem(other);
    XML_ParserFree(other);
    r.onStart = nullptr;
    EXPECT_EQ(uXmlParserPause(&r, 0), 0);
    EXPECT_EQ(r.events, kEvents);
    // A stop from a handler aborts its own parse: nothing is delivered after it.
    for (bool viaFd : {false, true}) {
        XmlRecorder s;
        s.onStart = [](XmlRecorder &self, const std::string &name) {
            name == "b" ? uXmlParserStop(&self) : void();
        };
        EXPECT_EQ(viaFd ? parseFd(kDoc, s) : parseBuf(kDoc, s), -1);
        EXPECT_EQ(s.events, kUntilB);
    }
    EXPECT_TRUE(parseMapEmpty());
}

} // namespace
