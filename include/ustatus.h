/* SPDX-License-Identifier: MIT */
/*
 * System status store: named unsigned 32-bit values that any module of the process can set and
 * read. The store has 1024 slots and is created by the first setSystemStatus.
 *
 * A name is identified by its two hashes (bkdrHash and rsHash modulo 1024), never by its text:
 * two names with equal hashes are one status. A null name and "" are one valid name. Statuses
 * are never removed one by one; statusBuffFree drops them all.
 */
#ifndef PLATFORM_UTILS_USTATUS_H
#define PLATFORM_UTILS_USTATUS_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Sets the status name to value, adding it when new. Returns 0, or -1 when the name is new and
 * all 1024 slots are taken, or when a record cannot be allocated (that failure leaves the store's
 * lock held by the calling task). Writers serialise on the store's lock. */
PU_API int32_t setSystemStatus(const char *name, uint32_t value);

/* Stores the value of status name into *valueOut and returns 0, or returns -1 (valueOut left
 * alone) when the name was never set. Takes no lock: a reader racing with a writer sees the old
 * or the new value, or misses a status being added. valueOut must not be null. */
PU_API int32_t getSystemStatus(const char *name, uint32_t *valueOut);

/* Frees every status. The store stays usable; the next setSystemStatus starts afresh. Takes no
 * lock: call it only while no other task sets or reads statuses. */
PU_API void statusBuffFree(void);

PU_END_DECLS

#endif /* PLATFORM_UTILS_USTATUS_H */
