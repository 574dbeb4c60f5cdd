// SPDX-License-Identifier: MIT
// The maps and the status store with each of their uMalloc calls failing in turn: the documented
// failure value, nothing leaked, the structure still usable. The table storage of the maps comes
// from malloc, so running out there is out of the sweep's reach. And every line the status store
// logs.
// The string hashes on hand-checked values (the maps' contract is checked against a model by the
// hash_map fuzz target); the status store's identity by two hashes and its probe wrap, and writers
// and unlocked readers on many threads.
#include "call_table.hpp"
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <uhash.h>
#include <ustatus.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <vector>

namespace {

using pu::test::AllocCase;
using pu::test::checkRows;
using pu::test::FailAlloc;

int gValue = 7;

// Creates a map and inserts a key twice (the second spelling folds onto the first when it is
// a string): the first insert fails exactly when the fault was hit, the second then adds.
template <typename Map, typename Key>
void insertTwice(const FailAlloc &fault, Map *map, int32_t (*insert)(Map *, Key, void *),
                 void *(*get)(Map *, Key), void (*destroy)(Map *, uHashFreeFn), Key first,
                 Key second) {
    const int32_t added = map != nullptr ? insert(map, first, &gValue) : -1;
    EXPECT_EQ(added == -1, fault.hit());
    if (map != nullptr) {
        EXPECT_EQ(insert(map, second, &gValue), added == 1 ? 0 : 1);
        EXPECT_EQ(get(map, second), &gValue);
        destroy(map, nullptr);
    }
}

const AllocCase kCases[] = {
    {"StringMap",
     [](const FailAlloc &fault) {
         insertTwice<uHash, const char *>(fault, uHashCreateMap(1), uHashInsert, uHashGetValue,
                                          uHashDestroyMap, "Key", "key");
     }},
    {"IntMap",
     [](const FailAlloc &fault) {
         insertTwice<uIntHash, int32_t>(fault, uIntHashMapCreate(), uIntHashInsert,
                                        uIntHashGetValue, uIntHashDestroyMap, -3, -3);
     }},
    {"StatusStore",
     [](const FailAlloc &fault) {
         const int32_t set = setSystemStatus("alloc.sweep", 5); // before asking about the fault
         EXPECT_EQ(set == -1, fault.hit());
         // From another task, so a lock left held shows as a hang instead of a recursive take.
         auto again =
             std::async(std::launch::async, [] { return setSystemStatus("alloc.sweep", 6); });
         ASSERT_EQ(again.wait_for(std::chrono::seconds(10)), std::future_status::ready)
             << "the store's lock is still held";
         uint32_t value = 0;
         EXPECT_EQ(again.get() + getSystemStatus("alloc.sweep", &value), 0);
         EXPECT_EQ(value, 6U);
         statusBuffFree();
     }},
};

class HashAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(HashAllocFailure, kCases);

// Every line the status store logs, exactly: applications watch for these texts. Some show only
// before the first status is set, so the table runs in a fresh process, in order. The full table
// also shows that it refuses new names but still updates known ones.
std::uint32_t gStatus = 0;

TEST(LogCatalogue, StatusMessagesFromAFreshStore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const char *status = "basalt.utils.status";
            pu::test::checkLogRows({
                PU_LOG_ROW(getSystemStatus("never", &gStatus), 0, status,
                           "The status [never] is not set yet."),
                PU_LOG_ROW((setSystemStatus("first", 3), getSystemStatus("First", &gStatus)), 0,
                           status, "Cannot find this status: First "),
                PU_LOG_ROW((statusBuffFree(), getSystemStatus("first", &gStatus)), 0, status,
                           "Cannot find this status: first "),
            });
            for (int i = 0; i < 1024; ++i) { // every slot taken: the probe goes all the way round
                setSystemStatus(("s" + std::to_string(i)).c_str(), 1);
            }
            pu::test::checkLogRows({PU_LOG_ROW(getSystemStatus("s-1", &gStatus), 0, status,
                                               "cannot find this status: s-1 ")});
            EXPECT_EQ(setSystemStatus("one-too-many", 1), -1) << "full";
            EXPECT_EQ(setSystemStatus("s500", 5000) + getSystemStatus("s500", &gStatus), 0)
                << "known names still update";
            EXPECT_EQ(gStatus, 5000u);
            statusBuffFree();
            std::exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

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
    // Two names that start in the last slot: the second wraps to slot 0, so a name that starts
    // in slot 0 probes on as well; a third one was never set.
    statusBuffFree();
    std::vector<std::string> c{nameStartingAt(kSlots - 1, "c")};
    for (int i = 0; i < 2; ++i) {
        c.push_back(nameStartingAt(kSlots - 1, "c", std::stoi(c.back().substr(1)) + 1));
    }
    const std::string follower = nameStartingAt(0, "f");
    const std::pair<const char *, std::uint32_t> sets[] = {
        {c[0].c_str(), 1}, {c[1].c_str(), 2}, {follower.c_str(), 4}, {c[1].c_str(), 0xFFFFFFFF},
        {nullptr, 5},      {"", 6},           {twinA.c_str(), 7},    {twinB.c_str(), 8}};
    for (const auto &[name, value] : sets) {
        EXPECT_EQ(setSystemStatus(name, value), 0) << pu::test::orNull(name);
    }
    const std::pair<std::string, std::int64_t> expected[] = {
        {c[0], 1}, {c[1], 0xFFFFFFFF}, {c[2], -1}, {follower, 4}, {"", 6}, {twinA, 8}};
    for (const auto &[name, value] : expected) {
        EXPECT_EQ(valueOf(name), value) << name;
    }
    EXPECT_EQ(valueOf("", true), 6) << "null and empty are the same name";
    statusBuffFree();
}

// Writers serialise on the store's lock while readers take none: a reader may see an old value,
// but never a counter going back, and every writer's last value is there at the end.
TEST(StatusStore, WritersAndUnlockedReadersOnManyThreads) {
    constexpr int kThreads = 4;
    constexpr std::uint32_t kRounds = 3000;
    statusBuffFree();
    std::atomic<int> failures{0};
    pu::test::fanOut(kThreads, [&](int self) {
        const std::string own = "own-" + std::to_string(self),
                          watched = "own-" + std::to_string((self + 1) % kThreads);
        std::uint32_t lastSeen = 0, seen = 0;
        for (std::uint32_t round = 1; round <= kRounds; ++round) {
            setSystemStatus(own.c_str(), round);
            // New names keep arriving while others probe past the slots they land in.
            setSystemStatus(("shared-" + std::to_string(round % 300)).c_str(), round);
            if (getSystemStatus(watched.c_str(), &seen) == 0) {
                failures += seen < lastSeen; // stale maybe, but a counter never goes back
                lastSeen = seen;
            }
        }
    });
    EXPECT_EQ(failures.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(valueOf("own-" + std::to_string(t)), kRounds) << t;
    }
    statusBuffFree();
}

} // namespace

