/* SPDX-License-Identifier: MIT */
/*
 * Unique id manager: small integer ids unique within a named module. A module registers a
 * contiguous range once, then draws free ids from it and releases them when done. Ids are drawn
 * next-fit: in rising order from where the last draw stopped, wrapping at the end of the range,
 * so a released id is not handed out again until the search comes round to it.
 *
 * Modules are told apart by their exact (case-sensitive) name. The manager is process-wide and
 * created by the first registration; every operation runs under its lock.
 */
#ifndef PLATFORM_UTILS_UUNIQUEID_H
#define PLATFORM_UTILS_UUNIQUEID_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Registers module name with the ids firstId .. firstId + count - 1. Ignored for a null name, a
 * count of 0 or less, a negative firstId, or when firstId + count exceeds INT32_MAX.
 *
 * Registering a known module again moves its range to the new one: a larger count grows the flag
 * array keeping the flags of ids in use (by their offset from the start), a smaller one keeps the
 * array, the search position stays. The module is still listed once, so one unregistration
 * removes it whatever the number of registrations. */
PU_API void uIdRegisterUniqueIdModule(const char *name, int32_t firstId, int32_t count);

/* Removes module name and frees its record. Nothing happens for a null or unknown name. */
PU_API void uIdUnregisterUniqueIdModule(const char *name);

/* Draws a free id of module name and marks it used. Returns -1 (logged at level 2) for an
 * unknown module or when every id of the module is in use. */
PU_API int32_t uIdGetModuleAvailableUniqueId(const char *name);

/* Marks id of module name free again. Ids outside the module's range and unknown modules are
 * ignored. The next draw still starts where the last one stopped. */
PU_API void uIdReleaseModuleUniqueId(const char *name, int32_t id);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UUNIQUEID_H */
