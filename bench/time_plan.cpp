// SPDX-License-Identifier: MIT
// Time plans, side by side with the bare C library calls they are built on:
//   - timePlanNextTimeGet (a daily step) against localtime_r + one day + mktime by hand;
//   - timePlanTimeCalculation of a daily plan over midnight (two compositions, a step) against
//     the same number of localtime_r + mktime pairs;
//   - uTimePlanAdd + uTimePlanDel with 0, 100 and 900 plans present (the plan list is linear).
// In a zone with daylight saving, so mktime works as on a device.
#include <platform_sim.h>
#include <platform_utils.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>
#include <vector>

namespace {

void noop(void *) {}

void useZone() {
    static const bool set = [] {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
        return true;
    }();
    (void)set;
}

time_t stepByHand(time_t t) {
    struct tm tm {};
    localtime_r(&t, &tm);
    ++tm.tm_mday;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

void BM_NextDay_Ours(benchmark::State &state) {
    useZone();
    time_t t = time(nullptr);
    for (auto _ : state) {
        t = timePlanNextTimeGet(t, U_TIME_PLAN_DAILY);
        benchmark::DoNotOptimize(t);
        t -= 86400;
    }
}
BENCHMARK(BM_NextDay_Ours);

void BM_NextDay_LibC(benchmark::State &state) {
    useZone();
    time_t t = time(nullptr);
    for (auto _ : state) {
        t = stepByHand(t);
        benchmark::DoNotOptimize(t);
        t -= 86400;
    }
}
BENCHMARK(BM_NextDay_LibC);

uTimePlanInfo nightPlan() {
    uTimePlanInfo info{};
    std::snprintf(info.startTime, sizeof info.startTime, "22:00");
    std::snprintf(info.endTime, sizeof info.endTime, "06:00:30");
    info.startCb = noop;
    info.repeatType = U_TIME_PLAN_DAILY;
    return info;
}

void BM_PeriodCalculation_Ours(benchmark::State &state) {
    useZone();
    const uTimePlanInfo info = nightPlan();
    time_t start = 0;
    time_t end = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(timePlanTimeCalculation(&info, &start, &end));
    }
}
BENCHMARK(BM_PeriodCalculation_Ours);

// What the calculation cannot do without: now, two times of day composed, one step.
void BM_PeriodCalculation_LibC(benchmark::State &state) {
    useZone();
    for (auto _ : state) {
        time_t now = time(nullptr);
        struct tm tm {};
        localtime_r(&now, &tm);
        tm.tm_hour = 22;
        tm.tm_min = 0;
        tm.tm_isdst = -1;
        const time_t s = mktime(&tm);
        localtime_r(&now, &tm);
        tm.tm_hour = 6;
        tm.tm_min = 0;
        tm.tm_sec = 30;
        tm.tm_isdst = -1;
        const time_t e = mktime(&tm);
        benchmark::DoNotOptimize(stepByHand(s) + e);
    }
}
BENCHMARK(BM_PeriodCalculation_LibC);

// Plans on the simulated clock, so none fires during the run.
void BM_AddDelete(benchmark::State &state) {
    static const bool started = [] {
        useZone();
        platformSimSetManual(1);
        uTimerInit(2000);
        uTimePlanInit();
        return true;
    }();
    (void)started;
    uTimePlanInfo info = nightPlan();
    std::vector<std::int32_t> present;
    for (int64_t i = 0; i < state.range(0); ++i) {
        present.push_back(uTimePlanAdd(&info));
    }
    for (auto _ : state) {
        uTimePlanDel(uTimePlanAdd(&info));
    }
    for (std::int32_t id : present) {
        uTimePlanDel(id);
    }
    platformSimWaitPoolsIdle();
}
BENCHMARK(BM_AddDelete)->Arg(0)->Arg(100)->Arg(900);

} // namespace
