// SPDX-License-Identifier: MIT
// The named event bus: order and arguments of callbacks, the registration rules, slot 0 and the
// slots that become unreachable, the full table, callbacks that use the bus, and concurrent use.
#include <platform_utils.h>

#include <log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace pu::test {
namespace {

using ::testing::ElementsAre;

constexpr const char *kEventModule = "basalt.utils.event";

// What the callbacks saw, in call order.
struct Call {
    std::string who;
    std::string name;
    void *userData;
    void *data;
    std::uint32_t length;
};

std::mutex callsMutex;
std::vector<Call> calls;

void record(const char *who, const char *name, void *userData, void *data, std::uint32_t length) {
    std::lock_guard lock(callsMutex);
    calls.push_back({who, name, userData, data, length});
}

void first(const char *name, void *userData, void *data, std::uint32_t length) {
    record("first", name, userData, data, length);
}
void second(const char *name, void *userData, void *data, std::uint32_t length) {
    record("second", name, userData, data, length);
}
void third(const char *name, void *userData, void *data, std::uint32_t length) {
    record("third", name, userData, data, length);
}

std::vector<std::string> callers() {
    std::lock_guard lock(callsMutex);
    std::vector<std::string> who;
    for (const Call &call : calls) {
        who.push_back(call.who);
    }
    return who;
}

// A name whose probe starts at slot; skip picks a later one with the same start.
std::string nameStartingAt(std::uint32_t slot, int skip = 0) {
    for (int i = 0;; ++i) {
        std::string name = "event-" + std::to_string(i);
        if (rsHash(name.c_str(), 256) == slot && skip-- == 0) {
            return name;
        }
    }
}

// Every test starts from an empty bus.
class EventBusTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogCapture quiet;
        uEventUninit();
        calls.clear();
    }
    void TearDown() override {
        LogCapture quiet;
        uEventUninit();
    }
};

TEST_F(EventBusTest, CarersAreCalledInRegistrationOrderWithTheirOwnUserData) {
    int a = 0, b = 0, c = 0;
    char payload[] = "payload";
    EXPECT_EQ(uEventCare("door", second, &b), 1);
    EXPECT_EQ(uEventCare("door", first, &a), 1);
    EXPECT_EQ(uEventCare("door", third, &c), 1);
    EXPECT_EQ(uEventRaise("door", payload, 8), 1);
    EXPECT_THAT(callers(), ElementsAre("second", "first", "third"));
    for (const Call &call : calls) {
        EXPECT_EQ(call.name, "door");
        EXPECT_EQ(call.data, payload);
        EXPECT_EQ(call.length, 8U);
    }
    EXPECT_EQ(calls[0].userData, &b);
    EXPECT_EQ(calls[1].userData, &a);
    EXPECT_EQ(calls[2].userData, &c);
}

TEST_F(EventBusTest, CaringTwiceKeepsTheFirstRegistration) {
    int original = 0, replacement = 0;
    LogCapture capture;
    EXPECT_EQ(uEventCare("door", first, &original), 1);
    EXPECT_EQ(uEventCare("door", first, &replacement), 1);
    EXPECT_EQ(capture.count(0, kEventModule, "eventprocess has existed"), 1) << capture.dump();
    uEventRaise("door", nullptr, 0);
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].userData, &original);
}

TEST_F(EventBusTest, RaisingAnEventNobodyCaresFor) {
    LogCapture capture;
    EXPECT_EQ(uEventRaise("nobody", nullptr, 0), 0);
    EXPECT_EQ(capture.count(0, kEventModule, "No module care event nobody."), 1) << capture.dump();
    EXPECT_EQ(uEventRaise(nullptr, nullptr, 0), 0);
    EXPECT_EQ(uEventCare(nullptr, first, nullptr), 0);
    EXPECT_EQ(uEventClear(nullptr, first), 0);
}

