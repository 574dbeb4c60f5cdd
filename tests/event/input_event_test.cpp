// SPDX-License-Identifier: MIT
// Input events on the simulated clock: what goes on the bus and to the callback for each way an
// input event ends, extension timing, refused input, teardown, and concurrent use.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace pu::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using StateKey = std::pair<std::int32_t, std::uint32_t>;

constexpr const char *kModule = "basalt.utils.inputEvent";

// What went on the bus and what the callbacks received, in order.
struct Seen {
    std::mutex mutex;
    std::vector<StateKey> announced;
    std::vector<std::uint32_t> lengths;
    std::vector<StateKey> calledA;
    std::vector<StateKey> calledB;
};

Seen &seen() {
    static Seen instance;
    return instance;
}

void onInputEvent(const char *, void *, void *data, std::uint32_t length) {
    const auto *msg = static_cast<const uInputEventMsg *>(data);
    std::lock_guard lock(seen().mutex);
    seen().announced.emplace_back(msg->state, msg->key);
    seen().lengths.push_back(length);
}

void callbackA(std::int32_t state, std::uint32_t value) {
    std::lock_guard lock(seen().mutex);
    seen().calledA.emplace_back(state, value);
}

void callbackB(std::int32_t state, std::uint32_t value) {
    std::lock_guard lock(seen().mutex);
    seen().calledB.emplace_back(state, value);
}

std::vector<StateKey> announced() {
    std::lock_guard lock(seen().mutex);
    return seen().announced;
}
std::vector<StateKey> calledA() {
    std::lock_guard lock(seen().mutex);
    return seen().calledA;
}
std::vector<StateKey> calledB() {
    std::lock_guard lock(seen().mutex);
    return seen().calledB;
}

void execute(std::int32_t state, std::uint32_t key) {
    const uInputEventMsg msg{state, key};
    uInputEventExecute(&msg);
}

class InputEventTest : public TimerTest {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        {
            std::lock_guard lock(seen().mutex);
            seen().announced.clear();
            seen().lengths.clear();
            seen().calledA.clear();
            seen().calledB.clear();
        }
        uEventCare(U_INPUT_EVENT_NAME, onInputEvent, nullptr);
        uInputEventInit();
    }
    void TearDown() override {
        LogCapture quiet;
        uInputEventUninit();
        uEventClear(U_INPUT_EVENT_NAME, onInputEvent);
        platformSimWaitPoolsIdle();
    }
};

TEST_F(InputEventTest, TimeOutAnnouncesAndCallsBackWithZeroNotTheKey) {
    ASSERT_EQ(uInputEventStart(7, 2, callbackA), 0);
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 7}));
    advance(1999);
    EXPECT_THAT(calledA(), IsEmpty());
    advance(1);
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 7}, StateKey{2, 7}));
    EXPECT_THAT(calledA(), ElementsAre(StateKey{2, 0}));
    {
        std::lock_guard lock(seen().mutex);
        EXPECT_THAT(seen().lengths, ElementsAre(8U, 8U));
    }

    // The key is gone once timed out, and can be started afresh.
    LogCapture capture;
    uInputEventStop(7);
    EXPECT_EQ(capture.count(2, kModule, "uInputEventStop, input event do not exist."), 1)
        << capture.dump();
    EXPECT_EQ(uInputEventStart(7, 1, callbackA), 0);
    EXPECT_EQ(announced().back(), (StateKey{0, 7}));
}

TEST_F(InputEventTest, StartingAPendingKeyAgainReplacesTimeOutAndCallbackSilently) {
    ASSERT_EQ(uInputEventStart(3, 5, callbackA), 0);
    advance(4000);
    ASSERT_EQ(uInputEventStart(3, 2, callbackB), 0); // restarts from now with 2 s
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 3}));
    advance(1999);
    EXPECT_THAT(calledB(), IsEmpty());
    advance(1);
    EXPECT_THAT(calledB(), ElementsAre(StateKey{2, 0}));
    EXPECT_THAT(calledA(), IsEmpty());
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 3}, StateKey{2, 3}));
}

TEST_F(InputEventTest, ExtendingRestartsTheWholeTimeOutFromNow) {
    ASSERT_EQ(uInputEventStart(9, 3, callbackA), 0);
    advance(2500);
    execute(U_INPUT_EVENT_EXTEND, 9);
    advance(2999); // 5.5 s after the start: the original time-out has long passed
    EXPECT_THAT(calledA(), IsEmpty());
    execute(U_INPUT_EVENT_EXTEND, 9); // the stored time-out is used again
    advance(2999);
    EXPECT_THAT(calledA(), IsEmpty());
    advance(1);
    EXPECT_THAT(calledA(), ElementsAre(StateKey{2, 0}));
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 9}, StateKey{2, 9}));
}

TEST_F(InputEventTest, FinalStatesEndThroughTheCallbackOnlyAndStopThroughTheBusOnly) {
    ASSERT_EQ(uInputEventStart(1, 2, callbackA), 0);
    ASSERT_EQ(uInputEventStart(2, 2, callbackB), 0);
    ASSERT_EQ(uInputEventStart(3, 2, callbackA), 0);
    execute(U_INPUT_EVENT_DONE, 1);
    execute(U_INPUT_EVENT_DONE_OTHER, 2);
    uInputEventStop(3);
    EXPECT_THAT(calledA(), ElementsAre(StateKey{3, 1}));
    EXPECT_THAT(calledB(), ElementsAre(StateKey{4, 2}));
    EXPECT_THAT(announced(),
                ElementsAre(StateKey{0, 1}, StateKey{0, 2}, StateKey{0, 3}, StateKey{1, 3}));
    advance(5000); // every timer went with its input event
    EXPECT_EQ(calledA().size() + calledB().size(), 2U);
    EXPECT_EQ(announced().size(), 4U);
}

