// SPDX-License-Identifier: MIT
// Base64 and its URL-safe variant, and stored passwords that may be base64 behind a marker.
#include <ub64.h>
#include <umem.h>
#include <ustr.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';
constexpr std::string_view kPasswordMarker = "~Rk%58*]";

// Every 12-bit value as its two characters: a group of three bytes takes two lookups.
constexpr auto kPairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {kAlphabet[i >> 6], kAlphabet[i & 63]};
    }
    return pairs;
}();

// Six-bit value of each character, or -1 outside the alphabet.
constexpr auto kValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}();

// The value of a character already shifted to its place in a group of four, with kBad set for
// anything outside the alphabet (the terminator included): one test covers a whole group.
constexpr std::uint32_t kBad = 1u << 24;
constexpr auto placed(int shift) {
    std::array<std::uint32_t, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c) {
        table[c] = kValues[c] < 0 ? kBad : static_cast<std::uint32_t>(kValues[c]) << shift;
    }
    return table;
}
constexpr auto kPlaced0 = placed(18);
constexpr auto kPlaced1 = placed(12);
constexpr auto kPlaced2 = placed(6);
constexpr auto kPlaced3 = placed(0);

// White space as the C locale's isspace has it. A fixed set keeps decoding independent of
// whatever locale the application has switched to.
constexpr bool isBlank(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::uint32_t encodedLength(std::uint32_t length) {
    return (length + 2) / 3 * 4;
}

void encodeGroups(const std::uint8_t *src, std::uint32_t length, char *out) {
    std::uint32_t i = 0;
    for (; i + 3 <= length; i += 3, out += 4) {
        const std::uint32_t group = src[i] << 16 | src[i + 1] << 8 | src[i + 2];
        std::memcpy(out, kPairs[group >> 12].data(), 2);
        std::memcpy(out + 2, kPairs[group & 0xFFF].data(), 2);
    }
    if (i == length) {
        return;
    }
    // One or two bytes left: two or three characters, the missing bits zero, then padding.
    const bool two = length - i == 2;
    const std::uint32_t group = src[i] << 16 | (two ? src[i + 1] << 8 : 0);
    out[0] = kAlphabet[group >> 18];
    out[1] = kAlphabet[(group >> 12) & 63];
    out[2] = two ? kAlphabet[(group >> 6) & 63] : kPad;
    out[3] = kPad;
}

// Decoding state: how many characters of the current group have been seen (0..3), where the
// next byte goes, and the output (null: count only).
struct Decoder {
    std::uint8_t *target;
    std::uint32_t size;
    std::uint32_t index = 0;
    int state = 0;

    bool hasRoom(std::uint32_t needed) const { return target == nullptr || needed < size; }

    // Whole groups of four alphabet characters, as long as three bytes fit. Stops in front of
    // anything else (blanks, padding, the end), which the character-wise path then handles.
    const unsigned char *fastGroups(const unsigned char *p) {
        while (target == nullptr || index + 3 <= size) {
            const std::uint32_t a = kPlaced0[p[0]];
            if (a & kBad) {
                break;
            }
            const std::uint32_t b = kPlaced1[p[1]];
            if (b & kBad) {
                break;
            }
            const std::uint32_t c = kPlaced2[p[2]];
            if (c & kBad) {
                break;
            }
            const std::uint32_t d = kPlaced3[p[3]];
            if (d & kBad) {
                break;
            }
            const std::uint32_t group = a | b | c | d;
            if (target != nullptr) {
                target[index] = static_cast<std::uint8_t>(group >> 16);
                target[index + 1] = static_cast<std::uint8_t>(group >> 8);
                target[index + 2] = static_cast<std::uint8_t>(group);
            }
            index += 3;
            p += 4;
        }
        return p;
    }

    // Places one six-bit value; false when the room test of the current state fails. A value
    // that ends in a partial byte writes that byte's upper bits ahead, as the room test
    // assumes.
    bool put(std::uint32_t value) {
        switch (state) {
        case 0:
            if (!hasRoom(index)) {
                return false;
            }
            write(index, value << 2);
            break;
        case 1:
            if (!hasRoom(index + 1)) {
                return false;
            }
            orInto(index, value >> 4);
            write(index + 1, (value & 0x0F) << 4);
            ++index;
            break;
        case 2:
            if (!hasRoom(index + 1)) {
                return false;
            }
            orInto(index, value >> 2);
            write(index + 1, (value & 0x03) << 6);
            ++index;
            break;
        default:
            if (!hasRoom(index)) {
                return false;
            }
            orInto(index, value);
            ++index;
            break;
        }
        state = (state + 1) & 3;
        return true;
    }

    void write(std::uint32_t at, std::uint32_t bits) {
        if (target != nullptr) {
            target[at] = static_cast<std::uint8_t>(bits);
        }
    }
    void orInto(std::uint32_t at, std::uint32_t bits) {
        if (target != nullptr) {
            target[at] |= static_cast<std::uint8_t>(bits);
        }
    }
};

const unsigned char *skipBlanks(const unsigned char *p) {
    while (*p != '\0' && isBlank(*p)) {
        ++p;
    }
    return p;
}

// Strict handling of the text from its first "=" on; p points behind it.
std::int32_t finishPadded(const Decoder &decoder, const unsigned char *p) {
    if (decoder.state < 2) {
        return -1;
    }
    if (decoder.state == 2) {
        p = skipBlanks(p);
        if (*p != kPad) {
            return -1;
        }
        ++p;
    }
    if (*skipBlanks(p) != '\0') {
        return -1;
    }
    // Bits after the last whole byte must be zero, or the text could hide data in them.
    if (decoder.target != nullptr && decoder.target[decoder.index] != 0) {
        return -1;
    }
    return static_cast<std::int32_t>(decoder.index);
}

} // namespace

