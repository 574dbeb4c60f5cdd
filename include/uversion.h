/* SPDX-License-Identifier: MIT */
/* Version: the compile-time macros of pu_version.h and the version of the library actually
 * loaded, which differs when a program runs against another build than it was compiled with. */
#ifndef PLATFORM_UTILS_UVERSION_H
#define PLATFORM_UTILS_UVERSION_H

#include "pu_version.h"
#include "uexport.h"

PU_BEGIN_DECLS

/* The run-time version as PU_VERSION_OF(major, minor, patch), e.g. 0x000100 for 0.1.0. */
PU_API unsigned int uVersionGet(void);

/* The run-time version as "major.minor.patch", a static string. */
PU_API const char *uVersionStringGet(void);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UVERSION_H */
