// SPDX-License-Identifier: MIT
// Name-based (SHA-1, version 5) UUIDs in the URL name space, and seeding of OpenSSL's generator.
#include <uuuid.h>

#include "crypto/openssl_algorithms.hpp"

#include <openssl/rand.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

static_assert(sizeof(uUuid) == 16, "a UUID record is the 16 bytes of the UUID");

// The URL name space, 6ba7b811-9dad-11d1-80b4-00c04fd430c8, in network byte order.
constexpr uint8_t kUrlNamespace[16] = {0x6b, 0xa7, 0xb8, 0x11, 0x9d, 0xad, 0x11, 0xd1,
                                       0x80, 0xb4, 0x00, 0xc0, 0x4f, 0xd4, 0x30, 0xc8};

uint32_t loadBig32(const uint8_t *p) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

uint16_t loadBig16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

constexpr int kSeedBytes = 1024;
// rand() rounds before giving up on a generator that never reports itself seeded.
constexpr int kMaxRandRounds = 4096;

} // namespace

extern "C" {

int32_t uUuidGenerateV5(const void *name, uint32_t length, uUuid *uuid) {
    if (name == nullptr || uuid == nullptr) {
        return -1;
    }
    uint8_t hash[20] = {};
    pu::crypto::digestPieces(
        pu::crypto::sha1(),
        {std::span(kUrlNamespace), std::span(static_cast<const uint8_t *>(name), length)}, hash);
    uuid->timeLow = loadBig32(hash);
    uuid->timeMid = loadBig16(hash + 4);
    uuid->timeHiAndVersion = static_cast<uint16_t>((loadBig16(hash + 6) & 0x0FFF) | 0x5000);
    uuid->clockSeqHiAndReserved = static_cast<uint8_t>((hash[8] & 0x3F) | 0x80);
    uuid->clockSeqLow = hash[9];
    std::memcpy(uuid->node, hash + 10, sizeof uuid->node);
    return 0;
}

int32_t uUuidToStr(const uUuid *uuid, char *text, uint32_t size) {
    if (uuid == nullptr || text == nullptr) {
        return -1;
    }
    // One call, so a short buffer cuts the text instead of being overrun.
    std::snprintf(text, size, "%8.8x-%4.4x-%4.4x-%2.2x%2.2x-%2.2x%2.2x%2.2x%2.2x%2.2x%2.2x",
                  uuid->timeLow, uuid->timeMid, uuid->timeHiAndVersion, uuid->clockSeqHiAndReserved,
                  uuid->clockSeqLow, uuid->node[0], uuid->node[1], uuid->node[2], uuid->node[3],
                  uuid->node[4], uuid->node[5]);
    return 0;
}

int32_t uSslRandSeed(void) {
    if (RAND_status() == 1) {
        return 0;
    }
    RAND_load_file("/dev/urandom", kSeedBytes);
    if (RAND_status() == 1) {
        return 0;
    }
    // Last resort on a system without a usable entropy source. The buffer is cleared: reading
    // it uninitialised would add no entropy worth the undefined behaviour.
    unsigned char seed[kSeedBytes] = {};
    RAND_seed(seed, sizeof seed);
    for (int round = 0; round < kMaxRandRounds && RAND_status() != 1; ++round) {
        const int value = std::rand();
        RAND_seed(&value, sizeof value);
    }
    return 0;
}

} // extern "C"
