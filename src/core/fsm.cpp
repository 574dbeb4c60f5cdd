// SPDX-License-Identifier: MIT
// uFsm: rows of (event, state, handler) kept in insertion order; the first matching row runs.
#include <ufsm.h>
#include <umem.h>

extern "C" {

uFsm *uFsmCreate(void) {
    auto *fsm = static_cast<uFsm *>(uMalloc(sizeof(uFsm)));
    if (fsm != nullptr) {
        fsm->rows = uListInit(0);
        if (fsm->rows == nullptr) {
            // A table without its row list could never take a row: report no memory instead.
            uFree(fsm);
            return nullptr;
        }
    }
    return fsm;
}

int32_t uFsmAdd(uFsm *fsm, uint32_t event, uint32_t state, uFsmHandler handler) {
    if (fsm == nullptr) {
        return -1;
    }
    auto *row = static_cast<uFsmRow *>(uMalloc(sizeof(uFsmRow)));
    if (row == nullptr) {
        return -1;
    }
    row->state = state;
    row->event = event;
    row->handler = handler;
    if (uListAppend(fsm->rows, row) < 0) {
        uFree(row);
        return -1;
    }
    return 0;
}

int32_t uFsmExecute(uFsm *fsm, uint32_t event, uint32_t state, void *argument) {
    if (fsm == nullptr) {
        return -1;
    }
    for (int32_t pos = 0; uListEol(fsm->rows, pos) == 0; ++pos) {
        auto *row = static_cast<uFsmRow *>(uListGet(fsm->rows, pos));
        if (row != nullptr && row->event == event && row->state == state) {
            if (row->handler != nullptr) {
                row->handler(argument);
            }
            return 0;
        }
    }
    return -1;
}

int32_t uFsmDestroy(uFsm *fsm) {
    if (fsm == nullptr) {
        return -1;
    }
    while (uListEol(fsm->rows, 0) == 0) {
        uFree(uListRemove(fsm->rows, 0));
    }
    // The row list never has a lock, so its header is released directly.
    uFree(fsm->rows);
    uFree(fsm);
    return 0;
}

} // extern "C"
