// SPDX-License-Identifier: MIT
// In-place strippers and ASCII case folding.
#include <ustr.h>

#include "str/str_internal.hpp"

#include <cstring>
#include <string_view>

namespace {

// Rewrites str in place as the part of it that view designates.
void keepOnly(char *str, std::string_view view) {
    if (view.data() != str && !view.empty()) {
        std::memmove(str, view.data(), view.size());
    }
    str[view.size()] = '\0';
}

// Removes one enclosing head ... tail pair; false when str is too short or the ends differ.
bool stripEnclosingPair(char *str, char head, char tail) {
    const std::size_t length = std::strlen(str);
    if (length < 2 || str[0] != head || str[length - 1] != tail) {
        return false;
    }
    std::memmove(str, str + 1, length - 2);
    str[length - 2] = '\0';
    return true;
}

void asciiShift(char *str, char from, char to, int delta) {
    for (char *p = str; *p != '\0'; ++p) {
        if (*p >= from && *p <= to) {
            *p = static_cast<char>(*p + delta);
        }
    }
}

} // namespace

extern "C" {

char *uStrStripSpace(char *str) {
    if (str != nullptr) {
        keepOnly(str, pu::str::trimmed(str, pu::str::kSpaceBlanks));
    }
    return str;
}

char *uStrStripCrlf(char *str) {
    if (str == nullptr || str[0] == '\0') {
        return str;
    }
    const std::string_view kept = pu::str::trimmed(str, pu::str::kCrlfBlanks);
    keepOnly(str, kept);
    // A string that was all blanks answers null although its buffer is now "": intended.
    return kept.empty() ? nullptr : str;
}

char *uStrStripDoubleQoute(char *str) {
    if (str != nullptr) {
        stripEnclosingPair(str, '"', '"');
    }
    return str;
}

char *uStrStripDoubleBrackets(char *str) {
    if (str != nullptr) {
        stripEnclosingPair(str, '[', ']');
    }
    return str;
}

int32_t uStrStripHeadAndTailSign(char *str, char head, char tail) {
    if (str == nullptr) {
        return -1;
    }
    return stripEnclosingPair(str, head, tail) ? 0 : -1;
}

char *uStrStripCrlfDoubleQoute(char *str) {
    if (str == nullptr) {
        return nullptr;
    }
    uStrStripCrlf(str);
    uStrStripDoubleQoute(str);
    return uStrStripCrlf(str);
}

char *uStrBomCheckAndDelete(char *buf) {
    if (buf != nullptr && std::strncmp(buf, "\xEF\xBB\xBF", 3) == 0) {
        std::memmove(buf, buf + 3, std::strlen(buf + 3) + 1);
    }
    return buf;
}

void uStrToUpper(char *str) {
    if (str != nullptr) {
        asciiShift(str, 'a', 'z', 'A' - 'a');
    }
}

void uStrToLower(char *str) {
    if (str != nullptr) {
        asciiShift(str, 'A', 'Z', 'a' - 'A');
    }
}

void uStrToLowerCase(char *str) {
    uStrToLower(str);
}

} // extern "C"
