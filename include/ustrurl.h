/* SPDX-License-Identifier: MIT */
/*
 * uStr URL: percent-encoding and decoding of URL text, a URL taken apart into its eight
 * components and put together again with each component encoded for its place, file-name
 * escaping and extensions, and an address split from its optional port.
 *
 * Stateless and re-entrant on distinct buffers; nothing is logged. Encoders never write beyond
 * the size they are given and always terminate. Records and strings handed to the caller come
 * from uMalloc. Which URLs and host names are acceptable is decided by uParaUrlCheck and
 * uParaUrlDomainCheck (uparaurl.h).
 */
#ifndef PLATFORM_UTILS_USTRURL_H
#define PLATFORM_UTILS_USTRURL_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* The components of a URL, each an owned string or null when absent. */
typedef struct UStrUrlPara {
    char *scheme;   /* before "://" */
    char *user;     /* before the ':' of the user part */
    char *password; /* after it */
    char *host;
    char *port;     /* kept as text */
    char *query;    /* without the leading '?' */
    char *path;     /* without the leading '/' */
    char *fragment; /* without the leading '#' */
} UStrUrlPara;

/* Codes for uStrUrlEncodeComponent. */
#define U_STR_URL_SCHEME 1
#define U_STR_URL_USERINFO 2
#define U_STR_URL_HOST 3
#define U_STR_URL_PORT 4
#define U_STR_URL_PATH 5
#define U_STR_URL_QUERY 6
#define U_STR_URL_FRAGMENT 7

/* Percent-encodes str in place within size bytes. Always encoded: space " # % + < > [ \ ] ^ `
 * and every byte from 0x7B up; with componentMode non-zero also & / : ; = ? @ and _. Control
 * characters are copied. Near the end an escape may be cut short ("%2"); the rest of the input is
 * then dropped. Returns 0, or -1 when str is null, size < 1 or memory runs out. */
PU_API int32_t uStrUrlEncode(char *str, int32_t size, int32_t componentMode);

/* Encodes src into dst (size bytes) for the component code given (U_STR_URL_...): the characters
 * allowed there are copied, every other byte becomes "%XX". An existing escape ('%' and two
 * hexadecimal digits) is kept except in the scheme and port. Encoding stops once size-3
 * characters are written, so no escape is ever cut; a size of 3 or less gives "". An unknown code
 * gives "". Nothing is done when src or dst is null or size < 1. */
PU_API void uStrUrlEncodeComponent(int32_t component, const char *src, char *dst, int32_t size);

/* Makes url (a buffer of size bytes) an acceptable URL in place: unchanged when uParaUrlCheck
 * accepts it, else parsed and rebuilt with every component encoded (a rebuild that does not fit
 * leaves the partial text). Returns 0, or -1 when it cannot be parsed. */
PU_API int32_t uStrUrlEncodeWithRfc(char *url, uint32_t size);

/* Decodes "%XX" escapes in place. A '+' is kept, and so is a '%' without two hexadecimal digits
 * after it. Null is ignored. */
PU_API void uStrUrlDecode(char *str);

/* Takes url apart into a new record in *out. A URL that uParaUrlCheck refuses is first
 * percent-encoded (existing escapes and the '#' kept). The authority ends at the first '/', '?'
 * or '#' before which it holds a valid address or host name, so an invalid host may take in a
 * '/'; the last '@' ends the user part, and user and host parts split at their last ':'. A
 * bracketed IPv6 host keeps its brackets. Components present but empty are "". Returns 0, or -1
 * for a null argument, an authority without a valid host, or when memory runs out (*out is then
 * null). Release with uStrUrlParaFree. */
PU_API int32_t uStrUrlParse(const char *url, UStrUrlPara **out);

/* Writes the URL of rec into out (size bytes, zero-filled first), each component encoded for its
 * place; a password without a user and a port without a host are left out, and a component
 * longer than about 500 characters is cut. Returns 0, or -1 for a null argument or when the text
 * does not fit (the pieces that did fit stay in out). */
PU_API int32_t uStrUrlParaToStr(const UStrUrlPara *rec, char *out, uint32_t size);

/* Frees every string of rec and rec itself; null is ignored. */
PU_API void uStrUrlParaFree(UStrUrlPara *rec);

/* Stores in *out a new copy of name with each of " % * / : < > ? \ | written as "%XX". Returns 0,
 * or -1 for a null or empty name, a null out, or when memory runs out. Release with uFree. */
PU_API int32_t uStrFileNameEscape(const char *name, char **out);

/* 0 when name, strictly longer than suffix, ends with it, else -1. The first character of the
 * suffix is never compared (so both "x.tar.gz" and "xytar.gz" end with ".tar.gz"), and a suffix
 * of at most one character matches any longer name. -1 for null. */
PU_API int32_t uStrFileNameMatchSpecialSuffix(const char *name, const char *suffix);

/* Splits path at its extension: ".tar.gz" in any letter case, else from the last '.' anywhere.
 * ext (extSize bytes) receives the extension with its dot and is left untouched when there is
 * none; name (nameSize bytes) receives the text before it ("" for ".profile", the whole path
 * without an extension). Either buffer may be null. */
PU_API void uStrParseFileName(const char *path, char *name, uint32_t nameSize, char *ext,
                              uint32_t extSize);

/* Splits "[v6]:port", "[v6]", "v6", "v4:port" or "v4" into the address (copied into ip of ipSize
 * bytes) and the port (its low 16 bits; 0 when absent). Either output may be null. Returns 0, or
 * -1 for a null text, a lone bracket, an invalid address or a port that is not digits. */
PU_API int32_t uStrGetIpAndPort(const char *text, char *ip, uint32_t ipSize, uint16_t *port);

PU_END_DECLS

#endif /* PLATFORM_UTILS_USTRURL_H */
