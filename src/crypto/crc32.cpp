// SPDX-License-Identifier: MIT
// The standard reflected CRC-32: eight constant tables (eight bytes per step), and on x86 CPUs
// with carry-less multiplication, folding of 64-byte blocks for long inputs.
#include <udigest.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define PU_CRC_CLMUL 1
#endif

namespace {

constexpr std::uint32_t kPolynomial = 0xEDB88320u;

// kTables[0] is the byte-at-a-time table; kTables[k][i] is the CRC of byte i followed by k zero
// bytes, which lets one step fold eight bytes. Built by the compiler, never at run time.
constexpr auto kTables = [] {
    std::array<std::array<std::uint32_t, 256>, 8> tables{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? (value >> 1) ^ kPolynomial : value >> 1;
        }
        tables[0][i] = value;
    }
    for (std::size_t k = 1; k < tables.size(); ++k) {
        for (std::size_t i = 0; i < 256; ++i) {
            const std::uint32_t previous = tables[k - 1][i];
            tables[k][i] = (previous >> 8) ^ tables[0][previous & 0xFF];
        }
    }
    return tables;
}();

std::uint32_t load32(const std::uint8_t *p) {
    std::uint32_t value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

// Works on the complemented running value.
std::uint32_t crcTables(std::uint32_t crc, const std::uint8_t *p, std::size_t length) {
    if constexpr (std::endian::native == std::endian::little) {
        for (; length >= 8; length -= 8, p += 8) {
            const std::uint32_t low = crc ^ load32(p);
            const std::uint32_t high = load32(p + 4);
            crc = kTables[7][low & 0xFF] ^ kTables[6][(low >> 8) & 0xFF] ^
                  kTables[5][(low >> 16) & 0xFF] ^ kTables[4][low >> 24] ^ kTables[3][high & 0xFF] ^
                  kTables[2][(high >> 8) & 0xFF] ^ kTables[1][(high >> 16) & 0xFF] ^
                  kTables[0][high >> 24];
        }
    }
    for (; length > 0; --length, ++p) {
        crc = kTables[0][(crc ^ *p) & 0xFF] ^ (crc >> 8);
    }
    return crc;
}

#ifdef PU_CRC_CLMUL

// Folding constants for the reflected polynomial: x^(k) mod P for the fold distances of four
// blocks (k1, k2) and one block (k3, k4), the 64-to-32 step (k5), and P with its Barrett
// quotient mu for the final reduction.
constexpr long long kK1 = 0x154442bd4, kK2 = 0x1c6e41596;
constexpr long long kK3 = 0x1751997d0, kK4 = 0x0ccaa009e;
constexpr long long kK5 = 0x163cd6124;
constexpr long long kP = 0x1db710641, kMu = 0x1f7011641;

__attribute__((target("pclmul,sse4.1"))) inline __m128i fold(__m128i acc, __m128i keys,
                                                             __m128i next) {
    const __m128i low = _mm_clmulepi64_si128(acc, keys, 0x00);
    const __m128i high = _mm_clmulepi64_si128(acc, keys, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

__attribute__((target("pclmul,sse4.1"))) inline __m128i load128(const std::uint8_t *p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

// length is at least 64 and a multiple of 16; crc is the complemented running value.
__attribute__((target("pclmul,sse4.1"))) std::uint32_t crcFolded(std::uint32_t crc,
                                                                 const std::uint8_t *p,
                                                                 std::size_t length) {
    const __m128i k1k2 = _mm_set_epi64x(kK2, kK1);
    const __m128i k3k4 = _mm_set_epi64x(kK4, kK3);
    __m128i x0 = _mm_xor_si128(load128(p), _mm_cvtsi32_si128(static_cast<int>(crc)));
    __m128i x1 = load128(p + 16);
    __m128i x2 = load128(p + 32);
    __m128i x3 = load128(p + 48);
    for (p += 64, length -= 64; length >= 64; p += 64, length -= 64) {
        x0 = fold(x0, k1k2, load128(p));
        x1 = fold(x1, k1k2, load128(p + 16));
        x2 = fold(x2, k1k2, load128(p + 32));
        x3 = fold(x3, k1k2, load128(p + 48));
    }
    x0 = fold(fold(fold(x0, k3k4, x1), k3k4, x2), k3k4, x3);
    for (; length >= 16; p += 16, length -= 16) {
        x0 = fold(x0, k3k4, load128(p));
    }

    // 128 bits to 64, then to 32, then Barrett reduction modulo P.
    const __m128i mask32 = _mm_setr_epi32(-1, 0, -1, 0);
    __m128i t = _mm_clmulepi64_si128(x0, k3k4, 0x10);
    x0 = _mm_xor_si128(_mm_srli_si128(x0, 8), t);
    t = _mm_srli_si128(x0, 4);
    x0 = _mm_clmulepi64_si128(_mm_and_si128(x0, mask32), _mm_set_epi64x(0, kK5), 0x00);
    x0 = _mm_xor_si128(x0, t);
    const __m128i pMu = _mm_set_epi64x(kMu, kP);
    t = _mm_clmulepi64_si128(_mm_and_si128(x0, mask32), pMu, 0x10);
    t = _mm_clmulepi64_si128(_mm_and_si128(t, mask32), pMu, 0x00);
    return static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(x0, t), 1));
}

bool detectClmul() {
    // Our static initialiser may run before the compiler runtime's own CPU probe.
    __builtin_cpu_init();
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
}

const bool kHasClmul = detectClmul();

#endif

} // namespace

extern "C" unsigned long crc32(unsigned long previous, const unsigned char *data,
                               unsigned int length) {
    if (data == nullptr) {
        return 0;
    }
    std::uint32_t crc = ~static_cast<std::uint32_t>(previous);
#ifdef PU_CRC_CLMUL
    // Below a few blocks the set-up and final reduction cost more than the tables.
    if (kHasClmul && length >= 128) {
        const std::uint32_t folded = length & ~15u;
        crc = crcFolded(crc, data, folded);
        data += folded;
        length -= folded;
    }
#endif
    return ~crcTables(crc, data, length);
}
