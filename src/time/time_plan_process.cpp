// SPDX-License-Identifier: MIT
// The plan scheduler: run when a plan is added, when its timer fires, after a pause and after a
// time change. It looks at the current time only, so running it again at the same moment
// changes nothing.
#include "time_plan_calendar.hpp"
#include "time_plan_service.hpp"

#include <platform_os.h>
#include <utimer.h>

#include "core/log_modules.hpp"

#include <cstdlib>

namespace pu::timeplan {
namespace {

bool isOnce(const PlanEntry &entry) {
    return entry.info->repeatType == U_TIME_PLAN_ONCE;
}

void rearm(PlanEntry &entry, time_t dueAt, time_t now) {
    // A due time in the past gives a negative delay that the timer service refuses: such a plan
    // has no timer until a pause or a time change recomputes it.
    entry.timerId =
        uTimerAddSecWithWakeup(planTimerFired, idArg(entry.id), timerSeconds(dueAt, now));
}

// 00:00:00 of t's local day.
time_t timePlanDateZeroGet(time_t t) {
    struct tm tm {};
    if (t == -1 || !localTm(t, tm)) {
        pu::log::info(pu::log::kTimePlan, "%s: currentTime is -1 !", "timePlanDateZeroGet");
        return -1;
    }
    return t - (tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec);
}

enum class RangeStep { kDone, kWithEnd, kWithoutEnd };

// The date range of a plan: before its first day the plan only steps on without callbacks; after
// its last day a repeating plan's end is cut to midnight, so it steps on without callbacks too.
RangeStep applyDateRange(PlanEntry &entry, time_t now, time_t &s, time_t &e) {
    const uTimePlanInfo &info = *entry.info;
    if (e == 0) {
        e = s;
    }
    const time_t firstDay = timePlanDateParse(info.startDate);
    const time_t lastDay = timePlanDateParse(info.endDate);
    // An unparsable date compares as "before", so such a plan never leaves this branch.
    if (timePlanDateCompare(e, firstDay) == -1 || timePlanDateCompare(s, firstDay) == -1) {
        uTimerDel(entry.timerId);
        const time_t nextStart = timePlanNextTimeGet(s, info.repeatType);
        const time_t nextEnd = timePlanNextTimeGet(e, info.repeatType);
        entry.timerId = uTimerAddSec(planTimerFired, idArg(entry.id), timerSeconds(nextStart, now));
        entry.start = nextStart;
        if (nextEnd != nextStart) {
            entry.end = nextEnd;
        }
        // Its start timer is armed: the first day of the range starts with a callback.
        entry.info->scheduled = 1;
        return RangeStep::kDone;
    }
    const bool inRange =
        timePlanDateCompare(s, firstDay) != -1 && timePlanDateCompare(e, lastDay) != 1;
    if (!inRange && !isOnce(entry)) {
        e = timePlanDateZeroGet(e);
    }
    return s == e ? RangeStep::kWithoutEnd : RangeStep::kWithEnd;
}

// A new random start within the period [start, end) of the next occurrence.
time_t redrawRandomStart(PlanEntry &entry) {
    time_t span = entry.end - entry.start;
    if (entry.end < entry.start) {
        span += kSecondsPerDay;
    }
    const time_t s = entry.start + (span > 0 ? std::rand() % span : 0);
    entry.randomOffset = static_cast<std::int32_t>(s - entry.start);
    return s;
}

void processWithEnd(Service &s, PlanEntry &entry, time_t now, time_t start, time_t end,
                    Deferred &later) {
    uTimePlanInfo &info = *entry.info;
    uTimerDel(entry.timerId);
    if (now < end && start <= now) {
        // Inside the period. A plan found there before it was ever scheduled (added inside
        // its period) is entered silently.
        if (entry.state != kRunning && info.scheduled != 0) {
            later.call(info.startCb, info.startArg);
        }
        entry.state = kRunning;
        rearm(entry, end, now);
        info.scheduled = 1;
        return;
    }
    if (entry.state == kRunning) {
        later.call(info.endCb, info.endArg);
    }
    if (isOnce(entry) && end <= now) {
        removePlan(s, &entry);
        return;
    }
    if (start <= now) {
        entry.start = timePlanNextTimeGet(entry.start, info.repeatType);
        entry.end = timePlanNextTimeGet(end, info.repeatType);
        start = info.randomStart != 0 ? redrawRandomStart(entry) : entry.start;
    }
    entry.state = kWaiting;
    rearm(entry, start, now);
    info.scheduled = 1;
}

// The start callback of a plan without an end runs only when its timer is served in the very
// second of the start; a late timer skips that occurrence.
void processWithoutEnd(Service &s, PlanEntry &entry, time_t now, time_t start, Deferred &later) {
    uTimePlanInfo &info = *entry.info;
    uTimerDel(entry.timerId);
    entry.timerId = 0;
    bool started = false;
    if (now == start) {
        later.call(info.startCb, info.startArg);
        entry.start = timePlanNextTimeGet(entry.start, info.repeatType);
        start = entry.start;
        started = true;
    }
    if (isOnce(entry) && (start < now || started)) {
        removePlan(s, &entry);
        return;
    }
    // A type that never steps would otherwise be re-armed for the second that has just fired.
    if (!(started && start <= now)) {
        rearm(entry, start, now);
    }
}

} // namespace

void processLocked(Service &s, std::int32_t id, Deferred &later) {
    PlanEntry *entry = findPlan(s, id);
    if (entry == nullptr || heldByPause(s, *entry)) {
        return;
    }
    if (entry->info == nullptr) {
        uTimerDel(entry->timerId);
        removePlan(s, entry);
        return;
    }
    const uTimePlanInfo &info = *entry->info;
    const time_t now = time(nullptr);
    time_t start = entry->start + (info.randomStart != 0 ? entry->randomOffset : 0);
    time_t end = entry->end;
    bool hasEnd = end != 0;
    if (info.startDate[0] != '\0' && info.endDate[0] != '\0') {
        const RangeStep step = applyDateRange(*entry, now, start, end);
        if (step == RangeStep::kDone) {
            return;
        }
        hasEnd = step == RangeStep::kWithEnd;
    }
    if (hasEnd) {
        processWithEnd(s, *entry, now, start, end, later);
    } else {
        processWithoutEnd(s, *entry, now, start, later);
    }
}

} // namespace pu::timeplan
