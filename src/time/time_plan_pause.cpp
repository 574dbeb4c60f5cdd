// SPDX-License-Identifier: MIT
// Pause groups: while one of a group's pauses is in force, the group's plans are held (a running
// plan is ended, none starts and none has a timer); when the last one ends they are recomputed.
#include "time_plan_calendar.hpp"
#include "time_plan_service.hpp"

#include <platform_os.h>
#include <umem.h>
#include <ustr.h>
#include <ustrconv.h>
#include <utimer.h>
#include <uuniqueid.h>

#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <cstring>

namespace pu::timeplan {
namespace {

using pu::core::SemGuard;

constexpr std::size_t kPauseTextSize = sizeof(uTimePlanPauseInfo{}.pauseEndTime);

template <typename Fn> void forEachPlanOf(Service &s, const PauseGroup &group, Fn fn) {
    for (uListNode *node = s.plans->head; node != nullptr; node = node->next) {
        auto *entry = static_cast<PlanEntry *>(node->data);
        if (belongsTo(*entry, group)) {
            fn(*entry);
        }
    }
}

void armPauseEnd(PlanPause &pause, time_t now) {
    pause.timerId =
        uTimerAddSec(pauseEndFired, idArg(pause.id), timerSeconds(makeLocalTime(pause.endTm), now));
}

void startModulePause(Service &s, PlanPause &pause, Deferred &later) {
    PauseGroup &group = *pause.group;
    pause.active = 1;
    ++group.pausedCount;
    armPauseEnd(pause, time(nullptr));
    if (group.pausedCount > 1) {
        pu::log::info(pu::log::kTimePlan, "%s: time plan has been paused",
                      "uTimePlanModulePauseStart");
        return;
    }
    forEachPlanOf(s, group, [&later](PlanEntry &entry) {
        if (entry.state == kRunning) {
            entry.state = kWaiting;
            later.call(entry.info->endCb, entry.info->endArg);
        }
        uTimerDel(entry.timerId);
        entry.timerId = 0;
    });
}

void endModulePause(Service &s, PlanPause &pause, Deferred &later) {
    PauseGroup &group = *pause.group;
    pause.active = 0;
    pause.timerId = 0;
    if (group.pausedCount < 1) {
        pu::log::info(pu::log::kTimePlan, "%s: time plan has been resumed",
                      "uTimePlanModulePauseEnd");
        return;
    }
    if (--group.pausedCount > 0) {
        return;
    }
    // Marked as scheduled, so a plan resumed inside its period gets its start callback.
    forEachPlanOf(s, group, [&later](PlanEntry &entry) {
        entry.info->scheduled = 1;
        recomputePeriod(entry);
        later.reschedule(entry.id);
    });
}

PlanPause *findPauseIn(const PauseGroup &group, std::int32_t id) {
    for (uListNode *node = group.pauses->head; node != nullptr; node = node->next) {
        auto *pause = static_cast<PlanPause *>(node->data);
        if (pause->id == id) {
            return pause;
        }
    }
    return nullptr;
}

PlanPause *findPause(Service &s, std::int32_t id) {
    for (uListNode *node = s.groups->head; node != nullptr; node = node->next) {
        PlanPause *pause = findPauseIn(*static_cast<PauseGroup *>(node->data), id);
        if (pause != nullptr) {
            return pause;
        }
    }
    return nullptr;
}

// Runs fn on the pause with this id under the plan mutex, then what it deferred.
template <typename Fn> void withPause(std::int32_t id, Fn fn) {
    Service &s = service();
    Deferred later;
    {
        SemGuard guard(s.mutex.load());
        PlanPause *pause = s.initialised.load() ? findPause(s, id) : nullptr;
        if (pause == nullptr) {
            return;
        }
        fn(s, *pause, later);
    }
    later.run();
}

void releaseGroup(PauseGroup *group) {
    uListUninit(group->pauses);
    uFree(group->name);
    uFree(group);
}

PauseGroup *addGroup(Service &s, const char *name) {
    auto *group = static_cast<PauseGroup *>(uMalloc(sizeof(PauseGroup)));
    if (group == nullptr) {
        return nullptr;
    }
    group->name = uStrGetCopy(name);
    group->pauses = uListInit(0);
    if (group->name == nullptr || group->pauses == nullptr || uListAppend(s.groups, group) < 0) {
        releaseGroup(group);
        return nullptr;
    }
    return group;
}

// Reads a pause day; the caller's field need not be terminated.
bool parsePauseDay(const char (&field)[kPauseTextSize], struct tm &tm, const char *what) {
    char text[kPauseTextSize + 1] = {};
    std::memcpy(text, field, kPauseTextSize);
    if (uStrParseDateToTm(text, &tm, 1) != 0) {
        return true;
    }
    pu::log::debug(pu::log::kTimePlan, "%s: %s [%s] parse ERROR", "uTimePlanPauseTimeCalculation",
                   what, text);
    return false;
}

bool parsePauseDays(const uTimePlanPauseInfo &req, PlanPause &pause) {
    if (!parsePauseDay(req.pauseStartTime, pause.startTm, "pauseStartTime") ||
        !parsePauseDay(req.pauseEndTime, pause.endTm, "pauseEndTime")) {
        return false;
    }
    if (uTimePlanTmCompare(&pause.startTm, &pause.endTm) > 0) {
        pu::log::debug(pu::log::kTimePlan,
                       "%s: pauseStartTime[%.16s] greater than pauseEndTime[%.16s]",
                       "uTimePlanPauseTimeCalculation", req.pauseStartTime, req.pauseEndTime);
        return false;
    }
    return true;
}

// Unlists pause, ends it when in force, and releases it with its id.
void dropPause(Service &s, PauseGroup &group, PlanPause *pause, Deferred &later) {
    uTimerDel(pause->timerId);
    (void)uListRemove(group.pauses, uListPosGetByElement(group.pauses, pause));
    if (pause->active != 0) {
        endModulePause(s, *pause, later);
    }
    uIdReleaseModuleUniqueId(kIdModule, pause->id);
    uFree(pause);
}

// A new pause of group, listed and scheduled; its id, or -1.
std::int32_t addPause(Service &s, PauseGroup &group, const uTimePlanPauseInfo &req,
                      Deferred &later) {
    PlanPause parsed{};
    if (!parsePauseDays(req, parsed)) {
        return -1;
    }
    auto *pause = static_cast<PlanPause *>(uMalloc(sizeof(PlanPause)));
    if (pause == nullptr) {
        return -1;
    }
    *pause = parsed;
    pause->group = &group;
    pause->id = uIdGetModuleAvailableUniqueId(kIdModule);
    if (pause->id < 0 || uListAppend(group.pauses, pause) < 0) {
        uIdReleaseModuleUniqueId(kIdModule, pause->id);
        uFree(pause);
        return -1;
    }
    // Without its timer the pause would never start, or never end.
    if (!timePlanPauseSchedule(s, pause, later)) {
        dropPause(s, group, pause, later);
        return -1;
    }
    return pause->id;
}

bool pauseTypeSupported(std::int32_t type, const char *function) {
    if (type == 0) {
        return true;
    }
    pu::log::error(pu::log::kTimePlan, "%s: pauseType not support", function);
    return false;
}

} // namespace

bool timePlanPauseSchedule(Service &s, PlanPause *pause, Deferred &later) {
    const time_t now = time(nullptr);
    const time_t start = makeLocalTime(pause->startTm);
    if (now < start) {
        pause->timerId = uTimerAddSec(pauseStartFired, idArg(pause->id), timerSeconds(start, now));
        return pause->timerId != 0;
    }
    if (now < makeLocalTime(pause->endTm)) {
        startModulePause(s, *pause, later);
        return pause->timerId != 0;
    }
    return true; // a pause wholly in the past stays inert
}

void reschedulePauses(Service &s, Deferred &later) {
    for (uListNode *node = s.groups->head; node != nullptr; node = node->next) {
        auto *group = static_cast<PauseGroup *>(node->data);
        group->pausedCount = 0;
        for (uListNode *at = group->pauses->head; at != nullptr; at = at->next) {
            auto *pause = static_cast<PlanPause *>(at->data);
            pause->active = 0;
            uTimerDel(pause->timerId);
            pause->timerId = 0;
            timePlanPauseSchedule(s, pause, later);
        }
    }
}

// A start timer that finds its pause already in force is a stale one (the pause was rescheduled
// meanwhile); one that fires before the start only re-arms.
void pauseStartFired(void *arg) {
    withPause(argId(arg), [](Service &s, PlanPause &pause, Deferred &later) {
        if (pause.active == 0) {
            timePlanPauseSchedule(s, &pause, later);
        }
    });
}

void pauseEndFired(void *arg) {
    withPause(argId(arg), [](Service &s, PlanPause &pause, Deferred &later) {
        if (pause.active == 0) {
            return;
        }
        const time_t now = time(nullptr);
        if (now < makeLocalTime(pause.endTm)) {
            armPauseEnd(pause, now); // a long pause is ended by a chain of timers
        } else {
            endModulePause(s, pause, later);
        }
    });
}

} // namespace pu::timeplan

