// SPDX-License-Identifier: MIT
// The event families. The named event bus: which slots a probe passes and which a clear strands,
// the full table, concurrent use. Input events on the simulated clock: what goes on the bus and to
// the callback for each way an event ends, extension timing, refused input, teardown, concurrent
// use. The task execution monitor: when overruns are reported, which brackets a stop closes, how
// names and tags match. Then each uMalloc failing in turn, and every exact log text.
// That a care is found by the next raise whatever the slots do is the event_bus fuzz target's.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <call_table.hpp>
#include <log_capture.hpp>
#include <test_support.hpp>

namespace pu::test {
namespace {

CallRecorder<std::string> calls;

// Distinct callbacks, since the bus keeps one registration per function; each records
// "<n> <name> <userData> <data> <length>" (pointers as numbers).
template <int N> void carer(const char *name, void *user, void *data, std::uint32_t length) {
    calls.record(std::to_string(N) + " " + name + " " + std::to_string(std::uintptr_t(user)) + " " +
                 std::to_string(std::uintptr_t(data)) + " " + std::to_string(length));
}
template <int... N> constexpr auto carersOf(std::integer_sequence<int, N...>) {
    return std::array<uEventCallback, sizeof...(N)>{carer<N>...};
}
constexpr auto kCarers = carersOf(std::make_integer_sequence<int, 12>{});

struct EventBus : ::testing::Test {
    void SetUp() override { uEventUninit(), calls.clear(); }
    void TearDown() override { uEventUninit(); }
    LogCapture quiet_;
};

// The skip-th name (from 0) whose probe starts at slot.
std::string nameAt(std::uint32_t slot, int skip) {
    for (int i = 0;; ++i) {
        if (rsHash(std::to_string(i).c_str(), 256) == slot && skip-- == 0) {
            return std::to_string(i);
        }
    }
}

TEST_F(EventBus, AClearStrandsTheEventsWhoseProbePassedTheFreedSlot) {
    // Names cared in order by their start slots, the one cleared, whether a raise then finds each.
    using Row = std::tuple<const char *, std::vector<std::uint32_t>, std::size_t, std::vector<int>>;
    for (const auto &[label, starts, cleared, known] : {
             Row{"a slot it probed past freed", {40, 41, 40}, 1, {1, 0, 0}},
             Row{"slot 0 is never released", {255, 255, 0}, 1, {1, 1, 1}},
             Row{"slot 1 is released", {1, 1}, 0, {0, 0}},
         }) {
        SCOPED_TRACE(label);
        SetUp();
        std::vector<std::string> names;
        int uses[256] = {};
        for (std::uint32_t start : starts) {
            names.push_back(nameAt(start, uses[start]++));
            ASSERT_EQ(uEventCare(names.back().c_str(), kCarers[names.size()], nullptr), 1);
        }
        EXPECT_EQ(uEventClear(names[cleared].c_str(), kCarers[cleared + 1]), 1);
        int called = 0;
        for (std::size_t i = 0; i < names.size(); ++i) {
            EXPECT_EQ(uEventRaise(names[i].c_str(), nullptr, 0), known[i]) << names[i];
            called += i != cleared ? known[i] : 0;
        }
        EXPECT_EQ(calls.size(), static_cast<std::size_t>(called)); // an emptied slot calls nobody
    }
}

TEST_F(EventBus, TheTableHoldsTwoHundredFiftySixEvents) {
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(uEventCare(std::to_string(i).c_str(), kCarers[0], nullptr), 1) << i;
    }
    EXPECT_EQ(uEventCare("one-too-many", kCarers[0], nullptr), 0);
    EXPECT_EQ(quiet_.count(3, "basalt.utils.event", "Event hash buffer full."), 1);
    EXPECT_EQ(uEventRaise("one-too-many", nullptr, 0), 0); // the probe goes round and stops
    EXPECT_EQ(uEventClear("7", kCarers[5]), 1);            // a callback it never had: still done
    EXPECT_EQ(uEventClear("7", kCarers[0]), 1);
    EXPECT_EQ(uEventCare(nullptr, kCarers[1], nullptr) + uEventClear(nullptr, kCarers[0]) +
                  uEventRaise(nullptr, nullptr, 0) + uEventCare("8", nullptr, nullptr),
              1); // no name: refused; no callback: taken as done
    EXPECT_EQ(uEventCare("one-too-many", kCarers[0], nullptr), 1); // into the released slot
}

// A carer that changes its own event, then has another thread use the bus meanwhile.
std::optional<BlockedCall<std::int32_t>> otherThread;
void changesItsEvent(const char *name, void *, void *, std::uint32_t) {
    uEventClear(name, kCarers[3]);
    uEventCare(name, kCarers[2], nullptr);
    otherThread.emplace([] { return uEventCare("elsewhere", kCarers[1], nullptr); });
    calls.record(otherThread->stillBlocked(std::chrono::seconds(2)) ? "blocked" : "free");
}

TEST_F(EventBus, ARaiseCallsWhatItFoundWithTheLockGivenBack) {
    uEventCare("door", changesItsEvent, nullptr);
    uEventCare("door", kCarers[3], tag(5));
    EXPECT_EQ(uEventCare("door", kCarers[3], tag(99)), 1); // kept once, with its first userData
    EXPECT_EQ(uEventRaise("door", tag(7), 6), 1);
    EXPECT_EQ(otherThread->result(), 1);
    otherThread.reset();
    // In registration order; carer 3, cleared meanwhile, is still called; carer 2, cared
    // meanwhile, is not.
    EXPECT_THAT(calls.values(), testing::ElementsAre("free", "3 door 5 7 6"));
}

TEST_F(EventBus, ARaiseBeyondTheStackCopiesReadsUnderTheLockAndCallsEveryCarer) {
    // Slot 0, a carer without a callback first, then nine: one more than the stack copies hold.
    const std::string name = nameAt(0, 0);
    uEventCare(name.c_str(), nullptr, nullptr);
    for (int i = 0; i < 9; ++i) {
        uEventCare(name.c_str(), kCarers[i], nullptr);
    }
    EXPECT_EQ(uEventRaise(name.c_str(), nullptr, 0), 1);
    EXPECT_EQ(calls.size(), 9U);
}

TEST_F(EventBus, ConcurrentCaresClearsAndRaises) {
    // Raisers meet carers and clearers of other callbacks, whose records the bus reuses: each
    // raise calls carer 0 once, and no call pairs a callback with another carer's userData.
    uEventCare("busy", kCarers[0], nullptr);
    fanOut(4, [](int t) {
        for (int i = 0; i < 1000; ++i) {
            t < 2 ? uEventRaise("busy", nullptr, 0)
                  : uEventCare("busy", kCarers[t], tag(t)) + uEventClear("busy", kCarers[t]);
        }
    });
    const std::vector<std::string> seen = calls.values();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "0 busy 0 0 0"), 2000);
    for (const std::string &call : seen) {
        EXPECT_TRUE(call == "2 busy 2 0 0" || call == "3 busy 3 0 0" || call == "0 busy 0 0 0")
            << call;
    }
}

