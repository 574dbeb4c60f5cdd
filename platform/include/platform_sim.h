/* SPDX-License-Identifier: MIT */
/*
 * libplatform_sim: deterministic control of the platform layer for tests. It drives up-time and
 * heartbeats by hand, waits for the thread pools, fixes the time-zone offset, reads what the
 * power manager recorded and captures the log. Link it into test programs only: the production
 * libraries neither need nor use it.
 *
 * Typical use in a test:
 *
 *     platformSimSetManual(1);            // before the first timer is added
 *     platformSimSetUpTime(100, 0);
 *     ... add timers ...
 *     platformSimAdvanceMs(1500);
 *     platformSimHeartbeat();             // one timer pass, and the callbacks it queued, done
 */
#ifndef PLATFORM_UTILS_PLATFORM_SIM_H
#define PLATFORM_UTILS_PLATFORM_SIM_H

#include <stdint.h>

#include "platform_os.h"

#if defined(__GNUC__) || defined(__clang__)
#define PLATFORM_SIM_API __attribute__((visibility("default")))
#else
#define PLATFORM_SIM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Switches up-time and heartbeats to manual (non-zero) or back to real (0). In manual mode
 * osaGetSysUpTime returns the simulated up-time and the heartbeat thread calls nobody; only
 * platformSimHeartbeat fires heartbeats. The simulated up-time starts at the up-time of the
 * moment it is first needed and survives leaving manual mode. */
PLATFORM_SIM_API void platformSimSetManual(int manual);

/* Non-zero while manual mode is on. */
PLATFORM_SIM_API int platformSimIsManual(void);

/* Sets the simulated up-time (it may go backwards, to simulate a jump). */
PLATFORM_SIM_API void platformSimSetUpTime(uint32_t seconds, uint32_t microseconds);

/* Advances the simulated up-time by ms milliseconds. */
PLATFORM_SIM_API void platformSimAdvanceMs(uint32_t ms);
/* Advances the simulated up-time by us microseconds. */
PLATFORM_SIM_API void platformSimAdvanceUs(uint64_t us);

/* Fires one heartbeat: calls every registered heartbeat function on the calling thread, waits
 * for the pass it triggered in every application that observes its passes (the timer service
 * does), then waits until every thread pool is idle, so the callbacks the pass queued have
 * finished too. Never call it from a pool worker or a timer callback: it would wait for itself. */
PLATFORM_SIM_API void platformSimHeartbeat(void);

/* Blocks until every thread pool has no queued and no running call. Never call it from a pool
 * worker: it would wait for itself for ever. */
PLATFORM_SIM_API void platformSimWaitPoolsIdle(void);

/* Makes osaTimeZoneOffsetGet return seconds (east positive) instead of the local offset. */
PLATFORM_SIM_API void platformSimSetTimeZoneOffset(int32_t seconds);

/* Returns osaTimeZoneOffsetGet to the local offset of the C library. */
PLATFORM_SIM_API void platformSimClearTimeZoneOffset(void);

/* The last delay armed with osaSmAddWakeUpTimer for handle, or -1 when none is armed (never
 * armed, cancelled with osaSmDelWakeUpTimer, or an unknown handle). */
PLATFORM_SIM_API int64_t platformSimWakeUpDelay(int handle);

/* Number of osaSmAddWakeUpTimer calls for handle so far (0 for an unknown handle). */
PLATFORM_SIM_API uint32_t platformSimWakeUpArmCount(int handle);
/* Number of osaSmDelWakeUpTimer calls for handle so far (0 for an unknown handle). */
PLATFORM_SIM_API uint32_t platformSimWakeUpCancelCount(int handle);

/* Current active count of handle: the sum of osaSmAddActiveApp counts minus the number of
 * osaSmDelActiveApp calls (0 for an unknown handle). */
PLATFORM_SIM_API int platformSimActiveAppCount(int handle);

/* Highest active count handle has reached so far (0 for an unknown handle). */
PLATFORM_SIM_API int platformSimActiveAppPeak(int handle);

/* Number of osaUpdateSysTimeBase calls so far and the arguments of the last one (any pointer may
 * be null). */
PLATFORM_SIM_API uint32_t platformSimTimeBaseUpdates(uint32_t *seconds, uint32_t *microseconds,
                                                     uint32_t *stepMs);

/* Captures the log: sink (null removes it) receives every line, whatever its level. While it is
 * installed it takes the place of any sink installed with platformLogSetSink, and lines still go
 * to stderr by the log level in force when the capture started, unless quiet is non-zero;
 * removing it restores that level and sends lines to stderr again. Replacing or removing the
 * sink waits until calls to the old one have returned, so its context may be freed right after;
 * do not call this from inside a sink. */
PLATFORM_SIM_API void platformSimSetLogSink(PLATFORM_LOG_SINK sink, void *context, int quiet);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_UTILS_PLATFORM_SIM_H */
