// SPDX-License-Identifier: MIT
// The string hashes on hand-checked values; what the fuzz model of the maps leaves out (null
// arguments, null values, release on destruction, folded keys around the inline probe buffer);
// the status store's identity by two hashes and its probe wrap, and writers and
// unlocked readers on many threads.
#include <uhash.h>
#include <ustatus.h>
#include <uuniqueid.h>

#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <string>
#include <vector>

namespace {

using pu::test::checkRows;

TEST(StringHash, KnownValues) {
    const struct {
        const char *text;
        uint32_t modulus, rs;
        uint64_t bkdr, sum;
    } cases[] = {
        {nullptr, 1024, 0, 0, 0},
        // rs: 97 * (63689 * 378551 mod 2^32) + 98, top bit set; bkdr: 97 * 131 + 98.
        {"ab", 1000, 0x80E76FB1u % 1000, 12805, 195}, // 57; a 31-bit mask would give 409
        // Bytes are read unsigned: 255 * 131 + 254, and 255 + 254 + 128.
        {"\xff\xfe\x80", 0, 0xA8915837, 0x434871, 637},
        // 0xC5181667 before the mask: BKDR keeps only the low 31 bits.
        {"The quick brown fox jumps over the lazy dog", 0, 0x29A4500B, 0x45181667, 4057},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(pu::test::orNull(c.text) + " mod " + std::to_string(c.modulus));
        EXPECT_EQ(rsHash(c.text, c.modulus), c.rs);
        EXPECT_EQ(bkdrHash(c.text), c.bkdr);
        EXPECT_EQ(remainderHash(c.text), c.sum);
    }
    const std::string big(100000, '\xee'); // the sum passes 2^31 only with the mask
    EXPECT_EQ(remainderHash(big.c_str()), (100000ull * 0xee) & 0x7FFFFFFF);
}

void *word(std::uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

pu::test::CallRecorder<void *> gReleased;
void recordRelease(void *value) {
    gReleased.record(value);
}

// The rest of the maps' contract is checked against a model by the hash_map fuzz target.
TEST(HashMaps, NullArgumentsNullValuesAndReleaseOnDestroy) {
    uHash *strings = uHashCreateMap(0);
    uIntHash *ints = uIntHashMapCreate();
    gReleased.clear();
    checkRows({
        {"null map", uHashInsert(nullptr, "k", word(1)) + uIntHashInsert(nullptr, 1, word(1)), -2},
        {"get, null", !uHashGetValue(nullptr, "k") && !uIntHashGetValue(nullptr, 1), true},
        // A string key with a null value counts as absent, so a second insert adds a second item.
        {"null value", uHashInsert(strings, "zero", nullptr), 1},
        {"is absent", uHashKeyExists(strings, "zero"), 0},
        {"so adds again", uHashInsert(strings, "zero", word(9)), 1},
        {"the null and the value released",
         (uHashDestroyMap(strings, recordRelease), gReleased.values()) ==
             std::vector<void *>{nullptr, word(9)},
         true},
        {"int insert keeps the first value",
         uIntHashInsert(ints, 8, word(80)) + uIntHashInsert(ints, 8, word(81)), 1},
        {"released once each",
         (gReleased.clear(), uIntHashDestroyMap(ints, recordRelease), gReleased.values()) ==
             std::vector<void *>{word(80)},
         true},
    });
}

constexpr std::uint32_t kSlots = 1024;

// The first name prefix<n> whose probe starts at slot.
std::string nameStartingAt(std::uint32_t slot, const std::string &prefix, int from = 0) {
    for (int n = from;; ++n) {
        if (rsHash((prefix + std::to_string(n)).c_str(), kSlots) == slot) {
            return prefix + std::to_string(n);
        }
    }
}

std::int64_t valueOf(const std::string &name, bool null = false) {
    std::uint32_t value = 0xDEADBEEF;
    return getSystemStatus(null ? nullptr : name.c_str(), &value) == 0
               ? static_cast<std::int64_t>(value)
               : -1;
}

TEST(StatusStore, NamesAreTheirHashesAndCollisionsProbeOnWrapping) {
    // Bytes moved by +1 at one position and -131 at the next leave the BKDR hash alone.
    const std::string twinA = "sO\xd3O\xd2\xd3PO\xd3P", twinB = "sPPPPO\xd3PPP";
    ASSERT_EQ(rsHash(twinA.c_str(), kSlots), rsHash(twinB.c_str(), kSlots));
    // Three names that start in the last slot: the second and third wrap to slots 0 and 1, so a
    // name that starts in slot 1 probes on as well.
    statusBuffFree();
    std::vector<std::string> c{nameStartingAt(kSlots - 1, "c")};
    for (int i = 0; i < 3; ++i) {
        c.push_back(nameStartingAt(kSlots - 1, "c", std::stoi(c.back().substr(1)) + 1));
    }
    const std::string follower = nameStartingAt(1, "f");
    const std::pair<const char *, std::uint32_t> sets[] = {
        {c[0].c_str(), 1},          {c[1].c_str(), 2}, {c[2].c_str(), 3}, {follower.c_str(), 4},
        {c[1].c_str(), 0xFFFFFFFF}, {nullptr, 5},      {"", 6},           {twinA.c_str(), 7},
        {twinB.c_str(), 8}};
    for (const auto &[name, value] : sets) {
        EXPECT_EQ(setSystemStatus(name, value), 0) << pu::test::orNull(name);
    }
    const std::pair<std::string, std::int64_t> expected[] = {
        {c[0], 1}, {c[1], 0xFFFFFFFF}, {c[2], 3}, {c[3], -1}, {follower, 4}, {"", 6}, {twinA, 8}};
    for (const auto &[name, value] : expected) {
        EXPECT_EQ(valueOf(name), value) << name;
    }
    EXPECT_EQ(valueOf("", true), 6) << "null and empty are the same name";
    std::uint32_t untouched = 5;
    EXPECT_EQ(getSystemStatus("missing", &untouched) + getSystemStatus(twinA.c_str(), nullptr), -2);
    EXPECT_EQ(untouched, 5u) << "a miss leaves the output alone";
    statusBuffFree();
}

TEST(StatusStore, StatusesAndIdsUnderContention) {
    constexpr int kThreads = 4, kIds = 32, kHeld = 6; // 4 * (6 + 1) < 32: a draw never runs dry
    constexpr std::uint32_t kRounds = 3000;
    statusBuffFree();
    uIdRegisterUniqueIdModule("stress", 0, kIds);
    std::array<std::atomic<int>, kIds> holders{};
    std::atomic<int> failures{0};
    pu::test::fanOut(kThreads, [&](int self) {
        const std::string own = "own-" + std::to_string(self),
                          watched = "own-" + std::to_string((self + 1) % kThreads);
        std::uint32_t lastSeen = 0, seen = 0;
        std::vector<std::int32_t> held;
        for (std::uint32_t round = 1; round <= kRounds; ++round) {
            setSystemStatus(own.c_str(), round);
            // New names keep arriving while others probe past the slots they land in.
            setSystemStatus(("shared-" + std::to_string(round % 300)).c_str(), round);
            if (getSystemStatus(watched.c_str(), &seen) == 0) {
                failures += seen < lastSeen; // stale maybe, but a counter never goes back
                lastSeen = seen;
            }
            const std::int32_t id = uIdGetModuleAvailableUniqueId("stress");
            failures += id < 0 || id >= kIds || holders[id & 31].exchange(1) != 0;
            held.push_back(id & 31);
            if (held.size() > kHeld || round == kRounds) {
                for (std::int32_t h : held) {
                    holders[h].store(0);
                    uIdReleaseModuleUniqueId("stress", h);
                }
                held.clear();
            }
        }
    });
    EXPECT_EQ(failures.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(valueOf("own-" + std::to_string(t)), kRounds) << t;
    }
    std::set<std::int32_t> all; // every id came back
    for (int i = 0; i <= kIds; ++i) {
        all.insert(uIdGetModuleAvailableUniqueId("stress"));
    }
    EXPECT_EQ(all.size(), kIds + 1u) << "every id came back, then no more";
    uIdUnregisterUniqueIdModule("stress");
    statusBuffFree();
}

} // namespace
