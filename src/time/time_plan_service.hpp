// SPDX-License-Identifier: MIT
// State of the time plan service shared by its sources: plan entries, pause groups and pauses
// under the plan mutex, and the work that must wait until that mutex is given.
#pragma once

#include <platform_os.h>
#include <ulist.h>
#include <utimeplan.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <vector>

namespace pu::timeplan {

inline constexpr const char *kIdModule = "timePlanIdName";

enum PlanState : std::int32_t { kRunning = 0, kWaiting = 1 };

// One per plan, in the plan list.
struct PlanEntry {
    std::int32_t id;
    std::uint32_t timerId; // 0: no timer
    std::int32_t state;    // PlanState
    time_t start;          // next nominal start
    time_t end;            // next end; 0: the plan has no end
    uTimePlanInfo *info;   // the service's copy; its pauseModule is a copy too
    std::int32_t randomOffset;
};

struct PauseGroup {
    std::int32_t type;
    char *name;
    std::int32_t pausedCount; // pauses of the group in force
    uList *pauses;            // PlanPause pointers
};

struct PlanPause {
    PauseGroup *group;
    struct tm startTm;
    struct tm endTm;
    std::int32_t id;
    std::int32_t active;
    std::uint32_t timerId;
};

#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(uTimePlanInfo) == 132, "the plan description is 132 bytes on 32-bit targets");
static_assert(sizeof(PauseGroup) == 16, "a pause group is 16 bytes on 32-bit targets");
static_assert(sizeof(time_t) != 4 || sizeof(PlanEntry) == 28,
              "a plan entry is 28 bytes with a 32-bit time_t");
#endif

struct Service {
    // Atomics: the timer callbacks read them without the lock to find out whether there is
    // anything to lock at all.
    std::atomic<SEM_ID> mutex{0};
    std::atomic<bool> initialised{false};
    uList *plans = nullptr;  // PlanEntry pointers, under mutex
    uList *groups = nullptr; // PauseGroup pointers, under mutex
};

Service &service();

// Plan callbacks due and plans to reschedule, found under the plan mutex and acted on once it has
// been given: user code never runs under the lock, and a plan is rescheduled with the lock taken
// afresh, as its timer would.
class Deferred {
  public:
    Deferred() = default;
    Deferred(const Deferred &) = delete;
    Deferred &operator=(const Deferred &) = delete;

    void call(uTimePlanCallback callback, void *arg);
    void reschedule(std::int32_t id);
    // Calls the callbacks in order, then reschedules the plans in order. The caller must not
    // hold the plan mutex.
    void run();

  private:
    struct Call {
        uTimePlanCallback callback;
        void *arg;
    };
    std::vector<Call> calls_;
    std::vector<std::int32_t> ids_;
};

// ---- Plans (the caller holds the plan mutex unless said otherwise) -----------------------

PlanEntry *findPlan(Service &s, std::int32_t id);

// The group named pauseModule (type 0, ignoring case), or null.
PauseGroup *timePlanGroupFind(Service &s, std::int32_t type, const char *name);

// True while the plan's group (found ignoring case) has a pause in force: such a plan is not
// scheduled when added or when the time changes.
bool planIsHeld(Service &s, const PlanEntry &entry);

// True when the plan's pauseModule is exactly the name of group. Pauses end and resume exactly
// these plans.
bool belongsTo(const PlanEntry &entry, const PauseGroup &group);

// True while a group that the plan belongs to has a pause in force: the plan was held by that
// pause and keeps no timer, so a timer callback already on its way must not re-arm it.
bool heldByPause(Service &s, const PlanEntry &entry);

// Removes the entry from the plan list and releases it, its copy and its id. Its timer is the
// caller's business.
void removePlan(Service &s, PlanEntry *entry);

// The scheduler: decides from the current time whether the plan starts, runs on or ends, queues
// the due callback in later and arms the plan's next timer. Once plans that are over are removed.
void processLocked(Service &s, std::int32_t id, Deferred &later);

// processLocked with the mutex taken here and the deferred work run after it is given.
void timePlanProcess(std::int32_t id);

// The plan timer's callback: the plan id is the argument.
void planTimerFired(void *arg);

void *idArg(std::int32_t id);
std::int32_t argId(void *arg);

// Seconds from now to dueAt for the timer service, which takes at most about 24.8 days
// (seconds * 1000 in 32 bits). A later time gets a timer for the longest delay instead; whatever
// it fires re-checks the time and arms again, so a monthly plan still fires. A past time gives
// a negative delay that the timer service refuses.
std::uint32_t timerSeconds(time_t dueAt, time_t now);

// Sets the plan's start and end to its next period seen from now; kept when none can be had.
void recomputePeriod(PlanEntry &entry);

// ---- Pauses ---------------------------------------------------------------------------------

// Arms the pause's start, starts it at once when it has begun, or leaves it inert when over.
// False when the timer it needed could not be armed.
bool timePlanPauseSchedule(Service &s, PlanPause *pause, Deferred &later);

// Cancels every pause and schedules it again from the current time.
void reschedulePauses(Service &s, Deferred &later);

// The pause timers' callbacks: the pause id is the argument.
void pauseStartFired(void *arg);
void pauseEndFired(void *arg);

} // namespace pu::timeplan