TEST_F(EventBusTest, ClearingRemovesOneCarerAndFreesTheSlotWithTheLast) {
    const std::string name = nameStartingAt(17);
    uEventCare(name.c_str(), first, nullptr);
    uEventCare(name.c_str(), second, nullptr);
    {
        LogCapture capture;
        EXPECT_EQ(uEventClear(name.c_str(), third), 1); // known event, unknown callback
        EXPECT_EQ(capture.count(0, kEventModule, "This eventprocess didn't exist"), 1);
        EXPECT_EQ(uEventClear("never-cared", first), 0);
        EXPECT_EQ(capture.countContaining(kEventModule, "never-cared"), 0);
    }
    EXPECT_EQ(uEventClear(name.c_str(), first), 1);
    uEventRaise(name.c_str(), nullptr, 0);
    EXPECT_THAT(callers(), ElementsAre("second"));
    EXPECT_EQ(uEventClear(name.c_str(), second), 1);
    EXPECT_EQ(uEventRaise(name.c_str(), nullptr, 0), 0);
    EXPECT_EQ(uEventClear(name.c_str(), second), 0); // the event is gone
}

TEST_F(EventBusTest, TheSlotAtIndexZeroIsNeverReleased) {
    const std::string name = nameStartingAt(0);
    uEventCare(name.c_str(), first, nullptr);
    EXPECT_EQ(uEventClear(name.c_str(), first), 1);
    EXPECT_EQ(uEventRaise(name.c_str(), nullptr, 0), 1); // still known, with nobody to call
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(uEventClear(name.c_str(), first), 1); // known: logs that the carer is gone
    EXPECT_EQ(uEventCare(name.c_str(), second, nullptr), 1);
    uEventRaise(name.c_str(), nullptr, 0);
    EXPECT_THAT(callers(), ElementsAre("second"));
}

TEST_F(EventBusTest, ReleasingASlotStrandsTheEventProbedPastIt) {
    const std::string early = nameStartingAt(40);
    const std::string late = nameStartingAt(40, 1); // same start: lands in slot 41
    uEventCare(early.c_str(), first, nullptr);
    uEventCare(late.c_str(), second, nullptr);
    EXPECT_EQ(uEventRaise(late.c_str(), nullptr, 0), 1);
    uEventClear(early.c_str(), first);
    // Slot 40 is free again, so the probe for late stops there: late is unknown now.
    EXPECT_EQ(uEventRaise(late.c_str(), nullptr, 0), 0);
    EXPECT_EQ(uEventClear(late.c_str(), second), 0);
    // Caring again makes a fresh slot; the old one and its carer stay out of reach.
    EXPECT_EQ(uEventCare(late.c_str(), third, nullptr), 1);
    calls.clear();
    uEventRaise(late.c_str(), nullptr, 0);
    EXPECT_THAT(callers(), ElementsAre("third"));
}

TEST_F(EventBusTest, TheTableHoldsTwoHundredFiftySixEvents) {
    for (int i = 0; i < 256; ++i) {
        ASSERT_EQ(uEventCare(("event-" + std::to_string(i)).c_str(), first, nullptr), 1) << i;
    }
    LogCapture capture;
    EXPECT_EQ(uEventCare("one-too-many", first, nullptr), 0);
    EXPECT_EQ(capture.count(3, kEventModule, "Event hash buffer full."), 1) << capture.dump();
    EXPECT_EQ(uEventRaise("one-too-many", nullptr, 0), 0);  // the probe goes round and stops
    EXPECT_EQ(uEventCare("event-255", second, nullptr), 1); // known events still take carers
    EXPECT_EQ(uEventRaise("event-255", nullptr, 0), 1);
    EXPECT_THAT(callers(), ElementsAre("first", "second"));
}

TEST_F(EventBusTest, InitAndUninitReportRepeatedCalls) {
    LogCapture capture;
    uEventUninit(); // already uninitialised by SetUp
    EXPECT_EQ(capture.count(1, kEventModule, "Event not init."), 1);
    uEventInit();
    uEventInit();
    EXPECT_EQ(capture.count(1, kEventModule, "Event is alreday init."), 1) << capture.dump();
    uEventCare("door", first, nullptr);
    uEventUninit(); // discards every registration
    EXPECT_EQ(uEventRaise("door", nullptr, 0), 0);
    EXPECT_EQ(capture.count(1, kEventModule, "Event is alreday init."), 1); // lazy: no log
}

