// SPDX-License-Identifier: MIT
// uIntervalPlan: plans that run a task a number of times with a pause between runs, driven by a
// state table. Callbacks go through the asynchronous call pool; the pause is a timer.
#include <uintervalplan.h>

#include <uasync.h>
#include <ufsm.h>
#include <ulist.h>
#include <umem.h>
#include <utimer.h>
#include <uuniqueid.h>

#include <platform_os.h>

#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "time/timer_limits.hpp"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace {

using pu::core::SemGuard;

constexpr const char *kIdModule = "intervalPlanIdName";
constexpr std::int32_t kFirstId = 1;
constexpr std::int32_t kIdCount = 100;
constexpr std::int32_t kNoTimer = -1;
constexpr std::int32_t kUnlimited = -1;

enum PlanState : std::uint32_t {
    kAdded = 0,
    kRunning = 1,
    kWaitingPaused = 2,
    kRunningPaused = 3,
    kWaiting = 4,
    kFinished = 5,
};

enum PlanEvent : std::uint32_t {
    kStart = 0,
    kDelete = 1,
    kResume = 2,
    kPause = 3,
    kComplete = 4,
};

struct Plan {
    std::int32_t id;
    std::int32_t count; // runs still to start
    std::int32_t interval;
    std::int32_t timerId; // the waiting timer, kNoTimer when none
    std::int32_t lastTimerRemainTime;
    std::uint32_t state;
    uIntervalPlanCallback cb;
};
#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(Plan) == 28, "the plan record is 28 bytes on 32-bit targets");
#endif

struct CallbackCell {
    uIntervalPlanCallback cb;
    std::int32_t code;
    std::int32_t id;
};
#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(CallbackCell) == 12, "the callback cell is 12 bytes on 32-bit targets");
#endif

// The handles are atomics because timers reach uIntervalPlanStart on pool threads at any time,
// also while init or uninit runs; the list and the table are only used with the mutex held.
struct Service {
    std::mutex lifecycle; // serialises init and uninit
    std::atomic<SEM_ID> mutex{0};
    std::atomic<uList *> plans{nullptr};
    std::atomic<uFsm *> machine{nullptr};
};

Service &service() {
    return pu::core::immortal<Service>();
}

std::int32_t cbMissing(const char *action) {
    pu::log::error(pu::log::kIntervalPlan, "%s, cb unregisted!", action);
    return -1;
}

bool hasTimer(const Plan *plan) {
    return plan->timerId != kNoTimer && plan->timerId != 0;
}

void *planArgument(std::int32_t id) {
    return reinterpret_cast<void *>(static_cast<std::intptr_t>(id));
}

void callbackTrampoline(void *argument) {
    auto *cell = static_cast<CallbackCell *>(argument);
    cell->cb(cell->code, cell->id);
    uFree(cell);
}

std::int32_t callAsync(uIntervalPlanCallback cb, std::int32_t code, std::int32_t id) {
    auto *cell = static_cast<CallbackCell *>(uMalloc(sizeof(CallbackCell)));
    if (cell == nullptr) {
        pu::log::error(pu::log::kIntervalPlan, "%s, malloc failed!", "uIntervalPlanAsyncCall");
        return -1;
    }
    *cell = CallbackCell{cb, code, id};
    return uAsyncCall(callbackTrampoline, cell);
}

bool queueCallback(const Plan *plan, std::int32_t code) {
    return plan->cb != nullptr && callAsync(plan->cb, code, plan->id) == 0;
}

void planTimedOut(void *argument) {
    uIntervalPlanStart(static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(argument)));
}

void dropTimer(Plan *plan) {
    if (hasTimer(plan)) {
        uTimerDel(static_cast<std::uint32_t>(plan->timerId));
    }
    plan->timerId = kNoTimer;
}

// Called with the mutex held, so the list cannot change under the search.
void removePlan(Plan *plan) {
    uList *plans = service().plans.load();
    uIdReleaseModuleUniqueId(kIdModule, plan->id);
    uListRemoveAndFree(plans, uListPosGetByElement(plans, plan), nullptr);
}

Plan *findPlan(uList *plans, std::int32_t id) {
    for (std::int32_t pos = 0; uListEol(plans, pos) == 0; ++pos) {
        auto *plan = static_cast<Plan *>(uListGet(plans, pos));
        if (plan != nullptr && plan->id == id) {
            return plan;
        }
    }
    return nullptr;
}

// ---- Actions of the state table; each runs with the mutex held ----------------------------

// Tells the application code, then applies change to the plan. A callback that cannot be
// queued is logged under the action's name and the plan stays as it was.
template <typename Change>
std::int32_t notifyThen(void *argument, std::int32_t code, const char *action, Change change) {
    auto *plan = static_cast<Plan *>(argument);
    if (plan == nullptr) {
        return -1;
    }
    if (!queueCallback(plan, code)) {
        return cbMissing(action);
    }
    change(plan);
    return 0;
}

