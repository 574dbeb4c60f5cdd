/* SPDX-License-Identifier: MIT */
/* Tour section: an interval plan runs its task three times, one second apart. */
#include <platform_os.h>
#include <platform_utils.h>

#include "tour.h"

#include <stdio.h>

static SEM_ID planDone;
static uint32_t planStartMs;

static void planEvent(int32_t code, int32_t id) {
    static const char *const codes[] = {"run starts", "stopped", "resumed", "paused",
                                        "run done, waiting"};
    printf("%5u ms  plan %d: %s\n", (unsigned)osaLongTimeSpanCompute(planStartMs, osaGetSysUpMs()),
           (int)id, code >= 0 && code <= 4 ? codes[code] : "?");
    if (code == U_INTERVAL_PLAN_STARTED) {
        /* The work of a run would go here; the application reports its end itself. Callbacks
         * run without the plan lock, so they may call the plan functions. */
        uIntervalPlanComplete(id);
    } else if (code == U_INTERVAL_PLAN_STOPPED) {
        semGive(planDone);
    }
}

void tourIntervalPlan(void) {
    tourSection("interval plans");
    planDone = semBCreate(0, SEM_EMPTY);
    uIntervalPlanInit();
    planStartMs = osaGetSysUpMs();
    int32_t id = uIntervalPlanAdd(3, 1, planEvent);
    uIntervalPlanStart(id);
    if (semTake(planDone, 5 * sysClkRateGet()) != 0) {
        printf("the plan did not finish in time\n");
    }
    uIntervalPlanUninit();
    semDelete(planDone);
}
