/* SPDX-License-Identifier: MIT */
/*
 * uTimePlan: calendar time plans. A plan calls a start callback at a time of day (every day, on a
 * weekday, on a day of the month, or once on a date) and an end callback at a later time,
 * optionally only between two dates. Plans may belong to a pause group: while one of the group's
 * pauses is in force its plans are held (a running plan is ended, nothing starts); when the last
 * one ends they are recomputed.
 *
 * Every calculation works on the C library's local time (TZ) and seconds since the epoch; -1 is
 * the error value of every calculation that returns a time. Each plan has one timer of the timer
 * service (utimer.h); plan and pause ids come from the unique-id module "timePlanIdName"
 * (1..1000). When the system time jumps ("SYSTEM_TIME_UPDATED") or the time zone changes
 * ("TIME_ZONE_CHANGED") every plan and pause is recomputed.
 *
 * Plan callbacks run on a thread of the asynchronous call pool when a plan timer fires, or on the
 * thread that called uTimePlanAdd, uTimePlanDel, uTimePlanPauseAdd, uTimePlanPauseDel or raised a
 * time event; never with the plan lock held, so a callback may call any function here.
 * Log module: "platform.utils.timePlan".
 */
#ifndef PLATFORM_UTILS_UTIMEPLAN_H
#define PLATFORM_UTILS_UTIMEPLAN_H

#include <stdint.h>
#include <time.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* A plan's start or end callback; arg is the startArg or endArg of its description. */
typedef void (*uTimePlanCallback)(void *arg);

/* Repeat types of a plan. Other values are composed like a daily plan and never stepped. */
enum {
    U_TIME_PLAN_ONCE = 0,
    U_TIME_PLAN_DAILY = 1,
    U_TIME_PLAN_WEEKLY = 2,
    U_TIME_PLAN_MONTHLY = 3
};

/* A plan, filled by the caller and copied whole by uTimePlanAdd. Times are "HH:MM" or
 * "HH:MM:SS" (hour 0..24, 24:00 being 00:00 of the next day); a once plan writes
 * "MM-DD-HH:MM[:SS]" and always means the current year. */
typedef struct uTimePlanInfo {
    char startDate[32];        /* first valid day, "YYYY-MM-DD"; "" = no date range */
    char endDate[32];          /* last valid day, "YYYY-MM-DD" */
    char *pauseModule;         /* pause group of the plan, or null; copied by uTimePlanAdd */
    char startTime[16];        /* when the plan starts */
    uTimePlanCallback startCb; /* required */
    void *startArg;
    char endTime[16];        /* when it ends; "" = the plan has no end */
    uTimePlanCallback endCb; /* may be null */
    void *endArg;
    uint32_t repeatType;  /* U_TIME_PLAN_ONCE .. U_TIME_PLAN_MONTHLY */
    uint32_t repeatDate;  /* weekly: weekday 0..7 (0 and 7 Sunday); monthly: day 1..31; else 0 */
    uint32_t randomStart; /* non-zero: start at a random second of the period */
    uint32_t scheduled;   /* leave 0: a plan added inside its period then starts silently */
} uTimePlanInfo;

/* A pause of a pause group, from 00:00 of the first day to 00:00 of the second. */
typedef struct uTimePlanPauseInfo {
    int32_t pauseType;  /* only 0 exists */
    const char *module; /* the pause group: plans whose pauseModule is this name */
#if defined(__GNUC__) || defined(__clang__)
    __extension__
#endif
        union {
        char pauseStartTime[16]; /* uTimePlanPauseAdd: first day, "YYYY-MM-DD" or "YYYY/MM/DD" */
        int32_t pauseId;         /* uTimePlanPauseDel: the id uTimePlanPauseAdd returned */
    };
    char pauseEndTime[16]; /* uTimePlanPauseAdd: the day the pause ends, same form */
} uTimePlanPauseInfo;

/* ---- Calendar calculations ------------------------------------------------------------- */

