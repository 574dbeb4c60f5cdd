/* SPDX-License-Identifier: MIT */
/*
 * uMonitor: the task execution monitor. An application brackets a piece of work with
 * uMonitorStart and uMonitorStop; the "tMonitor" task keeps the open brackets and logs a warning
 * when one took longer than it was allowed.
 *
 * Callers only post messages to the monitor's queue and never wait: a message that does not fit
 * is dropped. Only "tMonitor" touches the list of open brackets, so nothing is locked.
 *
 * A bracket over its limit is reported (level 2, module "basalt.utils.monitor") when its own stop
 * arrives, and, if it is over by a second or more, also at every later start or stop that looks
 * at it. A stop closes the first open bracket with the same name and tag together with every
 * bracket opened after it.
 */
#ifndef PLATFORM_UTILS_UMONITOR_H
#define PLATFORM_UTILS_UMONITOR_H

#include <stdint.h>

#include "uexport.h"
#include "ulist.h"

PU_BEGIN_DECLS

/* Message types on the monitor's queue. */
#define U_MONITOR_START 0
#define U_MONITOR_STOP 1
#define U_MONITOR_QUIT 2

/* One message, copied by value through the queue (20 bytes on 32-bit targets). */
typedef struct uMonitorMsg {
    int32_t type;    /* U_MONITOR_START, U_MONITOR_STOP or U_MONITOR_QUIT */
    char *name;      /* the monitor's own copy of the caller's name */
    const char *tag; /* the caller's second key, compared by pointer and printed as "0x<tag>" */
    int32_t limitMs; /* allowed duration (start); 0 in a stop */
    uint32_t timeMs; /* up-time in ms of the start or of the stop */
} uMonitorMsg;

/* Log module name of the monitor: "basalt.utils.monitor". */
PU_API extern const char *gMonitorLog;
/* The monitor's message queue, 0 while the monitor is not running. */
PU_API extern uint32_t gMonitorMsgQ;
/* The open brackets, owned by the "tMonitor" task; null while the monitor is not running. */
PU_API extern uList *gMonitorList;

/* Starts the monitor: creates the bracket list and a queue of 60 messages and spawns "tMonitor"
 * (priority 150). Calling it while the monitor runs starts a fresh one: the open brackets of the
 * old one are forgotten and its task ends. */
PU_API void uMonitorInit(void);

/* Asks "tMonitor" to end; it releases every open bracket without reporting them. Returns the
 * result of posting the request (0 or -1), or -1 (logged at level 2) when the monitor is not
 * running. */
PU_API int32_t uMonitorUninit(void);

/* Opens a bracket (name, tag) that started at startMs (osaGetSysUpMs) and may last limitMs.
 * name is copied, tag is kept as a pointer. Returns 0 when the message was posted, -1 when the
 * monitor is not running or its queue is full. */
PU_API int32_t uMonitorStart(const char *name, const char *tag, uint32_t startMs, int32_t limitMs);

/* Closes the first open bracket with this name (compared as text) and tag (compared as a
 * pointer) at stopMs, and every bracket opened after it, reporting each that overran. Results as
 * uMonitorStart. */
PU_API int32_t uMonitorStop(const char *name, const char *tag, uint32_t stopMs);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UMONITOR_H */
