// SPDX-License-Identifier: MIT
// The three exported string hashes against a reference written separately here (64-bit
// arithmetic with explicit masks) and against a few constants worked out by hand.
#include <uhash.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t kLow32 = 0xFFFFFFFFull;

std::uint64_t referenceRs(const std::string &text) {
    std::uint64_t hash = 0;
    std::uint64_t a = 63689;
    for (unsigned char c : text) {
        hash = (hash * a + c) & kLow32;
        a = (a * 378551) & kLow32;
    }
    return hash;
}

std::uint64_t referenceBkdr(const std::string &text) {
    std::uint64_t hash = 0;
    for (unsigned char c : text) {
        hash = (hash * 131 + c) & kLow32;
    }
    return hash & 0x7FFFFFFF;
}

std::uint64_t referenceSum(const std::string &text) {
    std::uint64_t sum = 0;
    for (unsigned char c : text) {
        sum += c;
    }
    return sum & 0x7FFFFFFF;
}

std::vector<std::string> sampleTexts() {
    std::vector<std::string> texts = {"",
                                      "a",
                                      "hello",
                                      "SYSTEM_TIME_UPDATED",
                                      "\xff\xfe\x80",
                                      "The quick brown fox jumps over the lazy dog"};
    std::mt19937 random(4);
    for (int i = 0; i < 200; ++i) {
        std::string text(random() % 80, ' ');
        for (char &c : text) {
            c = static_cast<char>(1 + random() % 255); // every byte but NUL
        }
        texts.push_back(text);
    }
    texts.push_back(std::string(100000, '\xee')); // the sum passes 2^31 only with a mask
    return texts;
}

TEST(StringHash, MatchesTheReferenceForEveryByteValue) {
    for (const std::string &text : sampleTexts()) {
        SCOPED_TRACE(testing::PrintToString(text.substr(0, 40)));
        const std::uint64_t rs = referenceRs(text);
        EXPECT_EQ(rsHash(text.c_str(), 1024), rs % 1024);
        EXPECT_EQ(rsHash(text.c_str(), 1000), rs % 1000);
        EXPECT_EQ(rsHash(text.c_str(), 0xFFFFFFFFu), rs % 0xFFFFFFFFu);
        EXPECT_EQ(rsHash(text.c_str(), 1), 0u);
        EXPECT_EQ(bkdrHash(text.c_str()), referenceBkdr(text));
        EXPECT_EQ(remainderHash(text.c_str()), referenceSum(text));
    }
}

TEST(StringHash, KnownValues) {
    // The raw RS hash of this name has its top bit set: a 31-bit mask would change the slot.
    EXPECT_EQ(rsHash("SYSTEM_TIME_UPDATED", 0), 0xD75004F5u);
    EXPECT_EQ(rsHash("SYSTEM_TIME_UPDATED", 1000), 589u);
    EXPECT_EQ(rsHash("SYSTEM_TIME_UPDATED", 1024), 245u);
    EXPECT_EQ(rsHash("hello", 1024), 658u);
    // Bytes are read unsigned.
    EXPECT_EQ(rsHash("\xff\xfe\x80", 1024), 55u);
    EXPECT_EQ(bkdrHash("\xff\xfe\x80"), 0x434871u);
    EXPECT_EQ(remainderHash("\xff\xfe\x80"), 637u);
    // 0xC5181667 before the mask: the result keeps only the low 31 bits.
    EXPECT_EQ(bkdrHash("The quick brown fox jumps over the lazy dog"), 0x45181667u);
    EXPECT_EQ(bkdrHash("hello"), 0x2F372E8Eu);
}

TEST(StringHash, NullEmptyAndZeroModulus) {
    EXPECT_EQ(rsHash(nullptr, 1024), 0u);
    EXPECT_EQ(rsHash(nullptr, 0), 0u);
    EXPECT_EQ(rsHash("", 1024), 0u);
    EXPECT_EQ(bkdrHash(nullptr), 0u);
    EXPECT_EQ(bkdrHash(""), 0u);
    EXPECT_EQ(remainderHash(nullptr), 0u);
    EXPECT_EQ(remainderHash(""), 0u);
    // A modulus of 0 yields the unreduced hash instead of dividing by zero.
    EXPECT_EQ(rsHash("hello", 0), 0x3AD49E92u);
}

} // namespace
