/* SPDX-License-Identifier: MIT */
/*
 * uStr: NUL-terminated byte strings. Bounded copy and concatenation into caller buffers, growing
 * buffers, null-tolerant comparison and search, in-place stripping and case folding, splitting
 * into lists and fixed slots, key/value lines, XML escaping and a little UTF-8.
 *
 * A "size" is always the whole destination buffer in bytes, terminator included; bounded
 * operations cut silently and always terminate. Strings handed to the caller come from uMalloc
 * and are released with uFree. Nothing here logs; everything is re-entrant on distinct buffers.
 */
#ifndef PLATFORM_UTILS_USTR_H
#define PLATFORM_UTILS_USTR_H

#include <stdint.h>

#include "uexport.h"
#include "ulist.h"

PU_BEGIN_DECLS

/* ---- Bounded copy and concatenation ---------------------------------------------------- */

/* Copies src into dst of size bytes, cut to size-1 characters. Returns the number of characters
 * stored (an exact fit, strlen(src) == size-1, is stored whole), or -1 when dst or src is null or
 * size is 0 (dst untouched). */
PU_API int32_t uStrSafeCopy(char *dst, uint32_t size, const char *src);

/* Zero-fills all size bytes of dst, then copies at most n characters of src, and never more than
 * size-1. n of 0 leaves dst "". Returns dst, or null when dst or src is null. */
PU_API char *uStrnSafeCopy(char *dst, uint32_t size, const char *src, uint32_t n);

/* Appends src to the text in dst (a buffer of size bytes), cut so that dst stays terminated
 * within size. Returns dst; null when dst is null or size < 1; dst unchanged when src is null. */
PU_API char *uStrSafeCat(char *dst, int32_t size, const char *src);

/* Appends at most n characters of src to dst, within size as uStrSafeCat. When the n characters
 * fit, dst[oldLength + n] is also set to NUL. Returns dst; null when dst is null or size <= 0;
 * dst unchanged when src is null or n is negative. */
PU_API char *uStrnSafeCat(char *dst, int32_t size, const char *src, int32_t n);

/* Appends src to the heap text *buf whose block holds *capacity bytes, growing the block with
 * realloc to strlen(*buf) + strlen(src) + 256 bytes when src does not fit (a null *buf starts
 * a fresh block). Returns 0, or -1 for a null argument or when realloc fails; in that case
 * *capacity already holds the new size while *buf still holds the old block. A new size above
 * the 32-bit capacity is refused with -1 before anything changes. */
PU_API int32_t uStrDynamicCat(char **buf, uint32_t *capacity, const char *src);

/* Appends exactly n bytes of src (which must be readable) to the heap text *buf, the whole
 * block capped at maxSize bytes, terminator included: what does not fit is cut, a full buffer is
 * left as it is. A null *buf gets a new block. Returns *buf; null when buf or src is null, n or
 * maxSize is not positive, or memory runs out (*buf then keeps its previous block). */
PU_API char *uStrDynamicSafeNCat(char **buf, int32_t maxSize, const char *src, int32_t n);

/* ---- Copies ---------------------------------------------------------------------------- */

/* A new copy of str, or null when str is null or "" (an empty string means "absent" throughout
 * the library), when memory runs out or the copy would exceed 4 GiB. Release with uFree. */
PU_API char *uStrGetCopy(const char *str);

/* value formatted with "%d" as a new string, or null when memory runs out. Release with uFree. */
PU_API char *uStrGetInt2StrCpy(int32_t value);

/* ---- Comparison and search (all null-safe) --------------------------------------------- */

/* 1 when equal by strcmp, else 0. Null and "" are equal to each other and to themselves, and
 * never equal to a non-empty string. */
PU_API int32_t uStrEqual(const char *a, const char *b);

/* uStrEqual with strcasecmp. */
PU_API int32_t uStrCaseEqual(const char *a, const char *b);

/* strcmp of the last strlen(tail) characters of str against tail: 0 when str ends with tail.
 * -1 when either is null, tail or str is empty, or str is shorter than tail. */
PU_API int32_t uStrTailCmp(const char *str, const char *tail);

/* uStrTailCmp with strcasecmp. */
PU_API int32_t uStrTailCaseCmp(const char *str, const char *tail);

/* strstr, or null when either argument is null. */
PU_API char *uStrStr(const char *haystack, const char *needle);

