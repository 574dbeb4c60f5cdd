// SPDX-License-Identifier: MIT
// uList: position rules, removal, search and equality senses, clearing with release functions,
// and one locked list used by several threads.
#include <ulist.h>
#include <umem.h>
#include <ustr.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

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
        {"", 0, "x"},       {"", 5, "x"},        {"", -1, "x"},       {"", -2, "x"},
        {"abc", 0, "xabc"}, {"abc", 1, "axbc"},  {"abc", 2, "abxc"},  {"abc", 3, "abcx"},
        {"abc", 4, "abcx"}, {"abc", -1, "abcx"}, {"abc", -2, "axbc"}, {"abc", INT32_MIN, "axbc"},
        {"a", 1, "ax"},     {"a", -7, "ax"},
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
        EXPECT_EQ(uListEol(list, c.pos), c.got == nullptr ? 1 : 0) << c.pos;
        EXPECT_EQ(uListGet(list, c.pos), c.got == nullptr ? nullptr : letter(*c.got)) << c.pos;
        EXPECT_EQ(uListRemove(list, c.pos), c.got == nullptr ? nullptr : letter(*c.got)) << c.pos;
        EXPECT_EQ(drain(list), c.left) << c.pos;
    }
    uList *list = listOf("ab");
    uListRemove(list, 0);
    uListRemove(list, 0);
    EXPECT_EQ(uListFirst(list), nullptr);
    EXPECT_EQ(uListAppend(list, letter('c')), 1) << "usable once empty";
    EXPECT_EQ(drain(list), "c");
}

TEST(List, NullListOrElementIsRefused) {
    uList *list = listOf("ab");
    EXPECT_EQ(uListAdd(list, nullptr, 0), -1);
    EXPECT_EQ(uListAppend(nullptr, letter('a')), -1);
    EXPECT_EQ(uListSize(nullptr), -1);
    EXPECT_EQ(uListEol(nullptr, 0), 1);
    EXPECT_EQ(uListGet(nullptr, 0), nullptr);
    EXPECT_EQ(uListFirst(nullptr), nullptr);
    EXPECT_EQ(uListRemove(nullptr, 0), nullptr);
    EXPECT_EQ(uListPosGetByElement(nullptr, letter('a')), -1);
    EXPECT_EQ(uListPosGetByElement(list, nullptr), -1);
    EXPECT_EQ(uListSearch(list, nullptr, nullptr), -1);
    EXPECT_EQ(uListSearch(nullptr, letter('a'), nullptr), -1);
    EXPECT_EQ(uListSpecialClear(nullptr, nullptr), 0);
    EXPECT_EQ(uListUninit(nullptr), 0);
    EXPECT_EQ(uListUninit(list), -1) << "a list with nodes is refused";
    EXPECT_EQ(drain(list), "ab") << "and still usable";
}

int compareStrings(void *element, void *key) {
    return std::strcmp(static_cast<char *>(element), static_cast<char *>(key));
}

TEST(List, SearchByIdentityOrComparator) {
    char other[] = "b"; // equal text, another address
    char missing[] = "z";
    const struct {
        void *key;
        uListCompareFn compare;
        int32_t search, byElement;
    } cases[] = {
        {other, nullptr, -1, -1},       {letter('b'), nullptr, 1, 1},
        {other, compareStrings, 1, -1}, {missing, compareStrings, -1, -1},
        {letter('c'), nullptr, 2, 2},   {letter('a'), compareStrings, 0, 0},
    };
    uList *list = listOf("abcb");
    for (const auto &c : cases) {
        EXPECT_EQ(uListSearch(list, c.key, c.compare), c.search) << static_cast<char *>(c.key);
        EXPECT_EQ(uListPosGetByElement(list, c.key), c.byElement) << static_cast<char *>(c.key);
    }
    drain(list);
}

int alwaysDifferent(void *, void *) {
    return 0;
}
int sameLength(void *a, void *b) {
    return std::strlen(static_cast<char *>(a)) == std::strlen(static_cast<char *>(b));
}

TEST(List, EqualComparesTextsOrAsksThePredicate) {
    const struct {
        const char *a, *b; // null: no list
        uListEqualFn equal;
        int32_t result;
    } cases[] = {
        {nullptr, nullptr, nullptr, 1},   {"", nullptr, nullptr, 0}, {nullptr, "", nullptr, 0},
        {"", "", alwaysDifferent, 1},     {"ab", "a", nullptr, 0},   {"ab", "ab", nullptr, 1},
        {"ab", "ab", alwaysDifferent, 0}, {"ab", "ax", nullptr, 0},  {"ab", "ax", sameLength, 1},
        {"ab", "aB", nullptr, 0},
    };
    for (const auto &c : cases) {
        // b's texts live elsewhere: texts compare by content, not by address.
        uList *a = c.a != nullptr ? listOf(c.a, 0) : nullptr;
        uList *b = c.b != nullptr ? listOf(c.b, 0, 1) : nullptr;
        EXPECT_EQ(uListEqual(a, b, c.equal), c.result)
            << pu::test::orNull(c.a) << " vs " << pu::test::orNull(c.b);
        for (uList *list : {a, b}) {
            if (list != nullptr) {
                drain(list);
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
        const char *name;
        std::function<void(uList *)> clear;
        std::vector<std::string> released;
        int32_t left;
    } cases[] = {
        {"special clear",
         [](uList *l) { EXPECT_EQ(uListSpecialClear(l, recordRelease), 0); },
         {"one", "two", "six"},
         0},
        {"special clear with uFree", [](uList *l) { uListSpecialClear(l, nullptr); }, {}, 0},
        {"remove and free",
         [](uList *l) { EXPECT_EQ(uListRemoveAndFree(l, 1, recordRelease), 2); },
         {"two"},
         2},
        {"remove and free past the end",
         [](uList *l) { EXPECT_EQ(uListRemoveAndFree(l, 3, recordRelease), 3); },
         {},
         3},
        {"remove and free with uFree",
         [](uList *l) { EXPECT_EQ(uListRemoveAndFree(l, 0, nullptr), 2); },
         {},
         2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        gReleased.clear();
        uList *list = uListInit(1);
        for (const char *text : {"one", "two", "six"}) {
            uListAppend(list, uStrGetCopy(text));
        }
        c.clear(list);
        EXPECT_EQ(gReleased.values(), c.released);
        EXPECT_EQ(uListSize(list), c.left);
        EXPECT_EQ(pu::test::takeStrings(list).size(), static_cast<std::size_t>(c.left))
            << "the header stays usable";
    }
    char kept[] = "kept";
    uList *list = uListInit(0);
    uListAppend(list, kept);
    EXPECT_EQ(uListClearWithNodeNoNeedFree(list), 0);
    EXPECT_EQ(uListUninit(list), 0) << "the element itself is left alone";
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
            int *value = &values[static_cast<std::size_t>(t * kPerThread + i)];
            uListAdd(list, value, i % 3 == 0 ? 0 : -1);
            if (i % 2 == 1) {
                if (void *out = uListRemove(list, 0)) {
                    removed[t].push_back(static_cast<int *>(out));
                }
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
