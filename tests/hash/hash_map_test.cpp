// SPDX-License-Identifier: MIT
// The string hashes on hand-checked values, and what the fuzz model of the maps leaves out: null
// arguments, null values, release on destruction, folded keys around the inline probe buffer.
#include <uhash.h>

#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using pu::test::checkRows;

TEST(StringHash, KnownValues) {
    const struct {
        const char *text;
        uint32_t modulus, rs;
        uint64_t bkdr, sum;
    } cases[] = {
        {nullptr, 1024, 0, 0, 0},
        {"", 1024, 0, 0, 0},
        // rs: 97 * (63689 * 378551 mod 2^32) + 98, top bit set; bkdr: 97 * 131 + 98.
        {"ab", 0, 0x80E76FB1, 12805, 195},
        {"ab", 1000, 0x80E76FB1u % 1000, 12805, 195}, // 57; a 31-bit mask would give 409
        // Bytes are read unsigned: 255 * 131 + 254, and 255 + 254 + 128.
        {"\xff\xfe\x80", 0, 0xA8915837, 0x434871, 637},
        {"SYSTEM_TIME_UPDATED", 1000, 589, 0x61B83859, 1497},
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

TEST(HashMaps, NullArgumentsNullValuesAndReleaseOnDestroy) {
    uHash *map = uHashCreateMap(1), *strings = uHashCreateMap(0);
    uIntHash *ints = uIntHashMapCreate();
    gReleased.clear();
    checkRows({
        {"empty key", uHashInsert(map, "", word(1)), -1},
        {"null key", uHashInsert(map, nullptr, word(1)), -1},
        {"null map", uHashInsert(nullptr, "k", word(1)) + uIntHashInsert(nullptr, 1, word(1)), -2},
        {"exists, null map", uHashKeyExists(nullptr, "k") + uIntHashKeyExists(nullptr, 1), 0},
        {"remove, null map", uHashRemove(nullptr, "k", recordRelease), -1},
        {"remove, null key", uHashRemove(map, nullptr, recordRelease), -1},
        {"remove, absent", uHashRemove(map, "k", recordRelease), -1},
        {"int remove, null map", uIntHashRemove(nullptr, 1, recordRelease), -1},
        {"get, null", !uHashGetValue(nullptr, "k") && !uHashGetValue(map, nullptr), true},
        {"int get, null map", uIntHashGetValue(nullptr, 1) == nullptr, true},
        {"nothing released",
         (uHashDestroyMap(nullptr, recordRelease), uIntHashDestroyMap(nullptr, recordRelease),
          uHashDestroyMap(map, recordRelease), gReleased.size()),
         0},
        // A string key with a null value counts as absent, so a second insert adds a second item.
        {"null value", uHashInsert(strings, "zero", nullptr), 1},
        {"is absent", uHashKeyExists(strings, "zero"), 0},
        {"so adds again", uHashInsert(strings, "zero", word(9)), 1},
        {"found", uHashGetValue(strings, "zero") == word(9), true},
        {"the null and the value released",
         (uHashDestroyMap(strings, recordRelease), gReleased.values()) ==
             std::vector<void *>{nullptr, word(9)},
         true},
        // An integer key with a null value exists.
        {"int null value", uIntHashInsert(ints, 8, nullptr), 1},
        {"exists", uIntHashKeyExists(ints, 8), 1},
        {"replaced", uIntHashInsert(ints, 8, word(80)), 0},
        {"another", uIntHashInsert(ints, -1, word(7)), 1},
        {"released once each",
         (gReleased.clear(), uIntHashDestroyMap(ints, recordRelease), gReleased.size()), 2},
    });
}

TEST(HashMaps, FoldedKeysAroundTheInlineBuffer) {
    uHash *map = uHashCreateMap(1);
    for (std::size_t length : {1, 63, 64, 65, 200}) {
        std::string key(length, 'q'), probe(length, 'Q');
        key.back() = 'Z';
        probe.back() = 'z';
        checkRows({{"insert", uHashInsert(map, key.c_str(), word(length)), 1},
                   {"get folded", uHashGetValue(map, probe.c_str()) == word(length), true},
                   {"remove folded", uHashRemove(map, probe.c_str(), nullptr), 0},
                   {"gone", uHashKeyExists(map, key.c_str()), 0}});
    }
    uHashDestroyMap(map, nullptr);
}

} // namespace