TEST_F(InputEventTest, RefusedInputIsLoggedAndChangesNothing) {
    LogCapture capture;
    EXPECT_EQ(uInputEventStart(4, 0, callbackA), -1);
    EXPECT_EQ(uInputEventStart(4, 1, nullptr), -1);
    EXPECT_EQ(uInputEventStart(4, 2147484, callbackA), -1); // its milliseconds would not fit
    EXPECT_EQ(capture.count(2, kModule, "uInputEventStart, argument is not valid."), 3);
    EXPECT_EQ(uInputEventStart(4, 2147483, callbackA), 0);
    EXPECT_EQ(capture.count(1, kModule, "uInputEventStart, starting."), 1);

    uInputEventExecute(nullptr);
    EXPECT_EQ(capture.count(2, kModule, "uInputEventExecute, msg is null."), 1);
    for (std::int32_t state : {-1, 0, 1, 2, 6}) {
        execute(state, 4);
    }
    EXPECT_EQ(capture.count(2, kModule, "uInputEventExecute, state is incorrect."), 5);
    execute(U_INPUT_EVENT_DONE, 5);
    EXPECT_EQ(capture.count(1, kModule, "uInputEventExecute, executing."), 1);
    EXPECT_EQ(capture.count(2, kModule, "uInputEventExecute, input event do not exist."), 1);
    uInputEventStop(5);
    EXPECT_EQ(capture.count(1, kModule, "uInputEventStop, stopping."), 1);
    EXPECT_EQ(capture.count(2, kModule, "uInputEventStop, input event do not exist."), 1);

    EXPECT_THAT(calledA(), IsEmpty());
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 4}));
}

TEST_F(InputEventTest, UninitStopsEveryPendingEventAndEverythingRefusesUntilInit) {
    ASSERT_EQ(uInputEventStart(10, 1, callbackA), 0);
    ASSERT_EQ(uInputEventStart(11, 1, callbackA), 0);
    uInputEventUninit();
    EXPECT_THAT(announced(),
                ElementsAre(StateKey{0, 10}, StateKey{0, 11}, StateKey{1, 10}, StateKey{1, 11}));
    advance(2000);
    EXPECT_THAT(calledA(), IsEmpty());

    {
        LogCapture capture;
        EXPECT_EQ(uInputEventStart(10, 1, callbackA), -1);
        execute(U_INPUT_EVENT_DONE, 10);
        uInputEventStop(10);
        uInputEventUninit();
        for (const char *name :
             {"uInputEventStart", "uInputEventExecute", "uInputEventStop", "uInputEventUninit"}) {
            EXPECT_EQ(capture.count(2, kModule, std::string(name) + ", not init."), 1) << name;
        }
    }
    uInputEventInit();
    EXPECT_EQ(uInputEventStart(10, 1, callbackA), 0);
    advance(1000);
    EXPECT_THAT(calledA(), ElementsAre(StateKey{2, 0}));
}

TEST_F(InputEventTest, ASecondInitForgetsPendingEventsAndTheirTimers) {
    ASSERT_EQ(uInputEventStart(20, 2, callbackA), 0);
    {
        LogCapture capture;
        uInputEventInit();
        EXPECT_EQ(capture.count(2, kModule, "uInputEventInit, already init."), 1);
    }
    advance(1000);
    // Started again under the same key: the forgotten event's timer must not end this one.
    ASSERT_EQ(uInputEventStart(20, 2, callbackB), 0);
    advance(1000);
    EXPECT_THAT(calledB(), IsEmpty());
    advance(1000);
    EXPECT_THAT(calledB(), ElementsAre(StateKey{2, 0}));
    EXPECT_THAT(calledA(), IsEmpty());
    EXPECT_THAT(announced(), ElementsAre(StateKey{0, 20}, StateKey{0, 20}, StateKey{2, 20}));
}

// Several threads start, extend, finish and stop their own keys while time-outs fire.
TEST_F(InputEventTest, ConcurrentUseWhileTimeOutsFire) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &running] {
            for (int round = 0; round < kRounds; ++round) {
                const auto key = static_cast<std::uint32_t>(100 + t * 10 + round % 10);
                uInputEventStart(key, 1 + round % 2, callbackA);
                switch (round % 4) {
                case 0:
                    execute(U_INPUT_EVENT_EXTEND, key);
                    break;
                case 1:
                    execute(U_INPUT_EVENT_DONE, key);
                    break;
                case 2:
                    uInputEventStop(key);
                    break;
                default:
                    break; // left to time out
                }
            }
            running.fetch_sub(1);
        });
    }
    {
        LogCapture quiet;
        while (running.load() > 0) {
            advance(500);
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        advance(2000); // every event still pending times out
    }
    // Every start that announced ended exactly once: stopped, timed out or finished.
    int started = 0, ended = 0;
    for (const StateKey &event : announced()) {
        started += event.first == 0;
        ended += event.first == 1 || event.first == 2;
    }
    int finished = 0;
    for (const StateKey &call : calledA()) {
        finished += call.first == U_INPUT_EVENT_DONE;
    }
    EXPECT_GT(started, 0);
    EXPECT_EQ(started, ended + finished);
}

} // namespace
} // namespace pu::test
