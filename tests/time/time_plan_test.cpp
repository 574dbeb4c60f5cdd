// SPDX-License-Identifier: MIT
// Plans and pause groups on the simulated clock: when their callbacks run, plans added inside
// their period, once plans, date ranges, pauses holding and resuming plans, time changes, ids,
// and refused input.
#include "timer_harness.hpp"

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

uTimePlanPauseInfo pauseReq(const char *group, const char *from, const char *to, int id = 0) {
    uTimePlanPauseInfo req{};
    req.module = group;
    if (id != 0) {
        req.pauseId = id;
    } else {
        std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "%s", from);
        std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "%s", to);
    }
    std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "%s", to);
    return req;
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
        for (auto &[group, id] : pauses_) {
            unpause(group, id);
        }
        pauses_.clear();
        Recorder::instance().take();
    }
    std::int32_t add(uTimePlanInfo info, char *group = nullptr) {
        info.pauseModule = group;
        return uTimePlanAdd(&info);
    }
    std::int32_t pause(const char *group, const char *from, const char *to) {
        const uTimePlanPauseInfo req = pauseReq(group, from, to);
        const std::int32_t id = uTimePlanPauseAdd(&req);
        if (id > 0) {
            pauses_.emplace_back(group, id);
        }
        return id;
    }
    static void unpause(const char *group, std::int32_t id) {
        const uTimePlanPauseInfo req = pauseReq(group, "", "", id);
        uTimePlanPauseDel(&req);
    }
    static std::int32_t status(std::int32_t id, std::time_t *start = nullptr) {
        std::int32_t value = -1;
        uTimePlanStatusQuery(id, &value, start, nullptr);
        return value;
    }
    static std::function<void()> expectStatus(const std::int32_t &id, std::int32_t value,
                                              std::time_t start = 0) {
        return [&id, value, start] {
            std::time_t next = 0;
            EXPECT_EQ(status(id, &next), value) << "plan " << id;
            if (start != 0) {
                EXPECT_EQ(next, start) << "plan " << id;
            }
        };
    }

    char kitchen_[8] = "kitchen";
    std::vector<std::pair<const char *, std::int32_t>> pauses_;
};

struct Scenario {
    const char *name;
    std::time_t start;
    std::vector<Step> steps;
};

