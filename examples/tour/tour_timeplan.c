/* SPDX-License-Identifier: MIT */
/*
 * Tour section: a daily time plan whose one-second period begins two seconds from now.
 */
#include <platform_os.h>
#include <platform_utils.h>

#include "tour.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

static SEM_ID planDone;

/* "HH:MM:SS" of a calendar time, in local time as the plans read it. */
static void timeOfDay(char *text, size_t size, time_t at) {
    struct tm tm;
    localtime_r(&at, &tm);
    strftime(text, size, "%H:%M:%S", &tm);
}

/* Plan callbacks run on a worker of the asynchronous call pool, without the plan lock. */
static void planStarted(void *arg) {
    char now[16];
    timeOfDay(now, sizeof now, time(NULL));
    printf("plan \"%s\" started at %s\n", (const char *)arg, now);
}

static void planEnded(void *arg) {
    char now[16];
    timeOfDay(now, sizeof now, time(NULL));
    printf("plan \"%s\" ended at %s\n", (const char *)arg, now);
    semGive(planDone);
}

void tourTimePlan(void) {
    tourSection("time plans");
    planDone = semBCreate(0, SEM_EMPTY);
    uTimePlanInit();

    uTimePlanInfo plan;
    memset(&plan, 0, sizeof plan);
    const time_t now = time(NULL);
    timeOfDay(plan.startTime, sizeof plan.startTime, now + 2);
    timeOfDay(plan.endTime, sizeof plan.endTime, now + 3);
    plan.startCb = planStarted;
    plan.startArg = "porch light";
    plan.endCb = planEnded;
    plan.endArg = "porch light";
    plan.repeatType = U_TIME_PLAN_DAILY;
    const int32_t id = uTimePlanAdd(&plan);
    int32_t status = 0;
    uTimePlanStatusQuery(id, &status, NULL, NULL);
    printf("daily plan %d from %s to %s, status %d (1 waiting, 2 running)\n", id, plan.startTime,
           plan.endTime, status);

    if (semTake(planDone, 8 * sysClkRateGet()) != 0) {
        printf("the plan did not end in time\n");
    }
    time_t start = 0;
    uTimePlanStatusQuery(id, &status, &start, NULL);
    char when[32];
    struct tm tm;
    localtime_r(&start, &tm);
    strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &tm);
    printf("next start %s, status %d\n", when, status);

    uTimePlanDel(id);
    uTimePlanUninit();
    semDelete(planDone);
}
