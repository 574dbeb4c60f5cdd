// SPDX-License-Identifier: MIT
// Plans on the simulated clock: when their callbacks run, what happens to plans added inside
// their period, once plans, random starts, date ranges, time changes and the service's messages.
#include "time_plan_harness.hpp"

#include <log_capture.hpp>

namespace pu::test {
namespace {

constexpr const char *kModule = "platform.utils.timePlan";

// Ids of the plan module that are free: drawn until none is left, then given back.
int freePlanIds() {
    LogCapture quiet; // the last draw complains that none is left
    std::vector<std::int32_t> drawn;
    for (std::int32_t id; (id = uIdGetModuleAvailableUniqueId("timePlanIdName")) > 0;) {
        drawn.push_back(id);
    }
    for (std::int32_t id : drawn) {
        uIdReleaseModuleUniqueId("timePlanIdName", id);
    }
    return static_cast<int>(drawn.size());
}

using TimePlans = TimePlanTest;

TEST_F(TimePlans, DailyPlanAddedInsideItsPeriodStartsSilently) {
    setNow(nov(23, 8, 30));
    const std::int32_t id = add(planInfo("08:00", "09:00", 1, 7));
    ASSERT_GT(id, 0);
    EXPECT_EQ(status(id), 2);
    EXPECT_TRUE(calls().empty());

    runThrough(nov(23, 9));
    EXPECT_EQ(calls(), (std::vector{ended(7, nov(23, 9))}));
    std::time_t start = 0;
    std::time_t end = 0;
    EXPECT_EQ(status(id, &start, &end), 1);
    EXPECT_EQ(start, nov(24, 8));
    EXPECT_EQ(end, nov(24, 9));

    runThrough(nov(24, 8));
    runThrough(nov(24, 9));
    EXPECT_EQ(calls(),
              (std::vector{ended(7, nov(23, 9)), started(7, nov(24, 8)), ended(7, nov(24, 9))}));
}

TEST_F(TimePlans, PeriodCrossingMidnight) {
    setNow(nov(23, 21, 59, 50));
    const std::int32_t evening = add(planInfo("22:00", "06:00", 1, 1));
    setNow(nov(24, 2)); // a second plan added inside its period, after midnight
    const std::int32_t night = add(planInfo("22:00", "06:00", 1, 2));
    ASSERT_GT(evening, 0);
    ASSERT_GT(night, 0);
    EXPECT_EQ(status(night), 2);
    setNow(nov(23, 21, 59, 50));

    runThrough(nov(23, 22));
    EXPECT_EQ(status(evening), 2);
    runThrough(nov(24, 6));
    runThrough(nov(24, 22));
    EXPECT_EQ(calls(),
              (std::vector{started(1, nov(23, 22)), ended(1, nov(24, 6)), ended(2, nov(24, 6)),
                           started(1, nov(24, 22)), started(2, nov(24, 22))}));
}

TEST_F(TimePlans, OncePlansAreRemovedAfterTheirEndAndFreeTheirIds) {
    setNow(nov(23, 10));
    const int freeBefore = freePlanIds();
    const std::int32_t withEnd = add(planInfo("11-23-10:00:05", "11-23-10:00:10", 0, 1));
    const std::int32_t withoutEnd = add(planInfo("11-23-10:00:03", "", 0, 2));
    ASSERT_GT(withEnd, 0);
    ASSERT_GT(withoutEnd, 0);
    EXPECT_EQ(freePlanIds(), freeBefore - 2);

    elapse(3);
    EXPECT_EQ(status(withoutEnd), 0); // gone in the very second it started
    advance(10);                      // more passes within that second call nothing more
    advance(10);
    elapse(9);
    EXPECT_EQ(calls(), (std::vector{started(2, nov(23, 10, 0, 3)), started(1, nov(23, 10, 0, 5)),
                                    ended(1, nov(23, 10, 0, 10))}));
    EXPECT_EQ(status(withEnd), 0);
    EXPECT_EQ(freePlanIds(), freeBefore);

    // Once plans that are over cannot be added.
    EXPECT_EQ(add(planInfo("11-23-09:00", "11-23-09:30", 0, 3)), 0);
    EXPECT_EQ(add(planInfo("11-23-09:00", "", 0, 3)), 0);
}

// A plan without an end starts only when its timer is served in the very second of its start.
// Served late, it skips the start and keeps no timer until the next time change: intended.
TEST_F(TimePlans, LateTimerSkipsTheStartOfAPlanWithoutEnd) {
    setNow(nov(23, 10));
    const std::int32_t id = add(planInfo("10:00:05", "", 1, 4));
    ASSERT_GT(id, 0);
    setNow(nov(23, 10, 0, 6));
    advance(5000);
    skip(2 * 86400);
    EXPECT_TRUE(calls().empty());
    std::time_t start = 0;
    EXPECT_EQ(status(id, &start), 1);
    EXPECT_EQ(start, nov(23, 10, 0, 5));

    uTimerCheckSysTimeUpdated(); // recomputes every plan
    EXPECT_EQ(status(id, &start), 1);
    EXPECT_EQ(start, nov(26, 10, 0, 5));
    runThrough(nov(26, 10, 0, 5));
    EXPECT_EQ(calls(), (std::vector{started(4, nov(26, 10, 0, 5))}));
}

TEST_F(TimePlans, RandomStartIsDrawnWithinThePeriodAtEachOccurrence) {
    std::srand(7);
    setNow(nov(23, 9, 59, 50));
    uTimePlanInfo info = planInfo("10:00:00", "10:01:00", 1, 5);
    info.randomStart = 1;
    const std::int32_t id = add(info);
    ASSERT_GT(id, 0);
    std::vector<std::time_t> offsets;
    for (int day = 23; day < 29; ++day) {
        runThrough(nov(day, 10), 62);
        const std::vector<PlanCall> got = calls();
        ASSERT_EQ(got.size(), 2U * static_cast<std::size_t>(day - 22));
        const PlanCall &start = got[got.size() - 2];
        EXPECT_EQ(start.kind, 'S');
        EXPECT_GE(start.at, nov(day, 10));
        EXPECT_LT(start.at, nov(day, 10, 1));
        EXPECT_EQ(got.back(), ended(5, nov(day, 10, 1)));
        offsets.push_back(start.at - nov(day, 10));
        std::time_t nominal = 0;
        status(id, &nominal);
        EXPECT_EQ(nominal, nov(day + 1, 10)); // the query shows the start without the offset
    }
    EXPECT_NE(std::count(offsets.begin(), offsets.end(), offsets[0]),
              static_cast<long>(offsets.size()));
}

TEST_F(TimePlans, RandomStartAddedAtTheLastSecondOfItsPeriod) {
    setNow(nov(23, 10, 1));
    uTimePlanInfo info = planInfo("10:00:00", "10:01:00", 1, 6);
    info.randomStart = 1;
    const std::int32_t id = add(info); // nothing left to draw from
    ASSERT_GT(id, 0);
    std::time_t start = 0;
    EXPECT_EQ(status(id, &start), 1);
    EXPECT_EQ(start, nov(24, 10));
    EXPECT_TRUE(calls().empty());
}

TEST_F(TimePlans, DateRangeLimitsTheDaysAPlanRuns) {
    setNow(nov(23, 7, 59, 55));
    uTimePlanInfo info = planInfo("08:00", "09:00", 1, 8);
    std::snprintf(info.startDate, sizeof info.startDate, "2026-11-24");
    std::snprintf(info.endDate, sizeof info.endDate, "2026-11-25");
    const std::int32_t id = add(info);
    ASSERT_GT(id, 0);
    for (int day = 23; day <= 27; ++day) {
        runThrough(nov(day, 8));
        runThrough(nov(day, 9));
    }
    EXPECT_EQ(calls(), (std::vector{started(8, nov(24, 8)), ended(8, nov(24, 9)),
                                    started(8, nov(25, 8)), ended(8, nov(25, 9))}));
    std::time_t start = 0;
    EXPECT_EQ(status(id, &start), 1); // never removed: it keeps stepping
    EXPECT_EQ(start, nov(28, 8));
}

TEST_F(TimePlans, OncePlanWithDateRange) {
    setNow(nov(23, 9, 59, 55));
    uTimePlanInfo info = planInfo("11-23-10:00", "11-23-10:00:30", 0, 9);
    std::snprintf(info.startDate, sizeof info.startDate, "2026-11-01");
    std::snprintf(info.endDate, sizeof info.endDate, "2026-11-20"); // over: the end is kept
    const std::int32_t id = add(info);
    ASSERT_GT(id, 0);
    runThrough(nov(23, 10));
    runThrough(nov(23, 10, 0, 30));
    EXPECT_EQ(calls(), (std::vector{started(9, nov(23, 10)), ended(9, nov(23, 10, 0, 30))}));
    EXPECT_EQ(status(id), 0);
}

TEST_F(TimePlans, MonthlyPlanBeyondTheLongestTimer) {
    setNow(nov(23, 10));
    const std::int32_t id = add(planInfo("09:00", "09:30", 3, 0, 23));
    ASSERT_GT(id, 0);
    std::time_t start = 0;
    EXPECT_EQ(status(id, &start), 1);
    EXPECT_EQ(start, localAt(2026, 12, 23, 9, 0));
    // 30 days do not fit one timer: a shorter one is armed and re-armed when it fires.
    platformSimWaitPoolsIdle(); // the wake-up is armed from the pool
    EXPECT_EQ(platformSimWakeUpDelay(handle_), 2000000LL * 1000);
    skip(2000000);
    EXPECT_TRUE(calls().empty());
    runThrough(localAt(2026, 12, 23, 9, 0));
    EXPECT_EQ(calls(), (std::vector{started(0, localAt(2026, 12, 23, 9, 0))}));
}

TEST_F(TimePlans, DeletingARunningPlanCallsItsEndOnTheCaller) {
    setNow(nov(23, 9, 59, 58));
    const std::int32_t id = add(planInfo("10:00", "11:00", 1, 3));
    elapse(3);
    EXPECT_EQ(status(id), 2);
    uTimePlanDel(id);
    EXPECT_EQ(calls(), (std::vector{started(3, nov(23, 10)), ended(3, nov(23, 10, 0, 1))}));
    EXPECT_EQ(status(id), 0);
    runThrough(nov(23, 11));
    EXPECT_EQ(calls().size(), 2U); // its timer went with it
    uTimePlanDel(id);              // unknown now: nothing
    uTimePlanDel(0);
}

// Callbacks run without the plan lock: a start callback may delete its own plan and add another.
std::atomic<std::int32_t> gSelf{0};
std::atomic<std::int32_t> gReplacement{0};
void replaceItself(void *) {
    uTimePlanDel(gSelf.load());
    const uTimePlanInfo next = planInfo("12:00", "13:00", 1, 11);
    gReplacement = uTimePlanAdd(&next);
}

TEST_F(TimePlans, CallbacksMayCallTheService) {
    setNow(nov(23, 9, 59, 58));
    uTimePlanInfo info = planInfo("10:00", "11:00", 1, 10);
    info.startCb = replaceItself;
    gSelf = add(info);
    ASSERT_GT(gSelf.load(), 0);
    elapse(3);
    EXPECT_EQ(status(gSelf.load()), 0);
    EXPECT_EQ(calls(), (std::vector{ended(10, nov(23, 10))})); // deleted while running
    ASSERT_GT(gReplacement.load(), 0);
    EXPECT_EQ(status(gReplacement.load()), 1);
    uTimePlanDel(gReplacement.load());
}

TEST_F(TimePlans, TimeZoneChangeReschedulesEveryPlan) {
    const std::time_t utc0730 = nov(23, 7, 30);
    const std::time_t utc0800 = nov(23, 8);
    const std::time_t utc0900 = nov(23, 9);
    setNow(utc0730);
    const std::int32_t morning = add(planInfo("08:00", "09:00", 1, 1));
    const std::int32_t later = add(planInfo("10:00", "11:00", 1, 2));
    Zone::set("XXX-1"); // one hour east: 08:30 local
    uEventRaise("TIME_ZONE_CHANGED", nullptr, 0);
    EXPECT_EQ(calls(), (std::vector{started(1, utc0730)}));
    EXPECT_EQ(status(morning), 2);
    std::time_t start = 0;
    EXPECT_EQ(status(later, &start), 1);
    EXPECT_EQ(start, utc0900); // 10:00 local
    runThrough(utc0800);
    runThrough(utc0900);
    EXPECT_EQ(calls(), (std::vector{started(1, utc0730), ended(1, utc0800), started(2, utc0900)}));
}

TEST_F(TimePlans, SystemTimeJumpReschedulesEveryPlan) {
    setNow(nov(23, 7));
    const std::int32_t id = add(planInfo("08:00", "09:00", 1, 1));
    const std::int32_t noEnd = add(planInfo("07:45", "", 1, 2));
    // The wall clock is set forward; the timer service sees the up-time jump and raises
    // "SYSTEM_TIME_UPDATED".
    setNow(nov(23, 8, 30));
    platformSimAdvanceMs(60000);
    platformSimHeartbeat();
    platformSimWaitPoolsIdle();
    EXPECT_EQ(calls(), (std::vector{started(1, nov(23, 8, 30))}));
    EXPECT_EQ(status(id), 2);
    std::time_t start = 0;
    EXPECT_EQ(status(noEnd, &start), 1);
    EXPECT_EQ(start, nov(24, 7, 45));
    runThrough(nov(23, 9));
    EXPECT_EQ(calls().back(), ended(1, nov(23, 9)));
}

class BerlinTimePlans : public TimePlanTest {
  protected:
    BerlinTimePlans() : TimePlanTest("CET-1CEST,M3.5.0,M10.5.0/3") {}
};

TEST_F(BerlinTimePlans, DailyPlanKeepsItsLocalTimeOverDaylightSavingChanges) {
    const auto at = [](int month, int day, int second = 0) {
        return localAt(2026, month, day, 8, 0, second);
    };
    setNow(at(3, 28) - 5);
    ASSERT_GT(add(planInfo("08:00:00", "08:00:10", 1, 1)), 0);
    for (int day = 28; day <= 30; ++day) {
        runThrough(at(3, day));
        runThrough(at(3, day, 10));
    }
    EXPECT_EQ(calls(), (std::vector{started(1, at(3, 28)), ended(1, at(3, 28, 10)),
                                    started(1, at(3, 29)), ended(1, at(3, 29, 10)),
                                    started(1, at(3, 30)), ended(1, at(3, 30, 10))}));
    EXPECT_EQ(at(3, 29) - at(3, 28), 23 * 3600);

    PlanCalls::instance().reset();
    setNow(at(10, 24) - 5);
    uTimerCheckSysTimeUpdated(); // the clock was set: recompute
    for (int day = 24; day <= 25; ++day) {
        runThrough(at(10, day));
        runThrough(at(10, day, 10));
    }
    EXPECT_EQ(calls(), (std::vector{started(1, at(10, 24)), ended(1, at(10, 24, 10)),
                                    started(1, at(10, 25)), ended(1, at(10, 25, 10))}));
}

TEST_F(TimePlans, RefusalsAndMessages) {
    setNow(nov(23, 10));
    LogCapture log;
    uTimePlanInit();
    EXPECT_EQ(log.count(1, kModule, "uTimePlanInit: time plan is alreday init."), 1) << log.dump();

    EXPECT_EQ(uTimePlanAdd(nullptr), 0);
    uTimePlanInfo info = planInfo("08:00", "09:00", 1, 1);
    info.startCb = nullptr;
    EXPECT_EQ(uTimePlanAdd(&info), 0);
    info = planInfo("08:00", "09:00", 1, 1);
    info.endCb = nullptr; // optional
    const std::int32_t withoutEndCb = add(info);
    EXPECT_GT(withoutEndCb, 0);
    EXPECT_EQ(add(planInfo("08:00", "09:00", 1, 1, 2)), 0); // daily with a repeatDate

    std::int32_t value = -1;
    uTimePlanStatusQuery(999, &value, nullptr, nullptr);
    EXPECT_EQ(value, 0);
    uTimePlanStatusQuery(withoutEndCb, nullptr, nullptr, nullptr);

    uTimePlanDel(withoutEndCb); // its timer would outlive the uninit
    uTimePlanUninit();
    log.clear();
    uTimePlanUninit();
    EXPECT_EQ(log.count(1, kModule, "uTimePlanUninit: time plan not init."), 1) << log.dump();
    EXPECT_EQ(uTimePlanAdd(&info), 0);
    EXPECT_EQ(log.count(1, kModule, "uTimePlanAdd: time plan is not init."), 1) << log.dump();
    uTimePlanInit();
}

TEST_F(TimePlans, TimersOfReleasedPlansFireIntoNothing) {
    setNow(nov(23, 9, 59, 58));
    ASSERT_GT(add(planInfo("10:00", "11:00", 1, 1)), 0);
    uTimePlanUninit(); // releases the plan, leaves its timer armed
    elapse(3);
    EXPECT_TRUE(calls().empty());
    uTimePlanInit();
    EXPECT_EQ(freePlanIds(), 1000);
}

} // namespace
} // namespace pu::test
