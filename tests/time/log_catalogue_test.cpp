// SPDX-License-Identifier: MIT
// Every exact log line of the time family, once: callers and log filters match these texts,
// misspellings included.
#include "timer_harness.hpp"

#include <call_table.hpp>

namespace pu::test {
namespace {

constexpr const char *kTimer = "basalt.utils.timer";
constexpr const char *kPlan = "platform.utils.timePlan";
constexpr const char *kInterval = "basalt.utils.intervalPlan";

std::int32_t pause(std::int32_t type, const char *from, const char *to) {
    const uTimePlanPauseInfo req = pauseReq("catalogue", from, to, type);
    return uTimePlanPauseAdd(&req);
}
std::int32_t twoPauses() {
    const std::int32_t first = pause(0, "2026-11-23", "2026-11-25");
    unpause("catalogue", pause(0, "2026-11-23", "2026-11-25"));
    unpause("catalogue", first);
    return 0;
}
std::int32_t addPlan(const char *start) {
    const uTimePlanInfo info = planInfo(start, "", 1, 0);
    return uTimePlanAdd(&info);
}

TEST_F(PlanTest, LogCatalogue) {
    setWallClock(nov(23, 10));
    checkLogRows({
        PU_LOG_ROW(uTimerInit(5000), 1, kTimer, "uTimer is already initialized."),
        PU_LOG_ROW(uTimePlanInit(), 1, kPlan, "uTimePlanInit: time plan is alreday init."),
        PU_LOG_ROW(uTimePlanTimeStringParse("23:60", 1), 1, kPlan,
                   "uTimePlanTimeStringParse: the param of timeStr is out of range "),
        PU_LOG_ROW(uTimePlanTimeCompose("08:00", 1, 1), 1, kPlan,
                   "uTimePlanTimeCompose: repeatType and repeatDate mismatch"),
        PU_LOG_ROW(addPlan("8"), 1, kPlan,
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
        PU_LOG_ROW(addPlan("08:00"), 1, kPlan, "uTimePlanAdd: time plan is not init."),
    });
    uTimePlanInit(); // for the tear-down to stop quietly
}

} // namespace
} // namespace pu::test
