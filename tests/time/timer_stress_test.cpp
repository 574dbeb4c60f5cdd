// SPDX-License-Identifier: MIT
// Several threads add, refresh and delete timers while heartbeats expire them; every timer that
// was not deleted fires exactly once and every record goes back to the pool.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <array>
#include <memory>
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

void churn(std::vector<Shot> &shots, std::vector<Shot> &follows, unsigned seed) {
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < shots.size(); ++i) {
        Shot &shot = shots[i];
        const bool doomed = random() % 4 == 0;
        if (random() % 5 == 0) {
            shot.follow = &follows[i];
        }
        // Doomed timers are deleted long before they could fire; the others fire soon.
        const std::int64_t delay = doomed ? kNeverMs : static_cast<std::int64_t>(random() % 200);
        shot.id.store(uTimerAddWithOptions(onShot, &shot, delay, random() % 3 == 0 ? 1 : 0));
        ASSERT_NE(shot.id.load(), 0U);
        if (i > 0 && random() % 3 == 0) {
            // Refreshing a timer that may be expiring at this very moment: it fires once either
            // way, at its old or its new time.
            Shot &earlier = shots[random() % i];
            if (!earlier.deleted) {
                uTimerRefresh(earlier.id.load(), static_cast<std::int32_t>(random() % 150));
            }
        }
        if (doomed) {
            uTimerDel(shot.id.load());
            shot.deleted = true;
        }
        uTimerRemainGet(shot.id.load());
        if (i % 16 == 0) {
            std::this_thread::yield();
        }
    }
}

TEST_F(TimerTest, ConcurrentAddRefreshDeleteWhileFiring) {
    const std::size_t poolBefore = freeRecords();
    std::vector<std::vector<Shot>> shots(kThreads);
    std::vector<std::vector<Shot>> follows(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        shots[t] = std::vector<Shot>(kTimersPerThread);
        follows[t] = std::vector<Shot>(kTimersPerThread);
    }

    std::atomic<bool> done{false};
    std::thread beater([&] {
        while (!done.load()) {
            advance(7);
        }
    });
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back(churn, std::ref(shots[t]), std::ref(follows[t]), 1234U + t);
    }
    for (std::thread &worker : workers) {
        worker.join();
    }
    done.store(true);
    beater.join();
    for (int i = 0; i < 3; ++i) {
        advance(1000); // everything still pending is due within this
    }

    int expected = 0;
    int fired = 0;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kTimersPerThread; ++i) {
            const Shot &shot = shots[t][i];
            EXPECT_EQ(shot.fired.load(), shot.deleted ? 0 : 1) << "thread " << t << " timer " << i;
            expected += shot.deleted ? 0 : 1;
            fired += shot.fired.load();
            const Shot &follow = follows[t][i];
            if (shot.follow != nullptr && !shot.deleted) {
                EXPECT_EQ(follow.fired.load(), 1) << "follow-up of thread " << t << " timer " << i;
            }
        }
    }
    EXPECT_EQ(fired, expected);
    EXPECT_GT(expected, 0);
    EXPECT_EQ(freeRecords(), poolBefore);
}

} // namespace
} // namespace pu::test
