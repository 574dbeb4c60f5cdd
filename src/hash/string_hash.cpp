// SPDX-License-Identifier: MIT
// The exported string hash functions.
#include <uhash.h>

#include "hash/string_hash.hpp"

namespace {

std::uint32_t byteSum(const char *str) {
    std::uint32_t sum = 0;
    for (; *str != '\0'; ++str) {
        sum += static_cast<unsigned char>(*str);
    }
    return sum;
}

} // namespace

extern "C" {

uint32_t rsHash(const char *str, uint32_t modulus) {
    if (str == nullptr) {
        return 0;
    }
    const std::uint32_t hash = pu::hash::rsRaw(str);
    // A modulus of 0 would divide by zero; reducing modulo 2^32 instead gives the raw hash.
    return modulus == 0 ? hash : hash % modulus;
}

uint64_t bkdrHash(const char *str) {
    return str == nullptr ? 0 : pu::hash::bkdr31(str);
}

uint64_t remainderHash(const char *str) {
    return str == nullptr ? 0 : (byteSum(str) & 0x7FFFFFFFu);
}

} // extern "C"