extern "C" {

int32_t uB64_ntop(const uint8_t *src, uint32_t length, char *target, uint32_t targetSize) {
    if (target == nullptr || (src == nullptr && length > 0) || length > 0xBFFFFFFCu) {
        return -1;
    }
    const std::uint32_t textLength = encodedLength(length);
    if (textLength >= targetSize) {
        return -1;
    }
    encodeGroups(src, length, target);
    target[textLength] = '\0';
    return static_cast<int32_t>(textLength);
}

int32_t uB64_pton_strictly(const char *src, uint8_t *target, uint32_t targetSize, int32_t strict) {
    if (src == nullptr) {
        return -1;
    }
    Decoder decoder{target, targetSize};
    const auto *p = reinterpret_cast<const unsigned char *>(src);
    for (;;) {
        if (decoder.state == 0) {
            p = decoder.fastGroups(p);
        }
        const unsigned char ch = *p++;
        if (ch == '\0') {
            return strict != 0 && decoder.state != 0 ? -1 : static_cast<int32_t>(decoder.index);
        }
        if (isBlank(ch)) {
            continue;
        }
        if (ch == kPad) {
            return strict != 0 ? finishPadded(decoder, p) : static_cast<int32_t>(decoder.index);
        }
        const int value = kValues[ch];
        if (value < 0 || !decoder.put(static_cast<std::uint32_t>(value))) {
            return -1;
        }
    }
}

int32_t uB64_pton(const char *src, uint8_t *target, uint32_t targetSize) {
    return uB64_pton_strictly(src, target, targetSize, 1);
}

int32_t uB64_base64url(const uint8_t *src, uint32_t length, char *target, uint32_t targetSize) {
    if (src == nullptr || target == nullptr || length == 0 || targetSize == 0) {
        return -1;
    }
    const int32_t textLength = uB64_ntop(src, length, target, targetSize);
    if (textLength < 0) {
        return -1;
    }
    for (int32_t i = 0; i < textLength; ++i) {
        if (target[i] == '+') {
            target[i] = '-';
        } else if (target[i] == '/') {
            target[i] = '_';
        } else if (target[i] == kPad) {
            target[i] = '\0';
            return i;
        }
    }
    return textLength;
}

int32_t uB64_debase64url(const char *src, uint8_t *target, uint32_t targetSize) {
    if (src == nullptr || target == nullptr || targetSize == 0) {
        return -1;
    }
    const std::size_t length = std::strlen(src);
    if (length == 0) {
        return 0;
    }
    if (length > 0xFFFFFF00u) {
        return -1;
    }
    // Padding to a multiple of 3, not 4, is how stored texts were always read: it restores the
    // right padding for the usual 16-byte values (22 characters), and other lengths fail below.
    const std::size_t pad = (3 - length % 3) % 3;
    auto *copy = static_cast<char *>(uMalloc(static_cast<std::uint32_t>(length + 1 + pad)));
    if (copy == nullptr) {
        return -1;
    }
    for (std::size_t i = 0; i < length; ++i) {
        copy[i] = src[i] == '-' ? '+' : src[i] == '_' ? '/' : src[i];
    }
    std::memset(copy + length, kPad, pad);
    const int32_t decoded = uB64_pton(copy, target, targetSize);
    uFree(copy);
    return decoded;
}

int32_t uStrPwdBase64Decode(const char *src, char *dst, uint32_t size) {
    if (src == nullptr || dst == nullptr) {
        return -1;
    }
    std::memset(dst, 0, size);
    if (std::string_view(src).starts_with(kPasswordMarker)) {
        return uB64_pton(src + kPasswordMarker.size(), reinterpret_cast<uint8_t *>(dst), size);
    }
    return uStrSafeCopy(dst, size, src);
}

} // extern "C"
