// SPDX-License-Identifier: MIT
// The task execution monitor: when overruns are reported, which brackets a stop closes, how names
// and tags match, and what a quit or a monitor that is not running keeps.
#include "timer_harness.hpp"

#include <log_capture.hpp>
#include <test_support.hpp>

namespace pu::test {
namespace {

char a1[] = "a1", b2[] = "b2", sameTextAsA1[] = "a1";
const std::string job = "job"; // another pointer, the same text

// Waits for "tMonitor" to work through its queue and end after uMonitorUninit.
bool waitForQuit() {
    for (int i = 0; i < 10000 && (std::atomic_ref(gMonitorMsgQ).load() != 0 ||
                                  std::atomic_ref(gMonitorList).load() != nullptr);
         ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return std::atomic_ref(gMonitorMsgQ).load() == 0 &&
           std::atomic_ref(gMonitorList).load() == nullptr;
}

std::string expired(const std::string &name, const std::string &tag, int ms) {
    return "monitorLogOutput: ~~~~~~[" + name + "][0x" + tag + "] expired, occupy [" +
           std::to_string(ms) + "]ms.~~~~~~";
}

// One message: a start (with its limit) or a stop (limit -1), at ms after the scenario began.
struct Msg {
    const char *name;
    char *tag;
    std::uint32_t ms;
    std::int32_t limit = -1;
};

TEST(Monitor, OverrunsAreReportedAtTheirStopOrFromOneSecondOnByAnyMessage) {
    // Messages to a fresh monitor whose clock reads nowMs after the start, and the reports.
    using Row = std::tuple<const char *, std::uint32_t, std::vector<Msg>, std::vector<std::string>>;
    for (const auto &[label, nowMs, msgs, reports] : {
             Row{"at its stop",
                 0,
                 {{"load", a1, 0, 1000}, {"load", a1, 1500}},
                 {expired("load", "a1", 1500)}},
             Row{"at the limit: none", 0, {{"x", a1, 0, 500}, {"x", a1, 500}}, {}},
             Row{"1 ms past", 0, {{"x", a1, 0, 5}, {"x", a1, 6}}, {expired("x", "a1", 6)}},
             Row{"others quiet below 1 s",
                 600,
                 {{"s", a1, 0, 500}, {"o", b2, 600, 10000}, {"o", b2, 600}, {"s", a1, 600}},
                 {expired("s", "a1", 600)}},
             Row{"any message from 1 s",
                 1000,
                 {{"l", a1, 0, 10}, {"o", b2, 999, 10000}, {"o", b2, 999}, {"none", b2, 1000}},
                 {expired("l", "a1", 1000), expired("l", "a1", 1000)}},
             Row{"a stop closes later ones",
                 0,
                 {{"out", a1, 0, 100000},
                  {"mid", b2, 10, 100},
                  {"in", a1, 20, 100000},
                  {"out", a1, 200},
                  {"mid", b2, 50000},
                  {"in", a1, 500000}},
                 {expired("mid", "b2", 190)}},
             Row{"name text, tag pointer",
                 0,
                 {{"job", a1, 0, 10},
                  {job.c_str(), sameTextAsA1, 0, 10},
                  {job.c_str(), sameTextAsA1, 20},
                  {"job", a1, 30},
                  {nullptr, nullptr, 0, 10},
                  {nullptr, nullptr, 40}},
                 {expired("job", "a1", 20), expired("job", "a1", 30), expired("", "", 40)}},
             Row{"a quit drops open ones", 5000, {{"o", a1, 5000, 1}, {"o", a1, 5000, 1}}, {}},
         }) {
        SCOPED_TRACE(label);
        timerPowerHandle(); // the simulated clock moves forward only, as the timer suites expect
        const std::uint32_t t0 = osaGetSysUpMs();
        advance(nowMs);
        LogCapture capture;
        uMonitorInit();
        for (const Msg &m : msgs) {
            EXPECT_EQ(m.limit < 0 ? uMonitorStop(m.name, m.tag, t0 + m.ms)
                                  : uMonitorStart(m.name, m.tag, t0 + m.ms, m.limit),
                      0);
        }
        EXPECT_EQ(uMonitorUninit(), 0);
        EXPECT_TRUE(waitForQuit());
        std::vector<std::string> seen;
        for (const LogLine &line : capture.lines()) {
            if (line.level == 2 && line.message.find("expired") != std::string::npos) {
                seen.push_back(line.message);
            }
        }
        EXPECT_EQ(seen, reports);
    }
}

TEST(Monitor, NothingIsPostedOrKeptWhileTheMonitorIsNotRunning) {
    ASSERT_TRUE(waitForQuit());
    LogCapture quiet;
    EXPECT_EQ(uMonitorStart("early", a1, 0, 10), -1); // its name copy must not leak
    EXPECT_EQ(uMonitorStop("early", a1, 0), -1);
    EXPECT_EQ(uMonitorUninit(), -1);
}

} // namespace
} // namespace pu::test
