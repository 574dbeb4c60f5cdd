// SPDX-License-Identifier: MIT
// Plans and pause groups on the simulated clock: when their callbacks run, plans added inside
// their period, once plans, time changes, how pauses find their group, ids, and refused input.
#include "timer_harness.hpp"

#include <call_table.hpp>
#include <log_capture.hpp>

#include <cstring>

namespace pu::test {
namespace {

constexpr std::uintptr_t E = kEnd;

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

std::int32_t status(std::int32_t id, std::time_t *start = nullptr) {
    std::int32_t value = -1;
    uTimePlanStatusQuery(id, &value, start, nullptr);
    return value;
}

class Plans : public TimerTest {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        setZone("UTC0");
        uTimePlanInit();
    }
    void TearDown() override {
        clearAll();
        uTimePlanUninit();
        platformSimWaitPoolsIdle();
        TimerTest::TearDown();
    }
    // Deletes every plan and pause, so their timers never reach another test or scenario.
    void clearAll() {
        for (std::int32_t id = 1; id <= 1000; ++id) {
            uTimePlanDel(id);
        }
        for (const auto &[group, id] : std::exchange(pauses_, {})) {
            unpause(group, id);
        }
        takeFired();
    }
    std::int32_t add(uTimePlanInfo info, char *group = nullptr) {
        info.pauseModule = group;
        return uTimePlanAdd(&info);
    }
    std::int32_t pause(const char *group, const char *from, const char *to) {
        const uTimePlanPauseInfo req = pauseReq(group, from, to);
        const std::int32_t id = uTimePlanPauseAdd(&req);
        pauses_.emplace_back(group, id);
        return id;
    }
    static std::function<void()> expectStatus(const std::int32_t &id, std::int32_t value,
                                              std::time_t start = 0) {
        return [&id, value, start] {
            std::time_t next = 0;
            EXPECT_EQ(status(id, &next), value) << "plan " << id;
            EXPECT_TRUE(start == 0 || next == start) << "plan " << id << " next " << next;
        };
    }
    void scenarios(
        const std::vector<std::tuple<const char *, std::time_t, std::vector<Step>>> &all) {
        for (const auto &[name, start, steps] : all) {
            SCOPED_TRACE(name);
            setNow(start);
            LogCapture quiet;
            run(steps);
            clearAll();
        }
    }