void startRun(Plan *plan) {
    // A start by hand while waiting makes the waiting timer pointless; left armed it could
    // start a later wait early.
    dropTimer(plan);
    plan->state = kRunning;
    // Counts down also from "no limit" (-1): a plan added with count 0 finishes after its
    // first run. Intended; do not special-case it.
    plan->count -= 1;
}

void stopWaiting(Plan *plan) {
    dropTimer(plan);
    removePlan(plan);
}

// The run starts even when its callback cannot be queued: a plan left Added by a failed first
// start could never be deleted.
int32_t startPlan(void *argument) {
    auto *plan = static_cast<Plan *>(argument);
    if (plan == nullptr) {
        return -1;
    }
    const bool queued = queueCallback(plan, U_INTERVAL_PLAN_STARTED);
    startRun(plan);
    if (!queued) {
        cbMissing("uIntervalPlanStartProcess");
    }
    return 0;
}

int32_t runningToPaused(void *argument) {
    return notifyThen(argument, U_INTERVAL_PLAN_PAUSED, "uIntervalPlanRuning2PauseProcess",
                      [](Plan *plan) { plan->state = kRunningPaused; });
}

int32_t waitingToStopped(void *argument) {
    return notifyThen(argument, U_INTERVAL_PLAN_STOPPED, "uIntervalPlanWaiting2StopProcess",
                      stopWaiting);
}

int32_t runningToStopped(void *argument) {
    return notifyThen(argument, U_INTERVAL_PLAN_STOPPED, "uIntervalPlanRuning2StopProcess",
                      removePlan);
}

int32_t runningToFinished(void *argument) {
    auto *plan = static_cast<Plan *>(argument);
    if (plan == nullptr) {
        return -1;
    }
    if (plan->count <= 0 && plan->count != kUnlimited) {
        plan->state = kFinished;
        uIntervalPlanDel(plan->id); // removes the plan: do not touch it afterwards
        return 0;
    }
    // The wait starts even when the callback cannot be queued: the run is over either way.
    plan->timerId = static_cast<std::int32_t>(uTimerAddSec(
        planTimedOut, planArgument(plan->id), static_cast<std::uint32_t>(plan->interval)));
    plan->state = kWaiting;
    if (!queueCallback(plan, U_INTERVAL_PLAN_RUN_FINISHED)) {
        return cbMissing("uIntervalPlanRuning2FinishProcess");
    }
    return 0;
}

int32_t waitingToPaused(void *argument) {
    auto *plan = static_cast<Plan *>(argument);
    if (plan == nullptr) {
        return -1;
    }
    if (hasTimer(plan)) {
        plan->lastTimerRemainTime =
            static_cast<std::int32_t>(uTimerRemainGet(static_cast<std::uint32_t>(plan->timerId)));
    }
    dropTimer(plan);
    plan->state = kWaitingPaused;
    return 0;
}

// Re-arms what was left of a paused wait. With nothing left the plan stays paused; it can only
// be deleted then.
std::int32_t resumeWaiting(Plan *plan) {
    if (plan->count == kUnlimited || plan->count > 0) {
        if (plan->lastTimerRemainTime < 1) {
            pu::log::error(pu::log::kIntervalPlan, "%s, invaild lastTimerRemainTime:%d!",
                           "uIntervalPlanPause2ResumeProcess", plan->lastTimerRemainTime);
            return -1;
        }
        plan->timerId = static_cast<std::int32_t>(
            uTimerAdd(planTimedOut, planArgument(plan->id), plan->lastTimerRemainTime));
    }
    plan->state = kWaiting;
    return 0;
}

int32_t pausedToResumed(void *argument) {
    auto *plan = static_cast<Plan *>(argument);
    if (plan != nullptr && plan->state == kWaitingPaused) {
        return resumeWaiting(plan);
    }
    return notifyThen(argument, U_INTERVAL_PLAN_RESUMED, "uIntervalPlanPause2ResumeProcess",
                      [](Plan *resumed) { resumed->state = kRunning; });
}

struct Row {
    PlanEvent event;
    PlanState state;
    uFsmHandler action;
};

// Order matters only for duplicates, of which there are none. There is deliberately no row for
// deleting an added plan: a plan that never started cannot be deleted.
constexpr Row kRows[] = {{kStart, kAdded, startPlan},
                         {kStart, kWaiting, startPlan},
                         {kDelete, kRunning, runningToStopped},
                         {kDelete, kWaitingPaused, waitingToStopped},
                         {kDelete, kRunningPaused, runningToStopped},
                         {kDelete, kWaiting, waitingToStopped},
                         {kDelete, kFinished, runningToStopped},
                         {kResume, kWaitingPaused, pausedToResumed},
                         {kResume, kRunningPaused, pausedToResumed},
                         {kPause, kWaiting, waitingToPaused},
                         {kPause, kRunning, runningToPaused},
                         {kComplete, kRunning, runningToFinished}};

