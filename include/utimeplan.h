/*
 * uTimePlan: calendar time plans. For now only the calendar helper the date parsers share.
 */
#ifndef PLATFORM_UTILS_UTIMEPLAN_H
#define PLATFORM_UTILS_UTIMEPLAN_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Number of days in month (0 = January .. 11) of year (full, e.g. 2024), leap years by the
 * Gregorian rule; -1 for a month above 11 or a negative year. */
PU_API int32_t uTimePlanMonthMaxDay(int32_t year, int32_t month);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UTIMEPLAN_H */
