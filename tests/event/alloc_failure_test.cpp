// SPDX-License-Identifier: MIT
// The event families with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <atomic>
#include <functional>

namespace pu::test {
namespace {

std::atomic<int> gCalls{0};

// Nine distinct carers: one more than a raise copies on its own stack, so the raise allocates.
template <int N> void carer(const char *, void *, void *, std::uint32_t) {
    ++gCalls;
}
constexpr uEventCallback kCarers[] = {carer<0>, carer<1>, carer<2>, carer<3>, carer<4>,
                                      carer<5>, carer<6>, carer<7>, carer<8>};
constexpr const char *kEvent = "alloc.sweep";

void onInput(std::int32_t, std::uint32_t) {}

const AllocCase kCases[] = {
    {"EventRaiseToManyCarers",
     [](const FailAlloc &) {
         // Without a copy of the carers the raise calls them under the bus lock: all still run.
         gCalls = 0;
         EXPECT_EQ(uEventRaise(kEvent, nullptr, 0), 1);
         EXPECT_EQ(gCalls.load(), 9);
     }},
    {"InputEventStartAndExtend",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         const std::int32_t started = uInputEventStart(4, 3, onInput);
         EXPECT_EQ(started == -1, fault.hit());
         const uInputEventMsg extend{U_INPUT_EVENT_EXTEND, 4};
         uInputEventExecute(&extend); // an extension that cannot relink ends the event quietly
         uInputEventStop(4);
         const bool found = quiet.count(2, "basalt.utils.inputEvent",
                                        "uInputEventStop, input event do not exist.") == 0;
         EXPECT_TRUE(found == (started == 0) || (started == 0 && fault.hit())) << quiet.dump();
         // The service lock is free and the key can be started again.
         const bool hitBefore = fault.hit();
         const std::int32_t again = uInputEventStart(4, 3, onInput);
         EXPECT_EQ(again != 0, fault.hit() && !hitBefore);
         uInputEventStop(4);
     }},
};

class EventAllocFailure : public TimerTest, public testing::WithParamInterface<AllocCase> {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        for (uEventCallback callback : kCarers) {
            ASSERT_EQ(uEventCare(kEvent, callback, nullptr), 1);
        }
        uInputEventInit();
    }
    void TearDown() override {
        LogCapture quiet;
        uInputEventUninit();
        for (uEventCallback callback : kCarers) {
            uEventClear(kEvent, callback);
        }
        platformSimWaitPoolsIdle();
    }
};

PU_ALLOC_FAILURE_SWEEP(EventAllocFailure, kCases);

// An asynchronous call is queued in platform memory: it allocates nothing of its own.
TEST(EventAllocFailureAsync, AsyncCallDoesNotAllocate) {
    static std::atomic<int> ran{0};
    const std::uint64_t before = allocCalls();
    ASSERT_EQ(uAsyncCall([](void *) { ++ran; }, nullptr), 0);
    platformSimWaitPoolsIdle();
    EXPECT_EQ(ran.load(), 1);
    EXPECT_EQ(allocCalls(), before);
}

} // namespace
} // namespace pu::test
