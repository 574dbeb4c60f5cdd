// SPDX-License-Identifier: MIT
// Several threads setting and reading statuses and drawing and releasing ids at once. Run under
// ThreadSanitizer too: the unlocked status readers must not be data races.
#include <ustatus.h>
#include <uuniqueid.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 4;
constexpr std::uint32_t kRounds = 3000;
constexpr std::int32_t kIds = 32;
constexpr std::size_t kHeldPerThread = 6; // 4 * 6 < 32: a draw never runs dry

struct Shared {
    std::array<std::atomic<int>, kIds> holders{};
    std::atomic<int> duplicates{0};
    std::atomic<int> failedDraws{0};
    std::atomic<int> backwardReads{0};
};

std::string ownName(int thread) {
    return "stress-own-" + std::to_string(thread);
}

void worker(int self, Shared &shared) {
    const std::string own = ownName(self);
    const std::string watched = ownName((self + 1) % kThreads);
    std::uint32_t lastSeen = 0;
    std::deque<std::int32_t> held;
    for (std::uint32_t round = 1; round <= kRounds; ++round) {
        setSystemStatus(own.c_str(), round);
        // New names keep arriving while others probe past the slots they land in.
        setSystemStatus(("stress-shared-" + std::to_string(round % 300)).c_str(), round);

        std::uint32_t seen = 0;
        if (getSystemStatus(watched.c_str(), &seen) == 0) {
            // Its writer only counts up: an unlocked read may be stale but never goes back.
            shared.backwardReads += seen < lastSeen;
            lastSeen = seen;
        }

        const std::int32_t id = uIdGetModuleAvailableUniqueId("stress");
        if (id < 0 || id >= kIds) {
            ++shared.failedDraws;
        } else {
            shared.duplicates += shared.holders[id].exchange(1) != 0;
            held.push_back(id);
        }
        if (held.size() > kHeldPerThread || (round == kRounds && !held.empty())) {
            while (!held.empty()) {
                shared.holders[held.front()].store(0);
                uIdReleaseModuleUniqueId("stress", held.front());
                held.pop_front();
            }
        }
    }
}

TEST(Concurrency, StatusesAndIdsUnderContention) {
    statusBuffFree();
    uIdRegisterUniqueIdModule("stress", 0, kIds);
    Shared shared;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back(worker, t, std::ref(shared));
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(shared.duplicates.load(), 0);
    EXPECT_EQ(shared.failedDraws.load(), 0);
    EXPECT_EQ(shared.backwardReads.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        std::uint32_t value = 0;
        EXPECT_EQ(getSystemStatus(ownName(t).c_str(), &value), 0);
        EXPECT_EQ(value, kRounds);
    }
    // Every id came back.
    std::vector<std::int32_t> all;
    for (std::int32_t i = 0; i <= kIds; ++i) {
        all.push_back(uIdGetModuleAvailableUniqueId("stress"));
    }
    EXPECT_EQ(all.back(), -1);
    all.pop_back();
    std::sort(all.begin(), all.end());
    for (std::int32_t i = 0; i < kIds; ++i) {
        EXPECT_EQ(all[i], i);
    }
    uIdUnregisterUniqueIdModule("stress");
    statusBuffFree();
}

} // namespace
