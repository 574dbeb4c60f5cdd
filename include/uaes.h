/* SPDX-License-Identifier: MIT */
/*
 * uAes: whole-buffer AES for applications, and the Rijndael block interface underneath.
 *
 * uAesEncrypt/uAesDecrypt: AES-256-CBC with standard padding, a key given as 64 hexadecimal
 * characters and a random vector that travels in clear behind the cipher text. They log refusals
 * at level 3 under "basalt.utils.aes" and reseed the C library's rand() on every encryption.
 *
 * uAesCbcEncrypt/uAesCbcDecrypt: AES-CBC with a raw key and a caller-given vector, the cipher
 * text carried as base64 text. They log nothing.
 *
 * The block interface keeps its state in two caller-owned records; lengths given to and returned
 * by the block and pad functions are in bytes. No function here takes a lock; different records
 * may be used from different threads at once.
 */
#ifndef PLATFORM_UTILS_UAES_H
#define PLATFORM_UTILS_UAES_H

#include <stdint.h>

#include "uexport.h"

PU_BEGIN_DECLS

/* ---- Block interface: constants and records -------------------------------------------- */

#define U_AES_DIR_ENCRYPT 0
#define U_AES_DIR_DECRYPT 1

#define U_AES_MODE_ECB 1
#define U_AES_MODE_CBC 2
#define U_AES_MODE_CFB1 3 /* one-bit cipher feedback */

#define U_AES_SUCCESS 1
#define U_AES_BAD_KEY_DIR (-1)         /* direction other than encrypt or decrypt */
#define U_AES_BAD_KEY_MAT (-2)         /* key length not 128/192/256, or key text not hexadecimal */
#define U_AES_BAD_KEY_INSTANCE (-3)    /* null key instance */
#define U_AES_BAD_CIPHER_MODE (-4)     /* mode outside 1..3 */
#define U_AES_BAD_CIPHER_STATE (-5)    /* null record, key of the wrong direction, unknown mode */
#define U_AES_BAD_CIPHER_INSTANCE (-7) /* vector text not hexadecimal */
#define U_AES_BAD_DATA (-8)            /* length not whole blocks, or bad padding */

#define U_AES_MAX_ROUNDS 14
#define U_AES_BLOCK_SIZE 16

/* A key set up for one direction. ek always holds the encryption round keys (CFB-1 needs them
 * in both directions); rk holds the round keys of the chosen direction. */
typedef struct keyInstance {
    uint8_t direction;    /* U_AES_DIR_ENCRYPT or U_AES_DIR_DECRYPT */
    int keyLen;           /* bits: 128, 192 or 256 */
    char keyMaterial[65]; /* the key as hexadecimal text */
    int Nr;               /* rounds: 10, 12 or 14 */
    uint32_t rk[4 * (U_AES_MAX_ROUNDS + 1)];
    uint32_t ek[4 * (U_AES_MAX_ROUNDS + 1)];
} keyInstance;

/* A mode and its chaining value. */
typedef struct cipherInstance {
    uint8_t mode;                 /* U_AES_MODE_ECB, U_AES_MODE_CBC or U_AES_MODE_CFB1 */
    uint8_t IV[U_AES_BLOCK_SIZE]; /* the vector; CBC decryption and CFB-1 move it along */
} cipherInstance;

/* ---- Block interface: functions -------------------------------------------------------- */

/* Sets up key for direction with a key of keyLen bits given as keyLen / 4 hexadecimal characters
 * (either case). A null keyMaterial reads the text already in key->keyMaterial. Returns
 * U_AES_SUCCESS, or U_AES_BAD_KEY_INSTANCE, U_AES_BAD_KEY_DIR, U_AES_BAD_KEY_MAT (also for a short
 * or non-hexadecimal text). */
PU_API int makeKey(keyInstance *key, uint8_t direction, int keyLen, const char *keyMaterial);

/* Sets the mode and the vector, given as 32 hexadecimal characters; a null IV zeroes it. Returns
 * U_AES_SUCCESS, U_AES_BAD_CIPHER_MODE or U_AES_BAD_CIPHER_INSTANCE. */
PU_API int cipherInit(cipherInstance *cipher, uint8_t mode, const char *IV);

/* Encrypts the whole 16-byte blocks of inputLen bytes (a partial block is ignored) into
 * outBuffer, which may be input itself. In CBC mode the chain starts from cipher->IV, which is
 * not updated: consecutive calls do not continue one chain unless the caller moves the last
 * cipher block into IV. Returns the bytes processed, 0 for null input or inputLen <= 0, or
 * U_AES_BAD_CIPHER_STATE. */
PU_API int blockEncrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input,
                        int inputLen, uint8_t *outBuffer);

/* Encrypts inputOctets bytes with p = 16 - inputOctets % 16 padding bytes of value p (a whole
 * block of 16 when the length is a multiple of 16), ECB or CBC only. outBuffer needs the padded
 * length, 16 * (inputOctets / 16 + 1). cipher->IV is not updated. Returns the padded length, 0
 * for null input or a negative length, or U_AES_BAD_CIPHER_STATE. */
PU_API int padEncrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input,
                      int inputOctets, uint8_t *outBuffer);

