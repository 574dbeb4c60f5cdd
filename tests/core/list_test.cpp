// SPDX-License-Identifier: MIT
// The containers: uList's position rules, search and equality senses, clearing with release
// functions; uQm's order and uBm's block order and owners; each shared by several threads.
#include <platform_os.h>
#include <ulist.h>
#include <umem.h>
#include <uqueue.h>
#include <ustr.h>

#include "call_table.hpp"
#include "core/list_internal.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using pu::test::checkRows;

// One-letter strings with static storage; bank 1 holds equal texts at other addresses.
char *letter(char c, int bank = 0) {
    static char storage[2][256][2];
    char *s = storage[bank][static_cast<unsigned char>(c)];
    s[0] = c;
    return s;
}

uList *listOf(const char *letters, int32_t withLock = 1, int bank = 0) {
    uList *list = uListInit(withLock);
    for (const char *p = letters; *p != '\0'; ++p) {
        uListAppend(list, letter(*p, bank));
    }
    return list;
}

// The letters of the list, read through uListGet, and the list released.
std::string drain(uList *list) {
    std::string out;
    for (int32_t pos = 0; uListEol(list, pos) == 0; ++pos) {
        out += static_cast<const char *>(uListGet(list, pos));
    }
    EXPECT_EQ(uListSize(list), static_cast<int32_t>(out.size()));
    uListClearWithNodeNoNeedFree(list);
    EXPECT_EQ(uListUninit(list), 0);
    return out;
}

// Adding: -1 and positions past the end append, other negatives insert after the first element.
TEST(List, PositionRulesOfAddGetEolAndRemove) {
    const struct {
        int32_t pos;
        const char *added, *got, *left; // got: null when nothing is there
    } cases[] = {
        {-1, "abcx", nullptr, "abc"},
        {-2, "axbc", nullptr, "abc"},
        {INT32_MIN, "axbc", nullptr, "abc"},
        {0, "xabc", "a", "bc"},
        {2, "abxc", "c", "ab"},
        {3, "abcx", nullptr, "abc"},
    };
    for (const auto &c : cases) {
        uList *list = listOf("abc");
        const void *want = c.got == nullptr ? nullptr : letter(*c.got);
        EXPECT_EQ(uListEol(list, c.pos), c.got == nullptr ? 1 : 0) << c.pos;
        EXPECT_EQ(uListGet(list, c.pos), want) << c.pos;
        EXPECT_EQ(uListRemove(list, c.pos), want) << c.pos;
        EXPECT_EQ(drain(list), c.left) << c.pos;
        list = listOf("abc");
        EXPECT_EQ(uListAdd(list, letter('x'), c.pos), 4) << c.pos;
        EXPECT_EQ(drain(list), c.added) << c.pos;
    }
}

TEST(List, NullElementAndUninitWithNodesAreRefused) {
    uList *list = listOf("ab");
    checkRows({
        PU_ROW(uListAdd(list, nullptr, 0), -1),
        {"a list with nodes is refused", uListUninit(list), -1},
        {"and still usable", drain(list), "ab"},
    });
}

int compareStrings(void *element, void *key) {
    return std::strcmp(static_cast<char *>(element), static_cast<char *>(key));
}
int alwaysDifferent(void *, void *) {
    return 0;
}

// Search and position compare addresses unless a comparator is given; equality compares texts.
TEST(List, SearchByIdentityOrComparatorAndEqualByTextOrPredicate) {
    char other[] = "b"; // equal text, another address
    uList *list = listOf("abcb"), *empty = uListInit(0), *copy = listOf("abcb", 0, 1);
    checkRows({
        {"search by address", uListSearch(list, other, nullptr), -1},
        {"position by address", uListPosGetByElement(list, letter('b')), 1},
        {"search by comparator", uListSearch(list, other, compareStrings), 1},
        {"equal by text", uListEqual(list, copy, nullptr), 1},
        {"predicate decides", uListEqual(list, copy, alwaysDifferent), 0},
        {"empty lists are equal", uListEqual(empty, empty, alwaysDifferent), 1},
        {"lengths differ", (uListRemove(copy, 3), uListEqual(list, copy, nullptr)), 0},
        {"a null list equals only null",
         uListEqual(empty, nullptr, nullptr) + uListEqual(nullptr, nullptr, nullptr), 1},
    });
    for (uList *l : {list, empty, copy}) {
        drain(l);
    }
}

pu::test::CallRecorder<std::string> gReleased;
void recordRelease(void *element) {
    gReleased.record(static_cast<char *>(element));
    uFree(element);
}

TEST(List, ClearingReleasesEachElementOnceInOrder) {
    gReleased.clear();
    uList *list = uListInit(1);
    for (const char *text : {"one", "two", "six"}) {
        uListAppend(list, uStrGetCopy(text));
    }
    checkRows({
        {"remove and free one", uListRemoveAndFree(list, 1, recordRelease), 2},
        {"clear the rest", uListSpecialClear(list, recordRelease), 0},
        {"released once each, in order",
         gReleased.values() == std::vector<std::string>{"two", "one", "six"}, true},
        {"the header stays usable", (uListAppend(list, letter('a')), drain(list)), "a"},
    });
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
// The free blocks wait in a uQm, so this is the queue's order and its running dry as well.
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
    EXPECT_EQ(uBmAlloc(nullptr), nullptr);
}

// One locked list and one block pool shared by threads. The list: every element ends up either
// removed once or still listed once, with threads adding at both ends and removing at the head.
// The pool: a block is never handed to two holders at once, and every block comes back.
TEST(Containers, SharedByThreadsLoseAndDuplicateNothing) {
    constexpr int kThreads = 4, kPerThread = 5000;
    constexpr uint32_t kBlocks = 8; // fewer than the threads want, so the pool runs dry often
    uList *list = uListInit(1);
    Pool p(kBlocks, sizeof(int));
    std::vector<int> values(kThreads * kPerThread);
    std::vector<std::atomic<int>> seen(values.size()), holders(kBlocks);
    std::atomic<int> shared{0};
    const auto count = [&](void *element) { ++seen[static_cast<int *>(element) - values.data()]; };
    pu::test::fanOut(kThreads, [&](int t) {
        for (int i = 0; i < kPerThread; ++i) {
            uListAdd(list, &values[static_cast<std::size_t>(t * kPerThread + i)],
                     i % 3 == 0 ? 0 : -1);
            if (void *out = i % 2 == 1 ? uListRemove(list, 0) : nullptr) {
                count(out);
            }
            void *blocks[3] = {uBmAlloc(&p.pool), uBmAlloc(&p.pool), uBmAlloc(&p.pool)};
            for (void *block : blocks) { // the three are held together until their turn here
                if (block != nullptr) {
                    shared += holders[p.indexOf(block)].fetch_add(1) != 0;
                    *static_cast<int *>(block) = t;
                    holders[p.indexOf(block)].fetch_sub(1);
                    uBmFree(block);
                }
            }
        }
    });
    int32_t listed = 0;
    for (uListNode *node = list->head; node != nullptr; node = node->next, ++listed) {
        count(node->data);
    }
    EXPECT_EQ(uListSize(list), listed);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), static_cast<long>(values.size()));
    uListClearWithNodeNoNeedFree(list);
    EXPECT_EQ(uListUninit(list), 0);
    EXPECT_EQ(shared.load(), 0);
    std::set<void *> all;
    while (void *block = uBmAlloc(&p.pool)) {
        all.insert(block);
    }
    EXPECT_EQ(all.size(), kBlocks);
}

} // namespace
