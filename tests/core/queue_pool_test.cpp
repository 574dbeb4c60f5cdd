// SPDX-License-Identifier: MIT
// uQm and uBm: the order rules, running dry, owners of blocks, and one pool shared by threads.
#include <platform_os.h>
#include <uqueue.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <vector>

namespace {

// A caller element: the link word first, the data after it.
struct Item {
    void *link;
    int value;
};

// Steps: "e<k>" enqueues item k, "d<k>" dequeues and expects item k, "d-" expects nothing.
TEST(Queue, FifoAndRunningDry) {
    const char *scripts[] = {"e0 e1 e2 d0 d1 d2 d- d-", "d- e0 d0 d- e1 e2 d1 e0 d2 d0 d-"};
    for (const char *script : scripts) {
        SCOPED_TRACE(script);
        Item items[3] = {};
        uQm queue;
        uQmInit(&queue);
        int queued = 0;
        for (const char *p = script; *p != '\0'; p += 3) {
            if (p[0] == 'e') {
                uQmEnq(&queue, &items[p[1] - '0'].value);
                ++queued;
            } else {
                void *out = uQmDeq(&queue);
                EXPECT_EQ(out, p[1] == '-' ? nullptr : &items[p[1] - '0'].value) << p - script;
                queued -= out != nullptr;
            }
            EXPECT_EQ(queue.count, queued);
            EXPECT_EQ(queue.head == nullptr, queued == 0);
            EXPECT_EQ(queue.tail == nullptr, queued == 0);
            if (*(p + 2) == '\0') {
                break;
            }
        }
        semDelete(queue.lock);
    }
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
    std::size_t indexOf(void *block, uint32_t size) const {
        return static_cast<std::size_t>(static_cast<char *>(block) - memory.data()) /
               (size + U_BM_BLOCK_OVERHEAD);
    }
    std::vector<char> memory;
    uBm pool{};
};

// Steps: "a<k>" allocates and expects block k, "a-" expects exhaustion, "f<k>" frees block k.
TEST_F(Pool, AddressOrderFirstThenLeastRecentlyFreed) {
    const struct {
        uint32_t count, size;
        const char *script;
    } cases[] = {
        {3, 24, "a0 a1 a2 a- f1 f0 a1 a0 a- f2 a2 a-"}, {0, 16, "a- a-"}, {1, 1, "a0 a- f0 a0 a-"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.script);
        init(c.count, c.size);
        EXPECT_EQ(pool.blockCount, c.count);
        EXPECT_EQ(pool.blockSize, c.size);
        EXPECT_EQ(pool.reservedA, c.count);
        EXPECT_EQ(pool.reservedB, c.count);
        const auto block = [&](char k) {
            return memory.data() + (k - '0') * (c.size + U_BM_BLOCK_OVERHEAD) + U_BM_BLOCK_OVERHEAD;
        };
        for (const char *p = c.script; p[0] != '\0' && p[1] != '\0'; p += p[2] == '\0' ? 2 : 3) {
            if (p[0] == 'f') {
                uBmFree(block(p[1]));
            } else if (p[1] == '-') {
                EXPECT_EQ(uBmAlloc(&pool), nullptr) << p - c.script;
            } else {
                void *got = uBmAlloc(&pool);
                EXPECT_EQ(got, block(p[1])) << p - c.script;
                EXPECT_EQ(static_cast<uBm **>(got)[-2], &pool)
                    << "the owner sits in front of the link";
            }
        }
        semDelete(pool.freeQueue.lock);
    }
    init(0, 16);
}

TEST_F(Pool, BlocksReturnToTheirOwnPool) {
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

// A block is never handed to two holders at once, and every block is back at the end.
TEST_F(Pool, ConcurrentAllocFreeNeverSharesABlock) {
    constexpr uint32_t kBlocks = 8; // fewer than the threads want, so the pool runs dry often
    init(kBlocks, sizeof(int));
    std::vector<std::atomic<int>> holders(kBlocks);
    std::atomic<int> shared{0};
    pu::test::fanOut(4, [&](int t) {
        for (int i = 0; i < 20000; ++i) {
            void *p[3] = {uBmAlloc(&pool), uBmAlloc(&pool), uBmAlloc(&pool)};
            for (void *block : p) {
                if (block != nullptr) {
                    shared += holders[indexOf(block, sizeof(int))].fetch_add(1) != 0;
                    *static_cast<int *>(block) = t;
                }
            }
            for (void *block : p) {
                if (block != nullptr) {
                    holders[indexOf(block, sizeof(int))].fetch_sub(1);
                    uBmFree(block);
                }
            }
        }
    });
    EXPECT_EQ(shared.load(), 0);
    std::set<void *> all;
    while (void *p = uBmAlloc(&pool)) {
        all.insert(p);
    }
    EXPECT_EQ(all.size(), kBlocks);
}

} // namespace