TEST_F(Plans, Scenarios) {
    std::int32_t p = 0, q = 0;
    auto addP = [&](uTimePlanInfo info, char *group = nullptr) {
        return [=, this, &p] {
            p = add(info, group);
            EXPECT_GT(p, 0);
        };
    };
    uTimePlanInfo dated = planInfo("08:00", "09:00", 1, 8);
    std::snprintf(dated.startDate, sizeof dated.startDate, "2026-11-24");
    std::snprintf(dated.endDate, sizeof dated.endDate, "2026-11-25");
    const Scenario scenarios[] = {
        {"added inside its period: starts silently",
         nov(23, 8, 30),
         {{addP(planInfo("08:00", "09:00", 1, 7)), 0, nov(23, 8, 59, 59), {}},
          {expectStatus(p, 2), 0, nov(23, 9), {{E + 7, nov(23, 9)}}},
          {expectStatus(p, 1, nov(24, 8)), 0, nov(24, 8), {{7, nov(24, 8)}}},
          {nullptr, 0, nov(24, 9), {{E + 7, nov(24, 9)}}}}},
        {"once plans go after their end and free their ids",
         nov(23, 10),
         {{[&] {
               q = freePlanIds();
               add(planInfo("11-23-10:00:05", "11-23-10:00:10", 0, 1));
               p = add(planInfo("11-23-10:00:03", "", 0, 2));
               EXPECT_EQ(freePlanIds(), q - 2);
               EXPECT_EQ(add(planInfo("11-23-09:00", "11-23-09:30", 0, 3)), 0); // over
               EXPECT_EQ(add(planInfo("11-23-09:00", "", 0, 3)), 0);
           },
           0,
           nov(23, 10, 0, 3),
           {{2, nov(23, 10, 0, 3)}}},
          {expectStatus(p, 0),
           0,
           nov(23, 10, 0, 10),
           {{1, nov(23, 10, 0, 5)}, {E + 1, nov(23, 10, 0, 10)}}},
          {[&] { EXPECT_EQ(freePlanIds(), q); }, 0, nov(23, 10, 0, 30), {}}}},
        // Served a second late, a plan without an end skips its start and keeps no timer until
        // the next time change: intended, a late start would surprise more than a missed one.
        {"late timer skips the start of a plan without an end",
         nov(23, 10),
         {{addP(planInfo("10:00:05", "", 1, 4)), 4000, 0, {}},
          {[&] { setNow(nov(23, 10, 0, 6)); }, 0, nov(25, 10, 0, 30), {}},
          {[&] {
               expectStatus(p, 1, nov(23, 10, 0, 5))();
               uTimerCheckSysTimeUpdated();
               expectStatus(p, 1, nov(26, 10, 0, 5))();
           },
           0,
           nov(26, 10, 0, 5),
           {{4, nov(26, 10, 0, 5)}}}}},
        {"a date range limits the days",
         nov(23, 7, 59, 55),
         {{addP(dated), 0, nov(23, 9, 0, 5), {}},
          {nullptr, 0, nov(24, 8), {{8, nov(24, 8)}}},
          {nullptr, 0, nov(24, 9), {{E + 8, nov(24, 9)}}},
          {nullptr, 0, nov(25, 8), {{8, nov(25, 8)}}},
          {nullptr, 0, nov(25, 9), {{E + 8, nov(25, 9)}}},
          {nullptr, 0, nov(26, 8, 0, 1), {}},
          {nullptr, 0, nov(26, 9, 0, 1), {}},
          {expectStatus(p, 1, nov(27, 8)), 0, nov(26, 9, 0, 2), {}}}}, // never removed
        {"monthly, further than the longest timer",
         nov(23, 10),
         {{addP(planInfo("09:00", "09:30", 3, 5, 23)), 0, nov(23, 10) + 2'000'000, {}},
          {nullptr, 0, localAt(2026, 12, 23, 9), {{5, localAt(2026, 12, 23, 9)}}}}},
        {"deleting a running plan ends it on the caller",
         nov(23, 9, 59, 58),
         {{addP(planInfo("10:00", "11:00", 1, 3)), 0, nov(23, 10, 0, 1), {{3, nov(23, 10)}}},
          {[&] { uTimePlanDel(p), uTimePlanDel(p), uTimePlanDel(0); },
           0,
           nov(23, 11, 0, 1),
           {{E + 3, nov(23, 10, 0, 1)}}}}},
        {"a time zone change reschedules",
         nov(23, 7, 30),
         {{[&] {
               p = add(planInfo("08:00", "09:00", 1, 1)), q = add(planInfo("10:00", "11:00", 1, 2));
               setZone("XXX-1"); // an hour east: 08:30 local
               uEventRaise("TIME_ZONE_CHANGED", nullptr, 0);
               expectStatus(q, 1, nov(23, 10))(); // 10:00 local
           },
           0,
           nov(23, 7, 30),
           {{1, nov(23, 7, 30)}}},
          {nullptr, 0, nov(23, 8), {{E + 1, nov(23, 8)}}},
          {[] { setZone("UTC0"); }, 0, nov(23, 8, 0, 1), {}}}},
    };
    for (const Scenario &s : scenarios) {
        SCOPED_TRACE(s.name);
        setNow(s.start);
        run(s.steps);
        clearAll();
    }
}

