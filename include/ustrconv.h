/* SPDX-License-Identifier: MIT */
/*
 * uStr conversions: strict text-to-number parsing that rejects trailing garbage and overflow,
 * character-class tests, hexadecimal, MAC and IPv4 formatting, DTMF digits, and validation and
 * formatting of dates and times of day. Stateless; results go through output arguments.
 */
#ifndef PLATFORM_UTILS_USTRCONV_H
#define PLATFORM_UTILS_USTRCONV_H

#include <stdint.h>
#include <time.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* ---- Numbers --------------------------------------------------------------------------- */

/* Parses str, stripped of surrounding tabs, line ends and spaces, with strtol(base). *out is set
 * to 0 first, then to the value. Returns 0, or -1 for null, empty or blank text, characters
 * after the number, overflow, or an invalid base. errno is left as it was. */
PU_API int32_t uStrTol(const char *str, long *out, int32_t base);

/* uStrTol with strtoul; a text beginning with '-' is refused. */
PU_API int32_t uStrToUl(const char *str, unsigned long *out, int32_t base);

/* Parses str, stripped as uStrTol, as exactly one floating-point value. Returns 0 (storing it
 * when out is given) or -1. */
PU_API int32_t uStrToDouble(const char *str, double *out);

/* 1 when str is optional blanks, one run of decimal digits and optional blanks (blanks: tab, line
 * feed, carriage return, space); a text of blanks only is 1 as well. 0 for null, "" or anything
 * else. */
PU_API int32_t uStrIsDigit(const char *str);

/* Value of a hexadecimal digit character, 0 to 15, or -1. */
PU_API int32_t uStrHexCharToInteger(int32_t c);

/* Writes len bytes as lower-case hexadecimal pairs and a terminator into dst. Callers pass
 * dstSize 2*len+1; a larger dstSize is refused (-1), a smaller one cuts the text to dstSize-1
 * characters. -1 also for a null argument or a zero len or dstSize; else 0. */
PU_API int32_t uStrHashToHex(const uint8_t *bytes, uint32_t len, char *dst, uint32_t dstSize);

/* ---- MAC and IPv4 addresses ------------------------------------------------------------ */

/* 1 when mac is six pairs of hexadecimal digits, separated by ':' when withColons is non-zero
 * and not separated otherwise; 0 otherwise or for null. */
PU_API int32_t uStrCheckMacValidation(const char *mac, int32_t withColons);

/* Writes mac as "xx:xx:xx:xx:xx:xx" (lower case) into dst of size bytes. A mac already in that
 * form is copied as it is, letter case kept. Otherwise six pairs of hexadecimal digits are read,
 * each optionally preceded by one ':'. Returns 0, or -1 for a null argument, size < 1 or a text
 * that is not six pairs. */
PU_API int32_t uStrFormatMacWithColon(const char *mac, char *dst, int32_t size);

/* Formats the six bytes at mac: format 0 "xx:xx:xx:xx:xx:xx", 1 "xxxxxxxxxxxx", 2
 * "XX-XX-XX-XX-XX-XX"; another format writes nothing. Every byte must also be the code of a
 * hexadecimal digit character (isxdigit). Intended: any other MAC is refused, and you format it
 * yourself. Returns 0, or -1 unless mac and dst are given, len is 6, size is at least 6 and the
 * bytes pass. */
PU_API int32_t uStrHexMacAddrToStr(const uint8_t *mac, int32_t len, int32_t format, char *dst,
                                   int32_t size);

/* Writes addr (network order, as it lies in memory) as dotted decimal. -1 for a null dst, else
 * 0. */
PU_API int32_t uStrIPv4ToStr(uint32_t addr, char *dst, uint32_t size);

/* ---- Tones, dates and times ------------------------------------------------------------ */

/* 1 when every character is 0-9, '*', '#' or A-D; 0 for null, "" or anything else. */
PU_API int32_t uStrDtmfCheck(const char *digits);

/* 0 when both start and end are valid "H:M:S" times of day (hour below 24, minute and second
 * below 60, nothing after the seconds), -1 otherwise. The two are not compared. */
PU_API int32_t uStrCheckTimeRange(const char *start, const char *end);

/* Parses "Y-M-D" or "Y/M/D" (year 1900-2100, month 1-12, day 1-31, and with checkDays non-zero
 * no later than the month's last day) into *tm, zero-filled first, with tm_isdst -1. Returns 1,
 * or 0 on failure and for null arguments. */
PU_API int32_t uStrParseDateToTm(const char *date, struct tm *tm, int32_t checkDays);

/* Normalises "H:M:S" (at most 15 characters, surrounding spaces and tabs ignored) to a new
 * "HH:MM:SS" string, so "7:5:0" gives "07:05:00". Null for null, "", a longer text, an invalid
 * time or when memory runs out. Release with uFree. */
PU_API char *uStrFormatTimeAsHHMMSS(const char *text);

PU_END_DECLS

#endif /* PLATFORM_UTILS_USTRCONV_H */
