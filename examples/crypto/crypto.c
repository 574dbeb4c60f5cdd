/* SPDX-License-Identifier: MIT */
/*
 * Crypto and encodings: seal a secret for a configuration file, sign a message, and check a
 * download.
 * Build it against the installed library:
 *   cc crypto.c $(pkg-config --cflags --libs platform_utils) -o crypto
 */
#include <platform_utils.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    /* AES-256-CBC with a key given as 64 hexadecimal characters. The output is the cipher text
     * followed by the 16-byte vector, so it needs room for length + 32 bytes; decryption needs
     * room for the whole sealed length. */
    const char *key = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    const char *secret = "wifi passphrase: correct horse";
    const int32_t length = (int32_t)strlen(secret);
    uint8_t sealed[96];
    uint8_t opened[96];
    const int32_t sealedLength = uAesEncrypt(key, (const uint8_t *)secret, length, sealed);
    if (sealedLength <= 0) {
        return 1;
    }

    /* Stored as base64 text; read back strictly (no blanks, exact padding). */
    char stored[160];
    uB64_ntop(sealed, (uint32_t)sealedLength, stored, sizeof stored);
    printf("stored: %s\n", stored);
    uint8_t loaded[96];
    const int32_t loadedLength = uB64_pton_strictly(stored, loaded, sizeof loaded, 1);
    const int32_t openedLength = uAesDecrypt(key, loaded, loadedLength, opened);
    printf("opened: \"%.*s\"\n", openedLength, (const char *)opened);

    /* A message signed with HMAC-SHA-256 (keys of at least 32 bytes), sent as URL-safe base64. */
    const char *message = "{\"door\":\"open\"}";
    const uint8_t signingKey[32] = "0123456789abcdef0123456789abcdef";
    uint8_t mac[32];
    uint32_t macLength = sizeof mac;
    char token[64];
    if (uDigestHmacSha256it((const uint8_t *)message, (uint32_t)strlen(message), signingKey,
                            sizeof signingKey, mac, &macLength) == 0 &&
        uB64_base64url(mac, macLength, token, sizeof token) > 0) {
        printf("signature: %s\n", token);
    }

    /* Checking a download: MD5 as hex text, SHA-256 as raw bytes, CRC-32 of a block. */
    const char *download = "firmware image bytes";
    char md5[33];
    uDigestCalculateHex((const uint8_t *)download, (uint32_t)strlen(download), md5, sizeof md5);
    uint8_t sha[32];
    char shaText[65];
    uDigestSha256it((const uint8_t *)download, (uint32_t)strlen(download), sha, sizeof sha);
    uHexToStr(sha, sizeof sha, shaText, sizeof shaText);
    printf("md5 %s\nsha256 %s\ncrc32 %08x\n", md5, shaText,
           (unsigned)crc32(0, (const uint8_t *)download, (uint32_t)strlen(download)));

    /* A stable id for a device name. */
    uUuid uuid;
    char uuidText[37];
    uUuidGenerateV5("front-door-camera", 17, &uuid);
    uUuidToStr(&uuid, uuidText, sizeof uuidText);
    printf("device id: %s\n", uuidText);
    return strncmp((const char *)opened, secret, (size_t)length) == 0 ? 0 : 1;
}