using namespace pu::timeplan;
using pu::core::SemGuard;

extern "C" {

int32_t uTimePlanPauseAdd(const uTimePlanPauseInfo *req) {
    if (req == nullptr) {
        return -1;
    }
    if (!pauseTypeSupported(req->pauseType, "uTimePlanPauseAdd")) {
        return 0;
    }
    if (req->module == nullptr || req->module[0] == '\0') {
        return -1;
    }
    Service &s = service();
    Deferred later;
    std::int32_t id = -1;
    {
        SemGuard guard(s.mutex.load());
        if (!s.initialised.load()) {
            return -1;
        }
        PauseGroup *group = timePlanGroupFind(s, 0, req->module);
        if (group == nullptr) {
            group = addGroup(s, req->module);
        }
        if (group == nullptr) {
            return -1;
        }
        // A group made for a request that then fails stays, empty.
        id = addPause(s, *group, *req, later);
    }
    later.run();
    return id;
}

void uTimePlanPauseDel(const uTimePlanPauseInfo *req) {
    if (req == nullptr || req->pauseId == 0 ||
        !pauseTypeSupported(req->pauseType, "uTimePlanPauseDel")) {
        return;
    }
    Service &s = service();
    Deferred later;
    {
        SemGuard guard(s.mutex.load());
        PauseGroup *group = s.initialised.load() ? timePlanGroupFind(s, 0, req->module) : nullptr;
        if (group == nullptr) {
            return;
        }
        if (PlanPause *pause = findPauseIn(*group, req->pauseId); pause != nullptr) {
            dropPause(s, *group, pause, later);
        }
        if (uListSize(group->pauses) == 0) {
            (void)uListRemove(s.groups, uListPosGetByElement(s.groups, group));
            releaseGroup(group);
        }
    }
    later.run();
}

} // extern "C"
