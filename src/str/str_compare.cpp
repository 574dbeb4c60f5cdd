// SPDX-License-Identifier: MIT
// Null-tolerant comparison, search and character tests.
#include <ustr.h>

#include <cctype>
#include <cstring>
#include <strings.h>

namespace {

bool isAbsent(const char *s) {
    return s == nullptr || s[0] == '\0';
}

// Null and "" are one and the same "absent" value for the equality tests.
int32_t equalWith(const char *a, const char *b, int (*compare)(const char *, const char *)) {
    if (isAbsent(a) || isAbsent(b)) {
        return (isAbsent(a) && isAbsent(b)) ? 1 : 0;
    }
    return compare(a, b) == 0 ? 1 : 0;
}

int32_t tailCompareWith(const char *str, const char *tail,
                        int (*compare)(const char *, const char *)) {
    if (isAbsent(str) || isAbsent(tail)) {
        return -1;
    }
    const std::size_t strLength = std::strlen(str);
    const std::size_t tailLength = std::strlen(tail);
    if (strLength < tailLength) {
        return -1;
    }
    return compare(str + strLength - tailLength, tail);
}

int foldByte(char c) {
    return std::tolower(static_cast<unsigned char>(c));
}

} // namespace

extern "C" {

int32_t uStrEqual(const char *a, const char *b) {
    return equalWith(a, b, std::strcmp);
}

int32_t uStrCaseEqual(const char *a, const char *b) {
    return equalWith(a, b, strcasecmp);
}

int32_t uStrTailCmp(const char *str, const char *tail) {
    return tailCompareWith(str, tail, std::strcmp);
}

int32_t uStrTailCaseCmp(const char *str, const char *tail) {
    return tailCompareWith(str, tail, strcasecmp);
}

char *uStrStr(const char *haystack, const char *needle) {
    if (haystack == nullptr || needle == nullptr) {
        return nullptr;
    }
    return const_cast<char *>(std::strstr(haystack, needle));
}

char *uStrCaseStr(const char *haystack, const char *needle) {
    if (haystack == nullptr || needle == nullptr) {
        return nullptr;
    }
    if (needle[0] == '\0') {
        return const_cast<char *>(haystack);
    }
    const int first = foldByte(needle[0]);
    const char *rest = needle + 1;
    const std::size_t restLength = std::strlen(rest);
    // Candidates for the first character are its own byte and both case forms; strcspn finds
    // the next of them much faster than a byte loop, and the case-folded compare below stays exact.
    const char candidates[] = {needle[0], static_cast<char>(first),
                               static_cast<char>(std::toupper(first)), '\0'};
    for (const char *p = haystack; *p != '\0'; ++p) {
        p += std::strcspn(p, candidates);
        if (*p == '\0') {
            break;
        }
        if (foldByte(*p) == first && strncasecmp(p + 1, rest, restLength) == 0) {
            return const_cast<char *>(p);
        }
    }
    return nullptr;
}

char *uStrChr(const char *str, int32_t ch) {
    return str == nullptr ? nullptr : const_cast<char *>(std::strchr(str, ch));
}

char *uStrReverseChr(const char *str, int32_t ch) {
    if (isAbsent(str) || static_cast<char>(ch) == '\0') {
        return nullptr; // the terminator is never a match
    }
    return const_cast<char *>(std::strrchr(str, static_cast<char>(ch)));
}

int32_t uStrAllChr(const char *str, int32_t ch) {
    if (isAbsent(str)) {
        return 0;
    }
    for (const char *p = str; *p != '\0'; ++p) {
        if (*p != static_cast<char>(ch)) {
            return 0;
        }
    }
    return 1;
}

int32_t uStrCountTargetChar(const char *buf, int32_t len, int32_t ch) {
    if (buf == nullptr || len < 1) {
        return -1;
    }
    int32_t count = 0;
    for (int32_t i = 0; i < len; ++i) {
        count += buf[i] == static_cast<char>(ch) ? 1 : 0;
    }
    return count;
}

char *uStrFirstQuoteFind(const char *str) {
    if (str == nullptr) {
        return nullptr;
    }
    for (const char *quote = std::strchr(str, '"'); quote != nullptr;
         quote = std::strchr(quote + 1, '"')) {
        std::size_t backslashes = 0;
        while (quote - backslashes > str &&
               quote[-1 - static_cast<std::ptrdiff_t>(backslashes)] == '\\') {
            ++backslashes;
        }
        if (backslashes % 2 == 0) {
            return const_cast<char *>(quote);
        }
    }
    return nullptr;
}

int32_t uStrIsAlphaDigit(const char *str) {
    if (str == nullptr) {
        return 0;
    }
    // "" deliberately counts as alphanumeric.
    for (const char *p = str; *p != '\0'; ++p) {
        if (std::isalnum(static_cast<unsigned char>(*p)) == 0) {
            return 0;
        }
    }
    return 1;
}

} // extern "C"
