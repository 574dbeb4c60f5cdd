/* SPDX-License-Identifier: MIT */
/*
 * String hash functions, and two hash maps: uHash (string keys, optionally folded to lower case)
 * and uIntHash (signed 32-bit keys), each mapping a key to one untyped pointer-sized value.
 *
 * The maps copy their keys but never copy, interpret or free a value unless a release function
 * is passed to a removing call. They take no locks: a map belongs to one task at a time, or to
 * the caller's lock. The table storage is allocated with malloc on the first insertion; when
 * that allocation fails the process ends with exit(-1).
 */
#ifndef PLATFORM_UTILS_UHASH_H
#define PLATFORM_UTILS_UHASH_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* ---- Hash functions -------------------------------------------------------------------- */

/* RS hash of str reduced modulo modulus: a value in [0, modulus). A null str gives 0. A modulus
 * of 0 gives the unreduced 32-bit hash. */
PU_API uint32_t rsHash(const char *str, uint32_t modulus);

/* BKDR hash (seed 131) of str, masked to 31 bits: the upper 33 bits of the result are always 0.
 * A null str gives 0. */
PU_API uint64_t bkdrHash(const char *str);

/* Sum of the bytes of str, masked to 31 bits. A null str gives 0. */
PU_API uint64_t remainderHash(const char *str);

/* ---- Maps ------------------------------------------------------------------------------ */

/* Releases one stored value (uHashRemove, uHashDestroyMap and their uIntHash twins). */
typedef void (*uHashFreeFn)(void *value);

typedef struct uHash uHash;
typedef struct uIntHash uIntHash;

/* Creates an empty string-keyed map; with caseInsensitive non-zero, keys are folded to ASCII
 * lower case, so keys differing only in letter case are one key. Returns null when the handle
 * cannot be allocated. Release it with uHashDestroyMap. */
PU_API uHash *uHashCreateMap(uint32_t caseInsensitive);

/* Adds key (copied) with value. Returns 1 when added; 0 when uHashKeyExists already reports the
 * key (the stored value is not updated); -1 for a null map or key, an empty key, or when memory
 * runs out. Since a key stored with a null value does not "exist", inserting it again adds a
 * second item: store non-null values. */
PU_API int32_t uHashInsert(uHash *map, const char *key, void *value);

/* The value stored under key, or null for a null map or key, an empty map or an absent key. */
PU_API void *uHashGetValue(uHash *map, const char *key);

/* 1 when uHashGetValue(map, key) is non-null, else 0: a key stored with a null value reads as
 * absent. */
PU_API int32_t uHashKeyExists(uHash *map, const char *key);

/* Removes the item of key: calls freeValue(value) when freeValue is given, then frees the key
 * copy and the item. Returns 0, or -1 (nothing called) for a null map or key, an empty map or an
 * absent key. */
PU_API int32_t uHashRemove(uHash *map, const char *key, uHashFreeFn freeValue);

/* Removes every item, calling freeValue once per value when given, and frees the map. A null map
 * is ignored. */
PU_API void uHashDestroyMap(uHash *map, uHashFreeFn freeValue);

/* Creates an empty integer-keyed map, or returns null when the handle cannot be allocated.
 * Release it with uIntHashDestroyMap. */
PU_API uIntHash *uIntHashMapCreate(void);

/* Adds key with value. Returns 1 when added; 0 when the key is present (its value is not
 * updated); -1 for a null map or when memory runs out. */
PU_API int32_t uIntHashInsert(uIntHash *map, int32_t key, void *value);

/* The value stored under key, or null for a null or empty map or an absent key. */
PU_API void *uIntHashGetValue(uIntHash *map, int32_t key);

/* 1 when an item with key exists, whatever its value (a null value included), else 0. */
PU_API int32_t uIntHashKeyExists(uIntHash *map, int32_t key);

/* Removes the item of key: calls freeValue(value) when freeValue is given, then frees the item.
 * Returns 0, or -1 (nothing called) for a null or empty map or an absent key. */
PU_API int32_t uIntHashRemove(uIntHash *map, int32_t key, uHashFreeFn freeValue);

/* Removes every item, calling freeValue once per value when given, and frees the map. A null map
 * is ignored. */
PU_API void uIntHashDestroyMap(uIntHash *map, uHashFreeFn freeValue);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UHASH_H */
