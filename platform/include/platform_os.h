/* SPDX-License-Identifier: MIT */
/*
 * Platform operations in the VxWorks style, as libplatform_os provides them on Linux.
 *
 * Every handle (semaphore, message queue, task, thread pool) is a 32-bit id looked up in a
 * table; 0 is never a valid handle. Operations on 0 or on a deleted handle fail at once with
 * -1 and do no harm. Results follow the platform convention: 0 for success, -1 for failure.
 *
 * Every function here may be replaced by an application that defines it itself: the
 * libraries reach them through the dynamic linker, so the executable's definition wins.
 */
#ifndef PLATFORM_UTILS_PLATFORM_OS_H
#define PLATFORM_UTILS_PLATFORM_OS_H

#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define PLATFORM_API __attribute__((visibility("default")))
#define PLATFORM_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define PLATFORM_API
#define PLATFORM_PRINTF(fmt, args)
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t SEM_ID;
typedef uint32_t MSG_Q_ID;
typedef uint32_t TASK_ID;
typedef uint32_t THR_POOL_ID;

#define WAIT_FOREVER (-1)
#define NO_WAIT 0

#define SEM_EMPTY 0
#define SEM_FULL 1

#define MSG_PRI_NORMAL 0
#define MSG_PRI_URGENT 1

/* ---- Semaphores ------------------------------------------------------------------------- */

/* Creates a mutex, recursive for its owner. options is ignored. Returns its id, or 0. */
PLATFORM_API SEM_ID semMCreate(int options);

/* Creates a binary semaphore, empty (SEM_EMPTY) or full (SEM_FULL). Gives while it is full
 * are merged: at most one give is pending. Returns its id, or 0. */
PLATFORM_API SEM_ID semBCreate(int options, int initialState);

/* Takes the semaphore, waiting at most timeout ticks (WAIT_FOREVER: no limit, NO_WAIT: do not
 * wait). Returns 0, or -1 on time-out, on handle 0, on a deleted handle, or when the semaphore
 * is deleted while waiting. */
PLATFORM_API int semTake(SEM_ID id, int timeout);

/* Gives the semaphore. Giving a mutex the caller does not hold returns -1 and changes nothing. */
PLATFORM_API int semGive(SEM_ID id);

/* Deletes the semaphore; tasks waiting on it return -1. Returns 0, or -1 for an unknown id. */
PLATFORM_API int semDelete(SEM_ID id);

/* ---- Message queues --------------------------------------------------------------------- */

/* Creates a queue of at most maxMessages messages of at most maxMessageLength bytes each.
 * Returns its id, or 0 when the arguments are not positive or memory is short. */
PLATFORM_API MSG_Q_ID msgQCreate(int maxMessages, int maxMessageLength, int options);

/* Copies nBytes of buffer into the queue, waiting at most timeout ticks for room (NO_WAIT fails
 * at once when full). MSG_PRI_URGENT puts the message at the head. Returns 0 or -1 (full after
 * the wait, message too long, unknown queue). */
PLATFORM_API int msgQSend(MSG_Q_ID id, const char *buffer, uint32_t nBytes, int timeout,
                          int priority);

/* Receives the oldest message into buffer (at most maxNBytes are copied), waiting at most
 * timeout ticks. Returns the number of bytes copied, or -1 on time-out or unknown queue. */
PLATFORM_API int msgQReceive(MSG_Q_ID id, char *buffer, uint32_t maxNBytes, int timeout);

/* Deletes the queue and its messages; waiting tasks return -1. Returns 0 or -1. */
PLATFORM_API int msgQDelete(MSG_Q_ID id);

/* Number of messages waiting in the queue, or -1 for an unknown queue. */
PLATFORM_API int msgQNumMsgs(MSG_Q_ID id);

/* ---- Tasks and ticks -------------------------------------------------------------------- */

/* Entry of a spawned task: receives the ten pointer-sized arguments given to taskSpawn. */
typedef int (*PLATFORM_TASK_ENTRY)(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
                                   intptr_t, intptr_t, intptr_t, intptr_t);

/* Starts a detached thread named name (cut to 15 characters) running entry(arg1..arg10).
 * priority and options are recorded only; a stack size below what Linux needs is raised.
 * Returns the task id, or 0 when the thread cannot be started. */
PLATFORM_API TASK_ID taskSpawn(const char *name, int priority, int options, int stackSize,
                               PLATFORM_TASK_ENTRY entry, intptr_t arg1, intptr_t arg2,
                               intptr_t arg3, intptr_t arg4, intptr_t arg5, intptr_t arg6,
                               intptr_t arg7, intptr_t arg8, intptr_t arg9, intptr_t arg10);

/* Sleeps the calling thread for ticks clock ticks (0 or less: yields). Returns 0. */
PLATFORM_API int taskDelay(int ticks);

