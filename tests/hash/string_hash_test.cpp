// SPDX-License-Identifier: MIT
// The three exported string hashes on values that can be checked by hand, and at the points
// where a mask, a sign or a modulus would change the result.
#include <uhash.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(StringHash, KnownValues) {
    const struct {
        const char *text;
        uint32_t modulus;
        uint32_t rs;
        uint64_t bkdr, sum;
    } cases[] = {
        {nullptr, 1024, 0, 0, 0},
        {nullptr, 0, 0, 0, 0},
        {"", 1024, 0, 0, 0},
        {"a", 0, 97, 97, 97},
        // rs: 97 * (63689 * 378551 mod 2^32) + 98, top bit set; bkdr: 97 * 131 + 98.
        {"ab", 0, 0x80E76FB1, 12805, 195},
        {"ab", 1000, 0x80E76FB1u % 1000, 12805, 195}, // 57; a 31-bit mask would give 409
        {"ab", 1, 0, 12805, 195},
        // Bytes are read unsigned: 255 * 131 + 254, and 255 + 254 + 128.
        {"\xff\xfe", 0, 0x6D43624F, 33659, 509},
        {"\xff\xfe\x80", 0, 0xA8915837, 0x434871, 637},
        {"SYSTEM_TIME_UPDATED", 1000, 589, 0x61B83859, 1497},
        {"SYSTEM_TIME_UPDATED", 0xFFFFFFFF, 0xD75004F5, 0x61B83859, 1497},
        // 0xC5181667 before the mask: BKDR keeps only the low 31 bits.
        {"The quick brown fox jumps over the lazy dog", 0, 0x29A4500B, 0x45181667, 4057},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.text == nullptr ? "(null)" : c.text) + " mod " +
                     std::to_string(c.modulus));
        EXPECT_EQ(rsHash(c.text, c.modulus), c.rs);
        EXPECT_EQ(bkdrHash(c.text), c.bkdr);
        EXPECT_EQ(remainderHash(c.text), c.sum);
    }
    const std::string big(100000, '\xee'); // the sum passes 2^31 only with the mask
    EXPECT_EQ(remainderHash(big.c_str()), (100000ull * 0xee) & 0x7FFFFFFF);
}

} // namespace
