/* SPDX-License-Identifier: MIT */
/*
 * uUuid: name-based UUIDs of version 5 (SHA-1) in the URL name space and their text form, and
 * seeding of the OpenSSL random generator. Stateless and silent.
 */
#ifndef PLATFORM_UTILS_UUUID_H
#define PLATFORM_UTILS_UUUID_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* A UUID with its integer fields in host byte order. */
typedef struct uUuid {
    uint32_t timeLow;
    uint16_t timeMid;
    uint16_t timeHiAndVersion;
    uint8_t clockSeqHiAndReserved;
    uint8_t clockSeqLow;
    uint8_t node[6];
} uUuid;

/* Fills uuid with the version-5 UUID of length bytes of name in the URL name space
 * (6ba7b811-9dad-11d1-80b4-00c04fd430c8). Returns 0, or -1 for a null name or uuid. */
PU_API int32_t uUuidGenerateV5(const void *name, uint32_t length, uUuid *uuid);

/* Writes uuid as 36 lower-case characters "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" and a
 * terminator; text needs 37 bytes (a smaller size cuts the text). Returns 0, or -1 for a null
 * pointer. */
PU_API int32_t uUuidToStr(const uUuid *uuid, char *text, uint32_t size);

/* Makes sure the OpenSSL random generator reports itself seeded: from /dev/urandom when it does
 * not, and as a last resort from rand(). Acts on process-wide generators. Returns 0. */
PU_API int32_t uSslRandSeed(void);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UUUID_H */
