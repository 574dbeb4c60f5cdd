// SPDX-License-Identifier: MIT
// The time plan service: the plan list, adding, deleting and querying plans, and the reaction
// to changes of the system time or the time zone.
#include "time_plan_service.hpp"

#include "time_plan_calendar.hpp"

#include <uevent.h>
#include <umem.h>
#include <ustr.h>
#include <utimer.h>
#include <uuniqueid.h>

#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <cstdlib>
#include <cstring>
#include <new>

namespace pu::timeplan {
namespace {

using pu::core::SemGuard;

constexpr const char *kTimeZoneChanged = "TIME_ZONE_CHANGED";
constexpr const char *kSystemTimeUpdated = "SYSTEM_TIME_UPDATED";
constexpr std::int32_t kFirstId = 1;
constexpr std::int32_t kIdCount = 1000;

// Vectors grow with new; out of memory drops the item instead of throwing past the C interface.
template <typename T> void pushNoThrow(std::vector<T> &items, const T &item) {
    try {
        items.push_back(item);
    } catch (const std::bad_alloc &) {
    }
}

void releaseEntry(PlanEntry *entry) {
    if (entry->info != nullptr) {
        uFree(entry->info->pauseModule);
        uFree(entry->info);
    }
    uFree(entry);
}

// Recomputes every plan that is not held and notes it for rescheduling, in list order.
void recomputeFreePlans(Service &s, Deferred &later) {
    for (uListNode *node = s.plans->head; node != nullptr; node = node->next) {
        auto *entry = static_cast<PlanEntry *>(node->data);
        if (planIsHeld(s, *entry)) {
            continue;
        }
        recomputePeriod(*entry);
        later.reschedule(entry->id);
    }
}

void timePlanTimeChanged() {
    Service &s = service();
    Deferred later;
    {
        SemGuard guard(s.mutex.load());
        if (!s.initialised.load() || s.plans == nullptr || s.plans->size == 0) {
            return;
        }
        reschedulePauses(s, later);
        recomputeFreePlans(s, later);
    }
    later.run();
}

void onTimeEvent(const char *, void *, void *, std::uint32_t) {
    timePlanTimeChanged();
}

// The random start offset of a plan added with randomStart: a second of [base, end) counted from
// the nominal start, where base is the start or, inside the period, now.
std::int32_t firstRandomOffset(time_t start, time_t end, time_t now) {
    const time_t base = now > start ? now : start;
    if (end < base) {
        end += kSecondsPerDay;
    }
    const time_t span = end - base;
    // An empty span (added in the last second of its period) has only one second to offer.
    return span > 0 ? static_cast<std::int32_t>(std::rand() % span) : 0;
}

// A new entry with copies of info, or null when memory is short.
PlanEntry *newEntry(const uTimePlanInfo &info) {
    auto *entry = static_cast<PlanEntry *>(uMalloc(sizeof(PlanEntry)));
    if (entry == nullptr) {
        return nullptr;
    }
    entry->info = static_cast<uTimePlanInfo *>(uMalloc(sizeof(uTimePlanInfo)));
    if (entry->info == nullptr) {
        uFree(entry);
        return nullptr;
    }
    std::memcpy(entry->info, &info, sizeof info);
    entry->info->pauseModule = uStrGetCopy(info.pauseModule);
    if (info.pauseModule != nullptr && info.pauseModule[0] != '\0' &&
        entry->info->pauseModule == nullptr) {
        releaseEntry(entry);
        return nullptr;
    }
    return entry;
}

} // namespace

Service &service() {
    return pu::core::immortal<Service>();
}

void Deferred::call(uTimePlanCallback callback, void *arg) {
    if (callback != nullptr) {
        pushNoThrow(calls_, Call{callback, arg});
    }
}

void Deferred::reschedule(std::int32_t id) {
    pushNoThrow(ids_, id);
}

void Deferred::run() {
    for (const Call &call : calls_) {
        call.callback(call.arg);
    }
    for (std::int32_t id : ids_) {
        timePlanProcess(id);
    }
}

PlanEntry *findPlan(Service &s, std::int32_t id) {
    if (s.plans == nullptr) {
        return nullptr;
    }
    for (uListNode *node = s.plans->head; node != nullptr; node = node->next) {
        auto *entry = static_cast<PlanEntry *>(node->data);
        if (entry->id == id) {
            return entry;
        }
    }
    return nullptr;
}

PauseGroup *timePlanGroupFind(Service &s, std::int32_t type, const char *name) {
    if (s.groups == nullptr || type != 0) {
        return nullptr;
    }
    for (uListNode *node = s.groups->head; node != nullptr; node = node->next) {
        auto *group = static_cast<PauseGroup *>(node->data);
        if (uStrCaseEqual(group->name, name) != 0) {
            return group;
        }
    }
    return nullptr;
}

bool planIsHeld(Service &s, const PlanEntry &entry) {
    if (entry.info == nullptr || entry.info->pauseModule == nullptr) {
        return false;
    }
    const PauseGroup *group = timePlanGroupFind(s, 0, entry.info->pauseModule);
    return group != nullptr && group->pausedCount > 0;
}

bool belongsTo(const PlanEntry &entry, const PauseGroup &group) {
    return entry.info != nullptr && entry.info->pauseModule != nullptr && group.name != nullptr &&
           std::strcmp(entry.info->pauseModule, group.name) == 0;
}

bool heldByPause(Service &s, const PlanEntry &entry) {
    for (uListNode *node = s.groups->head; node != nullptr; node = node->next) {
        const auto *group = static_cast<PauseGroup *>(node->data);
        if (group->pausedCount > 0 && belongsTo(entry, *group)) {
            return true;
        }
    }
    return false;
}

void removePlan(Service &s, PlanEntry *entry) {
    (void)uListRemove(s.plans, uListPosGetByElement(s.plans, entry));
    uIdReleaseModuleUniqueId(kIdModule, entry->id);
    releaseEntry(entry);
}

void *idArg(std::int32_t id) {
    return reinterpret_cast<void *>(static_cast<std::intptr_t>(id));
}

std::int32_t argId(void *arg) {
    return static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(arg));
}

