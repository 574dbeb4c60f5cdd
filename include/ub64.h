/* SPDX-License-Identifier: MIT */
/*
 * uB64: base64 (RFC 4648 alphabet, "=" padding) in both directions, with a strict and a
 * lenient decoder, the URL-safe variant without padding, and the reading of stored passwords
 * that may carry a base64 marker.
 *
 * Stateless, lock-free and silent: any thread may call them at any time. Only
 * uB64_debase64url allocates (a temporary copy, released before it returns).
 */
#ifndef PLATFORM_UTILS_UB64_H
#define PLATFORM_UTILS_UB64_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* Encodes length bytes of src as base64 text with "=" padding into target of targetSize bytes,
 * terminator included. Returns the text length (4 per started group of three bytes), or -1 when
 * the text and its terminator do not fit (nothing is written then) or target is null. An empty
 * input writes just the terminator. */
PU_API int32_t uB64_ntop(const uint8_t *src, uint32_t length, char *target, uint32_t targetSize);

/* Decodes the zero-terminated base64 text src into target of targetSize bytes. White space is
 * skipped anywhere. Returns the number of bytes decoded, or -1 for a character outside the
 * alphabet or too little room. Intended: the upper bits of a byte are stored as soon as they
 * arrive, so a group that ends in one or two bytes needs one byte more than it yields; nothing is
 * written at or beyond targetSize. With a null target nothing is written and no room is needed:
 * only the count is produced.
 *
 * strict non-zero: the text must end on a whole group or with correct padding, followed only by
 * white space, and the unused bits before the padding must be zero (checked when target is
 * given). strict 0: the first "=" or the end of the text ends decoding, and the bytes completed
 * so far are counted; padding, what follows it and leftover bits are not checked. */
PU_API int32_t uB64_pton_strictly(const char *src, uint8_t *target, uint32_t targetSize,
                                  int32_t strict);

/* uB64_pton_strictly in strict mode. */
PU_API int32_t uB64_pton(const char *src, uint8_t *target, uint32_t targetSize);

/* Encodes like uB64_ntop, then makes the text URL-safe: "+" becomes "-", "/" becomes "_", and
 * the padding is cut off. Returns the length of the remaining text, or -1 for a null pointer, a
 * zero length, a zero targetSize or too little room. targetSize must hold the padded text and its
 * terminator. */
PU_API int32_t uB64_base64url(const uint8_t *src, uint32_t length, char *target,
                              uint32_t targetSize);

/* Decodes URL-safe text (as uB64_base64url writes it) into target. The padding restored is
 * (3 - strlen % 3) % 3 "=" characters, which is right only for text lengths of 0, 10 or 11
 * modulo 12 (16 bytes, 22 characters, is one); other lengths fail in the strict decoder. Returns
 * the bytes decoded, 0 for "", or -1 for a null pointer, a zero targetSize, no memory for the
 * temporary copy or a decoding failure. */
PU_API int32_t uB64_debase64url(const char *src, uint8_t *target, uint32_t targetSize);

/* Reads a stored password into dst of size bytes (zero-filled first). A src beginning with the
 * marker "~Rk%58*]" is base64 that follows the marker: it is decoded with uB64_pton and that
 * result returned. Any other src is the password in clear and is copied with uStrSafeCopy,
 * whose result is returned. -1 for a null src or dst. */
PU_API int32_t uStrPwdBase64Decode(const char *src, char *dst, uint32_t size);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UB64_H */
