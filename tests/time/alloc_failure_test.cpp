// SPDX-License-Identifier: MIT
// Timers and plans with each of their uMalloc calls failing in turn: the documented failure
// value, nothing leaked, no lock left held, the service still usable. Then every exact log line
// of the time family, once: callers and log filters match these texts, misspellings included.
#include "fail_alloc.hpp"
#include "timer_harness.hpp"

#include <call_table.hpp>
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

constexpr const char *kTimer = "basalt.utils.timer";
constexpr const char *kPlan = "platform.utils.timePlan";
constexpr const char *kInterval = "basalt.utils.intervalPlan";

std::int32_t pause(std::int32_t type, const char *from, const char *to) {
    const uTimePlanPauseInfo req = pauseReq("catalogue", from, to, type);
    return uTimePlanPauseAdd(&req);
}
void twoPauses() {
    const std::int32_t first = pause(0, "2026-11-23", "2026-11-25");
    unpause("catalogue", pause(0, "2026-11-23", "2026-11-25"));
    unpause("catalogue", first);
}

TEST_F(PlanTest, LogCatalogue) {
    setWallClock(nov(23, 10));
    const uTimePlanInfo badStart = planInfo("8", "", 1, 0), daily = planInfo("08:00", "", 1, 0);
    checkLogRows({
        PU_LOG_ROW(uTimerInit(5000), 1, kTimer, "uTimer is already initialized."),
        PU_LOG_ROW(uTimePlanInit(), 1, kPlan, "uTimePlanInit: time plan is alreday init."),
        PU_LOG_ROW(uTimePlanTimeStringParse("23:60", 1), 1, kPlan,
                   "uTimePlanTimeStringParse: the param of timeStr is out of range "),
        PU_LOG_ROW(uTimePlanTimeCompose("08:00", 1, 1), 1, kPlan,
                   "uTimePlanTimeCompose: repeatType and repeatDate mismatch"),
        PU_LOG_ROW(uTimePlanAdd(&badStart), 1, kPlan,
                   "timePlanTimeCalculation: startTime or endTime Compose failed"),
        PU_LOG_ROW(pause(1, "", ""), 3, kPlan, "uTimePlanPauseAdd: pauseType not support"),
        PU_LOG_ROW(unpause("catalogue", 5, 1), 3, kPlan,
                   "uTimePlanPauseDel: pauseType not support"),
        PU_LOG_ROW(pause(0, "2026-02-30", "2026-11-24"), 0, kPlan,
                   "uTimePlanPauseTimeCalculation: pauseStartTime [2026-02-30] parse ERROR"),
        PU_LOG_ROW(pause(0, "2026-11-23", "tomorrow"), 0, kPlan,
                   "uTimePlanPauseTimeCalculation: pauseEndTime [tomorrow] parse ERROR"),
        PU_LOG_ROW(pause(0, "2026-11-25", "2026-11-24"), 0, kPlan,
                   "uTimePlanPauseTimeCalculation: pauseStartTime[2026-11-25] greater than "
                   "pauseEndTime[2026-11-24]"),
        PU_LOG_ROW(twoPauses(), 1, kPlan, "uTimePlanModulePauseStart: time plan has been paused"),
        PU_LOG_ROW(uIntervalPlanAdd(1, 1, nullptr), 2, kInterval,
                   "uIntervalPlanAdd, invaild param."),
        PU_LOG_ROW(uIntervalPlanPause(-1), 2, kInterval, "uIntervalPlanPause, invaild param."),
        PU_LOG_ROW(uIntervalPlanComplete(42), 2, kInterval, "uIntervalPlanComplete, invaild task!"),
        PU_LOG_ROW(
            (uIntervalPlanUninit(), uIntervalPlanAdd(1, 1, [](std::int32_t, std::int32_t) {})), 2,
            kInterval, "uIntervalPlanAdd, list not init!"),
        PU_LOG_ROW((uTimePlanUninit(), uTimePlanUninit()), 1, kPlan,
                   "uTimePlanUninit: time plan not init."),
        PU_LOG_ROW(uTimePlanAdd(&daily), 1, kPlan, "uTimePlanAdd: time plan is not init."),
    });
    uTimePlanInit(); // for the tear-down to stop quietly
}

} // namespace
} // namespace pu::test
