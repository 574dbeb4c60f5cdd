// SPDX-License-Identifier: MIT
// Checked size arithmetic: the boundaries where size_t and uMalloc's 32-bit size wrap.
#include "core/checked_size.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using pu::core::CheckedSize;

constexpr std::size_t kMax = SIZE_MAX;
constexpr CheckedSize kNone = std::nullopt;

TEST(CheckedSize, AddMultiplyAndAllocateRefuseWhatTheSizesCannotHold) {
    const struct {
        CheckedSize a, b, sum, product;
    } cases[] = {
        {kMax, 0, kMax, 0},
        {kMax, 1, kNone, kMax},
        {kMax - 1, 1, kMax, kMax - 1},
        {kMax / 2, kMax / 2 + 1, kMax, kNone},
        {kMax / 3, 3, kMax / 3 + 3, kMax},      // SIZE_MAX is divisible by 3 on both widths
        {kMax / 3 + 1, 3, kMax / 3 + 4, kNone}, // 3 * length + 1 of a 1.43 GB text on 32 bits
        {kNone, 1, kNone, kNone},
        {kNone, 0, kNone, kNone}, // nothing times 0 is still nothing
    };
    for (const auto &c : cases) {
        const std::string at =
            std::to_string(c.a.value_or(42)) + ", " + std::to_string(c.b.value_or(42));
        EXPECT_EQ(pu::core::checkedAdd(c.a, c.b), c.sum) << at;
        EXPECT_EQ(pu::core::checkedAdd(c.b, c.a), c.sum) << at;
        EXPECT_EQ(pu::core::checkedMul(c.a, c.b), c.product) << at;
        EXPECT_EQ(pu::core::checkedMul(c.b, c.a), c.product) << at;
    }
    const std::size_t past = std::size_t{UINT32_MAX} + (SIZE_MAX > UINT32_MAX ? 1 : 0);
    EXPECT_EQ(pu::core::allocationSize(UINT32_MAX), UINT32_MAX);
    EXPECT_EQ(pu::core::allocationSize(kNone), std::nullopt);
    EXPECT_EQ(pu::core::allocate(kNone), nullptr);
    if (past != UINT32_MAX) {
        EXPECT_EQ(pu::core::allocationSize(past + 3), std::nullopt); // not 3
        EXPECT_EQ(pu::core::allocate(past + 3), nullptr);
    }
    char *copy = pu::core::copyText("abc");
    EXPECT_STREQ(copy, "abc");
    uFree(copy);
}

} // namespace
