/* SPDX-License-Identifier: MIT */
/* Tour section: AES-256 over a text, a digest, and a name-based UUID. */
#include <platform_utils.h>

#include "tour.h"

#include <stdio.h>
#include <string.h>

void tourCrypto(void) {
    tourSection("AES, digests and UUIDs");
    /* The key is 64 hexadecimal characters; the vector is made fresh and travels with the data. */
    const char *key = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
    const char *text = "meet me at the north gate";
    const int32_t length = (int32_t)strlen(text);
    uint8_t sealed[64]; /* needs length + 32 */
    uint8_t opened[64]; /* needs the sealed length */
    int32_t sealedLength = uAesEncrypt(key, (const uint8_t *)text, length, sealed);
    int32_t openedLength = uAesDecrypt(key, sealed, sealedLength, opened);
    char hex[2 * sizeof sealed + 1];
    uHexToStr(sealed, sealedLength, hex, sizeof hex);
    printf("%d bytes of text sealed into %d bytes (cipher text, then the vector):\n  %s\n", length,
           sealedLength, hex);
    printf("opened again: %d bytes, \"%.*s\"\n", openedLength, openedLength, (const char *)opened);

    /* As base64 text for a configuration file. */
    char base64[128];
    if (uB64_ntop(sealed, (uint32_t)sealedLength, base64, sizeof base64) > 0) {
        printf("as base64: %s\n", base64);
    }

    uint8_t digest[32];
    uDigestSha256it((const uint8_t *)text, (uint32_t)length, digest, sizeof digest);
    uHexToStr(digest, sizeof digest, hex, sizeof hex);
    printf("SHA-256 of the text: %s\n", hex);
    char md5[40];
    uDigestCalculateHex((const uint8_t *)text, (uint32_t)length, md5, sizeof md5);
    printf("MD5 of the text:     %s\n", md5);
    printf("CRC-32 of \"123456789\": %08x\n", (unsigned)crc32(0, (const uint8_t *)"123456789", 9));

    /* The same name always gives the same UUID. */
    uUuid uuid;
    char uuidText[37];
    uUuidGenerateV5("hello", 5, &uuid);
    uUuidToStr(&uuid, uuidText, sizeof uuidText);
    printf("UUID v5 of \"hello\": %s\n", uuidText);
}
