/* SPDX-License-Identifier: MIT */
/*
 * Id maps: lookups in both directions over constant tables the caller defines. Each table is an
 * array of rows ended by a terminator row whose id is U_MAP_END_ID; the terminator's second field
 * is the "not found" answer of the id-to-value lookups. The first matching row wins. The library
 * only reads the tables (uMapValueSetById writes one value) and never allocates or frees them.
 */
#ifndef PLATFORM_UTILS_UMAP_H
#define PLATFORM_UTILS_UMAP_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

#define U_MAP_END_ID 0xFFFFFFFFu

typedef struct uMapAddr {
    uint32_t id;
    void *addr;
} uMapAddr;

typedef struct uMapValue {
    uint32_t id;
    int32_t value;
} uMapValue;

typedef struct uMapString {
    uint32_t id;
    const char *text;
} uMapString;

typedef struct uMapChar {
    uint32_t id;
    unsigned char ch;
} uMapChar;

/* Id to value: the second field of the first row with this id, else the terminator's.
 * A null table gives null, -1, "" (never null) and 0 respectively. */

/* The address of id, or the terminator's; null for a null table. */
PU_API void *uMapAddrById(const uMapAddr *table, uint32_t id);
/* The value of id, or the terminator's; -1 for a null table. */
PU_API int32_t uMapValueById(const uMapValue *table, uint32_t id);
/* The text of id, or the terminator's; "" for a null table. */
PU_API const char *uMapStringById(const uMapString *table, uint32_t id);
/* The character of id, or the terminator's; 0 for a null table. */
PU_API unsigned char uMapCharById(const uMapChar *table, uint32_t id);

/* Value to id: the id of the first row before the terminator whose second field equals the
 * argument (strings compared ignoring case), else U_MAP_END_ID; also U_MAP_END_ID for a null
 * table or text. */

/* The id of the first row holding exactly the pointer addr. */
PU_API uint32_t uMapIdByAddr(const uMapAddr *table, const void *addr);
/* The id of the first row holding value. */
PU_API uint32_t uMapIdByValue(const uMapValue *table, int32_t value);
/* The id of the first row whose text equals text ignoring case. */
PU_API uint32_t uMapIdByString(const uMapString *table, const char *text);
/* The id of the first row holding the byte ch. */
PU_API uint32_t uMapIdByChar(const uMapChar *table, unsigned char ch);

/* Sets the value of the first row before the terminator with this id and returns 0; -1 for a
 * null table or an absent id. The terminator's value cannot be changed this way. */
PU_API int32_t uMapValueSetById(uMapValue *table, uint32_t id, int32_t value);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UMAP_H */
