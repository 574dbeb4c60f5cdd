// SPDX-License-Identifier: MIT
// Input events on the simulated clock: what goes on the bus and to the callback for each way an
// input event ends, restart and extension timing, refused input, teardown, concurrent use.
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
         },
         "b0,7"},
        {"restarted, 1 ms early", [] { advance(1999); }, ""},
        {"restarted, timed out", [] { advance(1); }, "b2,7 B2,0"},
        {"extended twice: the whole time-out each time",
         [] {
             uInputEventStart(k, 3, callbackA), advance(2500), execute(5, k), advance(2999);
             execute(5, k), advance(2999);
         },
         "b0,7"},
        {"extended, timed out", [] { advance(1); }, "b2,7 A2,0"},
        {"done", [] { uInputEventStart(k, 2, callbackA), execute(3, k), advance(3000); },
         "b0,7 A3,7"},
        {"done other", [] { uInputEventStart(k, 2, callbackB), execute(4, k); }, "b0,7 B4,7"},
        {"stopped", [] { uInputEventStart(k, 2, callbackA), uInputEventStop(k), advance(3000); },
         "b0,7 b1,7"},
        {"a second init forgets, timers too",
         [] {
             uInputEventStart(k, 2, callbackA), uInputEventInit(), advance(1000);
             uInputEventStart(k, 2, callbackB), advance(1999);
         },
         "b0,7 b0,7"},
        {"the new one timed out", [] { advance(1); }, "b2,7 B2,0"},
        {"refused input",
         [] {
             for (std::uint32_t seconds : {0U, 2147484U, 4294968U}) { // ms must fit an int32
                 uInputEventStart(k, seconds, callbackA);
             }
             uInputEventStart(k, 1, nullptr), uInputEventStart(4, 2147483, callbackA);
             uInputEventExecute(nullptr);
             for (std::int32_t state : {-1, 0, 1, 2, 6}) {
                 execute(state, 4);
             }
             execute(3, 5), uInputEventStop(5);
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

} // namespace
} // namespace pu::test
