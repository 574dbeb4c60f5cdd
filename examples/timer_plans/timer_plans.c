/* SPDX-License-Identifier: MIT */
/*
 * Timers and plans: a timer that re-arms itself, an interval plan that runs a task three
 * times a second apart, and a daily time plan two seconds ahead.
 * Build it against the installed library:
 *   cc timer_plans.c $(pkg-config --cflags --libs platform_utils) -o timer_plans
 */
#define _POSIX_C_SOURCE 200809L /* localtime_r under a strict -std=c99 */

#include <platform_os.h>
#include <platform_utils.h>

#include <stdio.h>
#include <string.h>
#include <time.h>

static SEM_ID finished;

/* ---- A repeating timer ----------------------------------------------------------------------
 * Timer callbacks run on a worker of the asynchronous call pool, never on the timer task, so
 * they may take a while and may add or delete timers. */
static int ticks;

static void tick(void *arg) {
    printf("tick %d (%s)\n", ++ticks, (const char *)arg);
    if (ticks < 3) {
        uTimerAdd(tick, arg, 200); /* one-shot timers: re-arm for the next tick */
    } else {
        semGive(finished);
    }
}

/* ---- An interval plan -----------------------------------------------------------------------
 * The callback gets a code and the plan id; callbacks run on the asynchronous call pool without
 * the plan lock, so they may call the plan functions. The application reports the end of each
 * run itself. */
static void intervalStep(int32_t code, int32_t id) {
    switch (code) {
    case U_INTERVAL_PLAN_STARTED:
        printf("interval plan %d: run\n", (int)id);
        uIntervalPlanComplete(id); /* the task is quick: report it done at once */
        break;
    case U_INTERVAL_PLAN_RUN_FINISHED:
        printf("interval plan %d: run done, waiting\n", (int)id);
        break;
    case U_INTERVAL_PLAN_STOPPED:
        printf("interval plan %d: finished\n", (int)id);
        semGive(finished);
        break;
    default:
        printf("interval plan %d: code %d\n", (int)id, (int)code);
    }
}

/* ---- A daily time plan ---------------------------------------------------------------------- */
static void timeOfDay(char *text, size_t size, time_t at) {
    struct tm tm;
    localtime_r(&at, &tm);
    strftime(text, size, "%H:%M:%S", &tm);
}

static void planStarted(void *arg) {
    printf("time plan \"%s\" started\n", (const char *)arg);
}

static void planEnded(void *arg) {
    printf("time plan \"%s\" ended\n", (const char *)arg);
    semGive(finished);
}

static int waitFor(const char *what, int seconds) {
    if (semTake(finished, seconds * sysClkRateGet()) != 0) {
        printf("%s did not finish in time\n", what);
        return -1;
    }
    return 0;
}

int main(void) {
    setvbuf(stdout, NULL, _IOLBF, 0);
    finished = semBCreate(0, SEM_EMPTY);
    int failed = 0;

    /* The first timer starts the timer service with its own task. */
    uTimerAdd(tick, "every 200 ms", 200);
    failed |= waitFor("the timer", 5);

    uIntervalPlanInit();
    const int32_t plan = uIntervalPlanAdd(3, 1, intervalStep); /* 3 runs, 1 s apart */
    uIntervalPlanStart(plan);
    failed |= waitFor("the interval plan", 6);
    uIntervalPlanUninit();

    uTimePlanInit();
    uTimePlanInfo info;
    memset(&info, 0, sizeof info);
    const time_t now = time(NULL);
    timeOfDay(info.startTime, sizeof info.startTime, now + 2);
    timeOfDay(info.endTime, sizeof info.endTime, now + 3);
    info.repeatType = U_TIME_PLAN_DAILY;
    info.startCb = planStarted;
    info.startArg = "porch light";
    info.endCb = planEnded;
    info.endArg = "porch light";
    const int32_t id = uTimePlanAdd(&info);
    printf("daily plan %d from %s to %s\n", (int)id, info.startTime, info.endTime);
    failed |= waitFor("the time plan", 8);
    uTimePlanDel(id);
    uTimePlanUninit();

    semDelete(finished);
    return failed ? 1 : 0;
}
