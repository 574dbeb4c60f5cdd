// SPDX-License-Identifier: MIT
// Percent-encoding and decoding of URL text, and file-name escaping and extensions.
#include <umem.h>
#include <ustr.h>
#include <ustrurl.h>

#include "core/checked_size.hpp"
#include "url/url_internal.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

using pu::url::ScratchText;

// Bit (1 << code) of kComponentAllowed[c] is set when component `code` copies byte c unchanged.
constexpr std::array<std::uint8_t, 256> buildComponentTable() {
    std::array<std::uint8_t, 256> table{};
    auto allow = [&table](std::string_view chars, int code) {
        for (const char c : chars) {
            table[static_cast<unsigned char>(c)] |= static_cast<std::uint8_t>(1U << code);
        }
    };
    constexpr std::string_view alnum =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    constexpr std::string_view unreserved = "-._~";
    constexpr std::string_view subDelims = "!$&'()*,;=";
    allow(alnum, U_STR_URL_SCHEME);
    allow("+-.", U_STR_URL_SCHEME);
    // User information leaves '$' and '+' encoded, deliberately unlike the other components.
    allow(alnum, U_STR_URL_USERINFO);
    allow(unreserved, U_STR_URL_USERINFO);
    allow("!&'()*,;=:", U_STR_URL_USERINFO);
    allow(alnum, U_STR_URL_HOST);
    allow(unreserved, U_STR_URL_HOST);
    allow(subDelims, U_STR_URL_HOST);
    allow(":[]", U_STR_URL_HOST);
    allow("0123456789", U_STR_URL_PORT);
    for (const int code : {U_STR_URL_PATH, U_STR_URL_QUERY, U_STR_URL_FRAGMENT}) {
        allow(alnum, code);
        allow(unreserved, code);
        allow(subDelims, code);
        allow(":@/", code);
    }
    allow("?", U_STR_URL_QUERY);
    allow("?", U_STR_URL_FRAGMENT);
    return table;
}

constexpr std::array<std::uint8_t, 256> kComponentAllowed = buildComponentTable();

bool componentAllows(int32_t component, unsigned char c) {
    return (kComponentAllowed[c] & (1U << component)) != 0;
}

// Components in which an existing "%XX" escape is kept rather than its '%' encoded.
bool keepsEscapes(int32_t component) {
    return component != U_STR_URL_SCHEME && component != U_STR_URL_PORT;
}

bool isKnownComponent(int32_t component) {
    return component >= U_STR_URL_SCHEME && component <= U_STR_URL_FRAGMENT;
}

// uStrUrlEncode's classes: the characters encoded in every mode, and those encoded too when a
// whole component is being encoded (the underscore deliberately among them).
constexpr pu::url::CharSet kAlwaysEncoded(" \"#%+<>[\\]^`");
constexpr pu::url::CharSet kEncodedInComponentMode("&/:;=?@_");
// The characters a file name may not hold as they are.
constexpr pu::url::CharSet kEscapedInFileName("\"%*/:<>?\\|");

bool alwaysEncoded(unsigned char c) {
    return c >= 0x7B || kAlwaysEncoded.contains(static_cast<char>(c));
}

bool encodedInComponentMode(unsigned char c) {
    return kEncodedInComponentMode.contains(static_cast<char>(c));
}

bool escapedInFileName(unsigned char c) {
    return kEscapedInFileName.contains(static_cast<char>(c));
}

// Two hexadecimal digits follow the '%' at p (the scan stops at the terminator).
bool escapeFollows(const char *p) {
    return pu::url::isHexDigit(p[1]) && pu::url::isHexDigit(p[2]);
}

// The byte a "%XX" escape at p stands for. Intended: an escape is whatever sscanf "%02X"
// reads when it consumes exactly the two characters after the '%'. That also admits a leading
// blank or sign (" 5", "+5", "-1"), so a '%' meant literally must be sent as "%25". The scan
// is confined to the next three characters, which is all a two-character result can depend on,
// so a long text is not measured again for every escape.
bool readEscape(const char *p, unsigned char *byte) {
    char window[4] = {};
    for (int i = 0; i < 3 && p[1 + i] != '\0'; ++i) {
        window[i] = p[1 + i];
    }
    unsigned value = 0;
    int consumed = 0;
    if (std::sscanf(window, "%02X%n", &value, &consumed) != 1 || consumed != 2) {
        return false;
    }
    *byte = static_cast<unsigned char>(value);
    return true;
}

// Writes the encoding of src into out (a zeroed buffer of size bytes, size > 3) for component.
void encodeComponentInto(int32_t component, const char *src, char *out, std::size_t size) {
    std::size_t length = 0;
    const std::size_t stop = size - 3; // an escape always fits whole
    for (const char *p = src; *p != '\0' && length < stop; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c == '%' && keepsEscapes(component) && escapeFollows(p)) {
            out[length++] = '%';
        } else if (componentAllows(component, c) && c != '%') {
            out[length++] = static_cast<char>(c);
        } else {
            pu::url::writeEscape(out + length, c);
            length += 3;
        }
    }
}

