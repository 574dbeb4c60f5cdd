// SPDX-License-Identifier: MIT
// uList: position rules, removal, search and equality senses, clearing with release functions,
// building at a remembered tail, and one locked list used by several threads.
#include <ulist.h>
#include <umem.h>
#include <ustr.h>

#include "call_table.hpp"
#include "core/list_internal.hpp"
#include "fail_alloc.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
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
        {4, "abcx", nullptr, "abc"},
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

TEST(List, NullListOrElementIsRefused) {
    uList *list = listOf("ab");
    checkRows({
        PU_ROW(uListAdd(list, nullptr, 0), -1),
        PU_ROW(uListAppend(nullptr, letter('a')) + uListSize(nullptr), -2),
        PU_ROW(!uListGet(nullptr, 0) && !uListFirst(nullptr) && !uListRemove(nullptr, 0), true),
        PU_ROW(uListPosGetByElement(nullptr, letter('a')) + uListSearch(nullptr, list, nullptr),
               -2),
        PU_ROW(uListSpecialClear(nullptr, nullptr) + uListUninit(nullptr), 0),
        {"a list with nodes is refused", uListUninit(list), -1},
        {"and still usable",
         (uListRemove(list, 0), uListRemove(list, 0), uListAppend(list, letter('c'))), 1},
        {"drained", drain(list), "c"},
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
    char other[] = "b", missing[] = "z"; // other: equal text, another address
    uList *list = listOf("abcb"), *empty = uListInit(0), *copy = listOf("abcb", 0, 1);
    checkRows({
        {"search by address", uListSearch(list, other, nullptr), -1},
        {"position by address", uListPosGetByElement(list, letter('b')), 1},
        {"search by comparator", uListSearch(list, other, compareStrings), 1},
        {"no match", uListSearch(list, missing, compareStrings), -1},
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
        {"past the end", uListRemoveAndFree(list, 2, recordRelease), 2},
        {"clear the rest", uListSpecialClear(list, recordRelease), 0},
        {"released once each, in order",
         gReleased.values() == std::vector<std::string>{"two", "one", "six"}, true},
        {"the header stays usable", (uListAppend(list, letter('a')), drain(list)), "a"},
    });
}

// Steps: a letter is appended; '0' appends a null element; '!' appends 'F' with its node
// allocation failing; '<' removes the tail behind the builder's back and restarts it. Refusals
// must leave the list and the tail as they were.
TEST(ListBuilder, AppendsAtTheTailRefusesCleanlyAndRestarts) {
    const struct {
        const char *before, *steps, *after;
    } cases[] = {{"", "!a!bc", "abc"}, {"xy", "0c!d", "xycd"}, {"a", "b<<d", "d"}};
    for (const auto &c : cases) {
        uList *list = listOf(c.before, c.before[0] == 'a');
        pu::core::ListBuilder builder(list);
        for (const char *p = c.steps; *p != '\0'; ++p) {
            const int32_t size = uListSize(list);
            if (*p == '<') {
                uListRemove(list, size - 1);
                builder.restart();
                continue;
            }
            std::optional<pu::test::FailAlloc> fault;
            if (*p == '!') {
                fault.emplace(1);
            }
            const bool refused = *p == '0' || *p == '!';
            EXPECT_EQ(builder.append(*p == '0' ? nullptr : letter(*p)), refused ? -1 : size + 1)
                << c.steps << " at " << *p;
        }
        EXPECT_EQ(drain(list), c.after) << c.before << " + " << c.steps;
    }
    EXPECT_EQ(pu::core::ListBuilder(nullptr).append(letter('a')), -1);
}

// Threads add at both ends and remove at the head: every element ends up either removed once
// or still listed once.
TEST(List, LockedListLosesAndDuplicatesNothing) {
    constexpr int kThreads = 4, kPerThread = 2000;
    uList *list = uListInit(1);
    std::vector<int> values(kThreads * kPerThread);
    std::vector<std::atomic<int>> seen(values.size());
    const auto count = [&](void *element) { ++seen[static_cast<int *>(element) - values.data()]; };
    pu::test::fanOut(kThreads, [&](int t) {
        for (int i = 0; i < kPerThread; ++i) {
            uListAdd(list, &values[static_cast<std::size_t>(t * kPerThread + i)],
                     i % 3 == 0 ? 0 : -1);
            if (void *out = i % 2 == 1 ? uListRemove(list, 0) : nullptr) {
                count(out);
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
}

} // namespace