/* Case-insensitive strstr: the first match, haystack itself for an empty needle, null for an
 * empty haystack, a miss or a null argument. */
PU_API char *uStrCaseStr(const char *haystack, const char *needle);

/* strchr, or null for a null str (ch 0 finds the terminator, as strchr does). */
PU_API char *uStrChr(const char *str, int32_t ch);

/* The last occurrence of the byte ch, or null; null also for a null or empty str and for ch 0. */
PU_API char *uStrReverseChr(const char *str, int32_t ch);

/* 1 when str is non-empty and every character equals ch; 0 otherwise (also for null). */
PU_API int32_t uStrAllChr(const char *str, int32_t ch);

/* Number of bytes equal to ch among exactly the first len bytes of buf, NULs included; -1 when
 * buf is null or len < 1. */
PU_API int32_t uStrCountTargetChar(const char *buf, int32_t len, int32_t ch);

/* The first '"' not escaped by an odd number of backslashes right before it, or null. */
PU_API char *uStrFirstQuoteFind(const char *str);

/* 1 when every character is alphanumeric (isalnum), and for "" as well; 0 otherwise and for
 * null. */
PU_API int32_t uStrIsAlphaDigit(const char *str);

/* ---- In-place strippers ---------------------------------------------------------------- */

/* Removes leading and trailing spaces and tabs. Returns str (null for null). */
PU_API char *uStrStripSpace(char *str);

/* Removes leading and trailing tabs, line feeds, carriage returns and spaces. Returns str, and
 * str unchanged for ""; but a non-empty str made only of those characters becomes "" and the
 * result is NULL: callers that use the result must allow for it. Null for null. */
PU_API char *uStrStripCrlf(char *str);

/* Removes one enclosing pair of double quotes (length at least 2, both ends '"'). Returns str. */
PU_API char *uStrStripDoubleQoute(char *str);

/* Removes one enclosing pair of square brackets, as uStrStripDoubleQoute. Returns str. */
PU_API char *uStrStripDoubleBrackets(char *str);

/* Removes a leading head and a trailing tail character when both are there. Returns 0 when they
 * were removed, -1 when str is null, shorter than 2 characters or its ends do not match. */
PU_API int32_t uStrStripHeadAndTailSign(char *str, char head, char tail);

/* uStrStripCrlf, uStrStripDoubleQoute, then uStrStripCrlf again, all on str. Returns the result
 * of the last strip: null when what is left inside the quotes is blank; null for null. */
PU_API char *uStrStripCrlfDoubleQoute(char *str);

/* Removes a leading UTF-8 byte order mark (EF BB BF). Returns buf. */
PU_API char *uStrBomCheckAndDelete(char *buf);

/* Clears (zeroes) an incomplete UTF-8 sequence, or stray bytes, at the end of str. Returns 1
 * when bytes were cleared, 0 when the end was complete or str is null or "". */
PU_API int32_t uStrRemoveTruncatedUTF8Char(char *str);

/* ---- Case conversion ------------------------------------------------------------------- */

/* ASCII a-z to A-Z in place; other bytes are left alone. Nothing for null. */
PU_API void uStrToUpper(char *str);
/* ASCII A-Z to a-z in place; other bytes are left alone. Nothing for null. */
PU_API void uStrToLower(char *str);
/* The same as uStrToLower; the hash maps fold their keys with it. */
PU_API void uStrToLowerCase(char *str);

/* Wide-character case operators: convert src into dst of dstSize bytes; 0 or -1. */
typedef int (*UStrWcharConvertFn)(const char *src, char *dst, uint32_t dstSize);

typedef struct UStrWcharOps {
    UStrWcharConvertFn toUppercase;
    UStrWcharConvertFn toLowercase;
} UStrWcharOps;

/* The operators uStrToUppercase and uStrToLowercase call. Initially the built-in locale-aware
 * pair, which set LC_CTYPE from the environment (setlocale(LC_CTYPE, "")), a process-wide change.
 * Read without a lock: replace it only at start-up. */
PU_API extern UStrWcharOps gWcharOpHook;

/* Copies both pointers of *ops into gWcharOpHook; null ops is ignored. A null pointer disables
 * that conversion. Meant for start-up: no lock is taken. */
PU_API void uStrRegisterWcharOperator(const UStrWcharOps *ops);

/* Locale-aware conversion of src to upper case into dst (dstSize bytes) through
 * gWcharOpHook.toUppercase. Returns the operator's result: 0, or -1 on a null argument, a
 * conversion error or a dst too small for the result and its terminator; -1 when the operator
 * is null. */