TEST_F(Plans, PauseScenarios) {
    std::int32_t p = 0, q = 0, a = 0, b = 0;
    char other[] = "garden";
    // A daily plan of group "kitchen" from 08:00 to 09:00, running since 08:00.
    const std::vector<Step> running = {
        {[&] { p = add(planInfo("08:00", "09:00", 1, 1), kitchen_); },
         0,
         nov(23, 8),
         {{1, nov(23, 8)}}}};
    auto then = [&](std::vector<Step> more) {
        std::vector<Step> all = running;
        all.insert(all.end(), more.begin(), more.end());
        return all;
    };
    const Scenario scenarios[] = {
        {"a pause ends a running plan and its end resumes it", nov(23, 7, 59, 58),
         then({{[&] { a = pause("kitchen", "2026-11-23", "2026-11-24"); },
                20'000,
                0,
                {{E + 1, nov(23, 8)}}},
               {[&] { expectStatus(p, 1)(), unpause("kitchen", a); },
                0,
                nov(23, 8, 0, 20),
                {{1, nov(23, 8, 0, 20)}}},
               {expectStatus(p, 2), 0, nov(23, 9), {{E + 1, nov(23, 9)}}}})},
        {"overlapping pauses hold until the last ends", nov(23, 7, 59, 58),
         then({{[&] {
                    a = pause("kitchen", "2026-11-23", "2026-11-25");
                    b = pause("Kitchen", "2026-11-22", "2026-11-24"); // the same group
                    EXPECT_NE(a, b);
                },
                0,
                nov(23, 8, 10),
                {{E + 1, nov(23, 8)}}},
               {[&] { unpause("KITCHEN", a), expectStatus(p, 1)(); }, 0, 0, {}},
               {[&] { unpause("kitchen", b), expectStatus(p, 2)(); },
                0,
                0,
                {{1, nov(23, 8, 10)}}}})},
        {"pauses begin and end by their timers",
         nov(23, 23, 59, 45),
         {{[&] {
               p = add(planInfo("23:59:50", "00:00:10", 1, 2), kitchen_);
               pause("kitchen", "2026-11-24", "2026-11-25");
           },
           0,
           nov(24, 0, 0, 5),
           {{2, nov(23, 23, 59, 50)}, {E + 2, nov(24, 0)}}},
          {nullptr, 0, nov(24, 23, 59, 55), {}}, // held through the next start
          {nullptr, 0, nov(25, 0, 0, 15), {{2, nov(25, 0)}, {E + 2, nov(25, 0, 0, 10)}}}}},
        {"a pause longer than the longest timer ends on time",
         nov(23, 10),
         {{[&] {
               p = add(planInfo("00:00:05", "00:00:15", 1, 6), kitchen_);
               pause("kitchen", "2026-11-24", "2026-12-31");
           },
           0,
           nov(24, 0, 0, 20),
           {}},
          {nullptr, 0, nov(24, 0, 0, 20) + 2'000'000, {}},
          {nullptr, 0, localAt(2026, 12, 31, 0, 0, 4), {}},
          {nullptr,
           0,
           localAt(2026, 12, 31, 0, 0, 20),
           {{6, localAt(2026, 12, 31, 0, 0, 5)}, {E + 6, localAt(2026, 12, 31, 0, 0, 15)}}}}},
        {"plans added to a paused group wait; ungrouped plans never do",
         nov(23, 7, 59, 58),
         {{[&] {
               a = pause("kitchen", "2026-11-23", "2026-11-24");
               pause("garden", "2026-11-23", "2026-11-24");
               p = add(planInfo("08:00", "09:00", 1, 3), kitchen_);
               q = add(planInfo("08:00", "09:00", 1, 4), other);
               add(planInfo("08:00", "09:00", 1, 5));
           },
           0,
           nov(23, 8, 0, 1),
           {{5, nov(23, 8)}}},
          {nullptr, 0, nov(23, 8, 30), {}},
          {[&] { unpause("kitchen", a); }, 0, 0, {{3, nov(23, 8, 30)}}}}},
        {"past pauses are inert", nov(23, 7, 59, 58),
         then({{[&] { a = pause("kitchen", "2026-11-01", "2026-11-23"); }, 0, nov(23, 8, 10), {}},
               {[&] { unpause("kitchen", a); }, 0, 0, {}}})},
        {"a time change reschedules pauses and plans", nov(23, 7, 59, 58),
         then({{[&] {
                    pause("kitchen", "2026-11-23", "2026-11-24");
                    setNow(nov(22, 8, 30)); // set back a day: the pause lies ahead again
                    uTimerCheckSysTimeUpdated();
                },
                0,
                nov(22, 9),
                {{1, nov(22, 8, 30)}, {E + 1, nov(22, 9)}, {E + 1, nov(23, 8)}}},
               {nullptr, 0, nov(23, 0, 0, 5), {}}, // the pause begins again at midnight
               {nullptr, 0, nov(23, 8, 0, 30), {}}})},
    };
    for (const Scenario &s : scenarios) {
        SCOPED_TRACE(s.name);
        setNow(s.start);
        LogCapture quiet;
        run(s.steps);
        clearAll();
    }
}

// Plans join a group by its exact name, while pauses find their group ignoring case: a pause
// given as "kitchen" joins the group first made as "KITCHEN", which holds only plans of
// "KITCHEN". Callers must spell a group the same way in plans and the pause that creates it.
TEST_F(Plans, PausesFindGroupsIgnoringCaseButPlansMatchExactly) {
    setNow(nov(23, 10));
    char upper[] = "KITCHEN";
    const struct {
        const char *pauseAs;
        int paused; // plans held: bit 0 "kitchen", bit 1 "KITCHEN"
    } rows[] = {{"KITCHEN", 2}, {"kitchen", 2}, {"Kitchen", 2}};
    const std::int32_t lower = add(planInfo("09:00", "11:00", 1, 1), kitchen_);
    const std::int32_t caps = add(planInfo("09:00", "11:00", 1, 2), upper);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.pauseAs);
        ASSERT_GT(pause(r.pauseAs, "2026-11-23", "2026-11-24"), 0);
        EXPECT_EQ(status(lower), r.paused & 1 ? 1 : 2);
        EXPECT_EQ(status(caps), r.paused & 2 ? 1 : 2);
    }
    for (auto &[group, id] : pauses_) {
        unpause(group, id);
    }
    pauses_.clear();
    EXPECT_EQ(status(caps), 2); // all three were pauses of the one group
}

