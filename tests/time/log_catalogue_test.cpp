// SPDX-License-Identifier: MIT
// Every exact log line of the time family, once: callers and log filters match these texts,
// misspellings included.
#include "timer_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

constexpr const char *kTimer = "basalt.utils.timer";
constexpr const char *kPlan = "platform.utils.timePlan";
constexpr const char *kInterval = "basalt.utils.intervalPlan";

void pauseDel(std::int32_t id) {
    uTimePlanPauseInfo req{};
    req.module = "catalogue";
    req.pauseId = id;
    uTimePlanPauseDel(&req);
}

std::int32_t pauseAdd(std::int32_t type, const char *from, const char *to) {
    uTimePlanPauseInfo req{};
    req.pauseType = type;
    req.module = "catalogue";
    std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "%s", from);
    std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "%s", to);
    return uTimePlanPauseAdd(&req);
}

TEST_F(TimerTest, LogCatalogue) {
    setZone("UTC0");
    setWallClock(nov(23, 10));
    uTimePlanInit();
    uIntervalPlanInit();
    const struct {
        std::function<void()> call;
        int level;
        const char *module, *text;
    } rows[] = {
        {[] { uTimerInit(5000); }, 1, kTimer, "uTimer is already initialized."},
        {[] { uTimePlanInit(); }, 1, kPlan, "uTimePlanInit: time plan is alreday init."},
        {[] { uTimePlanTimeStringParse("23:60", 1); }, 1, kPlan,
         "uTimePlanTimeStringParse: the param of timeStr is out of range "},
        {[] { uTimePlanTimeCompose("08:00", 1, 1); }, 1, kPlan,
         "uTimePlanTimeCompose: repeatType and repeatDate mismatch"},
        {[] {
             auto i = planInfo("8", "", 1, 0);
             std::time_t t;
             timePlanTimeCalculation(&i, &t, &t);
         },
         1, kPlan, "timePlanTimeCalculation: startTime or endTime Compose failed"},
        {[] { pauseAdd(1, "", ""); }, 3, kPlan, "uTimePlanPauseAdd: pauseType not support"},
        {[] {
             uTimePlanPauseInfo req{};
             req.pauseType = 1, req.module = "catalogue", req.pauseId = 5;
             uTimePlanPauseDel(&req);
         },
         3, kPlan, "uTimePlanPauseDel: pauseType not support"},
        {[] { pauseAdd(0, "2026-02-30", "2026-11-24"); }, 0, kPlan,
         "uTimePlanPauseTimeCalculation: pauseStartTime [2026-02-30] parse ERROR"},
        {[] { pauseAdd(0, "2026-11-23", "tomorrow"); }, 0, kPlan,
         "uTimePlanPauseTimeCalculation: pauseEndTime [tomorrow] parse ERROR"},
        {[] { pauseAdd(0, "2026-11-25", "2026-11-24"); }, 0, kPlan,
         "uTimePlanPauseTimeCalculation: pauseStartTime[2026-11-25] greater than "
         "pauseEndTime[2026-11-24]"},
        {[] {
             const std::int32_t first = pauseAdd(0, "2026-11-23", "2026-11-25");
             const std::int32_t second = pauseAdd(0, "2026-11-23", "2026-11-25");
             pauseDel(first), pauseDel(second);
         },
         1, kPlan, "uTimePlanModulePauseStart: time plan has been paused"},
        {[] { uIntervalPlanAdd(1, 1, nullptr); }, 2, kInterval, "uIntervalPlanAdd, invaild param."},
        {[] { uIntervalPlanPause(-1); }, 2, kInterval, "uIntervalPlanPause, invaild param."},
        {[] { uIntervalPlanComplete(42); }, 2, kInterval, "uIntervalPlanComplete, invaild task!"},
        {[] { uIntervalPlanUninit(), uIntervalPlanAdd(1, 1, [](std::int32_t, std::int32_t) {}); },
         2, kInterval, "uIntervalPlanAdd, list not init!"},
        {[] { uTimePlanUninit(), uTimePlanUninit(); }, 1, kPlan,
         "uTimePlanUninit: time plan not init."},
        {[] {
             auto i = planInfo("08:00", "", 1, 0);
             uTimePlanAdd(&i);
         },
         1, kPlan, "uTimePlanAdd: time plan is not init."},
    };
    for (const auto &r : rows) {
        LogCapture log;
        r.call();
        EXPECT_EQ(log.count(r.level, r.module, r.text), 1) << r.text << "\n" << log.dump();
    }
}

} // namespace
} // namespace pu::test
