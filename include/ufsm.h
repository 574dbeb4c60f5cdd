/* SPDX-License-Identifier: MIT */
/*
 * uFsm: a table-driven dispatcher of (event, state) -> handler rows. The table keeps no state of
 * its own; the caller passes its current state and the handler moves it.
 */
#ifndef PLATFORM_UTILS_UFSM_H
#define PLATFORM_UTILS_UFSM_H

#include <stdint.h>

#include "uexport.h"
#include "ulist.h"

PU_BEGIN_DECLS

/* Row handler: receives the argument given to uFsmExecute; its result is ignored. */
typedef int32_t (*uFsmHandler)(void *argument);

typedef struct uFsmRow {
    uint32_t state;
    uint32_t event;
    uFsmHandler handler;
} uFsmRow;

typedef struct uFsm {
    uList *rows; /* rows in the order they were added; the list has no lock */
} uFsm;

/* A new, empty table, or null when it cannot be allocated. Release it with uFsmDestroy. */
PU_API uFsm *uFsmCreate(void);

/* Appends the row (event, state, handler). Returns 0, or -1 for a null table or no memory. Rows
 * are meant to be added before the table is used; adding takes no lock. */
PU_API int32_t uFsmAdd(uFsm *fsm, uint32_t event, uint32_t state, uFsmHandler handler);

/* Runs, on the calling thread and with the caller's locks held, the handler of the first row
 * matching both event and state. Returns 0 when a row matched, -1 for a null table or no match. */
PU_API int32_t uFsmExecute(uFsm *fsm, uint32_t event, uint32_t state, void *argument);

/* Frees every row, the row list and the table. Returns 0, or -1 for null. */
PU_API int32_t uFsmDestroy(uFsm *fsm);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UFSM_H */
