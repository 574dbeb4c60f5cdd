// SPDX-License-Identifier: MIT
// UTF-8: sequence lengths, one code point as hexadecimal, and trimming a cut-off last character.
#include <ustr.h>

#include <bit>
#include <cstdio>
#include <cstring>

namespace {

// Number of leading one bits of a byte: 0 for ASCII, 1 for a continuation byte, 2 to 8 for the
// rest.
int leadingOnes(char c) {
    return std::countl_one(static_cast<unsigned char>(c));
}

void clearFrom(char *str, std::size_t from, std::size_t length) {
    std::memset(str + from, 0, length - from);
}

} // namespace

extern "C" {

int32_t uStrUtf8CharLength(const char *p) {
    if (p == nullptr) {
        return -1;
    }
    switch (leadingOnes(*p)) {
    case 0:
        return 1;
    case 2:
        return 2;
    case 3:
        return 3;
    case 4:
        return 4;
    default:
        return -1;
    }
}

int32_t uStrUtf8ToUnicode(const char *utf8, char *dst, int32_t size) {
    if (utf8 == nullptr || dst == nullptr || size < 6) {
        return 0;
    }
    const int32_t length = uStrUtf8CharLength(utf8);
    if (length < 0) {
        return 0;
    }
    constexpr unsigned kLeadMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    unsigned codePoint = static_cast<unsigned char>(utf8[0]) & kLeadMask[length];
    for (int32_t i = 1; i < length; ++i) {
        // Continuation bytes are not validated, but the terminator is never read past: a
        // missing byte contributes zero bits.
        const char next = utf8[i];
        codePoint = (codePoint << 6) | (static_cast<unsigned char>(next) & 0x3FU);
        if (next == '\0') {
            for (++i; i < length; ++i) {
                codePoint <<= 6;
            }
        }
    }
    std::snprintf(dst, static_cast<std::size_t>(size), "%04X", codePoint);
    return 1;
}

int32_t uStrRemoveTruncatedUTF8Char(char *str) {
    if (str == nullptr || str[0] == '\0') {
        return 0;
    }
    const std::size_t length = std::strlen(str);
    std::size_t i = length - 1;
    for (;;) {
        const int ones = leadingOnes(str[i]);
        if (ones >= 7) {
            clearFrom(str, i, length);
            return 1;
        }
        if (ones == 0) {
            if (i == length - 1) {
                return 0;
            }
            clearFrom(str, i + 1, length); // stray continuation bytes after an ASCII byte
            return 1;
        }
        if (ones == 1) {
            if (i == 0) {
                clearFrom(str, 0, length); // nothing but continuation bytes
                return 1;
            }
            --i;
            continue;
        }
        const std::size_t announced = static_cast<std::size_t>(ones);
        const std::size_t have = length - i;
        if (have < announced) {
            clearFrom(str, i, length);
            return 1;
        }
        if (have == announced) {
            return 0;
        }
        clearFrom(str, i + announced, length);
        return 1;
    }
}

} // extern "C"
