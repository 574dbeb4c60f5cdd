/* SPDX-License-Identifier: MIT */
/*
 * uStr CSV: comma-separated values. One field is encoded for writing or decoded after reading;
 * one row is split into a list of fields; a whole text, or a chunk of a stream, is walked row
 * by row with a callback per row. Rows end at a carriage return or line feed; blank lines give
 * no rows. Stateless, nothing is logged.
 */
#ifndef PLATFORM_UTILS_UCSV_H
#define PLATFORM_UTILS_UCSV_H

#include <stdint.h>

#include "uexport.h"
#include "ulist.h"

PU_BEGIN_DECLS

/* Writes src into dst (size bytes) with every double quote doubled, without adding enclosing
 * quotes. When needQuotes is given it is set to 1 (never cleared: set it to 0 beforehand) when
 * the field must be enclosed: it holds a quote, a comma, a carriage return or a line feed.
 * Returns 0; -1 for a null src or dst or size < 1, and -1 with dst made "" when the encoded
 * field does not fit whole (a field is never cut). */
PU_API int32_t uStrEncodeCsv(const char *src, char *dst, int32_t size, int32_t *needQuotes);

/* Stores in *out a new string: src without one pair of enclosing quotes and with every doubled
 * quote made single. Returns 0; -1 (and *out null) for a null argument, an empty src or when
 * memory runs out. Release *out with uFree. */
PU_API int32_t uStrDecodeCsv(const char *src, char **out);

/* Splits one row at its commas; a quoted field may hold commas, doubled quotes inside it stand
 * for one, and leading spaces of a field are dropped. Returns a new lock-less list of new
 * strings (free each with uFree, then the list with uListUninit), or null for a null row, a row
 * without fields or when memory runs out. */
PU_API uList *uStrParseCsvRow(const char *row);

/* Receives one row: fields is a list of new strings in row order. The strings belong to the
 * callback from the call on (free them with uFree); the list itself does not, and is emptied
 * after the call. */
typedef void (*UStrCsvRowCallback)(void *userArg, uList *fields);

/* Walks data row by row and calls rowCallback(userArg, fields) for every row with at least one
 * field, on the calling thread. Quoted fields may hold commas, line breaks and doubled quotes;
 * leading spaces of a field are dropped.
 *
 * With partial 0 the whole text is parsed and its length is returned. With partial non-zero the
 * last, incomplete row (anything after the last line break outside quotes) is not delivered and
 * the result is the number of bytes up to the end of the last complete row: keep the rest and
 * put it in front of the next chunk. A final call with partial 0 delivers the last row.
 *
 *     consumed = uStrParseCsvData(buffer, 1, ctx, onRow);   // buffer = carry + chunk
 *     carry = buffer + consumed;
 *
 * Returns -1 for a null data or when memory runs out at the start, 0 for "". Without a callback
 * the rows are parsed and dropped. */
PU_API int32_t uStrParseCsvData(const char *data, int32_t partial, void *userArg,
                                UStrCsvRowCallback rowCallback);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UCSV_H */
