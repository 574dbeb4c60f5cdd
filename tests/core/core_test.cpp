// SPDX-License-Identifier: MIT
// Every allocating operation of the core families, with each of its uMalloc calls failing in turn:
// the documented failure value, nothing leaked, no lock left held, the structure still usable.
// And the checked size arithmetic at the boundaries where size_t and uMalloc's 32-bit size wrap,
// and every line the core families log.
// The containers: uList's position rules, search and equality senses, clearing with release
// functions; uQm's order and uBm's block order and owners; the list and the pool shared by
// several threads. uFsm dispatch and the id maps: first match wins, and only the terminator gives
// the default. The unique id manager: next-fit draws that wrap, releases that leave the cursor
// alone, registrations that are refused or repeated, and unregistration.
#include "call_table.hpp"
#include "core/checked_size.hpp"
#include "fail_alloc.hpp"
#include "log_capture.hpp"
#include "test_support.hpp"

#include <platform_os.h>
#include <ufsm.h>
#include <ulist.h>
#include <umap.h>
#include <umem.h>
#include <uqueue.h>
#include <ustr.h>
#include <uuniqueid.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using pu::test::AllocCase;
using pu::test::AllocSteps;
using pu::test::checkRows;
using pu::test::FailAlloc;

int handled(void *) {
    return 0;
}

const AllocCase kCases[] = {
    {"ListInitAndAdd",
     [](const FailAlloc &fault) {
         int a = 1;
         AllocSteps steps(fault);
         uList *list = uListInit(1);
         if (steps.failed(list == nullptr)) {
             return;
         }
         if (steps.failed(uListAppend(list, &a) < 0)) {
             // The lock was given back and the chain is intact: adding again works.
             EXPECT_EQ(uListSize(list), 0);
             ASSERT_EQ(uListAdd(list, &a, 0), 1);
         }
         EXPECT_EQ(uListRemove(list, 0), &a); // clearing would allocate
         EXPECT_EQ(uListUninit(list), 0);
     }},
    {"StateMachineCreateAndAdd",
     [](const FailAlloc &fault) {
         AllocSteps steps(fault);
         uFsm *fsm = uFsmCreate();
         if (steps.failed(fsm == nullptr)) {
             return;
         }
         if (steps.failed(uFsmAdd(fsm, 1, 2, handled) != 0)) {
             EXPECT_EQ(uFsmExecute(fsm, 1, 2, nullptr), -1) << "no half-added row";
             ASSERT_EQ(uFsmAdd(fsm, 1, 2, handled), 0);
         }
         EXPECT_EQ(uFsmExecute(fsm, 1, 2, nullptr), 0);
         EXPECT_EQ(uFsmDestroy(fsm), 0);
     }},
    {"UniqueIdRegistrationAndGrowth",
     [](const FailAlloc &fault) {
         pu::test::LogCapture quiet;
         uIdRegisterUniqueIdModule("alloc-sweep", 10, 1);
         if (uIdGetModuleAvailableUniqueId("alloc-sweep") < 0) {
             EXPECT_TRUE(fault.hit()) << "not registered at all";
         } else {
             // Refused growth leaves the module as it was, with its one id in use.
             uIdRegisterUniqueIdModule("alloc-sweep", 10, 3);
             EXPECT_EQ(uIdGetModuleAvailableUniqueId("alloc-sweep"), fault.hit() ? -1 : 11);
         }
         uIdUnregisterUniqueIdModule("alloc-sweep");
         EXPECT_EQ(uIdGetModuleAvailableUniqueId("alloc-sweep"), -1) << "the family lock is free";
     }},
};

class CoreAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(CoreAllocFailure, kCases);

using pu::core::CheckedSize;

constexpr std::size_t kMax = SIZE_MAX;
constexpr CheckedSize kNone = std::nullopt;

TEST(CheckedSize, AddMultiplyAndAllocateRefuseWhatTheSizesCannotHold) {
    const struct {
        CheckedSize a, b, sum, product;
    } cases[] = {
        {kMax, 1, kNone, kMax},
        {kMax / 2, kMax / 2 + 1, kMax, kNone},
        {kNone, 0, kNone, kNone}, // nothing times 0 is still nothing
    };
    for (const auto &c : cases) {
        SCOPED_TRACE("row " + std::to_string(&c - cases));
        EXPECT_EQ(pu::core::checkedAdd(c.a, c.b), c.sum);
        EXPECT_EQ(pu::core::checkedAdd(c.b, c.a), c.sum);
        EXPECT_EQ(pu::core::checkedMul(c.a, c.b), c.product);
        EXPECT_EQ(pu::core::checkedMul(c.b, c.a), c.product);
    }
    const std::size_t past = std::size_t{UINT32_MAX} + (SIZE_MAX > UINT32_MAX ? 1 : 0);
    EXPECT_EQ(pu::core::allocationSize(UINT32_MAX), UINT32_MAX);
    EXPECT_EQ(pu::core::allocate(kNone), nullptr);
    if (past != UINT32_MAX) {
        EXPECT_EQ(pu::core::allocationSize(past + 3), std::nullopt); // not 3
        EXPECT_EQ(pu::core::allocate(past + 3), nullptr);
    }
}

