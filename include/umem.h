/* SPDX-License-Identifier: MIT */
/* Memory: the one zero-filling allocator and the one null-safe release of the library. */
#ifndef PLATFORM_UTILS_UMEM_H
#define PLATFORM_UTILS_UMEM_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Returns size zero-filled bytes (calloc(size, 1)), or null when the heap is exhausted. A size of
 * 0 gives what calloc gives for 0. The block may be grown with realloc and released with uFree or
 * free. Every string and buffer the library hands to a caller comes from here. */
PU_API void *uMalloc(uint32_t size);

/* Releases memory from uMalloc (or from malloc/calloc/realloc); null is ignored. */
PU_API void uFree(void *ptr);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UMEM_H */
