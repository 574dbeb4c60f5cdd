// SPDX-License-Identifier: MIT
// uQm and uBm: the order rules, running dry, owners of blocks, and one pool shared by threads.
#include <platform_os.h>
#include <uqueue.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Steps: "e<k>" enqueues item k, "d<k>" dequeues and expects item k, "d-" expects nothing.
TEST(Queue, FifoAndRunningDry) {
    for (const char *script : {"e0 e1 e2 d0 d1 d2 d- d-", "d- e0 d0 d- e1 e2 d1 e0 d2 d0 d-"}) {
        struct {
            void *link; // the caller's element: the link word first, the data after it
            int value;
        } items[3] = {};
        uQm queue;
        uQmInit(&queue);
        int queued = 0;
        std::istringstream steps(script);
        for (std::string step; steps >> step;) {
            void *item = step[1] == '-' ? nullptr : &items[step[1] - '0'].value;
            if (step[0] == 'e') {
                uQmEnq(&queue, item);
                ++queued;
            } else {
                EXPECT_EQ(uQmDeq(&queue), item) << script << ": " << step;
                queued -= item != nullptr;
            }
            EXPECT_EQ(queue.count, queued) << script << ": " << step;
            EXPECT_EQ((queue.head == nullptr) + (queue.tail == nullptr), queued == 0 ? 2 : 0);
        }
        semDelete(queue.lock);
    }
    uQmInit(nullptr);
    uQmEnq(nullptr, nullptr);
    uBmFree(nullptr);
    EXPECT_EQ(uQmDeq(nullptr), nullptr);
    EXPECT_EQ(uBmAlloc(nullptr), nullptr);
}

struct Pool {
    Pool(uint32_t count, uint32_t size) : size(size), memory(U_BM_HEAP_SIZE(count, size)) {
        uBmInitHeap(&pool, count, size, memory.data());
    }
    ~Pool() { semDelete(pool.freeQueue.lock); }
    void *block(int k) {
        return memory.data() + k * (size + U_BM_BLOCK_OVERHEAD) + U_BM_BLOCK_OVERHEAD;
    }
    std::size_t indexOf(void *block) const {
        return static_cast<std::size_t>(static_cast<char *>(block) - memory.data()) /
               (size + U_BM_BLOCK_OVERHEAD);
    }
    uint32_t size;
    std::vector<char> memory;
    uBm pool{};
};

// Steps: "a<k>" allocates and expects block k, "a-" expects exhaustion, "f<k>" frees block k.
TEST(BlockPool, AddressOrderFirstThenLeastRecentlyFreedToTheOwner) {
    const struct {
        uint32_t count, size;
        const char *script;
    } cases[] = {
        {3, 24, "a0 a1 a2 a- f1 f0 a1 a0 a- f2 a2 a-"}, {0, 16, "a- a-"}, {1, 1, "a0 a- f0 a0 a-"}};
    for (const auto &c : cases) {
        Pool p(c.count, c.size), other(1, c.size);
        EXPECT_EQ(p.pool.blockCount + p.pool.reservedA + p.pool.reservedB, 3 * c.count) << c.script;
        EXPECT_EQ(p.pool.blockSize, c.size);
        std::istringstream steps(c.script);
        for (std::string step; steps >> step;) {
            uBmFree(uBmAlloc(&other.pool)); // a block of another pool goes back there
            if (step[0] == 'f') {
                uBmFree(p.block(step[1] - '0'));
                continue;
            }
            void *got = uBmAlloc(&p.pool);
            EXPECT_EQ(got, step[1] == '-' ? nullptr : p.block(step[1] - '0'))
                << c.script << ": " << step;
            EXPECT_TRUE(got == nullptr || static_cast<uBm **>(got)[-2] == &p.pool)
                << "the owner sits in front of the link";
        }
    }
}

// A block is never handed to two holders at once, and every block is back at the end.
TEST(BlockPool, ConcurrentAllocFreeNeverSharesABlock) {
    constexpr uint32_t kBlocks = 8; // fewer than the threads want, so the pool runs dry often
    Pool p(kBlocks, sizeof(int));
    std::vector<std::atomic<int>> holders(kBlocks);
    std::atomic<int> shared{0};
    pu::test::fanOut(4, [&](int t) {
        for (int i = 0; i < 20000; ++i) {
            void *blocks[3] = {uBmAlloc(&p.pool), uBmAlloc(&p.pool), uBmAlloc(&p.pool)};
            for (void *block : blocks) {
                if (block != nullptr) {
                    shared += holders[p.indexOf(block)].fetch_add(1) != 0;
                    *static_cast<int *>(block) = t;
                }
            }
            for (void *block : blocks) {
                if (block != nullptr) {
                    holders[p.indexOf(block)].fetch_sub(1);
                    uBmFree(block);
                }
            }
        }
    });
    EXPECT_EQ(shared.load(), 0);
    std::set<void *> all;
    while (void *block = uBmAlloc(&p.pool)) {
        all.insert(block);
    }
    EXPECT_EQ(all.size(), kBlocks);
}

} // namespace