// Callbacks that use the bus while a raise is under way.
int nestedDepth = 0;

void raisesAgain(const char *name, void *userData, void *data, std::uint32_t length) {
    record("raisesAgain", name, userData, data, length);
    if (nestedDepth++ == 0) {
        uEventRaise("door", nullptr, 1);   // the same event, once
        uEventRaise("window", nullptr, 2); // another one
    }
}

void clearsTheNext(const char *name, void *userData, void *data, std::uint32_t length) {
    record("clearsTheNext", name, userData, data, length);
    uEventClear("door", third);
    uEventCare("door", second, nullptr);
}

TEST_F(EventBusTest, CallbacksMayRaiseCareAndClear) {
    nestedDepth = 0;
    uEventCare("window", first, nullptr);
    uEventCare("door", raisesAgain, nullptr);
    uEventCare("door", clearsTheNext, nullptr);
    uEventCare("door", third, nullptr);
    EXPECT_EQ(uEventRaise("door", nullptr, 0), 1);
    // Every raise calls the carers it found when it started: third was cleared during the
    // outer raise and is still called by it; second, cared for meanwhile, joins the next raise.
    EXPECT_THAT(callers(), ElementsAre("raisesAgain",   // outer raise
                                       "raisesAgain",   // nested raise of door
                                       "clearsTheNext", //
                                       "third",         //
                                       "first",         // nested raise of window
                                       "clearsTheNext", // outer raise, continued
                                       "third"));
    calls.clear();
    uEventRaise("door", nullptr, 0);
    EXPECT_THAT(callers(), ElementsAre("raisesAgain", "clearsTheNext", "second"));
}

// Distinct callbacks, since the bus keeps one registration per function.
std::atomic<int> crowdSum{0};
template <int N> void crowdMember(const char *, void *, void *, std::uint32_t) {
    crowdSum.fetch_add(N + 1);
}

template <int... N> void careForCrowd(std::integer_sequence<int, N...>) {
    (uEventCare("crowd", crowdMember<N>, nullptr), ...);
}

TEST_F(EventBusTest, ManyCarersAreAllCalled) {
    // More carers than fit the raise's inline snapshot.
    constexpr int kCarers = 40;
    crowdSum = 0;
    careForCrowd(std::make_integer_sequence<int, kCarers>{});
    EXPECT_EQ(uEventRaise("crowd", nullptr, 0), 1);
    EXPECT_EQ(crowdSum.load(), kCarers * (kCarers + 1) / 2);
}

std::atomic<int> stableCalls{0};
void stable(const char *, void *, void *, std::uint32_t) {
    stableCalls.fetch_add(1);
}
void transient(const char *, void *, void *, std::uint32_t) {}

TEST_F(EventBusTest, ConcurrentFirstUseAndChurn) {
    // Many threads make their first call at once: each registration survives.
    constexpr int kThreads = 6;
    std::vector<std::thread> threads;
    std::atomic<int> ready{0};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < kThreads) {
            }
            uEventCare(("lane-" + std::to_string(t)).c_str(), stable, nullptr);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    threads.clear();
    stableCalls = 0;
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(uEventRaise(("lane-" + std::to_string(t)).c_str(), nullptr, 0), 1) << t;
    }
    EXPECT_EQ(stableCalls.load(), kThreads);

    // Raisers and carers at once: the stable carer is called exactly once per raise.
    stableCalls = 0;
    uEventCare("busy", stable, nullptr);
    constexpr int kRaises = 2000;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < kRaises; ++i) {
                uEventRaise("busy", nullptr, 0);
            }
        });
        threads.emplace_back([] {
            for (int i = 0; i < kRaises; ++i) {
                uEventCare("busy", transient, nullptr);
                uEventClear("busy", transient);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(stableCalls.load(), 2 * kRaises);
}

} // namespace
} // namespace pu::test
