/* SPDX-License-Identifier: MIT */
/* Export and linkage macros shared by every public header of platform_utils. */
#ifndef PLATFORM_UTILS_UEXPORT_H
#define PLATFORM_UTILS_UEXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define PU_API __attribute__((visibility("default")))
#else
#define PU_API
#endif

#ifdef __cplusplus
#define PU_BEGIN_DECLS extern "C" {
#define PU_END_DECLS }
#else
#define PU_BEGIN_DECLS
#define PU_END_DECLS
#endif

#endif /* PLATFORM_UTILS_UEXPORT_H */
