// SPDX-License-Identifier: MIT
// The event families with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

std::atomic<int> gCalls{0};
// Nine distinct carers: one more than a raise copies on its own stack, so the raise allocates.
template <int N> void carer(const char *, void *, void *, std::uint32_t) {
    ++gCalls;
}
constexpr uEventCallback kCarers[] = {carer<0>, carer<1>, carer<2>, carer<3>, carer<4>,
                                      carer<5>, carer<6>, carer<7>, carer<8>};
void onInput(std::int32_t state, std::uint32_t) {
    gCalls += state == U_INPUT_EVENT_DONE;
}

const AllocCase kCases[] = {
    {"EventRaiseToManyCarers",
     [](const FailAlloc &) {
         // Without a copy of the carers the raise calls them under the bus lock: all still run.
         gCalls = 0;
         EXPECT_EQ(uEventRaise("sweep", nullptr, 0), 1);
         EXPECT_EQ(gCalls.load(), 9);
     }},
    {"InputEventStartExtendAndFinish",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         const bool started = !steps.failed(uInputEventStart(4, 3, onInput) != 0);
         const bool hitBefore = fault.hit();
         const uInputEventMsg extend{U_INPUT_EVENT_EXTEND, 4}, done{U_INPUT_EVENT_DONE, 4};
         uInputEventExecute(&extend); // an extension that cannot relink ends the event quietly
         gCalls = 0;
         uInputEventExecute(&done);
         if (fault.hit() == hitBefore) {
             EXPECT_EQ(gCalls.load(), started ? 1 : 0);
         }
         // The lock is free and the key usable again. (After a failure while the event's timer was
         // deleted, its key may stay refused until that timer fires.)
         const bool hitBeforeAgain = fault.hit();
         const bool again = uInputEventStart(4, 3, onInput) == 0;
         EXPECT_TRUE(hitBeforeAgain || again != fault.hit());
         uInputEventStop(4);
     }},
};

struct EventAllocFailure : TimerTest, testing::WithParamInterface<AllocCase> {
    void SetUp() override {
        TimerTest::SetUp();
        for (uEventCallback callback : kCarers) {
            ASSERT_EQ(uEventCare("sweep", callback, nullptr), 1);
        }
        uInputEventInit();
    }
    void TearDown() override {
        for (uEventCallback callback : kCarers) {
            uEventClear("sweep", callback);
        }
        platformSimWaitPoolsIdle();
    }
    LogCapture quiet_;
};

PU_ALLOC_FAILURE_SWEEP(EventAllocFailure, kCases);

} // namespace
} // namespace pu::test
