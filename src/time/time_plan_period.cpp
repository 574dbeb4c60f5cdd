// SPDX-License-Identifier: MIT
// The next period of a plan seen from now: its start and end composed from the description,
// moved to the next occurrence when over, and spread over two days when it crosses midnight.
#include "time_plan_calendar.hpp"

#include <platform_os.h>
#include <utimeplan.h>

#include "core/log_modules.hpp"

namespace {

using pu::timeplan::kSecondsPerDay;

struct Period {
    time_t start;
    time_t end;
};

// A past start of a plan without an end moves to its next occurrence; a once plan is over.
bool startWithoutEnd(time_t start, uint32_t repeatType, time_t now, Period &out) {
    if (start < now) {
        if (repeatType == U_TIME_PLAN_ONCE) {
            return false;
        }
        start = timePlanNextTimeGet(start, repeatType);
    }
    out = {start, 0};
    return true;
}

// Start at or after the end: the period runs over midnight, from start on one day to end on
// the next.
bool periodOverMidnight(time_t s, time_t e, uint32_t repeatType, time_t now, Period &out) {
    if (s == e) {
        return startWithoutEnd(s, repeatType, now, out);
    }
    if (e > now) { // began yesterday and still open
        out = {s - kSecondsPerDay, e};
    } else if (now <= e + kSecondsPerDay) {
        out = {s, e + kSecondsPerDay};
    } else {
        if (repeatType == U_TIME_PLAN_ONCE) {
            return false;
        }
        out = {timePlanNextTimeGet(s, repeatType),
               timePlanNextTimeGet(e + kSecondsPerDay, repeatType)};
    }
    return true;
}

// Start before the end on the same day. An open period keeps its past start.
bool periodWithinDay(time_t s, time_t e, uint32_t repeatType, time_t now, Period &out) {
    if (e >= 1 && e < now) {
        if (repeatType == U_TIME_PLAN_ONCE) {
            return false;
        }
        out = {timePlanNextTimeGet(s, repeatType), timePlanNextTimeGet(e, repeatType)};
    } else {
        out = {s, e};
    }
    return true;
}

void logComposeFailed() {
    pu::log::info(pu::log::kTimePlan, "%s: startTime or endTime Compose failed",
                  "timePlanTimeCalculation");
}

bool nextPeriod(const uTimePlanInfo &plan, Period &out) {
    const time_t s = uTimePlanTimeCompose(plan.startTime, plan.repeatType, plan.repeatDate);
    if (plan.endTime[0] == '\0') {
        if (s == -1) {
            logComposeFailed();
            return false;
        }
        return startWithoutEnd(s, plan.repeatType, time(nullptr), out);
    }
    const time_t e = uTimePlanTimeCompose(plan.endTime, plan.repeatType, plan.repeatDate);
    if (s == -1 || e == -1) {
        logComposeFailed();
        return false;
    }
    const time_t now = time(nullptr);
    if (s >= e && e >= 1) {
        return periodOverMidnight(s, e, plan.repeatType, now, out);
    }
    return periodWithinDay(s, e, plan.repeatType, now, out);
}

} // namespace

extern "C" int32_t timePlanTimeCalculation(const uTimePlanInfo *plan, time_t *start, time_t *end) {
    Period period{};
    if (plan == nullptr || start == nullptr || end == nullptr || !nextPeriod(*plan, period)) {
        return -1;
    }
    *start = period.start;
    *end = period.end;
    return 0;
}
