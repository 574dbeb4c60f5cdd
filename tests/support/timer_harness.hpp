// SPDX-License-Identifier: MIT
// Shared set-up of the timer suites: the timer service on the simulated clock, a wall clock the
// tests set, a recorder of fired callbacks, and scenarios of steps ("do this; let that much time
// pass; expect these callbacks") for timers and plans.
//
// The service is a process-wide singleton that is never torn down, so every test deletes the
// timers it adds (Timers does it on destruction) and never assumes a fresh task state.
#pragma once

#include <platform_sim.h>
#include <platform_utils.h>

#include <gmock/gmock.h> // the event suites match with it too
#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <vector>

namespace pu::test {

// Starts the service (a pool of 1000 timer records) once per process in manual mode and returns its
// power-manager handle.
int timerPowerHandle();

// Advances the simulated up-time by ms, fires one heartbeat and waits for the callbacks it queued.
void advance(std::uint32_t ms);

// Sets the calendar time time() returns (0: the real clock again).
void setWallClock(std::time_t now);

inline void *tag(std::uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

// One callback: its tag and the wall-clock second it ran in.
struct Fired {
    std::uintptr_t tag;
    std::time_t at = 0;
    auto operator<=>(const Fired &) const = default; // by tag, then second
};
inline void PrintTo(const Fired &f, std::ostream *out) {
    *out << f.tag << "@" << f.at;
}

// The callback of timers and plans: records its tag. takeFired() gives what fired since the last
// take, by second, then tag (callbacks of one pass run on several pool threads in no fixed order).
void record(void *arg);
std::vector<Fired> takeFired();

// Timers of one test, deleted when it ends (deleting a fired timer, or 0, does nothing).
struct Timers {
    ~Timers() { clear(); }
    std::uint32_t add(std::int64_t delayMs, std::uintptr_t value, std::uint32_t options = 0) {
        return keep(uTimerAddWithOptions(record, tag(value), delayMs, options));
    }
    std::uint32_t keep(std::uint32_t id) { // tracks an id added some other way
        ids.push_back(id);
        return id;
    }
    void clear();
    std::vector<std::uint32_t> ids;
};

// Sets TZ for the process. Only while no pool thread reads the local time.
void setZone(const char *tz);

// Calendar time of a local date and time in the current zone.
std::time_t localAt(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);
// A local time in November 2026, the month most plan tests live in (the 23rd is a Monday).
inline std::time_t nov(int day, int hour, int minute = 0, int second = 0) {
    return localAt(2026, 11, day, hour, minute, second);
}

// A plan whose start records tag label and whose end records label + kEnd.
inline constexpr std::uintptr_t kEnd = 100;
uTimePlanInfo planInfo(const char *start, const char *end, std::uint32_t repeatType,
                       std::uintptr_t label, std::uint32_t repeatDate = 0);

// A pause of group over the dates from and to ("YYYY-MM-DD"), and the deletion of pause id.
uTimePlanPauseInfo pauseReq(const char *group, const char *from, const char *to,
                            std::int32_t type = 0);
void unpause(const char *group, std::int32_t id, std::int32_t type = 0);

// One step of a scenario: run act, let time pass (ms, or up to the wall-clock second until),
// then expect what fired during the step. Expected seconds of 0 match any second.
struct Step {
    std::int64_t ms = 0;
    std::time_t until = 0;
    std::vector<Fired> fired;
    std::function<void()> act = [] {};
};

// Gtest fixture: starts the service, clears the recorder, and runs scenarios with the wall clock
// moving along with the simulated up-time.
class TimerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        timerPowerHandle();
        takeFired();
    }
    void TearDown() override { setWallClock(0); }

    void setNow(std::time_t now);
    std::time_t now() const { return now_ + nowMs_ / 1000; }
    // Time passes in heartbeats of at most 1 s (0: one beat of 0 ms).
    void pass(std::int64_t ms);
    void run(const std::vector<Step> &steps);

    std::time_t now_ = 0;
    std::int64_t nowMs_ = 0;
};

// TimerTest with the plan and interval-plan services started (in UTC) and stopped afterwards.
class PlanTest : public TimerTest {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        setZone("UTC0");
        uTimePlanInit();
        ASSERT_EQ(uIntervalPlanInit(), 0);
    }
    void TearDown() override {
        uIntervalPlanUninit();
        uTimePlanUninit();
        platformSimWaitPoolsIdle();
        TimerTest::TearDown();
    }
};

} // namespace pu::test
