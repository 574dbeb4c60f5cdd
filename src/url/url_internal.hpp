// SPDX-License-Identifier: MIT
// Helpers shared by the URL encoders, the URL parsers and the URL parameter family; nothing here
// is exported.
#pragma once

#include <umem.h>

#include "core/checked_size.hpp"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace pu::url {

inline constexpr char kHexDigits[] = "0123456789ABCDEF";

// A set of byte values, tested by table lookup (a scan of a list of characters per tested
// byte is what dominated parsing time).
class CharSet {
  public:
    constexpr explicit CharSet(std::string_view members, std::string_view more = {}) {
        for (const char c : members) {
            table_[static_cast<unsigned char>(c)] = true;
        }
        for (const char c : more) {
            table_[static_cast<unsigned char>(c)] = true;
        }
    }
    constexpr bool contains(char c) const { return table_[static_cast<unsigned char>(c)]; }
    constexpr void set(char c) { table_[static_cast<unsigned char>(c)] = true; }
    constexpr void clear(char c) { table_[static_cast<unsigned char>(c)] = false; }

    // Position of the first character of text from `from` in the set, or npos.
    constexpr std::size_t findIn(std::string_view text, std::size_t from = 0) const {
        for (std::size_t i = from; i < text.size(); ++i) {
            if (contains(text[i])) {
                return i;
            }
        }
        return std::string_view::npos;
    }
    // Whether every character of text is in the set.
    constexpr bool holdsAll(std::string_view text) const {
        for (const char c : text) {
            if (!contains(c)) {
                return false;
            }
        }
        return true;
    }

  private:
    bool table_[256] = {};
};

inline constexpr std::string_view kAlnumChars =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

// Writes "%XX" for byte c at out (three bytes, no terminator).
inline void writeEscape(char *out, unsigned char c) {
    out[0] = '%';
    out[1] = kHexDigits[c >> 4];
    out[2] = kHexDigits[c & 0x0F];
}

inline bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Value of a hexadecimal digit already known to be one.
inline unsigned hexValue(char c) {
    if (c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    return static_cast<unsigned>((c | 0x20) - 'a' + 10);
}

// A zero-filled working buffer of a given size: on the stack when small, else from uMalloc.
// ok() is false when memory ran out or the size overflowed.
class ScratchText {
  public:
    explicit ScratchText(pu::core::CheckedSize size) : size_(size.value_or(0)) {
        if (size && *size <= sizeof(inline_)) {
            data_ = inline_;
        } else {
            data_ = static_cast<char *>(pu::core::allocate(size));
        }
    }
    ~ScratchText() {
        if (data_ != inline_) {
            uFree(data_);
        }
    }
    ScratchText(const ScratchText &) = delete;
    ScratchText &operator=(const ScratchText &) = delete;

    bool ok() const { return data_ != nullptr; }
    char *data() { return data_; }
    std::size_t size() const { return size_; }

  private:
    char inline_[512] = {};
    char *data_ = nullptr;
    std::size_t size_;
};

// atoi of the start of text without its undefined behaviour on overflow: leading blanks, a sign
// and decimal digits, the value clamped to the int range.
inline std::int32_t clampedAtoi(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) {
        ++i;
    }
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
        ++i;
    }
    long long value = 0;
    constexpr long long kLimit = 1LL << 32;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = std::min(value * 10 + (text[i] - '0'), kLimit);
    }
    value = negative ? -value : value;
    return static_cast<std::int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

} // namespace pu::url
