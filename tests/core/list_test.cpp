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

TEST(List, AddFollowsThePositionRules) {
    const struct {
        const char *before;
        int32_t pos;
        const char *after;
    } cases[] = {
        {"", 5, "x"},        {"", -2, "x"},       {"abc", 0, "xabc"},
        {"abc", 1, "axbc"},  {"abc", 3, "abcx"},  {"abc", 4, "abcx"},
        {"abc", -1, "abcx"}, {"abc", -2, "axbc"}, {"abc", INT32_MIN, "axbc"},
        {"a", -7, "ax"},
    };
    for (const auto &c : cases) {
        uList *list = listOf(c.before);
        EXPECT_EQ(uListAdd(list, letter('x'), c.pos), static_cast<int32_t>(std::strlen(c.after)));
        EXPECT_EQ(drain(list), c.after) << c.before << " at " << c.pos;
    }
}

TEST(List, RemoveGetAndEolAtEveryPosition) {
    const struct {
        int32_t pos;
        const char *got; // null: nothing there
        const char *left;
    } cases[] = {
        {-1, nullptr, "abc"}, {0, "a", "bc"}, {1, "b", "ac"}, {2, "c", "ab"}, {3, nullptr, "abc"}};
    for (const auto &c : cases) {
        uList *list = listOf("abc");
        const void *want = c.got == nullptr ? nullptr : letter(*c.got);
        EXPECT_EQ(uListEol(list, c.pos), c.got == nullptr ? 1 : 0) << c.pos;
        EXPECT_EQ(uListGet(list, c.pos), want) << c.pos;
        EXPECT_EQ(uListRemove(list, c.pos), want) << c.pos;
        EXPECT_EQ(drain(list), c.left) << c.pos;
    }
}

TEST(List, NullListOrElementIsRefused) {
    uList *list = listOf("ab");
    checkRows({
        PU_ROW(uListAdd(list, nullptr, 0), -1),
        PU_ROW(uListAppend(nullptr, letter('a')), -1),
        PU_ROW(uListSize(nullptr), -1),
        PU_ROW(uListEol(nullptr, 0), 1),
        PU_ROW(!uListGet(nullptr, 0) && !uListFirst(nullptr) && !uListRemove(nullptr, 0), true),
        PU_ROW(uListPosGetByElement(nullptr, letter('a')), -1),
        PU_ROW(uListPosGetByElement(list, nullptr), -1),
        PU_ROW(uListSearch(list, nullptr, nullptr), -1),
        PU_ROW(uListSearch(nullptr, letter('a'), nullptr), -1),
        PU_ROW(uListSpecialClear(nullptr, nullptr) + uListUninit(nullptr), 0),
        {"a list with nodes is refused", uListUninit(list), -1},
        {"and still usable",
         (uListRemove(list, 0), uListRemove(list, 0), uListFirst(list) == nullptr), true},
        {"once empty", uListAppend(list, letter('c')), 1},
        {"drained", drain(list), "c"},
    });
}

int compareStrings(void *element, void *key) {
    return std::strcmp(static_cast<char *>(element), static_cast<char *>(key));
}
int alwaysDifferent(void *, void *) {
    return 0;
}
int sameLength(void *a, void *b) {
    return std::strlen(static_cast<char *>(a)) == std::strlen(static_cast<char *>(b));
}

TEST(List, SearchByIdentityOrComparatorAndEqualByTextOrPredicate) {
    char other[] = "b", missing[] = "z"; // other: equal text, another address
    const struct {
        void *key;
        uListCompareFn compare;
        int32_t search, byElement;
    } searches[] = {
        {other, nullptr, -1, -1},       {letter('b'), nullptr, 1, 1},
        {other, compareStrings, 1, -1}, {missing, compareStrings, -1, -1},
        {letter('c'), nullptr, 2, 2},   {letter('a'), compareStrings, 0, 0},
    };
    uList *list = listOf("abcb");
    for (const auto &c : searches) {
        EXPECT_EQ(uListSearch(list, c.key, c.compare), c.search) << static_cast<char *>(c.key);
        EXPECT_EQ(uListPosGetByElement(list, c.key), c.byElement) << static_cast<char *>(c.key);
    }
    drain(list);
    const struct {
        const char *a, *b; // null: no list
        uListEqualFn equal;
        int32_t result;
    } equals[] = {
        {nullptr, nullptr, nullptr, 1},   {"", nullptr, nullptr, 0}, {nullptr, "", nullptr, 0},
        {"", "", alwaysDifferent, 1},     {"ab", "a", nullptr, 0},   {"ab", "ab", nullptr, 1},
        {"ab", "ab", alwaysDifferent, 0}, {"ab", "ax", nullptr, 0},  {"ab", "ax", sameLength, 1},
    };
    for (const auto &c : equals) {
        // b's texts live elsewhere: texts compare by content, not by address.
        uList *a = c.a != nullptr ? listOf(c.a, 0) : nullptr;
        uList *b = c.b != nullptr ? listOf(c.b, 0, 1) : nullptr;
        EXPECT_EQ(uListEqual(a, b, c.equal), c.result)
            << pu::test::orNull(c.a) << " vs " << pu::test::orNull(c.b);
        for (uList *l : {a, b}) {
            if (l != nullptr) {
                drain(l);
            }
        }
    }
}