// Input events record "b<state>,<key>" for an INPUT_EVENT raise, "A<state>,<value>" for calls of
// callbackA.
void onInputEvent(const char *, void *, void *data, std::uint32_t length) {
    const auto *msg = static_cast<uInputEventMsg *>(data);
    EXPECT_EQ(length, 8U);
    calls.record("b" + std::to_string(msg->state) + "," + std::to_string(msg->key));
}
void callbackA(std::int32_t state, std::uint32_t value) {
    calls.record("A" + std::to_string(state) + "," + std::to_string(value));
}
void execute(std::int32_t state, std::uint32_t key) {
    const uInputEventMsg msg{state, key};
    uInputEventExecute(&msg);
}

struct InputEvent : TimerTest {
    void SetUp() override {
        TimerTest::SetUp();
        uEventCare(U_INPUT_EVENT_NAME, onInputEvent, nullptr);
        uInputEventInit();
        calls.clear();
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
    const std::tuple<const char *, void (*)(), std::vector<std::string>> steps[] = {
        {"1 ms early", [] { uInputEventStart(k, 2, callbackA), advance(1999); }, {"b0,7"}},
        {"timed out", [] { advance(1); }, {"b2,7", "A2,0"}},
        {"extended: the whole time-out again",
         [] { uInputEventStart(k, 3, callbackA), advance(2500), execute(5, k), advance(2999); },
         {"b0,7"}},
        {"extended, timed out", [] { advance(1); }, {"b2,7", "A2,0"}},
        {"done",
         [] { uInputEventStart(k, 2, callbackA), execute(3, k), advance(3000); },
         {"b0,7", "A3,7"}},
        {"stopped",
         [] { uInputEventStart(k, 2, callbackA), uInputEventStop(k), advance(3000); },
         {"b0,7", "b1,7"}},
        {"refused input",
         [] {
             uInputEventStart(k, 2147484, callbackA), uInputEventStart(k, 1, nullptr);
             uInputEventStart(4, 2147483, callbackA), execute(2, 4); // the time-out in ms: int32
         },
         {"b0,4"}},
        {"uninit stops all in order, then refuses",
         [] {
             uInputEventStart(k, 1, callbackA), uInputEventStart(9, 1, callbackA);
             uInputEventUninit(), uInputEventStart(k, 1, callbackA), advance(2000);
         },
         {"b0,7", "b0,9", "b1,4", "b1,7", "b1,9"}},
    };
    for (const auto &[label, step, expected] : steps) {
        SCOPED_TRACE(label);
        calls.clear();
        step();
        EXPECT_EQ(calls.values(), expected);
    }
}

// Threads start, extend, finish and stop their own keys while time-outs fire: every start that
// was announced ends once, stopped or timed out on the bus or finished through the callback.
TEST_F(InputEvent, ConcurrentUseWhileTimeOutsFire) {
    std::atomic<int> running{5}; // the clock runs until it is the last
    fanOut(5, [&](int t) {
        while (t == 4 && running.load() > 1) {
            advance(500);
        }
        for (std::uint32_t round = 0; t < 4 && round < 200; ++round) {
            const std::uint32_t key = 100 + t * 10 + round % 10;
            uInputEventStart(key, 1 + round % 2, callbackA);
            round % 4 == 0   ? execute(5, key)
            : round % 4 == 1 ? execute(3, key)
            : round % 4 == 2 ? uInputEventStop(key)
                             : void();
        }
        --running;
    });
    advance(2000); // what is still pending times out
    int balance = 0;
    for (const std::string &one : calls.values()) {
        balance += one.starts_with("b0,") ? 1 : one.starts_with("A2,") ? 0 : -1;
    }
    EXPECT_GT(calls.size(), 0U);
    EXPECT_EQ(balance, 0);
}

// Waits for "tMonitor" to work through its queue and end after uMonitorUninit.
bool waitForQuit() {
    for (int i = 0; i < 10000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        if (std::atomic_ref(gMonitorMsgQ).load() == 0 &&
            std::atomic_ref(gMonitorList).load() == nullptr) {
            return true;
        }
    }
    return false;
}

std::string expired(const std::string &name, const std::string &tag, int ms) {
    return "monitorLogOutput: ~~~~~~[" + name + "][0x" + tag + "] expired, occupy [" +
           std::to_string(ms) + "]ms.~~~~~~";
}

char a1[] = "a1", b2[] = "b2", alsoA1[] = "a1";

// One message: a start (with its limit) or a stop (limit -1), at ms after the scenario began.
struct Msg {
    const char *name;
    char *tag;
    std::uint32_t ms;
    std::int32_t limit = -1;
};

TEST(Monitor, OverrunsAreReportedAtTheirStopOrFromOneSecondOnByAnyMessage) {
    // Messages to a fresh monitor whose clock reads nowMs after the start, and the reports. A stop
    // reports any overrun of what it closes: the first match by name text and tag pointer. At the
    // limit is no overrun. Other messages report only overruns of a second or more, and a quit
    // drops what is still open ("l") unreported.
    using Row = std::tuple<std::uint32_t, std::vector<Msg>, std::vector<std::string>>;
    for (const auto &[nowMs, msgs, reports] : {
             Row{0,
                 {{"x", a1, 0, 5}, {"x", a1, 5}, {nullptr, nullptr, 0, 9}, {nullptr, nullptr, 10}},
                 {expired("", "", 10)}},
             Row{0,
                 {{"j", a1, 0, 10}, {"j", alsoA1, 0, 10}, {"j", alsoA1, 20}, {"j", a1, 30}},
                 {expired("j", "a1", 20), expired("j", "a1", 30)}},
             Row{1000,
                 {{"l", a1, 0, 10}, {"o", b2, 999, 10000}, {"o", b2, 999}, {"none", b2, 1000}},
                 {expired("l", "a1", 1000), expired("l", "a1", 1000)}},
         }) {
        SCOPED_TRACE(nowMs);
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
}

const AllocCase kAllocCases[] = {
    {"EventRaiseToManyCarers",
     [](const FailAlloc &) {
         // Without a copy of the carers the raise calls them under the bus lock: all still run.
         calls.clear();
         EXPECT_EQ(uEventRaise("sweep", nullptr, 0), 1);
         EXPECT_EQ(calls.size(), 9U);
     }},
    {"InputEventStartExtendAndFinish",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         const bool started = !steps.failed(uInputEventStart(4, 3, callbackA) != 0);
         const bool hitBefore = fault.hit();
         execute(5, 4); // an extension that cannot relink ends the event quietly
         calls.clear();
         execute(3, 4);
         if (fault.hit() == hitBefore) {
             EXPECT_EQ(calls.size(), started ? 1U : 0U);
         }
         // The lock is free and the key usable again. (After a failure while the event's timer was
         // deleted, its key may stay refused until that timer fires.)
         const bool hitBeforeAgain = fault.hit();
         const bool again = uInputEventStart(4, 3, callbackA) == 0;
         EXPECT_TRUE(hitBeforeAgain || again != fault.hit());
         uInputEventStop(4);
     }},
};

// Nine distinct carers: one more than a raise copies on its own stack, so the raise allocates.
struct EventAllocFailure : InputEvent, testing::WithParamInterface<AllocCase> {
    void SetUp() override {
        InputEvent::SetUp();
        for (int i = 0; i < 9; ++i) {
            ASSERT_EQ(uEventCare("sweep", kCarers[i], nullptr), 1);
        }
    }
    void TearDown() override {
        uEventUninit();
        InputEvent::TearDown();
    }
};

PU_ALLOC_FAILURE_SWEEP(EventAllocFailure, kAllocCases);

// Every exact log text of the event families, with its level and module: log filters and
// monitoring match on them, misspellings included. (The monitor's expiry report is checked with
// its figures above, the full table's with the table.)

// Runs call with the input events shut down, and starts them again.
void uninitialised(const std::function<void()> &call) {
    uInputEventUninit(), call(), uInputEventInit();
}

TEST(EventLogCatalogue, EveryMessageWithItsLevelAndModule) {
    timerPowerHandle(); // input events need the timer service
    constexpr const char *ev = "basalt.utils.event", *mon = "basalt.utils.monitor",
                         *in = "basalt.utils.inputEvent";
    {
        LogCapture quiet;
        uEventUninit(), uEventInit(), uInputEventInit();
    }
    checkLogRows({
        PU_LOG_ROW(uEventInit(), 1, ev, "Event is alreday init."),
        PU_LOG_ROW((uEventUninit(), uEventUninit()), 1, ev, "Event not init."),
        PU_LOG_ROW((uEventCare("e", kCarers[0], nullptr), uEventCare("e", kCarers[0], nullptr)), 0,
                   ev, "eventprocess has existed"),
        PU_LOG_ROW(uEventClear("e", kCarers[1]), 0, ev, "This eventprocess didn't exist"),
        PU_LOG_ROW(uEventRaise("nobody", nullptr, 0), 0, ev, "No module care event nobody."),
        PU_LOG_ROW((uMonitorInit(), uMonitorUninit(), waitForQuit()), 1, mon,
                   "uMonitorInit: success."),
        PU_LOG_ROW(uMonitorUninit(), 2, mon, "uMonitorUninit: msg Queue not create."),
        PU_LOG_ROW(uInputEventInit(), 2, in, "uInputEventInit, already init."),
        PU_LOG_ROW(uInputEventStart(1, 0, callbackA), 2, in,
                   "uInputEventStart, argument is not valid."),
        PU_LOG_ROW(uInputEventStart(1, 1, callbackA), 1, in, "uInputEventStart, starting."),
        PU_LOG_ROW(uInputEventStop(1), 1, in, "uInputEventStop, stopping."),
        PU_LOG_ROW(uInputEventStop(1), 2, in, "uInputEventStop, input event do not exist."),
        PU_LOG_ROW(uInputEventExecute(nullptr), 2, in, "uInputEventExecute, msg is null."),
        PU_LOG_ROW(execute(6, 1), 2, in, "uInputEventExecute, state is incorrect."),
        PU_LOG_ROW(execute(3, 1), 1, in, "uInputEventExecute, executing."),
        PU_LOG_ROW(execute(3, 1), 2, in, "uInputEventExecute, input event do not exist."),
        PU_LOG_ROW(uninitialised([] { uInputEventUninit(); }), 2, in,
                   "uInputEventUninit, not init."),
        PU_LOG_ROW(uninitialised([] { uInputEventStart(1, 1, callbackA); }), 2, in,
                   "uInputEventStart, not init."),
        PU_LOG_ROW(uninitialised([] { execute(3, 1); }), 2, in, "uInputEventExecute, not init."),
        PU_LOG_ROW(uninitialised([] { uInputEventStop(1); }), 2, in, "uInputEventStop, not init."),
    });
    LogCapture quiet;
    uEventUninit();
}

} // namespace
} // namespace pu::test