PU_API int32_t uStrToUppercase(const char *src, char *dst, uint32_t dstSize);
/* The same to lower case, through gWcharOpHook.toLowercase. */
PU_API int32_t uStrToLowercase(const char *src, char *dst, uint32_t dstSize);

/* ---- Splitting, lists and keys --------------------------------------------------------- */

/* Splits str at every character of delim. Each field becomes a new string appended to a new
 * lock-less uList; empty fields are skipped when ignoreEmpty is non-zero and appended as "" when
 * it is 0. Returns the list (the caller frees the elements with uFree, then the list), or null
 * when str is null or "", delim is null, or no field results. */
PU_API uList *uStrSepIgnoreEmpty(const char *str, const char *delim, int32_t ignoreEmpty);

/* uStrSepIgnoreEmpty(str, delim, 1): empty fields are dropped. */
PU_API uList *uStrSep(const char *str, const char *delim);

/* Splits str at each occurrence of the separator string sep into count fixed slots of slotSize
 * bytes each (slots is count * slotSize bytes, zeroed first). A field beginning with '"' may
 * contain sep up to its closing quote. Fields are cut to slotSize-1 characters and cleaned with
 * uStrStripCrlfDoubleQoute; a trailing separator adds no field, empty fields between separators
 * count; fields past count are ignored. Returns the number of fields; with slots null only
 * counts. 0 for a null or empty str or sep, or count <= 0. */
PU_API uint32_t uStrListGet(const char *str, char *slots, int32_t count, int32_t slotSize,
                            const char *sep);

/* 1 when an element of the sep-separated list equals key by strcmp, else 0 (also for a null list,
 * key or sep, or an empty sep). With exact 0 each element is stripped of surrounding spaces and
 * tabs first. list is not modified. */
PU_API int32_t uStrListMatchKey(const char *list, const char *key, const char *sep, int32_t exact);

/* One parsed "key<sep>value" line; both strings are owned and may be null. */
typedef struct UStrKeyValue {
    char *key;
    char *value;
} UStrKeyValue;

/* Splits line at the first occurrence of sep, both parts stripped of surrounding tabs, spaces
 * and line ends: "k=v" gives (k, v), "k=" gives (k, null), "=v" gives (null, v). Null when line or
 * sep is null or empty, the stripped line equals sep, has no sep, or memory runs out. Release
 * with uStrKeyValueFree. */
PU_API UStrKeyValue *uStrKeyValueParse(const char *line, const char *sep);

/* Frees key, value and the record; null is ignored. */
PU_API void uStrKeyValueFree(UStrKeyValue *rec);

/* Replaces every occurrence of key in buf (size bytes) by replacement, left to right without
 * overlaps and without searching the replacements again; the result is cut to size-1
 * characters. Case-sensitive when caseSensitive is non-zero. Nothing is done for a null argument,
 * size <= 0, an empty key or when memory runs out. */
PU_API void uStrReplaceKeyWorker(char *buf, int32_t size, const char *key, const char *replacement,
                                 int32_t caseSensitive);

/* uStrReplaceKeyWorker, case-sensitive. */
PU_API void uStrReplaceKey(char *buf, int32_t size, const char *key, const char *replacement);

/* uStrReplaceKeyWorker, ignoring case. */
PU_API void uStrCaseReplaceKey(char *buf, int32_t size, const char *key, const char *replacement);

/* Escapes XML in place: & < > always, " and ' too when quoteMode is 1. The result is cut to
 * size-1 characters, an entity near the end possibly cut short. Nothing for null or size < 1. */
PU_API void uStrReplaceXml(char *buf, int32_t size, int32_t quoteMode);

/* ---- UTF-8 ----------------------------------------------------------------------------- */

/* Length of the UTF-8 sequence announced by the lead byte at p: 1 to 4, or -1 for a
 * continuation byte, 0xF8 and above, or null. */
PU_API int32_t uStrUtf8CharLength(const char *p);

/* Writes the code point of the character at utf8 as "%04X" into dst (size bytes). Returns 1, or 0
 * for a null argument, size < 6 or an invalid lead byte. Continuation bytes are not validated. */
PU_API int32_t uStrUtf8ToUnicode(const char *utf8, char *dst, int32_t size);

PU_END_DECLS

#endif /* PLATFORM_UTILS_USTR_H */