// Writes uStrUrlEncode's encoding of src into out (a zeroed buffer of size bytes).
void encodeWholeInto(const char *src, char *out, std::size_t size, bool componentMode) {
    std::size_t length = 0;
    for (const char *p = src; *p != '\0' && length + 1 < size; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (!alwaysEncoded(c) && !(componentMode && encodedInComponentMode(c))) {
            out[length++] = static_cast<char>(c);
        } else if (length + 3 < size) {
            pu::url::writeEscape(out + length, c);
            length += 3;
        } else {
            // What is left of the buffer takes the start of the escape ("%" or "%2"); the rest
            // of the input is dropped.
            std::snprintf(out + length, size - length, "%%%02X", c);
            break;
        }
    }
}

} // namespace

extern "C" {

int32_t uStrUrlEncode(char *str, int32_t size, int32_t componentMode) {
    if (str == nullptr || size < 1) {
        return -1;
    }
    const auto bytes = static_cast<std::size_t>(size);
    ScratchText encoded(bytes);
    if (!encoded.ok()) {
        return -1;
    }
    encodeWholeInto(str, encoded.data(), bytes, componentMode != 0);
    std::memset(str, 0, bytes);
    uStrSafeCopy(str, static_cast<uint32_t>(size), encoded.data());
    return 0;
}

void uStrUrlEncodeComponent(int32_t component, const char *src, char *dst, int32_t size) {
    if (src == nullptr || dst == nullptr || size < 1) {
        return;
    }
    const auto bytes = static_cast<std::size_t>(size);
    ScratchText encoded(bytes);
    if (!encoded.ok()) {
        return;
    }
    if (bytes > 3 && isKnownComponent(component)) {
        encodeComponentInto(component, src, encoded.data(), bytes);
    }
    std::memset(dst, 0, bytes); // src may be dst: it has been read completely by now
    uStrSafeCopy(dst, static_cast<uint32_t>(size), encoded.data());
}

void uStrUrlDecode(char *str) {
    if (str == nullptr) {
        return;
    }
    char *out = str;
    for (const char *p = str; *p != '\0';) {
        unsigned char byte = 0;
        if (*p == '%' && readEscape(p, &byte)) {
            *out++ = static_cast<char>(byte);
            p += 3;
        } else {
            *out++ = *p++;
        }
    }
    *out = '\0';
}

int32_t uStrFileNameEscape(const char *name, char **out) {
    if (name == nullptr || name[0] == '\0' || out == nullptr) {
        return -1;
    }
    const std::size_t length = std::strlen(name);
    auto *escaped = static_cast<char *>(
        pu::core::allocate(pu::core::checkedAdd(pu::core::checkedMul(3, length), 1)));
    if (escaped == nullptr) {
        return -1;
    }
    std::size_t used = 0;
    for (const char *p = name; *p != '\0'; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (escapedInFileName(c)) {
            pu::url::writeEscape(escaped + used, c);
            used += 3;
        } else {
            escaped[used++] = static_cast<char>(c);
        }
    }
    // Shrink to the exact size; uMalloc blocks are realloc blocks.
    auto *shrunk = static_cast<char *>(std::realloc(escaped, used + 1));
    if (shrunk == nullptr) {
        uFree(escaped);
        return -1;
    }
    *out = shrunk;
    return 0;
}

int32_t uStrFileNameMatchSpecialSuffix(const char *name, const char *suffix) {
    if (name == nullptr || suffix == nullptr) {
        return -1;
    }
    const std::size_t nameLength = std::strlen(name);
    const std::size_t suffixLength = std::strlen(suffix);
    if (nameLength <= suffixLength) {
        return -1;
    }
    // The suffix's first character is never compared: callers rely on ".tar.gz" also matching
    // "xytar.gz".
    for (std::size_t i = suffixLength; i > 1; --i) {
        if (name[nameLength - suffixLength + i - 1] != suffix[i - 1]) {
            return -1;
        }
    }
    return 0;
}

void uStrParseFileName(const char *path, char *name, uint32_t nameSize, char *ext,
                       uint32_t extSize) {
    if (path == nullptr || (name == nullptr && ext == nullptr)) {
        return;
    }
    const std::size_t length = std::strlen(path);
    const char *dot = nullptr;
    constexpr std::size_t kTarGzLength = 7;
    if (uStrTailCaseCmp(path, ".tar.gz") == 0) {
        dot = path + length - kTarGzLength;
    } else {
        dot = std::strrchr(path, '.'); // also a dot inside a directory name, as always
    }
    if (ext != nullptr && dot != nullptr) {
        uStrSafeCopy(ext, extSize, dot);
    }
    if (name != nullptr) {
        const std::size_t stem = dot != nullptr ? static_cast<std::size_t>(dot - path) : length;
        uStrnSafeCopy(name, nameSize, path, static_cast<uint32_t>(stem));
    }
}

} // extern "C"