/* Decrypts the whole blocks of inputLen bytes into outBuffer (may be input). CBC mode leaves the
 * last cipher block in cipher->IV, so the next call continues the chain. Returns the bytes
 * processed, 0 for null input or inputLen <= 0, or U_AES_BAD_CIPHER_STATE. */
PU_API int blockDecrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input,
                        int inputLen, uint8_t *outBuffer);

/* Decrypts inputOctets bytes (whole blocks) and removes the padding of the last block: in CBC
 * mode 1..16 bytes of value p, in ECB mode 0..15. Intended: an ECB block of sixteen 16s is
 * refused, so ECB data padded by a whole block needs blockDecrypt and your own unpadding. Only the
 * plain bytes are written to outBuffer. CBC mode leaves the last cipher block in cipher->IV.
 * Returns the plain length, 0 for null input or inputOctets <= 0, U_AES_BAD_DATA for a partial
 * block or bad padding, or U_AES_BAD_CIPHER_STATE. */
PU_API int padDecrypt(cipherInstance *cipher, keyInstance *key, const uint8_t *input,
                      int inputOctets, uint8_t *outBuffer);

/* Expands a raw key of keyBits (128, 192 or 256) into encryption round keys rk (room for 60
 * words). Returns the number of rounds, 10, 12 or 14 (0 for another keyBits). */
PU_API int rijndaelKeySetupEnc(uint32_t rk[], const uint8_t cipherKey[], int keyBits);

/* As rijndaelKeySetupEnc, for decryption (the equivalent inverse cipher's round keys). */
PU_API int rijndaelKeySetupDec(uint32_t rk[], const uint8_t cipherKey[], int keyBits);

/* Encrypts one 16-byte block with round keys from rijndaelKeySetupEnc. */
PU_API void rijndaelEncrypt(const uint32_t rk[], int Nr, const uint8_t pt[16], uint8_t ct[16]);

/* Decrypts one 16-byte block with round keys from rijndaelKeySetupDec. */
PU_API void rijndaelDecrypt(const uint32_t rk[], int Nr, const uint8_t ct[16], uint8_t pt[16]);

/* ---- Whole-buffer wrappers ------------------------------------------------------------- */

/* Encrypts length bytes of input with AES-256-CBC under key (64 hexadecimal characters) and a
 * fresh vector, writing the cipher text of the padded input followed by the 16-byte vector:
 * 16 * (length / 16 + 1) + 16 bytes, so output needs length + 32. A length of 0 or below writes
 * only the vector. The vector comes from rand(), seeded with time(NULL) on every call: calls
 * within the same second get the same vector. Returns the bytes written, or 0 (logged) for a null
 * input or output, no memory or a bad key. */
PU_API int32_t uAesEncrypt(const char *key, const uint8_t *input, int32_t length, uint8_t *output);

/* Decrypts what uAesEncrypt wrote (cipher text, then the vector) into output, which needs
 * length bytes. Returns the plain bytes written, or 0 (logged) for a null input or output, a
 * length that is not whole blocks of at least 32 bytes, a bad key or no memory. A wrong key or
 * corrupt data normally fails the padding test: "The data is invalid." is logged and the bytes of
 * the whole 64 KiB pieces before the last are returned. Intended, as part of the format: the last
 * piece is read twice when one or two blocks follow a whole piece, so stored data reads back the
 * same bytes and count on every device. With a plain length 1..15 bytes past a multiple of 64 KiB
 * (and above 64 KiB) those bytes come out, and count, twice; with a plain length that is a
 * multiple of 64 KiB or 1..16 bytes short of one, the second read logs "The data is invalid."
 * after the right bytes were written and counted. */
PU_API int32_t uAesDecrypt(const char *key, const uint8_t *input, int32_t length, uint8_t *output);

/* Encrypts length bytes of input with AES-CBC under the raw key of keyBits (128, 192, 256) and
 * writes base64 text of b = length / 16 + 1 blocks into output of outputSize bytes (needs
 * b * 64 / 3 + 4). A partial last block is completed with zero bytes. When length is a multiple
 * of 16, the last block is sixteen zero bytes, not encrypted: that is the format. The vector is
 * the first (up to) 16 bytes of iv taken as they are, zero-filled; null gives zeros. Returns the
 * text length, or 0. */
PU_API int32_t uAesCbcEncrypt(const uint8_t *key, const uint8_t *input, uint32_t length,
                              char *output, uint32_t outputSize, const char *iv, int32_t keyBits);

/* Decodes base64 text into a work buffer of workSize bytes, decrypts it with AES-CBC (key and iv
 * as for uAesCbcEncrypt) into output, drops standard padding when the last byte p is 1..16 and the
 * last p bytes are all p, and terminates the plain text. output needs maxPlainLength + 1 bytes.
 * Returns strlen(output), so zero bytes shorten the result, or 0 when the text does not decode
 * to 1..maxPlainLength bytes or an argument is bad. */
PU_API int32_t uAesCbcDecrypt(const uint8_t *key, const char *text, uint32_t workSize,
                              uint8_t *output, uint32_t maxPlainLength, const char *iv,
                              int32_t keyBits);

PU_END_DECLS

#endif /* PLATFORM_UTILS_UAES_H */