/* Ticks of the monotonic clock (10 ms each) since an arbitrary origin. */
PLATFORM_API unsigned long tickGet(void);

/* Ticks per second: 100. */
PLATFORM_API int sysClkRateGet(void);

/* ---- Thread pools ----------------------------------------------------------------------- */

typedef void (*PLATFORM_POOL_FN)(void *argument);

/* Creates a pool of threadCount worker threads. Returns its id, or 0. */
PLATFORM_API THR_POOL_ID taskThrPoolCreate(int threadCount);

/* Queues fn(argument). taskId -1 (or any negative id) lets any worker run it; an id k >= 0 queues
 * on worker (k mod threadCount)'s own queue, so calls with the same id run one after another in
 * the order they were queued. Returns 0, or -1 for an unknown pool or a null fn. */
PLATFORM_API int taskThrPoolAddTask(THR_POOL_ID pool, PLATFORM_POOL_FN fn, void *argument,
                                    int taskId);

/* Blocks until no pool has a queued or running call, for a caller that must know the work it
 * queued is done (before a shutdown or a suspend, or in a test). A call queued meanwhile keeps
 * it waiting. Never call it from a pool worker: it would wait for itself for ever. */
PLATFORM_API void taskThrPoolWaitIdle(void);

/* ---- Up-time, time base and time zone --------------------------------------------------- */

/* Up-time since boot (CLOCK_BOOTTIME, or the installed up-time source) as seconds and
 * microseconds. Either pointer may be null. Returns 0. */
PLATFORM_API int osaGetSysUpTime(uint32_t *seconds, uint32_t *microseconds);

/* Up-time in milliseconds, wrapping at 2^32. */
PLATFORM_API uint32_t osaGetSysUpMs(void);

/* Span from start to end, end - start in unsigned 32-bit arithmetic (so it wraps). */
PLATFORM_API uint32_t osaLongTimeSpanCompute(uint32_t start, uint32_t end);

/* Records a re-base of the system time after a jump: the previous up-time and the step in ms
 * that the caller used for the pass. Logged at debug level. Returns 0. */
PLATFORM_API int osaUpdateSysTimeBase(uint32_t seconds, uint32_t microseconds, uint32_t stepMs);

/* Supplies the up-time in microseconds since boot. */
typedef uint64_t (*PLATFORM_UPTIME_SOURCE)(void);

/* Makes osaGetSysUpTime and osaGetSysUpMs read source instead of CLOCK_BOOTTIME (null goes back
 * to CLOCK_BOOTTIME): for a board whose up-time comes from a counter of its own, or a test
 * clock. source is called from any thread, may still be running in another thread when this
 * returns, and so must stay callable for the life of the process. */
PLATFORM_API void osaSetSysUpTimeSource(PLATFORM_UPTIME_SOURCE source);

/* Number of osaUpdateSysTimeBase calls so far, and the arguments of the last one (any pointer
 * may be null; all three are 0 before the first re-base). */
PLATFORM_API uint32_t osaGetSysTimeBase(uint32_t *seconds, uint32_t *microseconds,
                                        uint32_t *stepMs);

/* Offset of local time from UTC in seconds, east positive (from localtime_r, or the offset set
 * with osaTimeZoneOffsetSet). */
PLATFORM_API int32_t osaTimeZoneOffsetGet(void);

/* Makes osaTimeZoneOffsetGet return seconds (east positive), whatever TZ says: for a device whose
 * zone is configured by the application. */
PLATFORM_API void osaTimeZoneOffsetSet(int32_t seconds);

/* Returns osaTimeZoneOffsetGet to the local offset of the C library. */
PLATFORM_API void osaTimeZoneOffsetReset(void);

/* ---- Emulated power manager ------------------------------------------------------------- */

typedef void (*PLATFORM_HEARTBEAT_FN)(void);

/* Registers an application and its heartbeat function. A heartbeat thread calls every registered
 * heartbeat function every PLATFORM_HEARTBEAT_MS milliseconds (environment variable, default 10)
 * unless osaSmPauseHeartbeats has stopped it. Returns a handle >= 1, or -1 for a null
 * heartbeat. */
PLATFORM_API int osaSmRegisterApp(const char *name, PLATFORM_HEARTBEAT_FN heartbeat);

/* Counts the application as active count more times (recorded; a host has no sleep state). */
PLATFORM_API int osaSmAddActiveApp(int handle, int count);

/* Counts the application as active once less. */
PLATFORM_API int osaSmDelActiveApp(int handle);

/* Arms the application's device wake-up timer ms milliseconds from now (recorded). */
PLATFORM_API int osaSmAddWakeUpTimer(int handle, uint32_t ms);

/* Cancels the application's device wake-up timer (recorded). */
PLATFORM_API int osaSmDelWakeUpTimer(int handle);

