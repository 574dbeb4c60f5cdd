/* SPDX-License-Identifier: MIT */
/*
 * uDigest: MD5, SHA-256 and HMAC-SHA-256 of byte strings (raw digests), lower-case hexadecimal
 * text of bytes and back, and the standard CRC-32.
 *
 * Stateless, lock-free and silent: any thread may call them at any time; nothing is allocated
 * for the caller.
 */
#ifndef PLATFORM_UTILS_UDIGEST_H
#define PLATFORM_UTILS_UDIGEST_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* ---- CRC-32 ---------------------------------------------------------------------------- */

/* Continues the standard reflected CRC-32 (polynomial 0xEDB88320) crc over length bytes of data;
 * start from 0. crc32(0, "123456789", 9) is 0xCBF43926. Returns 0 for null data whatever crc
 * is. Only the low 32 bits of crc are used; the result fits in 32 bits.
 * The types are zlib's (uLong, const Bytef *, uInt), and so are the results: a file may include
 * <zlib.h> and this header in either order, and a process that loads both libraries gets the
 * same answers whichever crc32 the loader binds. */
PU_API unsigned long crc32(unsigned long crc, const unsigned char *data, unsigned int length);

/* ---- Hexadecimal text ------------------------------------------------------------------ */

/* Writes the 16 bytes of digest as 32 lower-case hexadecimal characters and a terminator.
 * Returns 1, or 0 for a null pointer or a size below 40 (the limit is 40, not 33, on
 * purpose). */
PU_API int32_t uDigestToStr(const uint8_t *digest, char *text, int32_t size);

/* Writes count bytes as lower-case hexadecimal pairs and a terminator. Returns 1, or 0 for a
 * null pointer or a size that is not greater than 2 * count (or below 1). A count of 0 or below
 * writes only the terminator. */
PU_API int32_t uHexToStr(const uint8_t *bytes, int32_t count, char *text, int32_t size);

/* Reads hex two characters at a time (a final odd character alone), each piece parsed by
 * uStrTol in base 16, storing one byte per piece, until the text is consumed, output is full or
 * a piece is rejected. Returns the bytes stored: 0 for a null pointer, "" or a size of 0. */
PU_API int32_t uStrToHex(const char *hex, uint8_t *output, uint32_t size);

/* ---- Digests --------------------------------------------------------------------------- */

/* Writes the 32-byte SHA-256 of length bytes of data to output. Returns 0, or -1 for a null
 * pointer or an outputSize below 32. */
PU_API int32_t uDigestSha256it(const uint8_t *data, uint32_t length, uint8_t *output,
                               uint32_t outputSize);

/* Writes the 16-byte MD5 of length bytes of data to output. Does nothing for null data, a length
 * of 0, a null output or an outputSize below 16. */
PU_API void uDigestMD5(const uint8_t *data, uint32_t length, uint8_t *output, uint32_t outputSize);

/* Writes the MD5 of data as 32 lower-case hexadecimal characters and a terminator (33 bytes)
 * into text. A length of 0 gives 32 zeros. Returns 0, or -1 for a null pointer or a size below
 * 33 (the 32 digits and the terminator). */
PU_API int32_t uDigestCalculateHex(const uint8_t *data, uint32_t length, char *text, int32_t size);

/* Writes the 32-byte HMAC-SHA-256 of data under key to output; *outputLength gives the room in
 * output and receives the bytes written (32). Keys shorter than 32 bytes are refused. Returns 0,
 * or -1 for a null pointer, room below 32, a short key or no memory for the context. */
PU_API int32_t uDigestHmacSha256it(const uint8_t *data, uint32_t length, const uint8_t *key,
                                   uint32_t keyLength, uint8_t *output, uint32_t *outputLength);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UDIGEST_H */
