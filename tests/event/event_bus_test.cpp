// SPDX-License-Identifier: MIT
// The named event bus: call order and arguments, which slots a probe passes and which a clear
// strands, the full table, the snapshot a raise calls with the lock given back, concurrent use.
// That a care is found by the next raise whatever the slots do is the event_bus fuzz target's.
#include "timer_harness.hpp"

#include <log_capture.hpp>
#include <test_support.hpp>

#include <optional>

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
             Row{"a slot beyond its own freed", {40, 40, 41}, 2, {1, 1, 0}},
             Row{"the probe wraps to slot 0", {255, 255}, 0, {0, 0}},
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
    EXPECT_EQ(uEventRaise("one-too-many", nullptr, 0), 0); // the probe goes round and stops
    EXPECT_EQ(uEventCare("255", kCarers[1], nullptr), 1);  // known events still take carers
    EXPECT_EQ(uEventClear("7", kCarers[5]), 1);            // a callback it never had: still done
    EXPECT_EQ(uEventClear("7", kCarers[0]), 1);
    EXPECT_EQ(uEventCare(nullptr, kCarers[1], nullptr) + uEventClear(nullptr, kCarers[0]) +
                  uEventRaise(nullptr, nullptr, 0) + uEventCare("8", nullptr, nullptr),
              1); // no name: refused; no callback: taken as done
    EXPECT_EQ(uEventCare("one-too-many", kCarers[0], nullptr), 1); // into the released slot
}

// A carer that changes its own event, and one that has another thread use the bus meanwhile.
void clearsAndCares(const char *name, void *, void *, std::uint32_t) {
    calls.record("clearsAndCares");
    uEventClear(name, kCarers[3]);
    uEventCare(name, kCarers[2], nullptr);
}
std::optional<BlockedCall<std::int32_t>> otherThread;
void usesTheBusFromAnotherThread(const char *, void *, void *, std::uint32_t) {
    otherThread.emplace([] { return uEventCare("elsewhere", kCarers[1], nullptr); });
    calls.record(otherThread->stillBlocked(std::chrono::seconds(2)) ? "blocked" : "free");
}

TEST_F(EventBus, ARaiseCallsWhatItFoundWithTheLockGivenBack) {
    uEventCare("door", clearsAndCares, nullptr);
    uEventCare("door", kCarers[3], tag(5));
    uEventCare("door", usesTheBusFromAnotherThread, nullptr);
    EXPECT_EQ(uEventCare("door", kCarers[3], tag(99)), 1); // kept once, with its first userData
    EXPECT_EQ(uEventRaise("door", tag(7), 6), 1);
    EXPECT_EQ(otherThread->result(), 1);
    otherThread.reset();
    // In registration order; carer 3, cleared meanwhile, is still called; carer 2, cared
    // meanwhile, is not.
    EXPECT_THAT(calls.values(), testing::ElementsAre("clearsAndCares", "3 door 5 7 6", "free"));
}

TEST_F(EventBus, ConcurrentFirstUseAndChurn) {
    // The first calls race to create the bus: every registration survives.
    fanOut(6, [](int t) { uEventCare(std::to_string(t).c_str(), kCarers[t], nullptr); });
    for (int t = 0; t < 6; ++t) {
        EXPECT_EQ(uEventRaise(std::to_string(t).c_str(), nullptr, 0), 1) << t;
    }
    // Raisers meet carers and clearers of other callbacks: each raise calls carer 0 once.
    calls.clear();
    uEventCare("busy", kCarers[0], nullptr);
    fanOut(4, [](int t) {
        for (int i = 0; i < 1000; ++i) {
            t < 2 ? uEventRaise("busy", nullptr, 0)
                  : uEventCare("busy", kCarers[t], nullptr) + uEventClear("busy", kCarers[t]);
        }
    });
    const std::vector<std::string> seen = calls.values();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "0 busy 0 0 0"), 2000);
}

} // namespace
} // namespace pu::test
