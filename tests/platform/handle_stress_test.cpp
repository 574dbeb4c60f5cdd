// SPDX-License-Identifier: MIT
// Many threads creating, using and deleting handles at once: lookups stay safe and exact.
#include <platform_os.h>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 4;

TEST(HandleStress, CreatedHandlesAreUniqueAndDieWithDelete) {
    constexpr int kRounds = 3000;
    std::mutex mutex;
    std::set<uint32_t> live;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                bool queue = (i + t) % 3 == 0;
                uint32_t id = queue ? msgQCreate(2, 4, 0) : semBCreate(0, SEM_FULL);
                {
                    std::lock_guard lock(mutex);
                    if (id == 0 || !live.insert(id).second) {
                        failures.fetch_add(1); // 0, or a handle that is still in use
                    }
                }
                bool used = queue ? msgQNumMsgs(id) == 0 : semTake(id, NO_WAIT) == 0;
                {
                    std::lock_guard lock(mutex);
                    live.erase(id);
                }
                int deleted = queue ? msgQDelete(id) : semDelete(id);
                bool dead = queue ? msgQNumMsgs(id) == -1 : semTake(id, NO_WAIT) == -1;
                if (!used || deleted != 0 || !dead) {
                    failures.fetch_add(1);
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
}

TEST(HandleStress, SharedMutexExcludes) {
    constexpr int kIncrements = 20000;
    SEM_ID id = semMCreate(0);
    long counter = 0; // guarded only by the platform mutex
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kIncrements; ++i) {
                semTake(id, WAIT_FOREVER);
                semTake(id, WAIT_FOREVER); // re-entry, as nested list operations do
                ++counter;
                semGive(id);
                semGive(id);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, static_cast<long>(kThreads) * kIncrements);
    EXPECT_EQ(semDelete(id), 0);
}

// Threads take, give, delete and replace semaphores in a shared array, so lookups constantly
// meet handles that were deleted a moment ago and slots that were reused.
TEST(HandleStress, DeletesRacingWithTakesAndGives) {
    constexpr int kSlots = 16;
    constexpr int kOperations = 20000;
    std::atomic<uint32_t> ids[kSlots];
    for (auto &id : ids) {
        id.store(semMCreate(0));
    }
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::minstd_rand random(static_cast<unsigned>(t + 1));
            for (int i = 0; i < kOperations; ++i) {
                auto &slot = ids[random() % kSlots];
                uint32_t id = slot.load();
                if (random() % 16 == 0) {
                    uint32_t fresh = semMCreate(0);
                    if (slot.compare_exchange_strong(id, fresh)) {
                        semDelete(id); // may race with a holder; the holder's give then fails
                    } else {
                        semDelete(fresh);
                    }
                    continue;
                }
                if (semTake(id, 1) == 0) {
                    int given = semGive(id);
                    // The give may only fail because someone deleted the mutex meanwhile.
                    if (given != 0 && semTake(id, NO_WAIT) != -1) {
                        failures.fetch_add(1);
                    }
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
    for (auto &id : ids) {
        EXPECT_EQ(semDelete(id.load()), 0);
    }
}

} // namespace
