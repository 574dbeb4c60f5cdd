// SPDX-License-Identifier: MIT
// Timers and plans with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable.
#include "fail_alloc.hpp"
#include "time_plan_harness.hpp"

#include <log_capture.hpp>

#include <functional>

namespace pu::test {
namespace {

class TimeAllocFailure;
using TimeCase = AllocCaseOf<TimeAllocFailure &>;

class TimeAllocFailure : public TimePlanTest, public testing::WithParamInterface<TimeCase> {
  protected:
    void SetUp() override {
        TimePlanTest::SetUp();
        ASSERT_EQ(uIntervalPlanInit(), 0);
        setNow(nov(23, 7));
    }
    void TearDown() override {
        uIntervalPlanUninit();
        TimePlanTest::TearDown();
    }

  public:
    using TimePlanTest::elapse;
    using TimePlanTest::status;
};

std::atomic<int> gIntervalCalls{0};
void onInterval(std::int32_t, std::int32_t) {
    ++gIntervalCalls;
}

uTimePlanPauseInfo pauseRequest(const char *from, const char *to) {
    uTimePlanPauseInfo req{};
    req.module = "alloc";
    std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "%s", from);
    std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "%s", to);
    return req;
}

void deletePause(std::int32_t id) {
    uTimePlanPauseInfo req{};
    req.module = "alloc";
    req.pauseId = id;
    uTimePlanPauseDel(&req);
}

const TimeCase kCases[] = {
    {"WakeUpTimer",
     [](TimeAllocFailure &test, const FailAlloc &fault) {
         // A timer that is added fires, even when only its device wake-up could not be armed.
         Recorder::instance().reset();
         const std::uint32_t id = uTimerAddWithWakeup(Recorder::callback, tag(5), 1000);
         if (id == 0) {
             EXPECT_TRUE(fault.hit());
             return;
         }
         test.elapse(1);
         EXPECT_EQ(Recorder::instance().count(5), 1);
     }},
    {"WallClockTimer",
     [](TimeAllocFailure &, const FailAlloc &fault) {
         LogCapture quiet;
         // Only the record for re-synchronisation may be lost; the timer is kept.
         const std::uint32_t id = uTimerEventAdd(Recorder::callback, tag(6), nov(23, 8));
         EXPECT_TRUE(id != 0 || fault.hit());
         uTimerDel(id);
         const bool hitBefore = fault.hit();
         const std::uint32_t again = uTimerEventAdd(Recorder::callback, tag(6), nov(23, 8));
         EXPECT_TRUE(again != 0 || (fault.hit() && !hitBefore));
         uTimerDel(again);
     }},
    {"TimePlanAdd",
     [](TimeAllocFailure &test, const FailAlloc &fault) {
         uTimePlanInfo info = planInfo("08:00", "09:00", 1, 7);
         char group[] = "alloc";
         info.pauseModule = group;
         // 0 is the failure value. Only the device wake-up of the plan's timer may be lost
         // without one, as for any timer.
         const std::int32_t id = uTimePlanAdd(&info);
         EXPECT_TRUE(id != 0 || fault.hit());
         if (id == 0) {
             const std::int32_t again = uTimePlanAdd(&info);
             ASSERT_GT(again, 0);
             EXPECT_EQ(test.status(again), 1);
             uTimePlanDel(again);
         } else {
             EXPECT_EQ(test.status(id), 1);
             uTimePlanDel(id);
         }
     }},
    {"TimePlanPauseAdd",
     [](TimeAllocFailure &, const FailAlloc &fault) {
         LogCapture quiet;
         AllocSteps steps(fault);
         const uTimePlanPauseInfo req = pauseRequest("2026-11-25", "2026-11-26");
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
     [](TimeAllocFailure &, const FailAlloc &fault) {
         LogCapture quiet;
         gIntervalCalls = 0;
         std::int32_t id = uIntervalPlanAdd(1, 1, onInterval);
         EXPECT_EQ(id < 0, fault.hit());
         if (id < 0) {
             id = uIntervalPlanAdd(1, 1, onInterval);
             ASSERT_GE(id, 0);
         }
         const bool hitBefore = fault.hit();
         EXPECT_EQ(uIntervalPlanStart(id), 0);
         platformSimWaitPoolsIdle();
         // Only a start callback that could not be queued is missing.
         EXPECT_EQ(gIntervalCalls.load(), fault.hit() && !hitBefore ? 0 : 1);
         EXPECT_EQ(uIntervalPlanDel(id), 0);
         platformSimWaitPoolsIdle();
     }},
};

PU_ALLOC_FAILURE_SWEEP(TimeAllocFailure, kCases, *this);

} // namespace
} // namespace pu::test
