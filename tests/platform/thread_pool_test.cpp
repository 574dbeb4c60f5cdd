// SPDX-License-Identifier: MIT
// Thread pools: per-id order, spreading of shared calls, and waiting for idle pools.
#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(ThreadPool, RefusesBadArguments) {
    EXPECT_EQ(taskThrPoolCreate(0), 0u);
    EXPECT_EQ(taskThrPoolCreate(-1), 0u);
    THR_POOL_ID pool = taskThrPoolCreate(1);
    ASSERT_NE(pool, 0u);
    EXPECT_EQ(taskThrPoolAddTask(pool, nullptr, nullptr, -1), -1);
    EXPECT_EQ(taskThrPoolAddTask(
                  0, [](void *) {}, nullptr, -1),
              -1);
    EXPECT_EQ(taskThrPoolAddTask(
                  pool + 1, [](void *) {}, nullptr, -1),
              -1);
}

// Each id has its own sequence; calls of one id must arrive one after another, in order.
struct Sequences {
    static constexpr int kIds = 6;
    std::vector<int> seen[kIds];
};

struct SequencedCall {
    Sequences *sequences;
    int id;
    int number;
};

TEST(ThreadPool, CallsWithTheSameIdRunInOrder) {
    THR_POOL_ID pool = taskThrPoolCreate(4);
    ASSERT_NE(pool, 0u);
    constexpr int kPerId = 1000;
    Sequences sequences;
    std::vector<SequencedCall> calls;
    calls.reserve(Sequences::kIds * kPerId);
    for (int n = 0; n < kPerId; ++n) {
        for (int id = 0; id < Sequences::kIds; ++id) {
            calls.push_back({&sequences, id, n});
        }
    }
    for (SequencedCall &call : calls) {
        // Ids 4 and 5 share workers with 0 and 1 (k mod 4); 100 + id shares too.
        int taskId = call.id < 4 ? call.id : 100 + call.id;
        ASSERT_EQ(taskThrPoolAddTask(
                      pool,
                      [](void *raw) {
                          auto *call = static_cast<SequencedCall *>(raw);
                          // Unlocked on purpose: same-id calls must never overlap.
                          call->sequences->seen[call->id].push_back(call->number);
                      },
                      &call, taskId),
                  0);
    }
    platformSimWaitPoolsIdle();
    for (int id = 0; id < Sequences::kIds; ++id) {
        ASSERT_EQ(sequences.seen[id].size(), static_cast<size_t>(kPerId)) << "id " << id;
        for (int n = 0; n < kPerId; ++n) {
            ASSERT_EQ(sequences.seen[id][n], n) << "id " << id;
        }
    }
}

// Calls that hold their worker until all of them have arrived.
struct Rendezvous {
    std::mutex mutex;
    std::condition_variable changed;
    int expected = 0;
    int arrived = 0;
    std::set<std::thread::id> threads;

    void arrive() {
        std::unique_lock lock(mutex);
        ++arrived;
        threads.insert(std::this_thread::get_id());
        changed.notify_all();
        changed.wait_for(lock, std::chrono::seconds(10), [&] { return arrived >= expected; });
    }

    bool allArrived() {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10),
                                [&] { return arrived >= expected; });
    }
};

TEST(ThreadPool, SharedCallsSpreadOverIdleWorkers) {
    constexpr int kWorkers = 3;
    THR_POOL_ID pool = taskThrPoolCreate(kWorkers);
    Rendezvous rendezvous;
    rendezvous.expected = kWorkers;
    for (int i = 0; i < kWorkers; ++i) {
        ASSERT_EQ(
            taskThrPoolAddTask(
                pool, [](void *raw) { static_cast<Rendezvous *>(raw)->arrive(); }, &rendezvous, -1),
            0);
    }
    EXPECT_TRUE(rendezvous.allArrived()) << "a call waited for a busy worker";
    platformSimWaitPoolsIdle();
    EXPECT_EQ(rendezvous.threads.size(), static_cast<size_t>(kWorkers));
}

TEST(ThreadPool, NegativeIdsOtherThanMinusOneAlsoShare) {
    THR_POOL_ID pool = taskThrPoolCreate(2);
    Rendezvous rendezvous;
    rendezvous.expected = 2;
    auto arrive = [](void *raw) { static_cast<Rendezvous *>(raw)->arrive(); };
    ASSERT_EQ(taskThrPoolAddTask(pool, arrive, &rendezvous, -7), 0);
    ASSERT_EQ(taskThrPoolAddTask(pool, arrive, &rendezvous, -1), 0);
    EXPECT_TRUE(rendezvous.allArrived());
    platformSimWaitPoolsIdle();
}

// A chain of calls in which each call queues the next one, across two pools.
struct Chain {
    THR_POOL_ID pools[2];
    int remaining;
    std::atomic<int> ran{0};
};

void runChainLink(void *raw) {
    auto *chain = static_cast<Chain *>(raw);
    chain->ran.fetch_add(1, std::memory_order_relaxed);
    if (--chain->remaining > 0) {
        // Give the pool a moment with nothing queued but this call running.
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        taskThrPoolAddTask(chain->pools[chain->remaining % 2], runChainLink, chain,
                           chain->remaining % 3 - 1);
    }
}

TEST(ThreadPool, IdleWaitCoversCallsQueuedByRunningCalls) {
    Chain chain{{taskThrPoolCreate(2), taskThrPoolCreate(3)}, 50};
    ASSERT_EQ(taskThrPoolAddTask(chain.pools[0], runChainLink, &chain, 0), 0);
    platformSimWaitPoolsIdle();
    EXPECT_EQ(chain.ran.load(), 50);
    EXPECT_EQ(chain.remaining, 0);
}

} // namespace
