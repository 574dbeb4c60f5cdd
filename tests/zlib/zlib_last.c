/* SPDX-License-Identifier: MIT */
/* Our header before zlib's; the program checks both orders give the standard check value. */
#include <platform_utils.h>

#include <zlib.h>

#include <stdio.h>

unsigned long pu_crc_zlib_first(void);

int main(void) {
    unsigned long last = crc32(0, (const unsigned char *)"123456789", 9);
    unsigned long first = pu_crc_zlib_first();
    printf("crc32 beside zlib: %08lx %08lx\n", first, last);
    return first == 0xCBF43926UL && last == 0xCBF43926UL ? 0 : 1;
}
