// SPDX-License-Identifier: MIT
// The task execution monitor: when overruns are reported, which brackets a stop closes, how names
// and tags match, and that nothing is left behind when the monitor is not running or quits.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pu::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kModule = "basalt.utils.monitor";
// Simulated up-time in ms at which the current scenario begins.
std::uint32_t t0 = 0;

std::string expired(const std::string &name, const std::string &tag, int ms) {
    return "monitorLogOutput: ~~~~~~[" + name + "][0x" + tag + "] expired, occupy [" +
           std::to_string(ms) + "]ms.~~~~~~";
}

bool monitorGone() {
    return std::atomic_ref<uList *>(gMonitorList).load() == nullptr &&
           std::atomic_ref<std::uint32_t>(gMonitorMsgQ).load() == 0;
}

// Waits for "tMonitor" to work through its queue and end after uMonitorUninit.
void waitForQuit() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!monitorGone() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(monitorGone());
}

// Runs one scenario against a fresh monitor with the up-time at t0 + nowOffset (the "now" of
// start messages) and returns the expiry lines it logged, in order. The simulated clock only
// moves forward, through the timer harness, so the timer suites sharing it see no jump.
template <typename Script> std::vector<std::string> scenario(std::uint32_t nowOffset, Script run) {
    timerPowerHandle(); // simulated clock on
    t0 = osaGetSysUpMs();
    advance(nowOffset);
    LogCapture capture;
    uMonitorInit();
    run();
    EXPECT_EQ(uMonitorUninit(), 0);
    waitForQuit();
    std::vector<std::string> lines;
    for (const LogLine &line : capture.lines()) {
        if (line.module == kModule && line.message.find("expired") != std::string::npos) {
            EXPECT_EQ(line.level, 2);
            lines.push_back(line.message);
        }
    }
    return lines;
}

char tagA[] = "a1", tagB[] = "b2", tagC[] = "c3";

TEST(Monitor, AnOverrunIsReportedAtItsStopWhateverItsSize) {
    EXPECT_THAT(scenario(0,
                         [] {
                             uMonitorStart("load", tagA, t0, 1000);
                             uMonitorStop("load", tagA, t0 + 1500);
                         }),
                ElementsAre(expired("load", "a1", 1500)));
    // Exactly at the limit is not an overrun; one millisecond past it is, even a short one.
    EXPECT_THAT(scenario(0,
                         [] {
                             uMonitorStart("exact", tagA, t0, 500);
                             uMonitorStop("exact", tagA, t0 + 500);
                             uMonitorStart("short", tagA, t0, 5);
                             uMonitorStop("short", tagA, t0 + 6);
                         }),
                ElementsAre(expired("short", "a1", 6)));
}

TEST(Monitor, OpenBracketsAreReportedByOtherMessagesOnlyFromOneSecondOn) {
    // 600 ms into a 500 ms bracket: later messages keep quiet, its own stop reports it.
    EXPECT_THAT(scenario(600,
                         [] {
                             uMonitorStart("small", tagA, t0, 500);
                             uMonitorStart("other", tagB, t0 + 600, 10000);
                             uMonitorStop("other", tagB, t0 + 600);
                             uMonitorStop("small", tagA, t0 + 600);
                         }),
                ElementsAre(expired("small", "a1", 600)));
    // 999 ms over a limit of 10 is still quiet; from 1000 ms on every message reports it.
    EXPECT_THAT(scenario(1000,
                         [] {
                             uMonitorStart("long", tagA, t0, 10);
                             uMonitorStart("other", tagB, t0 + 999, 10000); // now: 1000
                             uMonitorStop("other", tagB, t0 + 999);
                             uMonitorStop("none", tagB, t0 + 1000); // closes nothing
                         }),
                ElementsAre(expired("long", "a1", 1000), expired("long", "a1", 1000)));
}

TEST(Monitor, AStopClosesTheMatchingBracketAndEveryLaterOne) {
    EXPECT_THAT(scenario(0,
                         [] {
                             uMonitorStart("outer", tagA, t0, 100000);
                             uMonitorStart("middle", tagB, t0 + 10, 100);
                             uMonitorStart("inner", tagC, t0 + 20, 100000);
                             uMonitorStop("outer", tagA, t0 + 200);
                             // Both later brackets went with "outer": stopping them late
                             // reports nothing.
                             uMonitorStop("middle", tagB, t0 + 50000);
                             uMonitorStop("inner", tagC, t0 + 500000);
                         }),
                ElementsAre(expired("middle", "b2", 190)));
}

