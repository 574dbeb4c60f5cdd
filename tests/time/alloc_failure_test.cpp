// SPDX-License-Identifier: MIT
// Timers and plans with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

class TimeAllocFailure : public TimerTest, public testing::WithParamInterface<AllocCase> {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        setZone("UTC0");
        uTimePlanInit();
        ASSERT_EQ(uIntervalPlanInit(), 0);
        setWallClock(nov(23, 7));
    }
    void TearDown() override {
        uIntervalPlanUninit();
        uTimePlanUninit();
        platformSimWaitPoolsIdle();
        TimerTest::TearDown();
    }
};

std::atomic<int> intervalCalls{0};

std::int32_t planStatus(std::int32_t id) {
    std::int32_t value = -1;
    uTimePlanStatusQuery(id, &value, nullptr, nullptr);
    return value;
}

void deletePause(std::int32_t id) {
    uTimePlanPauseInfo req{};
    req.module = "alloc";
    req.pauseId = id;
    uTimePlanPauseDel(&req);
}

const AllocCase kCases[] = {
    {"WakeUpTimer",
     [](const FailAlloc &fault) {
         // A timer that is added fires, even when only its device wake-up could not be armed.
         const std::uint32_t id = uTimerAddWithWakeup(Recorder::callback, tag(5), 1000);
         EXPECT_TRUE(id != 0 || fault.hit());
         advance(1000);
         EXPECT_EQ(Recorder::instance().take().size(), id != 0 ? 1U : 0U);
     }},
    {"WallClockTimer",
     [](const FailAlloc &fault) {
         LogCapture quiet; // only the record for re-synchronisation may be lost
         const std::uint32_t id = uTimerEventAdd(nullptr, nullptr, nov(23, 8));
         EXPECT_TRUE(id != 0 || fault.hit());
         uTimerDel(id);
         const bool hitBefore = fault.hit();
         const std::uint32_t again = uTimerEventAdd(nullptr, nullptr, nov(23, 8));
         EXPECT_TRUE(again != 0 || (fault.hit() && !hitBefore));
         uTimerDel(again);
     }},
    {"TimePlanAdd",
     [](const FailAlloc &fault) {
         uTimePlanInfo info = planInfo("08:00", "09:00", 1, 7);
         char group[] = "alloc";
         info.pauseModule = group;
         const std::int32_t id = uTimePlanAdd(&info); // 0 only for a refused allocation
         EXPECT_TRUE(id != 0 || fault.hit());
         const std::int32_t kept = id != 0 ? id : uTimePlanAdd(&info);
         EXPECT_EQ(planStatus(kept), 1);
         uTimePlanDel(kept);
     }},
    {"TimePlanPauseAdd",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         AllocSteps steps(fault);
         uTimePlanPauseInfo req{};
         req.module = "alloc";
         std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "2026-11-25");
         std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "2026-11-26");
         const std::int32_t id = uTimePlanPauseAdd(&req);
         steps.failed(id < 0);
         const std::int32_t again = uTimePlanPauseAdd(&req);
         if (!steps.failed(again < 0)) {
             EXPECT_GT(again, 0);
         }
         deletePause(id);
         deletePause(again);
     }},
    {"IntervalPlanAddAndStart",
     [](const FailAlloc &fault) {
         LogCapture quiet;
         intervalCalls = 0;
         auto count = [](std::int32_t, std::int32_t) { ++intervalCalls; };
         std::int32_t id = uIntervalPlanAdd(1, 1, count);
         EXPECT_EQ(id < 0, fault.hit());
         if (id < 0) {
             id = uIntervalPlanAdd(1, 1, count);
             ASSERT_GE(id, 0);
         }
         const bool hitBefore = fault.hit();
         EXPECT_EQ(uIntervalPlanStart(id), 0);
         platformSimWaitPoolsIdle();
         // Only a start callback that could not be queued is missing.
         EXPECT_EQ(intervalCalls.load(), fault.hit() && !hitBefore ? 0 : 1);
         EXPECT_EQ(uIntervalPlanDel(id), 0);
         platformSimWaitPoolsIdle();
     }},
};

PU_ALLOC_FAILURE_SWEEP(TimeAllocFailure, kCases);

} // namespace
} // namespace pu::test