TEST_F(Plans, PlansAndPausesShareTheThousandIds) {
    setNow(nov(23, 10));
    LogCapture quiet;
    char held[] = "held"; // plans of a paused group hold an id but no timer
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
    uTimePlanInfo noStart = planInfo("08:00", "09:00", 1, 1);
    noStart.startCb = nullptr;
    uTimePlanInfo noEndCb = planInfo("08:00", "09:00", 1, 1);
    noEndCb.endCb = nullptr; // optional
    uTimePlanPauseInfo typed = pauseReq("kitchen", "2026-11-23", "2026-11-24");
    typed.pauseType = 1;
    uTimePlanPauseInfo unterminated{};
    unterminated.module = "kitchen";
    std::memset(unterminated.pauseStartTime, '1', sizeof unterminated.pauseStartTime);
    std::memset(unterminated.pauseEndTime, '2', sizeof unterminated.pauseEndTime);
    const struct {
        const char *what;
        std::function<std::int32_t()> call;
        bool accepted;
        std::int32_t refusal = 0;
    } rows[] = {
        {"null plan", [] { return uTimePlanAdd(nullptr); }, false},
        {"no start callback", [&] { return uTimePlanAdd(&noStart); }, false},
        {"no end callback", [&] { return uTimePlanAdd(&noEndCb); }, true},
        {"daily with a day",
         [] {
             auto i = planInfo("08:00", "09:00", 1, 1, 2);
             return uTimePlanAdd(&i);
         },
         false},
        {"null pause", [] { return uTimePlanPauseAdd(nullptr); }, false, -1},
        {"pause type 1", [&] { return uTimePlanPauseAdd(&typed); }, false, 0},
        {"null group", [&] { return pause(nullptr, "2026-11-23", "2026-11-24"); }, false, -1},
        {"empty group", [&] { return pause("", "2026-11-23", "2026-11-24"); }, false, -1},
        {"February 30", [&] { return pause("kitchen", "2026-02-30", "2026-11-24"); }, false, -1},
        {"bad end", [&] { return pause("kitchen", "2026-11-23", "tomorrow"); }, false, -1},
        {"reversed", [&] { return pause("kitchen", "2026-11-25", "2026-11-24"); }, false, -1},
        {"same day", [&] { return pause("kitchen", "2026-11-25", "2026-11-25"); }, true},
        {"slashes", [&] { return pause("kitchen", "2026/11/25", "2026/11/26"); }, true},
        {"unterminated", [&] { return uTimePlanPauseAdd(&unterminated); }, false, -1},
    };
    for (const auto &r : rows) {
        const std::int32_t got = r.call();
        EXPECT_EQ(got > 0, r.accepted) << r.what;
        if (!r.accepted) {
            EXPECT_EQ(got, r.refusal) << r.what;
        }
    }
    std::int32_t value = -1;
    uTimePlanStatusQuery(999, &value, nullptr, nullptr);
    EXPECT_EQ(value, 0);
    uTimePlanStatusQuery(1, nullptr, nullptr, nullptr);
    uTimePlanPauseDel(nullptr); // deleting what does not exist does nothing
    for (const char *group : {"kitchen", "nobody"}) {
        unpause(group, 999);
    }
}

TEST_F(Plans, NothingBeforeInitAndTimersOfReleasedPlansFireIntoNothing) {
    setNow(nov(23, 9, 59, 58));
    ASSERT_GT(add(planInfo("10:00", "11:00", 1, 1)), 0);
    uTimePlanUninit(); // releases the plan, leaves its timer armed
    LogCapture quiet;
    EXPECT_EQ(add(planInfo("10:00", "11:00", 1, 1)), 0);
    const uTimePlanPauseInfo req = pauseReq("kitchen", "2026-11-23", "2026-11-24");
    EXPECT_EQ(uTimePlanPauseAdd(&req), -1);
    run({{nullptr, 3000, 0, {}}});
    uTimePlanInit();
    EXPECT_EQ(freePlanIds(), 1000);
}

} // namespace
} // namespace pu::test