TEST(Monitor, BracketsMatchByNameTextAndTagPointer) {
    EXPECT_THAT(
        scenario(0,
                 [] {
                     static char sameText[] = "a1"; // tagA's text, another pointer
                     static const std::string name = "job";
                     uMonitorStart("job", tagA, t0, 10);
                     uMonitorStart(name.c_str(), sameText, t0, 10);
                     // Matches the second bracket only: the first is kept.
                     uMonitorStop(name.c_str(), sameText, t0 + 20);
                     uMonitorStop("job", tagA, t0 + 30);
                     // A null name matches a null name and prints as empty.
                     uMonitorStart(nullptr, nullptr, t0, 10);
                     uMonitorStop(nullptr, nullptr, t0 + 40);
                 }),
        ElementsAre(expired("job", "a1", 20), expired("job", "a1", 30), expired("", "", 40)));
}

TEST(Monitor, QuitReleasesOpenBracketsWithoutReportingThem) {
    EXPECT_THAT(scenario(5000,
                         [] {
                             for (int i = 0; i < 20; ++i) {
                                 uMonitorStart("left open", tagA, t0 + 5000, 1);
                             }
                         }),
                IsEmpty());
}

TEST(Monitor, NothingIsPostedOrKeptWhileTheMonitorIsNotRunning) {
    ASSERT_TRUE(monitorGone());
    EXPECT_STREQ(gMonitorLog, kModule);
    LogCapture capture;
    EXPECT_EQ(uMonitorStart("early", tagA, t0, 10), -1); // its name copy must not leak
    EXPECT_EQ(uMonitorStop("early", tagA, t0), -1);
    EXPECT_EQ(uMonitorUninit(), -1);
    EXPECT_EQ(capture.count(2, kModule, "uMonitorUninit: msg Queue not create."), 1);
}

TEST(Monitor, InitReportsSuccessAndASecondInitReplacesTheRunningMonitor) {
    LogCapture capture;
    uMonitorInit();
    const std::uint32_t first = std::atomic_ref<std::uint32_t>(gMonitorMsgQ).load();
    ASSERT_NE(first, 0U);
    uMonitorStart("forgotten", tagA, t0, 1);
    uMonitorInit();
    const std::uint32_t second = std::atomic_ref<std::uint32_t>(gMonitorMsgQ).load();
    EXPECT_NE(second, first);
    EXPECT_EQ(capture.count(1, kModule, "uMonitorInit: success."), 2);
    // The new monitor never saw "forgotten": stopping it reports nothing.
    uMonitorStop("forgotten", tagA, t0 + 100000);
    EXPECT_EQ(uMonitorUninit(), 0);
    waitForQuit();
    EXPECT_EQ(capture.countContaining(kModule, "expired"), 0) << capture.dump();
}

// Holds "tMonitor" inside its first expiry report until released, so the queue can be filled.
class BlockingSink {
  public:
    BlockingSink() { platformSimSetLogSink(sink, this, 1); }
    ~BlockingSink() {
        release();
        platformSimSetLogSink(nullptr, nullptr, 0);
    }
    void waitUntilBlocked() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return blocked_; });
    }
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }

  private:
    static void sink(void *context, int, const char *, const char *message) {
        auto *self = static_cast<BlockingSink *>(context);
        if (std::string(message).find("expired") == std::string::npos) {
            return;
        }
        std::unique_lock lock(self->mutex_);
        self->blocked_ = true;
        self->changed_.notify_all();
        self->changed_.wait(lock, [self] { return self->released_; });
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool blocked_ = false;
    bool released_ = false;
};

TEST(Monitor, AFullQueueRefusesAtOnceAndNothingIsLost) {
    timerPowerHandle();
    t0 = osaGetSysUpMs();
    BlockingSink sink;
    uMonitorInit();
    uMonitorStart("block", tagA, t0, 0);
    uMonitorStop("block", tagA, t0 + 1); // reported: the task now waits in the sink
    sink.waitUntilBlocked();
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(uMonitorStart("queued", tagB, t0, 100000), 0) << i;
    }
    EXPECT_EQ(uMonitorStart("one too many", tagB, t0, 100000), -1);
    EXPECT_EQ(uMonitorStop("one too many", tagB, t0), -1);
    EXPECT_EQ(uMonitorUninit(), -1); // no room for the quit either
    sink.release();
    // Once the queue has room again the quit goes through; the 60 open brackets go with it.
    while (uMonitorUninit() != 0) {
        std::this_thread::yield();
    }
    waitForQuit();
}

} // namespace
} // namespace pu::test