pu::test::CallRecorder<std::string> gReleased;
void recordRelease(void *element) {
    gReleased.record(static_cast<char *>(element));
    uFree(element);
}

TEST(List, ClearingReleasesEachElementOnceInOrder) {
    const struct {
        std::function<int32_t(uList *)> clear;
        int32_t result;
        std::vector<std::string> released;
        std::size_t left;
    } cases[] = {
        {[](uList *l) { return uListSpecialClear(l, recordRelease); }, 0, {"one", "two", "six"}, 0},
        {[](uList *l) { return uListSpecialClear(l, nullptr); }, 0, {}, 0}, // with uFree
        {[](uList *l) { return uListRemoveAndFree(l, 1, recordRelease); }, 2, {"two"}, 2},
        {[](uList *l) { return uListRemoveAndFree(l, 3, recordRelease); }, 3, {}, 3},
        {[](uList *l) { return uListRemoveAndFree(l, 0, nullptr); }, 2, {}, 2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        gReleased.clear();
        uList *list = uListInit(1);
        for (const char *text : {"one", "two", "six"}) {
            uListAppend(list, uStrGetCopy(text));
        }
        EXPECT_EQ(c.clear(list), c.result);
        EXPECT_EQ(gReleased.values(), c.released);
        EXPECT_EQ(pu::test::takeStrings(list).size(), c.left) << "the header stays usable";
    }
}

// Steps: a letter is appended; '0' appends a null element; '!' appends 'F' with its node
// allocation failing. Both refusals must leave the list and the tail as they were; '<' removes
// the tail behind the builder's back and restarts it.
TEST(ListBuilder, AppendsAtTheTailRefusesCleanlyAndRestarts) {
    const struct {
        const char *before, *steps, *after;
    } cases[] = {{"xy", "abc", "xyabc"},
                 {"", "!a!bc", "abc"},
                 {"ab", "0c!d", "abcd"},
                 {"", "ab<c", "ac"},
                 {"a", "<<d", "d"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.before) + " + " + c.steps);
        uList *list = listOf(c.before, c.before[0] == 'a');
        pu::core::ListBuilder builder(list);
        for (const char *p = c.steps; *p != '\0'; ++p) {
            const int32_t sizeBefore = uListSize(list);
            uListNode *tailBefore = builder.tail();
            if (*p == '<') {
                uListRemove(list, sizeBefore - 1);
                builder.restart();
                EXPECT_EQ(builder.tail() ? builder.tail()->data : nullptr,
                          uListGet(list, sizeBefore - 2));
                continue;
            }
            std::optional<pu::test::FailAlloc> fault;
            if (*p == '!') {
                fault.emplace(1);
            }
            const int32_t result =
                builder.append(*p == '0' ? nullptr : letter(*p == '!' ? 'F' : *p));
            if (*p == '0' || *p == '!') {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(builder.tail(), tailBefore);
            } else {
                EXPECT_EQ(result, sizeBefore + 1);
                ASSERT_NE(builder.tail(), nullptr);
                EXPECT_EQ(builder.tail()->data, letter(*p));
                EXPECT_EQ(builder.tail()->next, nullptr);
            }
        }
        EXPECT_EQ(drain(list), c.after);
    }
    EXPECT_EQ(pu::core::ListBuilder(nullptr).append(letter('a')), -1);
}

// A parser building a long list from untrusted text stays linear: on a megabyte of input a walk
// from the head per element would run for minutes and hit the suite's time-out.
TEST(ListBuilder, LongUntrustedTextsParseInLinearTime) {
    constexpr int kCount = 150000;
    std::string csv = "e0";
    for (int i = 1; i < kCount; ++i) {
        csv += ",e" + std::to_string(i);
    }
    const std::vector<std::string> result = pu::test::takeStrings(uStrSep(csv.c_str(), ","));
    ASSERT_EQ(result.size(), static_cast<std::size_t>(kCount));
    EXPECT_EQ(result.back(), "e" + std::to_string(kCount - 1));
}

// Threads add at both ends and remove at the head: every element ends up either removed once
// or still listed once.
TEST(List, LockedListLosesAndDuplicatesNothing) {
    constexpr int kThreads = 4, kPerThread = 2000;
    uList *list = uListInit(1);
    std::vector<int> values(kThreads * kPerThread);
    std::vector<std::vector<int *>> removed(kThreads);
    pu::test::fanOut(kThreads, [&](int t) {
        for (int i = 0; i < kPerThread; ++i) {
            uListAdd(list, &values[static_cast<std::size_t>(t * kPerThread + i)],
                     i % 3 == 0 ? 0 : -1);
            void *out = i % 2 == 1 ? uListRemove(list, 0) : nullptr;
            if (out != nullptr) {
                removed[t].push_back(static_cast<int *>(out));
            }
        }
    });
    std::vector<int *> seen;
    for (const auto &r : removed) {
        seen.insert(seen.end(), r.begin(), r.end());
    }
    int32_t listed = 0;
    for (uListNode *node = list->head; node != nullptr; node = node->next, ++listed) {
        seen.push_back(static_cast<int *>(node->data));
    }
    EXPECT_EQ(uListSize(list), listed);
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(seen.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        ASSERT_EQ(seen[i], &values[i]);
    }
    uListClearWithNodeNoNeedFree(list);
    EXPECT_EQ(uListUninit(list), 0);
}

} // namespace
