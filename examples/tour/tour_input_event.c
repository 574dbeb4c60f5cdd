/* SPDX-License-Identifier: MIT */
/* Tour section: an input event that nobody answers times out, announced on the event bus. */
#include <platform_os.h>
#include <platform_utils.h>

#include "tour.h"

#include <stdio.h>

static SEM_ID inputDone;

static void announced(const char *name, void *userData, void *data, uint32_t length) {
    (void)userData;
    (void)length;
    const uInputEventMsg *msg = (const uInputEventMsg *)data;
    static const char *const states[] = {"started", "stopped", "timed out"};
    printf("bus: %s key %u %s\n", name, (unsigned)msg->key,
           msg->state >= 0 && msg->state <= 2 ? states[msg->state] : "?");
}

static void inputEnded(int32_t state, uint32_t value) {
    printf("callback: state %d, value %u (a time-out passes 0, not the key)\n", (int)state,
           (unsigned)value);
    semGive(inputDone);
}

void tourInputEvent(void) {
    tourSection("input events");
    inputDone = semBCreate(0, SEM_EMPTY);
    uInputEventInit();
    uEventCare(U_INPUT_EVENT_NAME, announced, NULL);

    /* Waiting one second for a button press that never comes. */
    uInputEventStart(42, 1, inputEnded);
    if (semTake(inputDone, 3 * sysClkRateGet()) != 0) {
        printf("the input event did not time out in time\n");
    }

    uEventClear(U_INPUT_EVENT_NAME, announced);
    uInputEventUninit();
    semDelete(inputDone);
}