uFsm *buildMachine() {
    uFsm *machine = uFsmCreate();
    if (machine == nullptr || machine->rows == nullptr) {
        uFsmDestroy(machine);
        return nullptr;
    }
    for (const Row &row : kRows) {
        if (uFsmAdd(machine, row.event, row.state, row.action) != 0) {
            uFsmDestroy(machine);
            return nullptr;
        }
    }
    return machine;
}

// Looks the plan up and runs the table's action for event in the plan's state.
std::int32_t runEvent(const char *function, PlanEvent event, std::int32_t id) {
    if (id < 0) {
        pu::log::warning(pu::log::kIntervalPlan, "%s, invaild param.", function);
        return -1;
    }
    Service &svc = service();
    SemGuard guard(svc.mutex.load());
    Plan *plan = findPlan(svc.plans.load(), id);
    if (plan == nullptr) {
        pu::log::warning(pu::log::kIntervalPlan, "%s, invaild task!", function);
        return -1;
    }
    return uFsmExecute(svc.machine.load(), event, plan->state, plan);
}

void releasePlans(uList *plans) {
    while (uListEol(plans, 0) == 0) {
        uFree(uListRemove(plans, 0));
    }
    uListUninit(plans);
}

} // namespace

extern "C" {

int32_t uIntervalPlanInit(void) {
    Service &svc = service();
    std::lock_guard lifecycle(svc.lifecycle);
    if (svc.mutex.load() != 0) {
        // A running service is left exactly as it is, its id module included.
        return 0;
    }
    const SEM_ID mutex = semMCreate(0);
    uList *plans = uListInit(0);
    uFsm *machine = buildMachine();
    if (mutex == 0 || plans == nullptr || machine == nullptr) {
        semDelete(mutex);
        uListUninit(plans);
        uFsmDestroy(machine);
        return -1;
    }
    svc.plans.store(plans);
    svc.machine.store(machine);
    svc.mutex.store(mutex);
    uIdRegisterUniqueIdModule(kIdModule, kFirstId, kIdCount);
    return 0;
}

void uIntervalPlanUninit(void) {
    Service &svc = service();
    std::lock_guard lifecycle(svc.lifecycle);
    const SEM_ID mutex = svc.mutex.load();
    if (mutex == 0) {
        return;
    }
    {
        SemGuard guard(mutex);
        // Timers of waiting plans stay armed; they find no plan when they fire.
        releasePlans(svc.plans.exchange(nullptr));
        uFsmDestroy(svc.machine.exchange(nullptr));
        svc.mutex.store(0);
    }
    semDelete(mutex);
    uIdUnregisterUniqueIdModule(kIdModule);
}

int32_t uIntervalPlanAdd(int32_t count, int32_t interval, uIntervalPlanCallback cb) {
    // A longer interval could not be armed when the plan starts waiting: refused here, where the
    // caller still learns of it, rather than waiting a wrapped time or for ever.
    if (cb == nullptr || count < 0 || interval < 0 || interval > pu::timer::kMaxDelaySeconds) {
        pu::log::warning(pu::log::kIntervalPlan, "%s, invaild param.", "uIntervalPlanAdd");
        return -1;
    }
    Service &svc = service();
    SemGuard guard(svc.mutex.load());
    uList *plans = svc.plans.load();
    if (plans == nullptr) {
        pu::log::warning(pu::log::kIntervalPlan, "%s, list not init!", "uIntervalPlanAdd");
        return -1;
    }
    auto *plan = static_cast<Plan *>(uMalloc(sizeof(Plan)));
    if (plan == nullptr) {
        pu::log::warning(pu::log::kIntervalPlan, "%s, malloc failed!", "uIntervalPlanAdd");
        return -1;
    }
    const std::int32_t id = uIdGetModuleAvailableUniqueId(kIdModule);
    if (id < 0) { // all ids in use; the id manager has said so
        uFree(plan);
        return -1;
    }
    *plan = Plan{id, count == 0 ? kUnlimited : count, interval, kNoTimer, 0, kAdded, cb};
    if (uListAppend(plans, plan) < 0) {
        pu::log::warning(pu::log::kIntervalPlan, "%s, malloc failed!", "uIntervalPlanAdd");
        uIdReleaseModuleUniqueId(kIdModule, id);
        uFree(plan);
        return -1;
    }
    return id;
}

int32_t uIntervalPlanStart(int32_t id) {
    return runEvent("uIntervalPlanStart", kStart, id);
}

int32_t uIntervalPlanDel(int32_t id) {
    return runEvent("uIntervalPlanDel", kDelete, id);
}

int32_t uIntervalPlanPause(int32_t id) {
    return runEvent("uIntervalPlanPause", kPause, id);
}

int32_t uIntervalPlanResume(int32_t id) {
    return runEvent("uIntervalPlanResume", kResume, id);
}

int32_t uIntervalPlanComplete(int32_t id) {
    return runEvent("uIntervalPlanComplete", kComplete, id);
}

} // extern "C"
