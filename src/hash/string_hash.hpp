// SPDX-License-Identifier: MIT
// The string hashes behind rsHash and bkdrHash, the two-key identity that the fixed-size name
// tables (status store, event bus) give a name, and their linear probe.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace pu::hash {

// The RS hash's factors: the first character's, and what each next factor is multiplied by.
constexpr std::uint32_t kRsFirstFactor = 63689;
constexpr std::uint32_t kRsStepFactor = 378551;

// RS hash over the unsigned bytes of str, in wrapping 32-bit arithmetic and without the usual
// 31-bit mask: the caller's modulus does the reduction. str must not be null.
constexpr std::uint32_t rsRaw(const char *str) noexcept {
    std::uint32_t hash = 0;
    std::uint32_t a = kRsFirstFactor;
    for (; *str != '\0'; ++str) {
        hash = hash * a + static_cast<unsigned char>(*str);
        a *= kRsStepFactor;
    }
    return hash;
}

// BKDR hash (seed 131) masked to 31 bits. str must not be null.
constexpr std::uint32_t bkdr31(const char *str) noexcept {
    std::uint32_t hash = 0;
    for (; *str != '\0'; ++str) {
        hash = hash * 131 + static_cast<unsigned char>(*str);
    }
    return hash & 0x7FFFFFFFu;
}

// How a name table knows a name: it starts probing at slot `start` and takes a record as the
// name's when both keys match. The text itself is never compared.
struct NameKeys {
    std::uint32_t start; // rsHash(name, slots)
    std::uint64_t key1;  // bkdrHash(name)
    std::uint64_t key2;  // rsHash(name, slots) again, kept and compared like key1
};

// The RS factors of two characters in a row, from the factor of the first: their product, the
// factor of the second and the factor of the first itself.
struct RsStep {
    std::uint32_t both;
    std::uint32_t second;
    std::uint32_t first;
};
constexpr RsStep rsStep(std::uint32_t first) noexcept {
    const std::uint32_t second = first * kRsStepFactor;
    return {first * second, second, first};
}
// The steps over a name's first 64 characters; past them the factors are computed as they go.
constexpr auto kRsSteps = [] {
    std::array<RsStep, 32> steps{};
    std::uint32_t factor = kRsFirstFactor;
    for (RsStep &step : steps) {
        step = rsStep(factor);
        factor = step.second * kRsStepFactor;
    }
    return steps;
}();

// Keys of name (null allowed: both hashes of null are 0) for a table of `slots` slots.
constexpr NameKeys nameKeys(const char *name, std::uint32_t slots) noexcept {
    if (name == nullptr) {
        return {0, 0, 0};
    }
    // Both hashes in one walk over the name, two characters a step: the two loops above
    // unrolled, so each hash's multiply chain has half as many links, with the RS factors of the
    // first characters from a table (the event bus and the status store hash a name on every
    // call). Wrapping arithmetic makes the regrouping exact.
    std::uint32_t rs = 0;
    std::uint32_t bkdr = 0;
    std::uint32_t a = kRsSteps.back().second * kRsStepFactor; // used past the table: at p
    std::size_t step = 0;
    const char *p = name;
    for (; p[0] != '\0' && p[1] != '\0'; p += 2, ++step) {
        const auto c0 = static_cast<unsigned char>(p[0]);
        const auto c1 = static_cast<unsigned char>(p[1]);
        RsStep factors{};
        if (step < kRsSteps.size()) {
            factors = kRsSteps[step];
        } else {
            factors = rsStep(a);
            a = factors.second * kRsStepFactor;
        }
        rs = rs * factors.both + (c0 * factors.second + c1);
        bkdr = bkdr * (131 * 131) + (c0 * 131 + c1);
    }
    if (p[0] != '\0') {
        const auto c = static_cast<unsigned char>(p[0]);
        rs = rs * (step < kRsSteps.size() ? kRsSteps[step].first : a) + c;
        bkdr = bkdr * 131 + c;
    }
    const std::uint32_t start = rs % slots;
    return {start, bkdr & 0x7FFFFFFF, start};
}

// Visits the slots of a table of `slots` slots in linear-probe order from keys.start, each once,
// until stop(slot) is true. The slot it stopped at, or -1 after a full round.
template <typename Stop> std::int32_t probe(const NameKeys &keys, std::uint32_t slots, Stop stop) {
    std::uint32_t slot = keys.start;
    do {
        if (stop(slot)) {
            return static_cast<std::int32_t>(slot);
        }
        slot = (slot + 1) % slots;
    } while (slot != keys.start);
    return -1;
}

} // namespace pu::hash