// Removed items are reused; every value is freed once, in insertion order; keys too long to sit
// in their item are copied and freed with it.
std::vector<std::intptr_t> gFreed;
void recordFree(void *value) {
    gFreed.push_back(reinterpret_cast<std::intptr_t>(value));
}

TEST(Maps, RemovedItemsAreReusedAndEveryValueIsFreedOnceInOrder) {
    EXPECT_EQ(uIntHashInsert(nullptr, 1, &gValue) + uIntHashRemove(nullptr, 1, nullptr) +
                  uHashInsert(nullptr, "k", &gValue) + uHashRemove(nullptr, "k", nullptr),
              -4)
        << "no map";
    // A string key stored with a null value counts as absent, so a second insert adds it again.
    uHash *odd = uHashCreateMap(0);
    EXPECT_EQ(uHashInsert(odd, "k", nullptr) + uHashKeyExists(odd, "k") +
                  uHashInsert(odd, "k", &gValue),
              2);
    EXPECT_EQ(uHashGetValue(odd, "k"), &gValue);
    uHashDestroyMap(odd, nullptr);
    uIntHash *ints = uIntHashMapCreate();
    uHash *texts = uHashCreateMap(0);
    const auto value = [](std::int32_t key) { return reinterpret_cast<void *>(key * 2 + 1); };
    const auto text = [](std::int32_t key) {
        return std::string(key % 50, 'k') + std::to_string(key);
    };
    for (std::int32_t key = 0; key < 3000; ++key) {
        ASSERT_EQ(uIntHashInsert(ints, key, value(key)) +
                      uHashInsert(texts, text(key).c_str(), value(key)),
                  2);
    }
    for (std::int32_t key = 0; key < 3000; key += 3) {
        ASSERT_EQ(
            uIntHashRemove(ints, key, nullptr) + uHashRemove(texts, text(key).c_str(), nullptr), 0);
    }
    std::vector<std::intptr_t> expected;
    for (std::int32_t key = 3000; key < 4000; ++key) {
        ASSERT_EQ(uIntHashInsert(ints, -key, value(-key)) +
                      uHashInsert(texts, text(key).c_str(), value(-key)),
                  2);
    }
    for (std::int32_t key = 0; key < 3000; ++key) {
        EXPECT_EQ(uIntHashGetValue(ints, key), key % 3 == 0 ? nullptr : value(key)) << key;
        EXPECT_EQ(uHashGetValue(texts, text(key).c_str()), key % 3 == 0 ? nullptr : value(key))
            << key;
        key % 3 != 0 ? expected.push_back(key * 2 + 1) : void();
    }
    for (std::int32_t key = 3000; key < 4000; ++key) {
        expected.push_back(-key * 2 + 1);
    }
    uIntHashDestroyMap(ints, recordFree);
    EXPECT_EQ(gFreed, expected);
    gFreed.clear();
    uHashDestroyMap(texts, recordFree);
    EXPECT_EQ(gFreed, expected);
}
