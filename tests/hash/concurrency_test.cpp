// SPDX-License-Identifier: MIT
// Threads setting and reading statuses and drawing and releasing ids at once. Under
// ThreadSanitizer the unlocked status readers must not be data races.
#include <ustatus.h>
#include <uuniqueid.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <string>
#include <vector>

namespace {

TEST(Concurrency, StatusesAndIdsUnderContention) {
    constexpr int kThreads = 4, kIds = 32, kHeld = 6; // 4 * (6 + 1) < 32: a draw never runs dry
    constexpr std::uint32_t kRounds = 3000;
    statusBuffFree();
    uIdRegisterUniqueIdModule("stress", 0, kIds);
    std::array<std::atomic<int>, kIds> holders{};
    std::atomic<int> failures{0};
    pu::test::fanOut(kThreads, [&](int self) {
        const std::string own = "own-" + std::to_string(self),
                          watched = "own-" + std::to_string((self + 1) % kThreads);
        std::uint32_t lastSeen = 0;
        std::vector<std::int32_t> held;
        for (std::uint32_t round = 1; round <= kRounds; ++round) {
            setSystemStatus(own.c_str(), round);
            // New names keep arriving while others probe past the slots they land in.
            setSystemStatus(("shared-" + std::to_string(round % 300)).c_str(), round);
            std::uint32_t seen = 0;
            if (getSystemStatus(watched.c_str(), &seen) == 0) {
                failures += seen < lastSeen; // stale maybe, but a counter never goes back
                lastSeen = seen;
            }
            const std::int32_t id = uIdGetModuleAvailableUniqueId("stress");
            if (id < 0 || id >= kIds) {
                ++failures;
                continue;
            }
            failures += holders[static_cast<std::size_t>(id)].exchange(1) != 0;
            held.push_back(id);
            if (held.size() > kHeld || round == kRounds) {
                for (std::int32_t h : held) {
                    holders[static_cast<std::size_t>(h)].store(0);
                    uIdReleaseModuleUniqueId("stress", h);
                }
                held.clear();
            }
        }
    });
    EXPECT_EQ(failures.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        std::uint32_t value = 0;
        EXPECT_EQ(getSystemStatus(("own-" + std::to_string(t)).c_str(), &value), 0);
        EXPECT_EQ(value, kRounds);
    }
    std::set<std::int32_t> all; // every id came back
    for (int i = 0; i < kIds; ++i) {
        all.insert(uIdGetModuleAvailableUniqueId("stress"));
    }
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kIds));
    EXPECT_EQ(*all.begin(), 0);
    EXPECT_EQ(uIdGetModuleAvailableUniqueId("stress"), -1);
    uIdUnregisterUniqueIdModule("stress");
    statusBuffFree();
}

} // namespace
