/* SPDX-License-Identifier: MIT */
/*
 * uInputEvent: pending inputs, each known by a 32-bit key and guarded by a time-out.
 *
 * The application starts an input event with a time-out in seconds and a callback, may extend it
 * (start it again, or execute state U_INPUT_EVENT_EXTEND), and ends it by executing a final state
 * or by stopping it; if nothing comes in time it times out. Starts, stops and time-outs are
 * announced on the event bus as "INPUT_EVENT", whose data points to a uInputEventMsg (state,
 * key) on the raiser's stack, valid during the call only, with length 8.
 *
 * Callbacks and "INPUT_EVENT" carers run with the service's lock held: they must not call the
 * functions of this header. Time-outs arrive on a thread of the asynchronous call pool.
 * Log module: "basalt.utils.inputEvent".
 */
#ifndef PLATFORM_UTILS_UINPUTEVENT_H
#define PLATFORM_UTILS_UINPUTEVENT_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* States: the first three are announced on the bus, the last three are what
 * uInputEventExecute accepts. */
#define U_INPUT_EVENT_STARTED 0
#define U_INPUT_EVENT_STOPPED 1
#define U_INPUT_EVENT_TIMED_OUT 2
#define U_INPUT_EVENT_DONE 3
#define U_INPUT_EVENT_DONE_OTHER 4
#define U_INPUT_EVENT_EXTEND 5

/* The name of the bus event. */
#define U_INPUT_EVENT_NAME "INPUT_EVENT"

/* An input for uInputEventExecute, and the data of "INPUT_EVENT". */
typedef struct uInputEventMsg {
    int32_t state;
    uint32_t key;
} uInputEventMsg;

/* Called with (U_INPUT_EVENT_TIMED_OUT, 0) on a time-out, and with (state, key) when state 3 or
 * 4 is executed. */
typedef void (*uInputEventCallback)(int32_t state, uint32_t value);

/* Starts the service. A second call logs "%s, already init." and forgets every pending input
 * event (their timers are deleted, nothing is announced). */
PU_API void uInputEventInit(void);

/* Stops every pending input event (announcing state 1 for each) and releases the service. */
PU_API void uInputEventUninit(void);

/* Starts the input event key, timing out after timeoutSec seconds (1 .. 2147483). A pending
 * event with this key is extended instead: its time-out restarts with the new value and the
 * new callback, and nothing is announced. Returns 0, or -1 before init, for a bad argument or
 * when the event cannot be added (all logged at level 2). */
PU_API int32_t uInputEventStart(uint32_t key, uint32_t timeoutSec, uInputEventCallback cb);

/* Applies msg to the pending input event msg->key: U_INPUT_EVENT_EXTEND restarts its full
 * time-out from now; U_INPUT_EVENT_DONE and U_INPUT_EVENT_DONE_OTHER call its callback with
 * (state, key) and end it without an announcement. Other states, a null msg and unknown keys
 * are refused (logged at level 2). */
PU_API void uInputEventExecute(const uInputEventMsg *msg);

/* Ends the pending input event key, announcing state 1; its callback is not called. */
PU_API void uInputEventStop(uint32_t key);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UINPUTEVENT_H */
