/* SPDX-License-Identifier: MIT */
/*
 * uPara (JSON): typed members on cJSON objects, typed reads along a key path of a JSON text,
 * and the library's additions to cJSON (typed member reads and two display printers).
 *
 * The whole cJSON interface is part of this one: applications use cJSON items directly and get
 * the cJSON library through the same pkg-config and CMake package as platform_utils. Texts
 * printed by cJSON and by the printers here come from cJSON's allocation hooks; with cJSON's
 * default hooks they may be released with uFree as well as with cJSON_free.
 *
 * Stateless: every function may be called from any thread, on trees no other thread changes.
 * Member names are compared ignoring case (cJSON_GetObjectItem) throughout.
 */
#ifndef PLATFORM_UTILS_UPARA_H
#define PLATFORM_UTILS_UPARA_H

#include <stdint.h>

#include <cjson/cJSON.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* ---- Building ------------------------------------------------------------------------------ */

/* A new empty object (cJSON_CreateObject), or null when memory runs out. Release with
 * uParaFree. */
PU_API cJSON *uParaCreateObject(void);

/* obj printed formatted (cJSON_Print), or null for null or when memory runs out. The caller
 * frees the text with uFree. */
PU_API char *uParaStringCreate(cJSON *obj);

/* Deletes obj and everything under it (cJSON_Delete); null is ignored. */
PU_API void uParaFree(cJSON *obj);

/* Adds *child under key to *parent, first creating an empty object in either when it holds null.
 * Returns 0, or -1 when parent or child is a null address, an object cannot be created or the
 * add fails (a created *child then stays with the caller). *parent owns *child afterwards. */
PU_API int32_t uParaAddObject(cJSON **parent, const char *key, cJSON **child);

/* Sets the number member key of *obj (creating *obj when it holds null). An existing member only
 * gets its double value replaced; its integer value keeps the old number. Otherwise the member
 * is added. Returns 0, or -1 when obj is a null address or the object or member cannot be
 * created. */
PU_API int32_t uParaAddInt(cJSON **obj, const char *key, int32_t value);

/* As uParaAddInt for a 64-bit value, stored as a double. */
PU_API int32_t uParaAddLong(cJSON **obj, const char *key, int64_t value);

/* Sets the string member key of *obj (creating *obj when it holds null). An existing member gets
 * a new copy of value (uStrGetCopy) in place of its string, so an empty value leaves a null
 * string; its type is not changed. Otherwise the member is added. Returns as uParaAddInt. */
PU_API int32_t uParaAddString(cJSON **obj, const char *key, const char *value);

/* Sets the boolean member key of *obj (creating *obj when it holds null). An existing member has
 * its type word set to value itself: 1 makes it false, 2 true, 0 invalid (it then no longer
 * prints). Otherwise a true (value non-zero) or false member is added. Returns as uParaAddInt. */
PU_API int32_t uParaAddBool(cJSON **obj, const char *key, int32_t value);

/* ---- Reading along a path -------------------------------------------------------------------
 *
 * Each getter parses json, looks up key and then, for a depth of 2 to 5, depth-1 further keys
 * (passed as extra const char * arguments) each in the item found before, prints the item found
 * with cJSON_Print and converts that text. A depth outside 1..5, a text that does not parse or a
 * missing key means "not found".
 */

/* atoi of the printed item (so a string member gives 0, its text starting with a quote), or
 * def when not found. */
PU_API int32_t uParaGetInt(const char *json, int32_t def, int32_t depth, const char *key, ...);

/* atol of the printed item (the host's long), or def when not found. */
PU_API int64_t uParaGetLong(const char *json, int64_t def, int32_t depth, const char *key, ...);

/* The printed item with one enclosing pair of double quotes removed, as a new text the caller
 * frees with uFree; escapes inside stay as printed. When not found, def itself (not a copy). */
PU_API char *uParaGetString(const char *json, char *def, int32_t depth, const char *key, ...);

/* 0 when the printed item is "false" and 1 when it is "true" (ignoring case), def for anything
 * else; 1 when not found, whatever def is. */
PU_API int32_t uParaGetBool(const char *json, int32_t def, int32_t depth, const char *key, ...);

/* ---- Additions to cJSON -------------------------------------------------------------------- */

/* The string of member key of obj (borrowed: it lives as long as the member), or def when obj is
 * null, the member is missing or its type word is not exactly cJSON_String (a reference or
 * constant-name flag makes it differ). */
PU_API const char *cJSON_GetString(const cJSON *obj, const char *key, const char *def);

/* The integer value of member key of obj when its type word is exactly cJSON_Number, else def. */
PU_API int32_t cJSON_GetInt(const cJSON *obj, const char *key, int32_t def);

/* The double value of member key of obj when its type word is exactly cJSON_Number, else def. */
PU_API double cJSON_GetDouble(const cJSON *obj, const char *key, double def);

/* item printed as cJSON_Print does, except that '"' and '\' inside strings (names and values) are
 * written as they are; control characters are escaped as usual. The text is for display only: it
 * is not JSON when strings hold those characters. Null for null, for an item cJSON cannot print
 * or when memory runs out. Release with cJSON_free (or uFree). */
PU_API char *cJSON_PrintUnescape(const cJSON *item);

/* item printed as cJSON_Print does, but on one line: every line break of the formatted text
 * becomes one space and its indentation is dropped, so objects read { "a":<TAB>1, "b":<TAB>2 }.
 * Strings are escaped as cJSON escapes them. The buffer is returned as grown, not shrunk to
 * size. Null as cJSON_PrintUnescape. Release with cJSON_free (or uFree). */
PU_API char *cJSON_Print_Oneline(const cJSON *item);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UPARA_H */
