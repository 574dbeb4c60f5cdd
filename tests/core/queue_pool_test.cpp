// SPDX-License-Identifier: MIT
// uQm and uBm: ordering rules, empty and null cases, and concurrent use of one pool.
#include <platform_os.h>
#include <uqueue.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

// A caller element: the link word first, the data after it.
struct Item {
    void *link;
    int value;
};

TEST(Queue, FifoAndEmptiesCleanly) {
    uQm queue;
    uQmInit(&queue);
    Item items[3] = {{nullptr, 1}, {nullptr, 2}, {nullptr, 3}};
    for (auto &item : items) {
        uQmEnq(&queue, &item.value);
    }
    EXPECT_EQ(queue.count, 3);
    for (auto &item : items) {
        EXPECT_EQ(uQmDeq(&queue), &item.value);
    }
    EXPECT_EQ(queue.head, nullptr);
    EXPECT_EQ(queue.tail, nullptr);
    EXPECT_EQ(uQmDeq(&queue), nullptr);
    EXPECT_EQ(queue.count, 0); // an empty dequeue returns before touching the count

    uQmEnq(&queue, &items[0].value); // reusable after emptying
    EXPECT_EQ(queue.head, queue.tail);
    EXPECT_EQ(uQmDeq(&queue), &items[0].value);
    EXPECT_EQ(uQmDeq(&queue), nullptr);
    semDelete(queue.lock);
}

TEST(Queue, NullArgumentsAreIgnored) {
    uQmInit(nullptr);
    uQmEnq(nullptr, nullptr);
    EXPECT_EQ(uQmDeq(nullptr), nullptr);
    EXPECT_EQ(uBmAlloc(nullptr), nullptr);
    uBmFree(nullptr);
}

class Pool : public ::testing::Test {
  protected:
    void init(uint32_t count, uint32_t size) {
        memory.assign(U_BM_HEAP_SIZE(count, size), 0);
        uBmInitHeap(&pool, count, size, memory.data());
    }
    void TearDown() override { semDelete(pool.freeQueue.lock); }
    // Data pointer of block i in the area: blocks are laid out back to back.
    void *block(uint32_t i, uint32_t size) {
        return memory.data() + i * (size + U_BM_BLOCK_OVERHEAD) + U_BM_BLOCK_OVERHEAD;
    }
    std::vector<char> memory;
    uBm pool{};
};

TEST_F(Pool, AddressOrderFirstThenLeastRecentlyFreed) {
    init(3, 24);
    EXPECT_EQ(pool.blockCount, 3u);
    EXPECT_EQ(pool.blockSize, 24u);
    EXPECT_EQ(pool.reservedA, 3u);
    EXPECT_EQ(pool.reservedB, 3u);
    void *b0 = uBmAlloc(&pool);
    void *b1 = uBmAlloc(&pool);
    void *b2 = uBmAlloc(&pool);
    EXPECT_EQ(b0, block(0, 24));
    EXPECT_EQ(b1, block(1, 24));
    EXPECT_EQ(b2, block(2, 24));
    EXPECT_EQ(uBmAlloc(&pool), nullptr);

    uBmFree(b1);
    uBmFree(b0);
    EXPECT_EQ(uBmAlloc(&pool), b1);
    EXPECT_EQ(uBmAlloc(&pool), b0);
    EXPECT_EQ(uBmAlloc(&pool), nullptr);

    // Each block carries its owner in front of the link word.
    EXPECT_EQ(static_cast<uBm **>(b2)[-2], &pool);
}

TEST_F(Pool, ZeroBlocksGivesNothing) {
    init(0, 16);
    EXPECT_EQ(uBmAlloc(&pool), nullptr);
}

TEST_F(Pool, BlocksOfTwoPoolsReturnToTheirOwner) {
    init(1, 8);
    std::vector<char> otherMemory(U_BM_HEAP_SIZE(1, 8));
    uBm other{};
    uBmInitHeap(&other, 1, 8, otherMemory.data());
    void *mine = uBmAlloc(&pool);
    void *theirs = uBmAlloc(&other);
    uBmFree(theirs);
    uBmFree(mine);
    EXPECT_EQ(uBmAlloc(&pool), mine);
    EXPECT_EQ(uBmAlloc(&other), theirs);
    semDelete(other.freeQueue.lock);
}

// Threads allocate and free concurrently; a block is never handed to two holders at once and
// every block is back at the end.
TEST_F(Pool, ConcurrentAllocFreeNeverSharesABlock) {
    constexpr uint32_t kBlocks = 64;
    init(kBlocks, sizeof(int));
    std::vector<std::atomic<int>> holders(kBlocks);
    std::atomic<bool> shared{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                void *p = uBmAlloc(&pool);
                if (p == nullptr) {
                    continue;
                }
                auto index = static_cast<size_t>(static_cast<char *>(p) - memory.data()) /
                             (sizeof(int) + U_BM_BLOCK_OVERHEAD);
                if (holders[index].fetch_add(1) != 0) {
                    shared = true;
                }
                *static_cast<int *>(p) = i;
                holders[index].fetch_sub(1);
                uBmFree(p);
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(shared.load());
    std::set<void *> all;
    while (void *p = uBmAlloc(&pool)) {
        all.insert(p);
    }
    EXPECT_EQ(all.size(), kBlocks);
}

} // namespace
