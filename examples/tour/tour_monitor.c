/* SPDX-License-Identifier: MIT */
/* Tour section: the task execution monitor reports a bracket that overran its allowed time. */
#include <platform_os.h>
#include <platform_utils.h>

#include "tour.h"

#include <stdio.h>

void tourMonitor(void) {
    tourSection("task execution monitor");
    uMonitorInit();

    /* The tag is kept as a pointer and printed as text, so it must outlive the bracket. */
    static const char tag[] = "cafe";
    uMonitorStart("resize image", tag, osaGetSysUpMs(), 100);
    taskDelay(sysClkRateGet() * 15 / 100); /* 150 ms of "work" against 100 ms allowed */
    uMonitorStop("resize image", tag, osaGetSysUpMs());
    printf("a bracket allowed 100 ms took about 150 ms; \"tMonitor\" logs it at level 2:\n");
    fflush(stdout);

    /* The monitor measures on its own task; once it has quit, its report is out. */
    uMonitorUninit();
    for (int tick = 0; tick < sysClkRateGet() && __atomic_load_n(&gMonitorMsgQ, __ATOMIC_ACQUIRE);
         tick++) {
        taskDelay(1);
    }
}