// Every line the core families log, exactly: applications watch for these texts.
// A list with one node, released whatever the row did to it.
void withNode(void (*use)(uList *)) {
    int element = 0;
    uList *list = uListInit(0);
    uListAppend(list, &element);
    use(list);
    uListClearWithNodeNoNeedFree(list);
    uListUninit(list);
}

TEST(LogCatalogue, CoreMessages) {
    const char *uid = "basalt.utils.uidManager", *list = "basalt.utils.list";
    pu::test::checkLogRows({
        PU_LOG_ROW(
            uIdRegisterUniqueIdModule("cat", 0, 1), 0, uid,
            "uIdRegisterUniqueIdModule: module=[cat] with max id=[1] register to uniqueIdModule!"),
        PU_LOG_ROW((uIdGetModuleAvailableUniqueId("cat"), uIdGetModuleAvailableUniqueId("cat")), 2,
                   uid, "uIdGetManagerAvailableId: Module[cat] does not have any available id!"),
        PU_LOG_ROW(
            uIdGetModuleAvailableUniqueId("no cat"), 2, uid,
            "uIdGetModuleAvailableUniqueId: module=[no cat] does not registered in uniqueModule."),
        PU_LOG_ROW((pu::test::FailAlloc(1), uIdRegisterUniqueIdModule("cat 2", 0, 1)), 3, uid,
                   "uIdRegisterUniqueIdModule: malloc error"),
        PU_LOG_ROW(withNode([](uList *l) { uListUninit(l); }), 3, list,
                   "uListUninit: Uninit list that has nodes not free!"),
        PU_LOG_ROW(withNode([](uList *l) {
                       pu::test::FailAlloc fault(1);
                       uListClearWithNodeNoNeedFree(l);
                   }),
                   3, list, "uListSpecialClear: init list error!"),
    });
    uIdUnregisterUniqueIdModule("cat");
}

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
        {-2, "axbc", nullptr, "abc"}, // any other negative: after the first
        {0, "xabc", "a", "bc"},
        {2, "abxc", "c", "ab"},
        {3, "abcx", nullptr, "abc"}, // past the end: appended
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

int compareStrings(void *element, void *key) {
    return std::strcmp(static_cast<char *>(element), static_cast<char *>(key));
}
int alwaysDifferent(void *, void *) {
    return 0;
}

// Search and position compare addresses unless a comparator is given; equality compares texts.
// A null element and uninitialising a list that still has nodes are refused.
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
        PU_ROW(uListAdd(list, nullptr, 0), -1),
        {"a list with nodes is refused", uListUninit(list), -1},
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

// One locked list and one block pool shared by threads. The list: every element ends up either
// removed once or still listed once, with threads adding at both ends and removing at the head.
// The pool: a block is never handed to two holders at once, and every block comes back.
TEST(Containers, SharedByThreadsLoseAndDuplicateNothing) {
    constexpr int kThreads = 4, kPerThread = 5000;
    constexpr uint32_t kBlocks = 8; // fewer than the threads want, so the pool runs dry often
    uList *list = uListInit(1);
    Pool p(kBlocks, sizeof(int));
    std::vector<int> values(kThreads * kPerThread);
    std::vector<std::atomic<int>> seen(values.size());
    std::atomic<int> shared{0};
    const auto count = [&](void *element) { ++seen[static_cast<int *>(element) - values.data()]; };
    pu::test::fanOut(kThreads, [&](int t) {
        for (int i = 0; i < kPerThread; ++i) {
            uListAdd(list, &values[static_cast<std::size_t>(t * kPerThread + i)],
                     i % 3 == 0 ? 0 : -1);
            if (void *out = i % 2 == 1 ? uListRemove(list, 0) : nullptr) {
                count(out);
            }
            // The three are held together: a block also handed to another holder meanwhile
            // shows that holder's mark instead of its own.
            int *blocks[3];
            for (int k = 0; k < 3; ++k) {
                blocks[k] = static_cast<int *>(uBmAlloc(&p.pool));
                if (blocks[k] != nullptr) {
                    *blocks[k] = t * 3 + k;
                }
            }
            for (int k = 0; k < 3; ++k) {
                if (blocks[k] != nullptr) {
                    shared += *blocks[k] != t * 3 + k;
                    uBmFree(blocks[k]);
                }
            }
        }
    });
    while (void *left = uListRemove(list, 0)) {
        count(left);
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), static_cast<long>(values.size()));
    EXPECT_EQ(uListUninit(list), 0);
    EXPECT_EQ(shared.load(), 0);
    uint32_t back = 0; // a block freed twice would come out twice
    while (uBmAlloc(&p.pool) != nullptr) {
        ++back;
    }
    EXPECT_EQ(back, kBlocks);
}

std::string gCalls;
int32_t handlerA(void *argument) {
    gCalls += argument != nullptr ? "A*" : "A";
    return -1; // ignored: a row that ran counts as handled
}
int32_t handlerB(void *) {
    gCalls += "B";
    return 0;
}