/* Number of days in month (0 = January .. 11) of year (full, e.g. 2024), leap years by the
 * Gregorian rule; -1 for a month above 11 or a negative year. */
PU_API int32_t uTimePlanMonthMaxDay(int32_t year, int32_t month);

/* 1 when a is later than b, -1 when earlier, 0 when equal or either is null. Compares year,
 * month, day, hour, minute and second only. */
PU_API int32_t uTimePlanTmCompare(const struct tm *a, const struct tm *b);

/* Today at the time of day str ("HH:MM[:SS]") when timeOnly is non-zero, otherwise this year's
 * date and time "MM-DD-HH:MM[:SS]". An hour above 24 or a minute above 59 is refused (logged);
 * seconds above 59 count as 0; month 0 or day 0 are normalised, not refused. -1 on failure. */
PU_API time_t uTimePlanTimeStringParse(const char *str, int32_t timeOnly);

/* The first occurrence of str for the repeat type, from today on: daily today, weekly the next
 * day (today included) with weekday repeatDate, monthly the next day repeatDate (moving past
 * December lands in February of the next year). -1 for a null or empty str or a repeatDate that
 * does not fit the type (logged). */
PU_API time_t uTimePlanTimeCompose(const char *str, uint32_t repeatType, uint32_t repeatDate);

/* "YYYY-MM-DD" at the current time of day, or -1. */
PU_API time_t timePlanDateParse(const char *str);

/* -1, 0 or 1 as the local date of a is before, equal to or after that of b; -1 when either is
 * -1. */
PU_API int32_t timePlanDateCompare(time_t a, time_t b);

/* The occurrence after t: the next day, the same weekday next week, or the same day of the next
 * month that has it (from December: February). Other types give t itself; -1 gives -1. */
PU_API time_t timePlanNextTimeGet(time_t t, uint32_t repeatType);

/* The next start and end of plan seen from now (end 0: the plan has no end). A period that has
 * begun is returned as it is, so the start may lie in the past. Returns 0, or -1 when a time
 * cannot be composed (logged), when a once plan is over, or for a null argument. */
PU_API int32_t timePlanTimeCalculation(const uTimePlanInfo *plan, time_t *start, time_t *end);

/* ---- Plans ----------------------------------------------------------------------------- */

/* Starts the service and subscribes it to the two time events. A second call only logs. */
PU_API void uTimePlanInit(void);

/* Releases every plan. Their timers are left to fire into nothing; pause groups are kept. Must
 * not run concurrently with other calls of this family. */
PU_API void uTimePlanUninit(void);

/* Adds a copy of info and schedules it. A plan added inside its period is running at once but
 * its start callback is not called. Returns the plan id, or 0 when the service is not started,
 * info or its startCb is null, its times are invalid or a once plan is over, or no id or memory
 * is left. */
PU_API int32_t uTimePlanAdd(const uTimePlanInfo *info);

/* Deletes the plan; a running plan's end callback is called on the calling thread. Unknown ids
 * are ignored. */
PU_API void uTimePlanDel(int32_t id);

/* *status: 0 no such plan, 1 waiting for its start, 2 running; *start and *end: its next start
 * (without a random offset) and end. Null pointers are skipped. */
PU_API void uTimePlanStatusQuery(int32_t id, int32_t *status, time_t *start, time_t *end);

/* ---- Pauses ---------------------------------------------------------------------------- */

/* Adds a pause to the group req->module (created when new; names match ignoring case). A pause
 * that has begun holds the group's plans at once; one wholly in the past does nothing. Returns
 * the pause id; 0 for a pauseType other than 0 (logged); -1 for a null request or module, bad or
 * reversed dates (logged), no id or memory, or before uTimePlanInit. */
PU_API int32_t uTimePlanPauseAdd(const uTimePlanPauseInfo *req);

/* Deletes pause req->pauseId of group req->module, ending it if it is in force; the group goes
 * with its last pause. */
PU_API void uTimePlanPauseDel(const uTimePlanPauseInfo *req);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UTIMEPLAN_H */
