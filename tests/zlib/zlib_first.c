/* SPDX-License-Identifier: MIT */
/* zlib's header before ours: both declare crc32, with the same types. */
#include <zlib.h>

#include <platform_utils.h>

unsigned long pu_crc_zlib_first(void) {
    return crc32(0, (const unsigned char *)"123456789", 9);
}
