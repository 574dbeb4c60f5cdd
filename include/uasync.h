/* SPDX-License-Identifier: MIT */
/*
 * uAsyncCall: hands a function call to a platform worker pool so the caller does not wait.
 *
 * Two pools are created on the first call of either kind: a general pool of 5 threads that
 * takes any call, and a task-id pool of 2 threads whose task ids keep calls of one id in order.
 * The library keeps no record of a queued call and never learns its outcome.
 */
#ifndef PLATFORM_UTILS_UASYNC_H
#define PLATFORM_UTILS_UASYNC_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* A call handed to a pool: receives the pointer-sized argument given with it. */
typedef void (*uAsyncFunc)(void *argument);

/* Queues function(argument) on the general pool, where any of its 5 threads may run it,
 * concurrently with the caller and with other calls. Always returns 0, also when the pool
 * refuses the call. Concurrent first calls may each create pools; make one call early where
 * that matters. */
PU_API int32_t uAsyncCall(uAsyncFunc function, void *argument);

/* Queues function(argument) on the task-id pool: calls with the same taskId run one after
 * another in the order they were queued. Always returns 0. */
PU_API int32_t uAsyncCallWithTaskId(uAsyncFunc function, void *argument, int32_t taskId);

/* A task id for uAsyncCallWithTaskId, alternating between the pool's two slots: 0, 1, 0, 1, ...
 * (0, -1, ... once the counter has wrapped past 2^31 calls). */
PU_API int32_t uAsyncCallGetAvailableTaskId(void);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UASYNC_H */