std::uint32_t timerSeconds(time_t dueAt, time_t now) {
    constexpr time_t kLongestTimerSeconds = 2000000;
    const time_t seconds = dueAt - now;
    return static_cast<std::uint32_t>(seconds > kLongestTimerSeconds ? kLongestTimerSeconds
                                                                     : seconds);
}

void recomputePeriod(PlanEntry &entry) {
    time_t start = 0;
    time_t end = 0;
    // A plan whose period can no longer be composed keeps its times; the scheduler then ends or
    // removes it.
    if (timePlanTimeCalculation(entry.info, &start, &end) == 0) {
        entry.start = start;
        entry.end = end;
    }
}

void timePlanProcess(std::int32_t id) {
    Service &s = service();
    Deferred later;
    {
        SemGuard guard(s.mutex.load());
        if (s.initialised.load()) {
            processLocked(s, id, later);
        }
    }
    later.run();
}

void planTimerFired(void *arg) {
    timePlanProcess(argId(arg));
}

} // namespace pu::timeplan

using namespace pu::timeplan;
using pu::core::SemGuard;

extern "C" {

void uTimePlanInit(void) {
    Service &s = service();
    if (s.initialised.load()) {
        pu::log::info(pu::log::kTimePlan, "%s: time plan is alreday init.", "uTimePlanInit");
        return;
    }
    {
        // Two first inits racing here share one mutex.
        SemGuard guard(pu::core::createMutexOnce(s.mutex));
        if (s.plans == nullptr) {
            s.plans = uListInit(0);
        }
        if (s.groups == nullptr) {
            s.groups = uListInit(0);
        }
    }
    uEventCare(kTimeZoneChanged, onTimeEvent, nullptr);
    uEventCare(kSystemTimeUpdated, onTimeEvent, nullptr);
    s.initialised.store(true);
    uIdRegisterUniqueIdModule(kIdModule, kFirstId, kIdCount);
}

void uTimePlanUninit(void) {
    Service &s = service();
    if (!s.initialised.load()) {
        pu::log::info(pu::log::kTimePlan, "%s: time plan not init.", "uTimePlanUninit");
        return;
    }
    const SEM_ID mutex = s.mutex.load();
    {
        SemGuard guard(mutex);
        while (s.plans->size > 0) {
            releaseEntry(static_cast<PlanEntry *>(uListRemove(s.plans, 0)));
        }
        uListUninit(s.plans);
        s.plans = nullptr;
        s.initialised.store(false);
        s.mutex.store(0);
    }
    semDelete(mutex);
    uEventClear(kTimeZoneChanged, onTimeEvent);
    uEventClear(kSystemTimeUpdated, onTimeEvent);
    uIdUnregisterUniqueIdModule(kIdModule);
}

int32_t uTimePlanAdd(const uTimePlanInfo *info) {
    Service &s = service();
    if (!s.initialised.load()) {
        pu::log::info(pu::log::kTimePlan, "%s: time plan is not init.", "uTimePlanAdd");
        return 0;
    }
    time_t start = 0;
    time_t end = 0;
    if (info == nullptr || info->startCb == nullptr ||
        timePlanTimeCalculation(info, &start, &end) != 0) {
        return 0;
    }
    PlanEntry *entry = newEntry(*info);
    if (entry == nullptr) {
        return 0;
    }
    entry->id = uIdGetModuleAvailableUniqueId(kIdModule);
    if (entry->id < 0) {
        releaseEntry(entry);
        return 0;
    }
    entry->start = start;
    entry->end = end;
    if (info->randomStart != 0 && end != 0) {
        entry->randomOffset = firstRandomOffset(start, end, time(nullptr));
    }
    entry->state = kWaiting;

    const std::int32_t id = entry->id;
    Deferred later;
    {
        SemGuard guard(s.mutex.load());
        if (!s.initialised.load() || uListAppend(s.plans, entry) < 0) {
            uIdReleaseModuleUniqueId(kIdModule, id);
            releaseEntry(entry);
            return 0;
        }
        // A plan of a paused group waits for the end of the pause, which schedules it.
        if (!planIsHeld(s, *entry)) {
            processLocked(s, id, later);
        }
    }
    later.run();
    return id;
}

void uTimePlanDel(int32_t id) {
    Service &s = service();
    uTimePlanCallback endCb = nullptr;
    void *endArg = nullptr;
    {
        SemGuard guard(s.mutex.load());
        PlanEntry *entry = s.initialised.load() ? findPlan(s, id) : nullptr;
        if (entry == nullptr) {
            return;
        }
        if (entry->info != nullptr && entry->state == kRunning) {
            endCb = entry->info->endCb;
            endArg = entry->info->endArg;
        }
        uTimerDel(entry->timerId);
        removePlan(s, entry);
    }
    if (endCb != nullptr) {
        endCb(endArg);
    }
}

void uTimePlanStatusQuery(int32_t id, int32_t *status, time_t *start, time_t *end) {
    Service &s = service();
    SemGuard guard(s.mutex.load());
    const PlanEntry *entry = s.initialised.load() ? findPlan(s, id) : nullptr;
    if (entry == nullptr) {
        if (status != nullptr) {
            *status = 0;
        }
        return;
    }
    if (status != nullptr) {
        *status = entry->state == kRunning ? 2 : 1;
    }
    if (start != nullptr) {
        *start = entry->start;
    }
    if (end != nullptr) {
        *end = entry->end;
    }
}

} // extern "C"
