/* SPDX-License-Identifier: MIT */
/*
 * uEvent: a process-wide named event bus.
 *
 * Modules care for an event by name with a callback and a user pointer; any task raises it by
 * name with a data pointer and a length, and every carer's callback is then called on the
 * raising task, in registration order, after the bus lock has been given back (so a callback may
 * itself care, clear or raise). An event is known only by two hashes of its name (bkdrHash and
 * rsHash(name, 256)) in a fixed table of 256 slots: names are never stored or compared, and two
 * names with equal hashes are the same event.
 *
 * The library raises "SYSTEM_TIME_UPDATED" (data: the number 50, length 4) and
 * "TIME_ZONE_CHANGED" (data null, length 0) from the timer service.
 */
#ifndef PLATFORM_UTILS_UEVENT_H
#define PLATFORM_UTILS_UEVENT_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Called for each raise: the name as given to uEventRaise, the userData given at registration,
 * and the data and length given to uEventRaise (neither copied nor interpreted by the bus; the
 * raiser says how long data stays valid). */
typedef void (*uEventCallback)(const char *name, void *userData, void *data, uint32_t length);

/* Creates the bus lock and the 256 slots. Optional: the other calls initialise on demand. A
 * second call logs "Event is alreday init." and changes nothing. */
PU_API void uEventInit(void);

/* Discards every registration and returns the bus to its uninitialised state. Must not race
 * with other calls of the bus. */
PU_API void uEventUninit(void);

/* Registers callback for the event name. Returns 1 when it is (or already was) registered,
 * 0 when the table has no room for a new event or memory is short. Registering the same
 * callback again keeps the first registration and its userData. */
PU_API int32_t uEventCare(const char *name, uEventCallback callback, void *userData);

/* Removes the registration of callback for name. Returns 0 when the event is unknown and 1
 * otherwise, also when callback was not registered. A raise already under way still calls it
 * once. */
PU_API int32_t uEventClear(const char *name, uEventCallback callback);

/* Calls every carer of name with data and length, on the calling task, one after another.
 * Returns 1 when the event has a slot (even one with no carers left) and 0 when nobody ever
 * cared for it. Only when memory is short does a callback run with the bus lock held. */
PU_API int32_t uEventRaise(const char *name, void *data, uint32_t length);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UEVENT_H */
