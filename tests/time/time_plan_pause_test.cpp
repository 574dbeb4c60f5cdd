// SPDX-License-Identifier: MIT
// Pause groups on the simulated clock: holding and resuming plans, overlapping pauses, pauses
// that begin and end by their timers, deletion, time changes and bad requests.
#include "time_plan_harness.hpp"

#include <log_capture.hpp>

#include <cstring>

namespace pu::test {
namespace {

constexpr const char *kModule = "platform.utils.timePlan";

class Pauses : public TimePlanTest {
  protected:
    // A daily plan of group "kitchen", 08:00 to 09:00, started at 08:00 and now at 08:10.
    std::int32_t runningKitchenPlan(std::uintptr_t tag = 1) {
        setNow(nov(23, 7, 59, 58));
        uTimePlanInfo info = planInfo("08:00", "09:00", 1, tag);
        info.pauseModule = kitchen_;
        const std::int32_t id = add(info);
        elapse(2);
        skip(600);
        return id;
    }

    char kitchen_[8] = "kitchen";
};

TEST_F(Pauses, PauseOverARunningPlanEndsItAndItsEndResumesIt) {
    const std::int32_t id = runningKitchenPlan();
    ASSERT_GT(id, 0);
    EXPECT_EQ(status(id), 2);

    const std::int32_t pauseId = pause("kitchen", "2026-11-23", "2026-11-24"); // in force now
    ASSERT_GT(pauseId, 0);
    EXPECT_EQ(status(id), 1);
    EXPECT_EQ(calls(), (std::vector{started(1, nov(23, 8)), ended(1, nov(23, 8, 10))}));

    elapse(20); // held: no timer, nothing starts
    EXPECT_EQ(calls().size(), 2U);

    // Deleting the pause inside the period resumes the plan with its start callback.
    deletePause("kitchen", pauseId);
    EXPECT_EQ(status(id), 2);
    EXPECT_EQ(calls().back(), started(1, nov(23, 8, 10, 20)));
    runThrough(nov(23, 9));
    EXPECT_EQ(calls().back(), ended(1, nov(23, 9)));
}

TEST_F(Pauses, PlanResumedAfterItsPeriodWaitsForTheNextDay) {
    const std::int32_t id = runningKitchenPlan();
    const std::int32_t pauseId = pause("kitchen", "2026-11-23", "2026-11-24");
    skip(3600); // 09:10, the period is over meanwhile
    deletePause("kitchen", pauseId);
    std::time_t start = 0;
    EXPECT_EQ(status(id, &start), 1);
    EXPECT_EQ(start, nov(24, 8));
    EXPECT_EQ(calls(), (std::vector{started(1, nov(23, 8)), ended(1, nov(23, 8, 10))}));
    runThrough(nov(24, 8));
    EXPECT_EQ(calls().back(), started(1, nov(24, 8)));
}

TEST_F(Pauses, OverlappingPausesHoldUntilTheLastEnds) {
    const std::int32_t id = runningKitchenPlan();
    LogCapture log;
    const std::int32_t first = pause("kitchen", "2026-11-23", "2026-11-25");
    const std::int32_t second = pause("Kitchen", "2026-11-22", "2026-11-24"); // same group
    ASSERT_GT(first, 0);
    ASSERT_GT(second, 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(log.count(1, kModule, "uTimePlanModulePauseStart: time plan has been paused"), 1)
        << log.dump();
    EXPECT_EQ(calls().size(), 2U); // ended once

    deletePause("KITCHEN", first);
    EXPECT_EQ(status(id), 1); // the second still holds it
    EXPECT_EQ(calls().size(), 2U);
    deletePause("kitchen", second);
    EXPECT_EQ(status(id), 2);
    EXPECT_EQ(calls().back(), started(1, nov(23, 8, 10)));
    EXPECT_EQ(log.countContaining(kModule, "resumed"), 0) << log.dump();
}

TEST_F(Pauses, PausesBeginAndEndByTheirTimers) {
    // Plan over midnight, 23:59:50 to 00:00:10; a pause over all of the 24th.
    setNow(nov(23, 23, 59, 45));
    uTimePlanInfo info = planInfo("23:59:50", "00:00:10", 1, 2);
    info.pauseModule = kitchen_;
    const std::int32_t id = add(info);
    ASSERT_GT(pause("kitchen", "2026-11-24", "2026-11-25"), 0);
    EXPECT_EQ(status(id), 1);

    elapse(30); // the plan starts; the pause begins at midnight, inside the period
    EXPECT_EQ(calls(), (std::vector{started(2, nov(23, 23, 59, 50)), ended(2, nov(24, 0))}));
    runThrough(nov(24, 23, 59, 50), 5); // held through the next start
    EXPECT_EQ(calls().size(), 2U);

    runThrough(nov(25, 0), 15); // the pause ends at midnight, inside the next period
    EXPECT_EQ(calls(), (std::vector{started(2, nov(23, 23, 59, 50)), ended(2, nov(24, 0)),
                                    started(2, nov(25, 0)), ended(2, nov(25, 0, 0, 10))}));
}

TEST_F(Pauses, PauseLongerThanTheLongestTimerEndsOnTime) {
    setNow(nov(23, 10));
    uTimePlanInfo info = planInfo("00:00:05", "00:00:15", 1, 6);
    info.pauseModule = kitchen_;
    const std::int32_t id = add(info);
    ASSERT_GT(pause("kitchen", "2026-11-24", "2026-12-31"), 0); // 37 days
    runThrough(nov(24, 0), 0);
    EXPECT_EQ(status(id), 1);
    skip(2000000); // the first end timer fires: the pause goes on
    EXPECT_EQ(status(id), 1);
    runThrough(localAt(2026, 12, 31, 0, 0), 20);
    EXPECT_EQ(calls(), (std::vector{started(6, localAt(2026, 12, 31, 0, 0, 5)),
                                    ended(6, localAt(2026, 12, 31, 0, 0, 15))}));
}

TEST_F(Pauses, PlanAddedToAPausedGroupWaitsForTheEnd) {
    setNow(nov(23, 7, 59, 58));
    const std::int32_t pauseId = pause("kitchen", "2026-11-23", "2026-11-24");
    uTimePlanInfo info = planInfo("08:00", "09:00", 1, 3);
    info.pauseModule = kitchen_;
    const std::int32_t id = add(info);
    ASSERT_GT(id, 0);
    runThrough(nov(23, 8, 30));
    EXPECT_TRUE(calls().empty());
    EXPECT_EQ(status(id), 1);
    deletePause("kitchen", pauseId); // inside the period: it starts now
    EXPECT_EQ(calls(), (std::vector{started(3, nov(23, 8, 30, 2))}));

    // Plans of other groups and without a group are never held.
    uTimePlanInfo other = planInfo("08:40", "09:00", 1, 4);
    const std::int32_t ungrouped = add(other);
    ASSERT_GT(pause("garden", "2026-11-23", "2026-11-24"), 0);
    runThrough(nov(23, 8, 40));
    EXPECT_EQ(calls().back(), started(4, nov(23, 8, 40)));
    EXPECT_EQ(status(ungrouped), 2);
}

TEST_F(Pauses, PastPausesAreInert) {
    const std::int32_t id = runningKitchenPlan();
    const std::int32_t pauseId = pause("kitchen", "2026-11-01", "2026-11-23"); // ended at 00:00
    ASSERT_GT(pauseId, 0);
    EXPECT_EQ(status(id), 2);
    EXPECT_EQ(calls().size(), 1U);
    deletePause("kitchen", pauseId); // not in force: nothing to resume
    EXPECT_EQ(calls().size(), 1U);
}

TEST_F(Pauses, TimeChangeReschedulesPausesAndPlans) {
    const std::int32_t id = runningKitchenPlan();
    ASSERT_GT(pause("kitchen", "2026-11-23", "2026-11-24"), 0);
    EXPECT_EQ(status(id), 1);
    // The clock is set back a day: the pause lies ahead again and the plan is free.
    setNow(nov(22, 8, 30));
    uTimerCheckSysTimeUpdated();
    EXPECT_EQ(status(id), 2);
    runThrough(nov(22, 9));
    runThrough(nov(23, 0), 0); // the pause begins again at midnight
    runThrough(nov(23, 8), 30);
    EXPECT_EQ(status(id), 1);
    // Listed by time: the two calls of the 22nd came after those of the 23rd.
    EXPECT_EQ(calls(), (std::vector{started(1, nov(22, 8, 30)), ended(1, nov(22, 9)),
                                    started(1, nov(23, 8)), ended(1, nov(23, 8, 10))}));
}

TEST_F(Pauses, BadRequests) {
    setNow(nov(23, 10));
    LogCapture log;
    EXPECT_EQ(uTimePlanPauseAdd(nullptr), -1);

    uTimePlanPauseInfo req{};
    req.pauseType = 1;
    req.module = "kitchen";
    EXPECT_EQ(uTimePlanPauseAdd(&req), 0);
    EXPECT_EQ(log.count(3, kModule, "uTimePlanPauseAdd: pauseType not support"), 1) << log.dump();
    req.pauseId = 5;
    uTimePlanPauseDel(&req);
    EXPECT_EQ(log.count(3, kModule, "uTimePlanPauseDel: pauseType not support"), 1) << log.dump();

    EXPECT_EQ(pause(nullptr, "2026-11-23", "2026-11-24"), -1);
    EXPECT_EQ(pause("", "2026-11-23", "2026-11-24"), -1);
    EXPECT_EQ(pause("kitchen", "2026-02-30", "2026-11-24"), -1); // checked against the month
    EXPECT_EQ(pause("kitchen", "2026-11-23", "tomorrow"), -1);
    EXPECT_EQ(pause("kitchen", "2026-11-25", "2026-11-24"), -1);
    EXPECT_EQ(log.count(0, kModule,
                        "uTimePlanPauseTimeCalculation: pauseStartTime [2026-02-30] parse ERROR"),
              1)
        << log.dump();
    EXPECT_EQ(
        log.count(0, kModule, "uTimePlanPauseTimeCalculation: pauseEndTime [tomorrow] parse ERROR"),
        1)
        << log.dump();
    EXPECT_EQ(log.count(0, kModule,
                        "uTimePlanPauseTimeCalculation: pauseStartTime[2026-11-25] greater than "
                        "pauseEndTime[2026-11-24]"),
              1)
        << log.dump();

    // Fields filled to the last byte without a terminator are read no further.
    uTimePlanPauseInfo full{};
    full.module = "kitchen";
    std::memset(full.pauseStartTime, '1', sizeof full.pauseStartTime);
    std::memset(full.pauseEndTime, '2', sizeof full.pauseEndTime);
    EXPECT_EQ(uTimePlanPauseAdd(&full), -1);

    // Deleting what does not exist does nothing.
    uTimePlanPauseDel(nullptr);
    uTimePlanPauseInfo none{};
    none.module = "kitchen";
    uTimePlanPauseDel(&none); // pause id 0
    none.pauseId = 999;
    uTimePlanPauseDel(&none);
    none.module = "nobody";
    uTimePlanPauseDel(&none);
}

TEST_F(Pauses, LastPauseTakesItsGroupAlong) {
    setNow(nov(23, 10));
    const std::int32_t a = pause("kitchen", "2026-11-24", "2026-11-25");
    const std::int32_t b = pause("kitchen", "2026-11-26", "2026-11-27");
    deletePause("kitchen", a);
    deletePause("kitchen", b); // the group goes; its ids are free again
    uTimePlanInfo info = planInfo("10:00:05", "10:00:10", 1, 5);
    info.pauseModule = kitchen_;
    ASSERT_GT(add(info), 0);
    // A new group of that name starts with no pauses in force.
    runThrough(nov(23, 10, 0, 10), 0);
    EXPECT_EQ(calls(), (std::vector{started(5, nov(23, 10, 0, 5)), ended(5, nov(23, 10, 0, 10))}));
}

} // namespace
} // namespace pu::test
