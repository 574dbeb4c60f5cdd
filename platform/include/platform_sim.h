/*
 * Test control of the Linux platform layer: a simulated up-time, manual heartbeats, waiting for
 * thread pools to drain, a chosen time-zone offset, the recorded power-manager state and a log
 * sink. Nothing here is needed by a production program.
 *
 * Typical use in a test:
 *
 *     platformSimSetManual(1);            // before the first timer is added
 *     platformSimSetUpTime(100, 0);
 *     ... add timers ...
 *     platformSimAdvanceMs(1500);
 *     platformSimHeartbeat();             // one pass of the timer task and its callbacks
 */
#ifndef PLATFORM_UTILS_PLATFORM_SIM_H
#define PLATFORM_UTILS_PLATFORM_SIM_H

#include <stdint.h>

#include "platform_os.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Switches up-time and heartbeats to manual (non-zero) or back to real (0). In manual mode
 * osaGetSysUpTime returns the simulated up-time and the heartbeat thread calls nobody; only
 * platformSimHeartbeat fires heartbeats. The simulated up-time starts at the real up-time of
 * the moment manual mode is first entered. */
PLATFORM_API void platformSimSetManual(int manual);

/* Non-zero while manual mode is on. */
PLATFORM_API int platformSimIsManual(void);

/* Sets the simulated up-time (it may go backwards, to simulate a jump). */
PLATFORM_API void platformSimSetUpTime(uint32_t seconds, uint32_t microseconds);

/* Advances the simulated up-time by ms milliseconds. */
PLATFORM_API void platformSimAdvanceMs(uint32_t ms);
/* Advances the simulated up-time by us microseconds. */
PLATFORM_API void platformSimAdvanceUs(uint64_t us);

/* Hook through which a heartbeat consumer (the timer service) lets the simulation wait for the
 * pass that a heartbeat triggers. begin() is called just before the heartbeat functions run and
 * returns a token; wait(token) blocks until the pass started by that heartbeat has finished. */
typedef uint64_t (*PLATFORM_SIM_PASS_BEGIN_FN)(void);
typedef void (*PLATFORM_SIM_PASS_WAIT_FN)(uint64_t token);

/* Installs the pass hook; null functions are skipped. The timer service installs its own when it
 * starts. */
PLATFORM_API void platformSimSetPassHook(PLATFORM_SIM_PASS_BEGIN_FN begin,
                                         PLATFORM_SIM_PASS_WAIT_FN wait);

/* Fires one heartbeat: calls every registered heartbeat function on the calling thread, waits
 * through the pass hook (when one is installed) for the pass it triggered, then waits until every
 * thread pool is idle, so the callbacks the pass queued have finished too. */
PLATFORM_API void platformSimHeartbeat(void);

/* Blocks until every thread pool has no queued and no running call. Never call it (or
 * platformSimHeartbeat) from a pool worker: it would wait for itself for ever. */
PLATFORM_API void platformSimWaitPoolsIdle(void);

/* Makes osaTimeZoneOffsetGet return seconds (east positive) instead of the local offset. */
PLATFORM_API void platformSimSetTimeZoneOffset(int32_t seconds);

/* Returns osaTimeZoneOffsetGet to the local offset of the C library. */
PLATFORM_API void platformSimClearTimeZoneOffset(void);

/* The last delay armed with osaSmAddWakeUpTimer for handle, or -1 when none is armed (never
 * armed, or cancelled with osaSmDelWakeUpTimer). */
PLATFORM_API int64_t platformSimWakeUpDelay(int handle);

/* Number of osaSmAddWakeUpTimer calls for handle so far. */
PLATFORM_API uint32_t platformSimWakeUpArmCount(int handle);
/* Number of osaSmDelWakeUpTimer calls for handle so far. */
PLATFORM_API uint32_t platformSimWakeUpCancelCount(int handle);

/* Current active count of handle: the sum of osaSmAddActiveApp counts minus the number of
 * osaSmDelActiveApp calls. */
PLATFORM_API int platformSimActiveAppCount(int handle);

/* Highest active count handle has reached so far. */
PLATFORM_API int platformSimActiveAppPeak(int handle);

/* Number of osaUpdateSysTimeBase calls so far and the arguments of the last one (any pointer may
 * be null). */
PLATFORM_API uint32_t platformSimTimeBaseUpdates(uint32_t *seconds, uint32_t *microseconds,
                                                 uint32_t *stepMs);

/* Installs sink (null removes it): it receives every log line, whatever its level and
 * whatever platformLogSetSink installed. While a sink is installed, lines still go to stderr by the
 * PLATFORM_LOG_LEVEL rule unless quiet is non-zero. Replacing the sink waits until calls to the
 * old one have returned, so its context may be freed right after; do not call this from inside
 * a sink. */
PLATFORM_API void platformSimSetLogSink(PLATFORM_LOG_SINK sink, void *context, int quiet);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_UTILS_PLATFORM_SIM_H */