    char kitchen_[8] = "kitchen";
    std::vector<std::pair<const char *, std::int32_t>> pauses_;
};

TEST_F(Plans, Scenarios) {
    std::int32_t p = 0, q = 0;
    auto addP = [&](uTimePlanInfo info) { return [=, this, &p] { EXPECT_GT(p = add(info), 0); }; };
    const auto addOnce = [&] {
        q = freePlanIds();
        add(planInfo("11-23-10:00:05", "11-23-10:00:10", 0, 1));
        p = add(planInfo("11-23-10:00:03", "", 0, 2));
        EXPECT_EQ(freePlanIds(), q - 2);
        EXPECT_EQ(add(planInfo("11-23-09:00", "11-23-09:30", 0, 3)), 0); // over
        EXPECT_EQ(add(planInfo("11-23-09:00", "", 0, 3)), 0);
    };
    const auto lateClock = [&] {
        expectStatus(p, 1, nov(23, 10, 0, 5))();
        uTimerCheckSysTimeUpdated();
        expectStatus(p, 1, nov(26, 10, 0, 5))();
    };
    scenarios({
        {"added inside its period: starts silently",
         nov(23, 8, 30),
         {{0, nov(23, 8, 59, 59), {}, addP(planInfo("08:00", "09:00", 1, 7))},
          {0, nov(23, 9), {{E + 7, nov(23, 9)}}, expectStatus(p, 2)},
          {0, nov(24, 8), {{7, nov(24, 8)}}, expectStatus(p, 1, nov(24, 8))},
          {0, nov(24, 9), {{E + 7, nov(24, 9)}}}}},
        {"once plans go after their end and free their ids",
         nov(23, 10),
         {{0, nov(23, 10, 0, 3), {{2, nov(23, 10, 0, 3)}}, addOnce},
          {0,
           nov(23, 10, 0, 10),
           {{1, nov(23, 10, 0, 5)}, {E + 1, nov(23, 10, 0, 10)}},
           expectStatus(p, 0)},
          {0, nov(23, 10, 0, 30), {}, [&] { EXPECT_EQ(freePlanIds(), q); }}}},
        // Served a second late, a plan without an end skips its start and keeps no timer until
        // the next time change: a late start would surprise more than a missed one.
        {"late timer skips the start of a plan without an end",
         nov(23, 10),
         {{4000, 0, {}, addP(planInfo("10:00:05", "", 1, 4))},
          {0, nov(25, 10, 0, 30), {}, [&] { setNow(nov(23, 10, 0, 6)); }},
          {0, nov(26, 10, 0, 5), {{4, nov(26, 10, 0, 5)}}, lateClock}}},
    });
}

// Plans join a group by its exact name, while pauses find their group ignoring case: a pause
// given as "kitchen" joins the group first made as "KITCHEN", which holds only plans of
// "KITCHEN". Callers must spell a group the same way in plans and the pause that creates it.
TEST_F(Plans, PausesFindGroupsIgnoringCaseButPlansMatchExactly) {
    setNow(nov(23, 10));
    char upper[] = "KITCHEN";
    const std::int32_t lower = add(planInfo("09:00", "11:00", 1, 1), kitchen_);
    const std::int32_t caps = add(planInfo("09:00", "11:00", 1, 2), upper);
    for (const char *pauseAs : {"KITCHEN", "kitchen", "Kitchen"}) {
        ASSERT_GT(pause(pauseAs, "2026-11-23", "2026-11-24"), 0);
        EXPECT_EQ(std::vector({status(lower), status(caps)}), std::vector({2, 1})) << pauseAs;
    }
    clearAll(); // the pauses are deleted: the group holds nothing any more
    EXPECT_EQ(status(caps), 0);
    EXPECT_EQ(status(add(planInfo("09:00", "11:00", 1, 2), upper)), 2);
}

// Plans and pauses draw on the same 1000 ids; plans of a paused group hold an id but no timer.
TEST_F(Plans, PlansAndPausesShareTheThousandIds) {
    setNow(nov(23, 10));
    LogCapture quiet;
    char held[] = "held";
    ASSERT_GT(pause("held", "2026-11-23", "2026-11-24"), 0);
    std::vector<std::int32_t> plans;
    for (std::int32_t id; (id = add(planInfo("12:00", "13:00", 1, 1), held)) > 0;) {
        plans.push_back(id);
    }
    EXPECT_EQ(plans.size(), 999U);
    EXPECT_EQ(pause("kitchen", "2026-11-24", "2026-11-25"), -1);
    uTimePlanDel(plans.back());
    EXPECT_EQ(pause("kitchen", "2026-11-24", "2026-11-25"), plans.back()); // the freed id
    EXPECT_EQ(add(planInfo("12:00", "13:00", 1, 1), held), 0);
}

TEST_F(Plans, RefusedInput) {
    setNow(nov(23, 10));
    LogCapture log;
    uTimePlanPauseInfo typed = pauseReq("kitchen", "2026-11-23", "2026-11-24", 1),
                       unterminated = pauseReq("kitchen", "", "");
    std::memset(unterminated.pauseStartTime, '1', sizeof unterminated.pauseStartTime);
    std::memset(unterminated.pauseEndTime, '2', sizeof unterminated.pauseEndTime);
    checkRows({
        PU_ROW(uTimePlanAdd(nullptr), 0),
        PU_ROW(uTimePlanPauseAdd(nullptr), -1),
        PU_ROW(uTimePlanPauseAdd(&typed), 0), // an unknown type: 0, unlike the other refusals
        PU_ROW(uTimePlanPauseAdd(&unterminated), -1),
        PU_ROW(pause("kitchen", "2026-11-25", "2026-11-24"), -1),
        PU_ROW(pause("kitchen", "2026-11-25", "2026-11-25") > 0, true),
    });
}

} // namespace
} // namespace pu::test
