/* SPDX-License-Identifier: MIT */
/*
 * uIntervalPlan: run a task a given number of times with a fixed pause between the end of one
 * run and the start of the next.
 *
 * The application owns the runs. The plan's callback tells it when a run starts, is paused or
 * resumed, when a run is over and the plan waits, and when the plan is stopped; the application
 * reports the end of each run with uIntervalPlanComplete. A typical plan sees the codes
 * 0, 4, 0, 4, ..., 0, 1: the last completion finishes the plan, which then stops and is removed.
 *
 * Callbacks run on a thread of the asynchronous call pool, never with the plan lock held, so
 * they may call this header's functions; their order relative to the caller is not fixed, and
 * two callbacks of one plan may run at the same time. Plan ids are 1 to 100, drawn from the
 * unique-id module "intervalPlanIdName". Log module: "basalt.utils.intervalPlan".
 */
#ifndef PLATFORM_UTILS_UINTERVALPLAN_H
#define PLATFORM_UTILS_UINTERVALPLAN_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Codes passed to a plan's callback. */
#define U_INTERVAL_PLAN_STARTED 0
#define U_INTERVAL_PLAN_STOPPED 1
#define U_INTERVAL_PLAN_RESUMED 2
#define U_INTERVAL_PLAN_PAUSED 3
#define U_INTERVAL_PLAN_RUN_FINISHED 4

/* Receives a code above and the plan's id. */
typedef void (*uIntervalPlanCallback)(int32_t code, int32_t id);

/* Starts the service: its lock, plan list and state table, and registers the ids 1 to 100.
 * Returns 0, or -1 when the lock, list or table cannot be made. A second call changes
 * nothing. */
PU_API int32_t uIntervalPlanInit(void);

/* Removes every plan without calling back and releases the service. Timers of waiting plans are
 * not deleted: when one fires, it finds no plan (logged) unless a new plan has its id. */
PU_API void uIntervalPlanUninit(void);

/* Adds a plan that will run count times (0: the plan ends after its first run, see below) with
 * interval seconds between the end of a run and the next start. The plan does nothing until
 * uIntervalPlanStart. Returns the plan's id, or -1 for a null cb, a negative count or interval,
 * an interval above 2,147,483 s (the longest wait a timer holds), before init, when memory is
 * short or all 100 ids are in use (logged).
 *
 * Count 0 is stored as "no limit", but the first start counts down from it too, so such a plan
 * finishes at its first completion. */
PU_API int32_t uIntervalPlanAdd(int32_t count, int32_t interval, uIntervalPlanCallback cb);

/* The operations below return 0 when the plan's current state allows the operation (whatever
 * its outcome) and -1 for a negative id, an unknown plan (logged at level 2) or a state that
 * does not allow it (silently ignored). */

/* Starts the next run of an added or waiting plan (callback 0). */
PU_API int32_t uIntervalPlanStart(int32_t id);

/* Stops and removes the plan (callback 1), freeing its id. A plan that was added but never
 * started cannot be deleted: the call does nothing. */
PU_API int32_t uIntervalPlanDel(int32_t id);

/* Pauses a running plan (callback 3), or a waiting one (no callback; the rest of the wait is
 * kept to the millisecond). */
PU_API int32_t uIntervalPlanPause(int32_t id);

/* Resumes a paused plan: a run paused while running goes on (callback 2); a paused wait waits
 * out what was left of it when paused (no callback). */
PU_API int32_t uIntervalPlanResume(int32_t id);

/* Reports the end of the current run: the plan waits interval seconds for the next run
 * (callback 4) or, with no runs left, stops and is removed (callback 1). */
PU_API int32_t uIntervalPlanComplete(int32_t id);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UINTERVALPLAN_H */
