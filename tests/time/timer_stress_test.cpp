// SPDX-License-Identifier: MIT
// Several threads add, refresh and delete timers while heartbeats expire them; every timer that
// was not deleted fires exactly once, so do the follow-ups their callbacks add, and every record
// goes back to the pool.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <test_support.hpp>

#include <random>
#include <thread>

namespace pu::test {
namespace {

constexpr int kThreads = 4;
constexpr int kTimersPerThread = 100;          // with their follow-ups, within the pool
constexpr std::int64_t kNeverMs = 3600 * 1000; // far beyond the simulated time of the test

struct Shot {
    std::atomic<int> fired{0};
    std::atomic<std::uint32_t> id{0};
    bool deleted = false;   // written by its owner thread only, read after the join
    Shot *follow = nullptr; // a follow-up timer its callback adds
};

void onShot(void *arg) {
    auto *shot = static_cast<Shot *>(arg);
    shot->fired.fetch_add(1);
    if (shot->follow != nullptr) {
        shot->follow->id.store(uTimerAdd(onShot, shot->follow, 3));
    }
}

// Counts the records the pool can still hand out, and gives them back.
std::size_t freeRecords() {
    LogCapture quiet; // the add that finds the pool empty logs
    std::vector<std::uint32_t> ids;
    for (std::uint32_t id; (id = uTimerAdd(nullptr, nullptr, kNeverMs)) != 0;) {
        ids.push_back(id);
    }
    for (std::uint32_t id : ids) {
        uTimerDel(id);
    }
    return ids.size();
}

TEST_F(TimerTest, ConcurrentAddRefreshDeleteWhileFiring) {
    const std::size_t poolBefore = freeRecords();
    std::vector<Shot> shots(kThreads * kTimersPerThread), follows(shots.size());
    std::atomic<bool> done{false};
    std::thread beater([&] {
        while (!done.load()) {
            advance(7);
        }
    });
    fanOut(kThreads, [&](int t) {
        std::mt19937 random(1234U + static_cast<unsigned>(t)); // a fixed mix of operations
        for (int i = t * kTimersPerThread; i < (t + 1) * kTimersPerThread; ++i) {
            Shot &shot = shots[i];
            const bool doomed = random() % 4 == 0; // deleted long before it could fire
            shot.follow = random() % 5 == 0 ? &follows[i] : nullptr;
            const std::int64_t delay = doomed ? kNeverMs : random() % 200;
            shot.id.store(uTimerAddWithOptions(onShot, &shot, delay, random() % 3 == 0 ? 1 : 0));
            ASSERT_NE(shot.id.load(), 0U);
            Shot &earlier = shots[t * kTimersPerThread + random() % (i - t * kTimersPerThread + 1)];
            if (!earlier.deleted && &earlier != &shot) {
                // It may be expiring at this very moment: it fires once either way.
                uTimerRefresh(earlier.id.load(), static_cast<std::int32_t>(random() % 150));
            }
            if (doomed) {
                uTimerDel(shot.id.load());
                shot.deleted = true;
            }
        }
    });
    done.store(true);
    beater.join();
    for (int i = 0; i < 3; ++i) {
        advance(1000); // everything still pending is due within this
    }
    for (std::size_t i = 0; i < shots.size(); ++i) {
        EXPECT_EQ(shots[i].fired.load(), shots[i].deleted ? 0 : 1) << "timer " << i;
        if (shots[i].follow != nullptr && !shots[i].deleted) {
            EXPECT_EQ(follows[i].fired.load(), 1) << "follow-up of timer " << i;
        }
    }
    EXPECT_EQ(freeRecords(), poolBefore);
}

} // namespace
} // namespace pu::test
