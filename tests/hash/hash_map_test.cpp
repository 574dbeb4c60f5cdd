// SPDX-License-Identifier: MIT
// String- and integer-keyed maps: insert without update, the value-0 rule of the string map,
// ASCII case folding (inline and heap probe paths), removal and destruction with release
// functions, growth.
#include <uhash.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <map>
#include <string>

namespace {

void *word(std::uintptr_t value) {
    return reinterpret_cast<void *>(value);
}

// Counts release calls per value.
std::map<void *, int> gReleased;
void recordRelease(void *value) {
    ++gReleased[value];
}

class HashMaps : public testing::Test {
  protected:
    void SetUp() override { gReleased.clear(); }
};

TEST_F(HashMaps, StringInsertNeverUpdates) {
    uHash *map = uHashCreateMap(0);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(uHashGetValue(map, "a"), nullptr); // empty map
    EXPECT_EQ(uHashInsert(map, "a", word(1)), 1);
    EXPECT_EQ(uHashInsert(map, "a", word(2)), 0);
    EXPECT_EQ(uHashGetValue(map, "a"), word(1));
    // Keys that are prefixes of each other are distinct.
    EXPECT_EQ(uHashInsert(map, "ab", word(3)), 1);
    EXPECT_EQ(uHashGetValue(map, "a"), word(1));
    EXPECT_EQ(uHashGetValue(map, "ab"), word(3));
    EXPECT_EQ(uHashGetValue(map, "abc"), nullptr);
    // Values are stored as they are: the full pointer width survives.
    const auto wide = std::numeric_limits<std::uintptr_t>::max() - 1;
    EXPECT_EQ(uHashInsert(map, "wide", word(wide)), 1);
    EXPECT_EQ(uHashGetValue(map, "wide"), word(wide));
    uHashDestroyMap(map, nullptr);
}

TEST_F(HashMaps, StringBadArguments) {
    uHash *map = uHashCreateMap(1);
    EXPECT_EQ(uHashInsert(map, "", word(1)), -1);
    EXPECT_EQ(uHashInsert(map, nullptr, word(1)), -1);
    EXPECT_EQ(uHashInsert(nullptr, "k", word(1)), -1);
    EXPECT_EQ(uHashGetValue(nullptr, "k"), nullptr);
    EXPECT_EQ(uHashGetValue(map, nullptr), nullptr);
    EXPECT_EQ(uHashKeyExists(nullptr, "k"), 0);
    EXPECT_EQ(uHashRemove(nullptr, "k", recordRelease), -1);
    EXPECT_EQ(uHashRemove(map, nullptr, recordRelease), -1);
    EXPECT_EQ(uHashRemove(map, "k", recordRelease), -1); // empty map
    uHashDestroyMap(nullptr, recordRelease);
    uHashDestroyMap(map, recordRelease);
    EXPECT_TRUE(gReleased.empty());
}

TEST_F(HashMaps, StringValueZeroCountsAsAbsent) {
    uHash *map = uHashCreateMap(0);
    EXPECT_EQ(uHashInsert(map, "zero", nullptr), 1);
    EXPECT_EQ(uHashGetValue(map, "zero"), nullptr);
    EXPECT_EQ(uHashKeyExists(map, "zero"), 0);
    // So a second insert adds a second item with the same key; both are released on destroy.
    EXPECT_EQ(uHashInsert(map, "zero", word(9)), 1);
    uHashDestroyMap(map, recordRelease);
    EXPECT_EQ(gReleased[nullptr], 1);
    EXPECT_EQ(gReleased[word(9)], 1);
    EXPECT_EQ(gReleased.size(), 2u);
}

TEST_F(HashMaps, CaseFoldingIsAsciiOnlyAndOnlyWhenAsked) {
    uHash *sensitive = uHashCreateMap(0);
    uHash *folding = uHashCreateMap(1);
    for (uHash *map : {sensitive, folding}) {
        EXPECT_EQ(uHashInsert(map, "MixedCase", word(1)), 1);
        EXPECT_EQ(uHashInsert(map, "\xc3\x84gypten", word(2)), 1); // UTF-8 capital A umlaut
    }
    EXPECT_EQ(uHashGetValue(sensitive, "MIXEDCASE"), nullptr);
    EXPECT_EQ(uHashGetValue(sensitive, "MixedCase"), word(1));
    EXPECT_EQ(uHashGetValue(folding, "MIXEDCASE"), word(1));
    EXPECT_EQ(uHashGetValue(folding, "mixedcase"), word(1));
    EXPECT_EQ(uHashInsert(folding, "mixedCASE", word(3)), 0);
    // Bytes outside A-Z are never folded, whatever the locale.
    EXPECT_EQ(uHashGetValue(folding, "\xc3\x84GYPTEN"), word(2));
    EXPECT_EQ(uHashGetValue(folding, "\xc3\xa4gypten"), nullptr);
    EXPECT_EQ(uHashGetValue(folding, "[\\]^_`"), nullptr);
    EXPECT_EQ(uHashInsert(folding, "@[`{", word(4)), 1);
    EXPECT_EQ(uHashGetValue(folding, "@[`{"), word(4));

    EXPECT_EQ(uHashRemove(folding, "MIXEDCASE", recordRelease), 0);
    EXPECT_EQ(uHashKeyExists(folding, "mixedcase"), 0);
    EXPECT_EQ(gReleased[word(1)], 1);
    uHashDestroyMap(sensitive, nullptr);
    uHashDestroyMap(folding, nullptr);
}

TEST_F(HashMaps, CaseFoldingOfKeysOfEveryLength) {
    // Short probe keys are folded in place, long ones in a heap copy: cover both sides of the
    // boundary.
    uHash *map = uHashCreateMap(1);
    for (std::size_t length = 1; length <= 200; ++length) {
        std::string key(length, 'q');
        key.front() = 'K';
        key.back() = 'Z';
        ASSERT_EQ(uHashInsert(map, key.c_str(), word(length)), 1) << length;
    }
    for (std::size_t length = 1; length <= 200; ++length) {
        std::string upper(length, 'Q');
        upper.front() = 'k';
        upper.back() = 'z';
        ASSERT_EQ(uHashGetValue(map, upper.c_str()), word(length)) << length;
        ASSERT_EQ(uHashRemove(map, upper.c_str(), nullptr), 0) << length;
        ASSERT_EQ(uHashKeyExists(map, upper.c_str()), 0) << length;
    }
    uHashDestroyMap(map, nullptr);
}

TEST_F(HashMaps, StringRemoveAndDestroyReleaseEachValueOnce) {
    uHash *map = uHashCreateMap(0);
    constexpr int kKeys = 5000; // well past the initial buckets: the table grows
    for (int i = 1; i <= kKeys; ++i) {
        ASSERT_EQ(uHashInsert(map, ("key" + std::to_string(i)).c_str(), word(i)), 1);
    }
    EXPECT_EQ(uHashRemove(map, "absent", recordRelease), -1);
    EXPECT_TRUE(gReleased.empty());
    for (int i = 1; i <= kKeys; i += 2) {
        ASSERT_EQ(uHashRemove(map, ("key" + std::to_string(i)).c_str(), recordRelease), 0);
    }
    EXPECT_EQ(uHashRemove(map, "key1", recordRelease), -1);
    for (int i = 1; i <= kKeys; ++i) {
        ASSERT_EQ(uHashGetValue(map, ("key" + std::to_string(i)).c_str()),
                  i % 2 ? nullptr : word(i));
    }
    uHashDestroyMap(map, recordRelease);
    ASSERT_EQ(gReleased.size(), static_cast<std::size_t>(kKeys));
    for (const auto &[value, calls] : gReleased) {
        ASSERT_EQ(calls, 1);
    }
}

TEST_F(HashMaps, IntInsertNeverUpdatesAndValueZeroExists) {
    uIntHash *map = uIntHashMapCreate();
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(uIntHashKeyExists(map, 7), 0);
    EXPECT_EQ(uIntHashGetValue(map, 7), nullptr);
    EXPECT_EQ(uIntHashInsert(map, 7, word(70)), 1);
    EXPECT_EQ(uIntHashInsert(map, 7, word(71)), 0);
    EXPECT_EQ(uIntHashGetValue(map, 7), word(70));

    EXPECT_EQ(uIntHashInsert(map, 8, nullptr), 1);
    EXPECT_EQ(uIntHashKeyExists(map, 8), 1); // unlike the string map
    EXPECT_EQ(uIntHashInsert(map, 8, word(80)), 0);
    EXPECT_EQ(uIntHashGetValue(map, 8), nullptr);

    for (std::int32_t key : {0, -1, std::numeric_limits<std::int32_t>::min(),
                             std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_EQ(uIntHashInsert(map, key, word(static_cast<std::uint32_t>(key) + 1000)), 1);
    }
    EXPECT_EQ(uIntHashGetValue(map, -1), word(999));
    EXPECT_EQ(uIntHashGetValue(map, 0), word(1000));
    EXPECT_EQ(uIntHashKeyExists(map, 1), 0);
    uIntHashDestroyMap(map, nullptr);
}

TEST_F(HashMaps, IntRemoveDestroyAndBadArguments) {
    EXPECT_EQ(uIntHashInsert(nullptr, 1, word(1)), -1);
    EXPECT_EQ(uIntHashGetValue(nullptr, 1), nullptr);
    EXPECT_EQ(uIntHashKeyExists(nullptr, 1), 0);
    EXPECT_EQ(uIntHashRemove(nullptr, 1, recordRelease), -1);
    uIntHashDestroyMap(nullptr, recordRelease);

    uIntHash *map = uIntHashMapCreate();
    EXPECT_EQ(uIntHashRemove(map, 1, recordRelease), -1); // empty
    constexpr int kKeys = 5000;
    for (int i = 0; i < kKeys; ++i) {
        ASSERT_EQ(uIntHashInsert(map, -i, word(i + 1)), 1);
    }
    EXPECT_EQ(uIntHashRemove(map, 1, recordRelease), -1);
    EXPECT_EQ(uIntHashRemove(map, -10, recordRelease), 0);
    EXPECT_EQ(uIntHashRemove(map, -10, recordRelease), -1);
    EXPECT_EQ(uIntHashKeyExists(map, -10), 0);
    EXPECT_EQ(gReleased[word(11)], 1);
    uIntHashDestroyMap(map, recordRelease);
    EXPECT_EQ(gReleased.size(), static_cast<std::size_t>(kKeys));
    for (const auto &[value, calls] : gReleased) {
        ASSERT_EQ(calls, 1);
    }
}

} // namespace
