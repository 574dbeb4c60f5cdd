/* SPDX-License-Identifier: MIT */
/*
 * uTimer: one-shot software timers of the process, run by the "uTimer" task.
 *
 * Every timer lives in one list kept in expiry order, each entry holding its delay after the
 * entry before it. The platform power manager's heartbeat wakes the task, which measures the
 * up-time that really passed, advances the list by it and hands each expired callback to the
 * asynchronous call pool (uasync.h): callbacks run there, never on the timer task and never with
 * the timer lock held, so a callback may add, refresh or delete timers. Timer resolution is the
 * heartbeat interval; a timer may fire up to one heartbeat early, since its delay counts from
 * the last pass.
 *
 * Delays are milliseconds and must stay below 2^31 (about 24.8 days): the list compares the low
 * 32 bits only. Ids count up from 1 and wrap after 2^32 - 1 timers; 0 means "no timer": every
 * add returns 0 on failure, and every call given id 0 does nothing.
 *
 * A wake-up timer also keeps the power manager's device wake-up armed for the earliest such
 * timer. The service starts itself on the first add (or with uTimerInit) and is never torn down.
 * Log module: "basalt.utils.timer".
 */
#ifndef PLATFORM_UTILS_UTIMER_H
#define PLATFORM_UTILS_UTIMER_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Called at expiry with the argument given to the add, on a thread of the asynchronous call
 * pool. */
typedef void (*uTimerCallback)(void *arg);

/* Called on every heartbeat, on the power manager's heartbeat thread. */
typedef void (*uTimerHeartBeatCb)(void);

/* ---- Timers ---------------------------------------------------------------------------- */

/* Starts the service with a pool of count timer records (at least 300): registers with the
 * power manager as "utils timer" and spawns the "uTimer" task. A second call only logs. */
PU_API void uTimerInit(int32_t count);

/* Adds a timer that calls callback(arg) delayMs from the last pass of the timer task; with
 * options non-zero it is a wake-up timer. callback may be null (nothing is called). Returns the
 * timer's id, or 0 for a negative delay or when the pool of records is exhausted (logged). */
PU_API uint32_t uTimerAddWithOptions(uTimerCallback callback, void *arg, int64_t delayMs,
                                     uint32_t options);

/* uTimerAddWithOptions(callback, arg, delayMs, 0). */
PU_API uint32_t uTimerAdd(uTimerCallback callback, void *arg, int64_t delayMs);

/* uTimerAddWithOptions(callback, arg, delayMs, 1). */
PU_API uint32_t uTimerAddWithWakeup(uTimerCallback callback, void *arg, int64_t delayMs);

/* uTimerAdd with seconds * 1000 computed in 32 bits: from 2,147,484 seconds on the product
 * wraps (usually to a negative delay, which is refused). */
PU_API uint32_t uTimerAddSec(uTimerCallback callback, void *arg, uint32_t seconds);

/* uTimerAddWithWakeup with the same 32-bit product as uTimerAddSec. */
PU_API uint32_t uTimerAddSecWithWakeup(uTimerCallback callback, void *arg, uint32_t seconds);

/* Adds a wake-up timer for the calendar time wallTime (seconds, as time() gives) and remembers
 * that time, so the timer is moved when the wall clock is set. The delay is (wallTime - now)
 * seconds as uTimerAddSecWithWakeup computes it, so a time shortly past gives a negative delay
 * and 0. A time more than 2,147,483 s ahead or behind is refused (0, logged) rather than armed
 * at a wrapped delay. Returns the id, or 0. */
PU_API uint32_t uTimerEventAdd(uTimerCallback callback, void *arg, uint32_t wallTime);

/* Deletes the timer; an unknown id or 0 is ignored. Deleting the earliest wake-up timer re-arms
 * the device wake-up for the next one, or cancels it when none is left. A callback already
 * handed on is still called. */
PU_API void uTimerDel(uint32_t id);

/* Restarts the timer with delayMs from the last pass, keeping its id. Ignored for id 0, a
 * negative delay, an unknown id, or when no spare record is free (the timer is left as it
 * was). */
PU_API void uTimerRefresh(uint32_t id, int32_t delayMs);

/* uTimerRefresh(id, seconds * 1000), the product computed in 32 bits. */
PU_API void uTimerRefreshSec(uint32_t id, uint32_t seconds);

/* Milliseconds until the timer expires, counted from the last pass of the timer task; 0 for id
 * 0 or an unknown id. */
PU_API uint32_t uTimerRemainGet(uint32_t id);

/* Logs the tick counter and every timer's id and expiry, at level 1. */
PU_API void uTimerShow(void);

/* ---- Task, heartbeat and time adjustment ----------------------------------------------- */

/* The heartbeat function registered with the power manager: lets the timer task make one pass
 * (once the task is up), then calls every registered heartbeat callback in order. An
 * application may call it to force a pass. */
PU_API void uTimerHeartBeat(void);

/* Appends fn to the heartbeat callbacks (the same function may be registered twice). Ignored
 * before the service has started. */
PU_API void uTimerRegisterHeartBeatCb(uTimerHeartBeatCb fn);

/* Removes the first registration of fn. */
PU_API void uTimerUnregisterHeartBeatCb(uTimerHeartBeatCb fn);

/* Advances the timers by elapsedMs and hands every expired callback to the asynchronous call
 * pool, in expiry order (the newest first among equal expiries). Meant for the timer task. */
PU_API void uTimerRun(int32_t elapsedMs);

/* Milliseconds from the up-time (prevSec, prevUsec) to (curSec, curUsec), 0 when the up-time
 * went backwards. The sub-millisecond rest is stored in *remainderUs when that is not null. */
PU_API uint32_t uTimerDiffMs(uint32_t prevSec, uint32_t prevUsec, uint32_t curSec, uint32_t curUsec,
                             uint32_t *remainderUs);

/* Elapsed milliseconds like uTimerDiffMs, but a jump of the up-time (backwards, or forward by
 * more than 10 s) re-bases the system time (osaUpdateSysTimeBase with the previous up-time and
 * 50), raises "SYSTEM_TIME_UPDATED" from the asynchronous call pool and gives 50. With carryUs
 * not null the sub-millisecond rest accumulates there, and a carry of 1000 us or more (-1000 or
 * less) adds (removes) one millisecond. */
PU_API int32_t uTimerAdjust(uint32_t prevSec, uint32_t prevUsec, uint32_t curSec, uint32_t curUsec,
                            int32_t *carryUs);

/* Raises "SYSTEM_TIME_UPDATED" with data 50 (the number, not a pointer to it) and length 4. */
PU_API void uTimerCheckSysTimeUpdated(void);

/* Run by the timer task after every 30 s or more of timer time (accumulatedMs): raises
 * "TIME_ZONE_CHANGED" (data null, length 0) when the time-zone offset changed since the last
 * call, and when the wall clock has moved away from timer time by a tenth or more, moves every
 * timer added with uTimerEventAdd back to its calendar time. */
PU_API void checktimeoutCb(uint32_t accumulatedMs);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UTIMER_H */
