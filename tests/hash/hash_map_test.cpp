// SPDX-License-Identifier: MIT
// What the fuzz model of the maps leaves out: null arguments, null values, release functions on
// destruction, and folded keys on both sides of the inline probe buffer.
#include <uhash.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

void *word(std::uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

pu::test::CallRecorder<void *> gReleased;
void recordRelease(void *value) {
    gReleased.record(value);
}

TEST(HashMaps, NullArgumentsAreRefused) {
    uHash *map = uHashCreateMap(1);
    gReleased.clear();
    const std::pair<int, int> results[] = {
        // result, expected
        {uHashInsert(map, "", word(1)), -1},
        {uHashInsert(map, nullptr, word(1)), -1},
        {uHashInsert(nullptr, "k", word(1)), -1},
        {uHashKeyExists(nullptr, "k"), 0},
        {uHashRemove(nullptr, "k", recordRelease), -1},
        {uHashRemove(map, nullptr, recordRelease), -1},
        {uHashRemove(map, "k", recordRelease), -1},
        {uIntHashInsert(nullptr, 1, word(1)), -1},
        {uIntHashKeyExists(nullptr, 1), 0},
        {uIntHashRemove(nullptr, 1, recordRelease), -1},
    };
    for (const auto &[result, expected] : results) {
        EXPECT_EQ(result, expected) << &result - &results[0].first;
    }
    EXPECT_EQ(uHashGetValue(nullptr, "k"), nullptr);
    EXPECT_EQ(uHashGetValue(map, nullptr), nullptr);
    EXPECT_EQ(uIntHashGetValue(nullptr, 1), nullptr);
    uHashDestroyMap(nullptr, recordRelease);
    uIntHashDestroyMap(nullptr, recordRelease);
    uHashDestroyMap(map, recordRelease);
    EXPECT_EQ(gReleased.size(), 0u);
}

TEST(HashMaps, NullValuesAndReleaseOnDestroy) {
    gReleased.clear();
    uHash *strings = uHashCreateMap(0);
    // A string key whose value is null counts as absent, so a second insert adds a second item.
    EXPECT_EQ(uHashInsert(strings, "zero", nullptr), 1);
    EXPECT_EQ(uHashKeyExists(strings, "zero"), 0);
    EXPECT_EQ(uHashInsert(strings, "zero", word(9)), 1);
    EXPECT_EQ(uHashGetValue(strings, "zero"), word(9));
    uHashDestroyMap(strings, recordRelease);
    EXPECT_EQ(gReleased.values(), (std::vector<void *>{nullptr, word(9)}));

    gReleased.clear();
    uIntHash *ints = uIntHashMapCreate();
    EXPECT_EQ(uIntHashInsert(ints, 8, nullptr), 1);
    EXPECT_EQ(uIntHashKeyExists(ints, 8), 1) << "an integer key with a null value exists";
    EXPECT_EQ(uIntHashInsert(ints, 8, word(80)), 0);
    EXPECT_EQ(uIntHashInsert(ints, -1, word(7)), 1);
    uIntHashDestroyMap(ints, recordRelease);
    EXPECT_EQ(gReleased.size(), 2u);
}

TEST(HashMaps, FoldedKeysAroundTheInlineBuffer) {
    uHash *map = uHashCreateMap(1);
    for (std::size_t length : {1, 62, 63, 64, 65, 200}) {
        std::string key(length, 'q'), probe(length, 'Q');
        key.back() = 'Z';
        probe.back() = 'z';
        ASSERT_EQ(uHashInsert(map, key.c_str(), word(length)), 1) << length;
        EXPECT_EQ(uHashGetValue(map, probe.c_str()), word(length)) << length;
        EXPECT_EQ(uHashRemove(map, probe.c_str(), nullptr), 0) << length;
        EXPECT_EQ(uHashKeyExists(map, key.c_str()), 0) << length;
    }
    uHashDestroyMap(map, nullptr);
}

} // namespace
