// SPDX-License-Identifier: MIT
// Input events on the simulated clock: what goes on the bus and to the callback for each way an
// input event ends, restart and extension timing, refused input, teardown, concurrent use. The
// task execution monitor: when overruns are reported, which brackets a stop closes, how names
// and tags match, and what a quit or a monitor that is not running keeps.
#include "timer_harness.hpp"

#include <log_capture.hpp>
#include <test_support.hpp>

namespace pu::test {
namespace {

// In order: "b<state>,<key>" for an INPUT_EVENT raise, "A<state>,<value>" and "B..." for calls
// of callbackA and callbackB.
CallRecorder<std::string> seen;

void record(const char *who, std::int32_t state, std::uint32_t value) {
    seen.record(who + std::to_string(state) + "," + std::to_string(value));
}
void onInputEvent(const char *, void *, void *data, std::uint32_t length) {
    EXPECT_EQ(length, 8U);
    record("b", static_cast<uInputEventMsg *>(data)->state,
           static_cast<uInputEventMsg *>(data)->key);
}
void callbackA(std::int32_t state, std::uint32_t value) {
    record("A", state, value);
}
void callbackB(std::int32_t state, std::uint32_t value) {
    record("B", state, value);
}
void execute(std::int32_t state, std::uint32_t key) {
    const uInputEventMsg msg{state, key};
    uInputEventExecute(&msg);
}

struct InputEvent : TimerTest {
    void SetUp() override {
        TimerTest::SetUp();
        uEventCare(U_INPUT_EVENT_NAME, onInputEvent, nullptr);
    }
    void TearDown() override {
        uEventClear(U_INPUT_EVENT_NAME, onInputEvent);
        platformSimWaitPoolsIdle();
    }
    LogCapture quiet_;
};

constexpr std::uint32_t k = 7;

TEST_F(InputEvent, EachWayAnEventEnds) {
    // Steps taken in turn, each with everything seen meanwhile, in order (a time-out calls back
    // with 0, not the key).
    const std::tuple<const char *, void (*)(), const char *> steps[] = {
        {"1 ms early", [] { uInputEventStart(k, 2, callbackA), advance(1999); }, "b0,7"},
        {"timed out", [] { advance(1); }, "b2,7 A2,0"},
        {"restarted: silently, new time-out and callback",
         [] {
             uInputEventStart(k, 5, callbackA), advance(4000), uInputEventStart(k, 2, callbackB);
             advance(2000);
         },
         "b0,7 b2,7 B2,0"},
        {"extended twice: the whole time-out each time",
         [] {
             uInputEventStart(k, 3, callbackA), advance(2500), execute(5, k), advance(2999);
             execute(5, k), advance(2999);
         },
         "b0,7"},
        {"extended, timed out", [] { advance(1); }, "b2,7 A2,0"},
        {"done", [] { uInputEventStart(k, 2, callbackA), execute(3, k), advance(3000); },
         "b0,7 A3,7"},
        {"stopped", [] { uInputEventStart(k, 2, callbackA), uInputEventStop(k), advance(3000); },
         "b0,7 b1,7"},
        {"refused input",
         [] {
             uInputEventStart(k, 2147484, callbackA), uInputEventStart(k, 1, nullptr);
             uInputEventStart(4, 2147483, callbackA), execute(2, 4); // the time-out in ms: int32
         },
         "b0,4"},
        {"uninit stops all in order, then refuses",
         [] {
             uInputEventStart(k, 1, callbackA), uInputEventStart(9, 1, callbackA),
                 uInputEventUninit();
             uInputEventStart(k, 1, callbackA), advance(2000);
         },
         "b0,7 b0,9 b1,4 b1,7 b1,9"},
    };
    uInputEventInit();
    for (const auto &[label, step, expected] : steps) {
        SCOPED_TRACE(label);
        seen.clear();
        step();
        std::string all;
        for (const std::string &one : seen.values()) {
            all += (all.empty() ? "" : " ") + one;
        }
        EXPECT_EQ(all, expected);
    }
}

// Threads start, extend, finish and stop their own keys while time-outs fire: every start that
// was announced ends once, stopped or timed out on the bus or finished through the callback.
TEST_F(InputEvent, ConcurrentUseWhileTimeOutsFire) {
    uInputEventInit();
    seen.clear();
    std::atomic<int> running{4};
    std::thread clock([&] {
        while (running.load() > 0) {
            advance(500);
        }
    });
    fanOut(4, [&](int t) {
        for (std::uint32_t round = 0; round < 200; ++round) {
            const std::uint32_t key = 100 + t * 10 + round % 10;
            uInputEventStart(key, 1 + round % 2, callbackA);
            round % 4 == 0   ? execute(5, key)
            : round % 4 == 1 ? execute(3, key)
            : round % 4 == 2 ? uInputEventStop(key)
                             : void();
        }
        --running;
    });
    clock.join();
    advance(2000); // what is still pending times out
    int balance = 0;
    for (const std::string &one : seen.values()) {
        balance += one.starts_with("b0,") ? 1 : one.starts_with("A2,") ? 0 : -1;
    }
    EXPECT_GT(seen.size(), 0U);
    EXPECT_EQ(balance, 0);
}

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
             Row{"at the limit: none", 0, {{"x", a1, 0, 500}, {"x", a1, 500}}, {}},
             Row{"1 ms past", 0, {{"x", a1, 0, 5}, {"x", a1, 6}}, {expired("x", "a1", 6)}},
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
            line.level == 2 && line.message.find("expired") != std::string::npos
                ? seen.push_back(line.message)
                : void();
        }
        EXPECT_EQ(seen, reports);
    }
    // Nothing is posted or kept while the monitor is not running.
    LogCapture quiet;
    EXPECT_EQ(uMonitorStart("early", a1, 0, 10), -1); // its name copy must not leak
    EXPECT_EQ(uMonitorStop("early", a1, 0) + uMonitorUninit(), -2);
}

} // namespace
} // namespace pu::test