/* What the power manager has recorded for one application. */
typedef struct PLATFORM_SM_APP_STATE {
    int64_t wakeUpDelayMs;  /* last delay armed, or -1 when none is armed */
    uint32_t wakeUpArms;    /* osaSmAddWakeUpTimer calls so far */
    uint32_t wakeUpCancels; /* osaSmDelWakeUpTimer calls so far */
    int activeCount;        /* osaSmAddActiveApp counts minus osaSmDelActiveApp calls */
    int activePeak;         /* highest activeCount so far */
} PLATFORM_SM_APP_STATE;

/* Copies the recorded state of handle into *state: which application keeps the device awake,
 * and when it wants to be woken. Returns 0, or -1 for an unknown handle or a null state (then
 * *state is left alone). */
PLATFORM_API int osaSmGetAppState(int handle, PLATFORM_SM_APP_STATE *state);

/* Stops (non-zero) or resumes (0) the heartbeat thread's beats, for a device about to sleep or
 * a test that beats by hand. Stopping waits for a beat in progress on that thread to end (unless
 * called from a heartbeat function). osaSmHeartbeat still beats while they are stopped. */
PLATFORM_API void osaSmPauseHeartbeats(int paused);

/* A heartbeat function that only wakes a task of the application leaves the pass it triggered
 * running when it returns. A pass observer lets osaSmHeartbeat wait for that pass: begin() is
 * called just before the heartbeat functions run and returns a token; wait(token) blocks until
 * the pass that this heartbeat triggered has finished. Both run on the thread that calls
 * osaSmHeartbeat, with none of the layer's locks held. */
typedef uint64_t (*PLATFORM_PASS_BEGIN_FN)(void);
typedef void (*PLATFORM_PASS_WAIT_FN)(uint64_t token);

/* Installs handle's pass observer (both null remove it). Returns 0, or -1 for an unknown
 * handle or when only one of the two functions is null. */
PLATFORM_API int osaSmSetPassObserver(int handle, PLATFORM_PASS_BEGIN_FN begin,
                                      PLATFORM_PASS_WAIT_FN wait);

/* Beats once now, on the calling thread: calls every registered heartbeat function in
 * registration order and returns when each application with a pass observer has finished the
 * pass this beat triggered. So every timer due by the current up-time has been handled when it
 * returns (callbacks handed to thread pools may still be running: see taskThrPoolWaitIdle).
 * Never call it from a heartbeat function or a pass. */
PLATFORM_API void osaSmHeartbeat(void);

/* ---- Addresses -------------------------------------------------------------------------- */

/* Non-zero when text is a valid numeric IPv4 or IPv6 address; 0 otherwise (also for null). */
PLATFORM_API int sockIsValidAddr(const char *text);

/* ---- Logging ---------------------------------------------------------------------------- */

#define PLATFORM_LOG_DEBUG 0
#define PLATFORM_LOG_INFO 1
#define PLATFORM_LOG_WARNING 2
#define PLATFORM_LOG_ERROR 3

/* Writes "<level> <module>: <message>" to stderr, or hands it to the sink installed with
 * platformLogSetSink, when level is at least the log level (platformLogSetLevel; until then the
 * environment variable PLATFORM_LOG_LEVEL, default 2), adding a newline when the message has
 * none. Returns the length of the line written or handed over, newline included
 * (0 when filtered).
 * An application may define basaltPrintLog itself to take over every line of both libraries;
 * its definition must then have default visibility (not -fvisibility=hidden) so that the
 * dynamic linker sees it. */
PLATFORM_API int basaltPrintLog(int level, const char *module, const char *format, ...)
    PLATFORM_PRINTF(3, 4);

/* Receives a formatted log line without its trailing newline; message is never null. */
typedef void (*PLATFORM_LOG_SINK)(void *context, int level, const char *module,
                                  const char *message);

/* Sends the lines that pass the log level to sink(context, ...) instead of stderr; null goes
 * back to stderr. The sink may be called from any thread, concurrently, and must not install a
 * sink itself. Replacing it waits until calls to the old one have returned, so its context may
 * be freed right after. */
PLATFORM_API void platformLogSetSink(PLATFORM_LOG_SINK sink, void *context);

/* Sets the lowest level written out (PLATFORM_LOG_DEBUG .. PLATFORM_LOG_ERROR; anything
 * below DEBUG lets every line through, anything above ERROR keeps only higher levels). Returns
 * the previous level. */
PLATFORM_API int platformLogSetLevel(int level);

/* The lowest level written out. */
PLATFORM_API int platformLogGetLevel(void);

/* A sink writing each line to syslog as "<module>: <message>", at LOG_DEBUG, LOG_INFO,
 * LOG_WARNING or LOG_ERR (levels above error too). context is unused; call openlog first to
 * choose the identity and facility. Install it with platformLogSetSink(platformLogSyslogSink,
 * NULL). */
PLATFORM_API void platformLogSyslogSink(void *context, int level, const char *module,
                                        const char *message);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_UTILS_PLATFORM_OS_H */
