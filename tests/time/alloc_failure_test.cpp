// SPDX-License-Identifier: MIT
// Timers and plans with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

class TimeAllocFailure : public PlanTest, public testing::WithParamInterface<AllocCase> {
  protected:
    void SetUp() override {
        PlanTest::SetUp();
        setWallClock(nov(23, 7));
    }
};

std::atomic<int> intervalCalls{0};

const AllocCase kCases[] = {
    // A timer that is added fires, even when only its device wake-up could not be armed.
    {"WakeUpTimer",
     [](const FailAlloc &fault) {
         const std::uint32_t id = uTimerAddWithWakeup(record, tag(5), 1000);
         EXPECT_TRUE(id != 0 || fault.hit());
         advance(1000);
         EXPECT_EQ(takeFired().size(), id != 0 ? 1U : 0U);
     }},
    {"WallClockTimer",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         const std::uint32_t id = uTimerEventAdd(nullptr, nullptr, nov(23, 8));
         EXPECT_TRUE(id != 0 || fault.hit());
         uTimerDel(id);
     }},
    {"TimePlanAdd",
     [](const FailAlloc &fault) {
         uTimePlanInfo info = planInfo("08:00", "09:00", 1, 7);
         char group[] = "alloc";
         info.pauseModule = group;
         const std::int32_t id = uTimePlanAdd(&info); // 0 only for a refused allocation
         EXPECT_TRUE(id != 0 || fault.hit());
         const std::int32_t kept = id != 0 ? id : uTimePlanAdd(&info);
         EXPECT_GT(kept, 0);
         uTimePlanDel(kept);
     }},
    {"TimePlanPauseAdd",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         AllocSteps steps(fault);
         uTimePlanPauseInfo req{0, "alloc", {"2026-11-25"}, "2026-11-26"};
         for (int i = 0; i < 2; ++i) {
             const std::int32_t id = uTimePlanPauseAdd(&req);
             EXPECT_TRUE(steps.failed(id < 0) || id > 0);
         }
         for (std::int32_t id = 1; id <= 1000; ++id) {
             unpause("alloc", id);
         }
     }},
    // Only a start callback that could not be queued is missing.
    {"IntervalPlanAddAndStart",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         intervalCalls = 0;
         auto count = [](std::int32_t, std::int32_t) { ++intervalCalls; };
         std::int32_t id = uIntervalPlanAdd(1, 1, count);
         EXPECT_EQ(id < 0, fault.hit());
         id = id < 0 ? uIntervalPlanAdd(1, 1, count) : id;
         const bool hitBefore = fault.hit();
         EXPECT_EQ(uIntervalPlanStart(id), 0);
         platformSimWaitPoolsIdle();
         EXPECT_EQ(intervalCalls.load(), fault.hit() && !hitBefore ? 0 : 1);
         EXPECT_EQ(uIntervalPlanDel(id), 0);
         platformSimWaitPoolsIdle();
     }},
};

PU_ALLOC_FAILURE_SWEEP(TimeAllocFailure, kCases);

} // namespace
} // namespace pu::test
