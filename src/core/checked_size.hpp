// SPDX-License-Identifier: MIT
// Sizes computed from a caller's length. Every step is checked, so a huge length yields "no
// size" (and the caller's failure value) instead of a small wrapped size and a write past the
// block. Right for both widths of size_t: nothing here assumes it is wider than 32 bits.
#pragma once

#include <umem.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace pu::core {

using CheckedSize = std::optional<std::size_t>;

constexpr CheckedSize checkedAdd(CheckedSize a, CheckedSize b) {
    std::size_t sum = 0;
    if (!a || !b || __builtin_add_overflow(*a, *b, &sum)) {
        return std::nullopt;
    }
    return sum;
}

constexpr CheckedSize checkedMul(CheckedSize a, CheckedSize b) {
    std::size_t product = 0;
    if (!a || !b || __builtin_mul_overflow(*a, *b, &product)) {
        return std::nullopt;
    }
    return product;
}

// The size as uMalloc takes it (32 bits), or nothing for a size it cannot be asked for.
constexpr std::optional<std::uint32_t> allocationSize(CheckedSize size) {
    if (!size) {
        return std::nullopt;
    }
    // With a 32-bit size_t every size fits; the test exists only where it can fail.
    if constexpr (sizeof(std::size_t) > sizeof(std::uint32_t)) {
        if (*size > UINT32_MAX) {
            return std::nullopt;
        }
    }
    return static_cast<std::uint32_t>(*size);
}

// uMalloc for a checked size; null for a size that overflowed or that uMalloc cannot take.
inline void *allocate(CheckedSize size) {
    const auto bytes = allocationSize(size);
    return bytes ? uMalloc(*bytes) : nullptr;
}

// A new zero-terminated uMalloc copy of text ("" allowed), or null when memory runs out or the
// text is longer than uMalloc can hold.
inline char *copyText(std::string_view text) {
    auto *copy = static_cast<char *>(allocate(checkedAdd(text.size(), 1)));
    if (copy != nullptr && !text.empty()) {
        std::memcpy(copy, text.data(), text.size());
    }
    return copy;
}

} // namespace pu::core
