// SPDX-License-Identifier: MIT
// Bounded copy and concatenation into caller buffers, growing heap buffers and owned copies.
#include <umem.h>
#include <ustr.h>

#include "core/checked_size.hpp"
#include "str/str_internal.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Appends at most limit characters of src behind the text of length dstLength and terminates.
// A short src is measured and copied; a long one goes on with strncat, which scans and copies
// in one pass.
void appendCut(char *dst, std::size_t dstLength, const char *src, std::size_t limit) {
    constexpr std::size_t kShort = 64;
    const std::size_t probeLimit = std::min(limit, kShort);
    const std::size_t probe = strnlen(src, probeLimit);
    char *end = dst + dstLength;
    std::memcpy(end, src, probe);
    end[probe] = '\0';
    if (probe == kShort && limit > kShort) {
        std::strncat(end + probe, src + probe, limit - probe);
    }
}

} // namespace

extern "C" {

int32_t uStrSafeCopy(char *dst, uint32_t size, const char *src) {
    if (dst == nullptr || src == nullptr || size == 0) {
        return -1;
    }
    const std::size_t len = strnlen(src, size);
    if (size <= len) {
        const std::size_t stored = size - 1U;
        std::memcpy(dst, src, stored);
        dst[stored] = '\0';
        return static_cast<int32_t>(stored);
    }
    std::memcpy(dst, src, len + 1);
    return static_cast<int32_t>(len);
}

char *uStrnSafeCopy(char *dst, uint32_t size, const char *src, uint32_t n) {
    if (dst == nullptr || src == nullptr) {
        return nullptr;
    }
    if (size == 0) {
        return dst; // no byte may be written
    }
    std::memset(dst, 0, size);
    if (n == 0) {
        return dst;
    }
    const std::size_t limit = size > n ? n : size - 1U;
    std::memcpy(dst, src, strnlen(src, limit)); // the zero fill terminates it
    return dst;
}

char *uStrSafeCat(char *dst, int32_t size, const char *src) {
    if (dst == nullptr || size < 1) {
        return nullptr;
    }
    if (src == nullptr) {
        return dst;
    }
    const std::size_t oldLength = std::strlen(dst);
    if (oldLength >= static_cast<std::size_t>(size)) {
        dst[size - 1] = '\0'; // an over-long destination is only re-terminated
        return dst;
    }
    const std::size_t room = static_cast<std::size_t>(size) - oldLength;
    appendCut(dst, oldLength, src, room - 1);
    dst[size - 1] = '\0';
    return dst;
}

char *uStrnSafeCat(char *dst, int32_t size, const char *src, int32_t n) {
    if (dst == nullptr || size <= 0) {
        return nullptr;
    }
    if (src == nullptr || n < 0) {
        return dst;
    }
    const std::size_t oldLength = std::strlen(dst);
    if (oldLength >= static_cast<std::size_t>(size)) {
        dst[size - 1] = '\0';
        return dst;
    }
    const std::size_t room = static_cast<std::size_t>(size) - oldLength;
    const auto count = static_cast<std::size_t>(n);
    if (room > count) {
        appendCut(dst, oldLength, src, count);
        // Also clears the byte n places on even when src was shorter; callers may rely on it.
        dst[oldLength + count] = '\0';
    } else {
        appendCut(dst, oldLength, src, room - 1);
        dst[size - 1] = '\0';
    }
    return dst;
}

int32_t uStrDynamicCat(char **buf, uint32_t *capacity, const char *src) {
    if (buf == nullptr || capacity == nullptr || src == nullptr) {
        return -1;
    }
    const std::size_t srcLength = std::strlen(src);
    std::size_t length = 0;
    if (*buf != nullptr) {
        length = std::strlen(*buf);
        if (length < *capacity && srcLength < *capacity - length) {
            std::memcpy(*buf + length, src, srcLength + 1);
            return 0;
        }
    }
    // A capacity the 32-bit count cannot hold is refused before anything changes.
    const auto grownSize = pu::core::allocationSize(
        pu::core::checkedAdd(pu::core::checkedAdd(length, srcLength), 256));
    if (!grownSize) {
        return -1;
    }
    // Intended: the new capacity is stored before the realloc and stays even when it fails;
    // the header says so, and a caller that gets -1 must not trust *capacity.
    *capacity = *grownSize;
    auto *grown = static_cast<char *>(std::realloc(*buf, *capacity));
    if (grown == nullptr) {
        return -1;
    }
    if (*buf == nullptr) {
        grown[0] = '\0';
    }
    *buf = grown;
    std::memcpy(grown + length, src, srcLength + 1);
    return 0;
}

char *uStrDynamicSafeNCat(char **buf, int32_t maxSize, const char *src, int32_t n) {
    if (buf == nullptr || src == nullptr || n <= 0 || maxSize <= 0) {
        return nullptr;
    }
    // The piece goes through a temporary so that src may point into *buf itself.
    auto *piece = static_cast<char *>(uMalloc(static_cast<uint32_t>(n) + 1U));
    if (piece == nullptr) {
        return nullptr;
    }
    std::memcpy(piece, src, static_cast<std::size_t>(n));
    const std::size_t pieceLength = std::strlen(piece);
    const auto cap = static_cast<std::size_t>(maxSize);

    if (*buf == nullptr) {
        if (static_cast<std::size_t>(n) < cap) {
            *buf = piece;
            return piece;
        }
        auto *block = static_cast<char *>(uMalloc(static_cast<uint32_t>(maxSize)));
        if (block != nullptr) {
            std::memcpy(block, piece, strnlen(piece, cap - 1));
            *buf = block;
        }
        uFree(piece);
        return block;
    }

    const std::size_t current = std::strlen(*buf);
    std::size_t newSize = 0;
    std::size_t take = 0;
    if (current < cap && static_cast<std::size_t>(n) < cap - current) {
        newSize = current + static_cast<std::size_t>(n) + 1;
        take = pieceLength;
    } else if (current + 1 < cap) {
        newSize = cap;
        take = std::min(pieceLength, cap - 1 - current);
    } else {
        uFree(piece);
        return *buf; // already full
    }
    auto *grown = static_cast<char *>(std::realloc(*buf, newSize));
    if (grown == nullptr) {
        uFree(piece);
        return nullptr;
    }
    std::memcpy(grown + current, piece, take);
    grown[current + take] = '\0';
    *buf = grown;
    uFree(piece);
    return grown;
}

char *uStrGetCopy(const char *str) {
    if (str == nullptr || str[0] == '\0') {
        return nullptr; // "" means absent throughout the library
    }
    return pu::core::copyText(str);
}

char *uStrGetInt2StrCpy(int32_t value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%d", static_cast<int>(value));
    return uStrGetCopy(text);
}

} // extern "C"