// The result of dispatching and the handlers that ran.
std::string run(uFsm *fsm, uint32_t event, uint32_t state, void *argument) {
    gCalls.clear();
    const int32_t result = uFsmExecute(fsm, event, state, argument);
    return std::to_string(result) + gCalls;
}

TEST(Fsm, FirstMatchingRowWinsAndOthersAreNotRun) {
    pu::test::Owned<uFsm, uFsmDestroy> owned(uFsmCreate());
    uFsm *fsm = owned.get();
    int x = 0;
    checkRows({
        {"empty table", run(fsm, 1, 2, nullptr), "-1"},
        {"add", uFsmAdd(fsm, 1, 2, handlerA) + uFsmAdd(fsm, 1, 2, handlerB), 0},
        {"add", uFsmAdd(fsm, 3, 4, handlerB) + uFsmAdd(fsm, 5, 5, nullptr), 0},
        {"first row, argument", run(fsm, 1, 2, &x), "0A*"},
        {"other row", run(fsm, 3, 4, nullptr), "0B"},
        {"no handler", run(fsm, 5, 5, &x), "0"},
        {"event known in another state", run(fsm, 1, 4, &x), "-1"},
        {"no table", uFsmAdd(nullptr, 1, 1, handlerA), -1},
    });
}

TEST(IdMap, LookupsBothWaysAndSet) {
    int a = 0, b = 0, end = 0;
    const uMapAddr addrs[] = {{5, &a}, {5, &b}, {6, &a}, {U_MAP_END_ID, &end}};
    uMapValue values[] = {{5, 10}, {5, 20}, {6, 10}, {U_MAP_END_ID, -9}};
    const uMapString strings[] = {{5, "Alpha"}, {5, "beta"}, {6, "alpha"}, {U_MAP_END_ID, "none"}};
    const uMapChar chars[] = {{5, 'a'}, {5, 0xFF}, {6, 'a'}, {U_MAP_END_ID, '?'}};
    // id 5: the first row; 7: the terminator's value.
    const auto byId = [&](uint32_t id) {
        return std::to_string((uMapAddrById(addrs, id) == &a) +
                              2 * (uMapAddrById(addrs, id) == &end)) +
               " " + std::to_string(uMapValueById(values, id)) + " " + uMapStringById(strings, id) +
               " " + static_cast<char>(uMapCharById(chars, id));
    };
    checkRows({
        {"5", byId(5), "1 10 Alpha a"},
        {"7", byId(7), "2 -9 none ?"},
        // The other way: the first matching row, never the terminator's value.
        {"addr", uMapIdByAddr(addrs, &b), 5},
        {"addr, default", uMapIdByAddr(addrs, &end), U_MAP_END_ID},
        {"case is ignored", uMapIdByString(strings, "ALPHA"), 5},
        {"char", uMapIdByChar(chars, 0xFF), 5},
        {"set the first row", uMapValueSetById(values, 5, 99), 0},
        {"never the default", uMapValueSetById(values, U_MAP_END_ID, 1), -1},
        {"only that row", values[0].value == 99 && values[1].value == 20 && values[3].value == -9,
         true},
    });
}

// Runs a script on module name: "R<first>,<count>" registers, "X<id>" releases, "U" unregisters
// and "D" draws. Returns the ids drawn.
std::string runScript(const char *name, const std::string &script) {
    std::istringstream steps(script);
    std::string drawn;
    for (std::string step; steps >> step;) {
        int32_t a = 0, b = 0;
        std::sscanf(step.c_str() + 1, "%d,%d", &a, &b);
        if (step[0] == 'R') {
            uIdRegisterUniqueIdModule(name, a, b);
        } else if (step[0] == 'X') {
            uIdReleaseModuleUniqueId(name, a);
        } else if (step[0] == 'U') {
            uIdUnregisterUniqueIdModule(name);
        } else {
            drawn += std::to_string(uIdGetModuleAvailableUniqueId(name)) + " ";
        }
    }
    return drawn;
}

// Each row has a module of its own.
TEST(UniqueId, Scripts) {
    pu::test::LogCapture quiet;
    checkRows({
        {"next fit wraps", runScript("a", "R1,3 D D D D X2 D D"), "1 2 3 -1 2 -1 "},
        {"a released id waits for the cursor", runScript("b", "R1,3 D D X1 D D D X3 X2 D D D"),
         "1 2 3 1 -1 2 3 -1 "},
        // The cursor sits on the end of the shrunk range, in front of flags still allocated.
        {"the cursor at the end of a shrunk range wraps", runScript("c", "R0,8 D R0,1 X0 D D"),
         "0 0 -1 "},
        {"range up to INT32_MAX", runScript("e", "R2147483645,2 D D D"),
         "2147483645 2147483646 -1 "},
        // Listed once however often registered, so one unregistration removes it.
        {"registered twice, unregistered once", runScript("g", "R0,2 R0,4 U D X0 D"), "-1 -1 "},
    });
}

} // namespace
