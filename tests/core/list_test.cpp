// SPDX-License-Identifier: MIT
// uList: position rules, removal, search and equality senses, clearing, and locked use from
// several threads.
#include <ulist.h>
#include <umem.h>

#include "log_capture.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

// A list of single-letter strings with static storage, read back as one string ("abc").
class ListTest : public ::testing::Test {
  protected:
    void SetUp() override { list = uListInit(1); }
    void TearDown() override {
        uListClearWithNodeNoNeedFree(list);
        ASSERT_EQ(uListUninit(list), 0);
    }

    void fill(const char *letters) {
        for (const char *p = letters; *p != '\0'; ++p) {
            uListAppend(list, letter(*p));
        }
    }

    static char *letter(char c) {
        static char storage[26][2];
        char *s = storage[c - 'a'];
        s[0] = c;
        return s;
    }

    std::string contents() const {
        std::string out;
        for (int32_t pos = 0; uListEol(list, pos) == 0; ++pos) {
            out += static_cast<const char *>(uListGet(list, pos));
        }
        return out;
    }

    uList *list = nullptr;
};

TEST_F(ListTest, AddFollowsThePositionRules) {
    EXPECT_EQ(uListAdd(list, letter('a'), 0), 1); // empty list, position 0
    EXPECT_EQ(uListAdd(list, letter('b'), 5), 2); // past the end appends
    EXPECT_EQ(contents(), "ab");
    EXPECT_EQ(uListAdd(list, letter('c'), -1), 3);
    EXPECT_EQ(contents(), "abc");
    EXPECT_EQ(uListAdd(list, letter('d'), 0), 4); // new head
    EXPECT_EQ(contents(), "dabc");
    EXPECT_EQ(uListAdd(list, letter('e'), 3), 5); // before the old last element
    EXPECT_EQ(contents(), "dabec");
    EXPECT_EQ(uListAdd(list, letter('f'), 1), 6);
    EXPECT_EQ(contents(), "dfabec");
    EXPECT_EQ(uListSize(list), 6);
}

TEST_F(ListTest, PositionsBelowMinusOneLandBehindTheHead) {
    fill("abc");
    EXPECT_EQ(uListAdd(list, letter('x'), -7), 4);
    EXPECT_EQ(contents(), "axbc");
    EXPECT_EQ(uListAdd(list, letter('y'), INT32_MIN), 5);
    EXPECT_EQ(contents(), "ayxbc");

    uList *empty = uListInit(0);
    EXPECT_EQ(uListAdd(empty, letter('z'), -2), 1);
    EXPECT_STREQ(static_cast<const char *>(uListFirst(empty)), "z");
    uListClearWithNodeNoNeedFree(empty);
    uListUninit(empty);
}

TEST_F(ListTest, NullListOrElementIsRefused) {
    fill("ab");
    EXPECT_EQ(uListAdd(list, nullptr, 0), -1);
    EXPECT_EQ(uListAppend(nullptr, letter('a')), -1);
    EXPECT_EQ(contents(), "ab");
    EXPECT_EQ(uListSize(nullptr), -1);
    EXPECT_EQ(uListEol(nullptr, 0), 1);
    EXPECT_EQ(uListGet(nullptr, 0), nullptr);
    EXPECT_EQ(uListFirst(nullptr), nullptr);
    EXPECT_EQ(uListRemove(nullptr, 0), nullptr);
    EXPECT_EQ(uListPosGetByElement(nullptr, letter('a')), -1);
    EXPECT_EQ(uListPosGetByElement(list, nullptr), -1);
    EXPECT_EQ(uListSearch(list, nullptr, nullptr), -1);
    EXPECT_EQ(uListSpecialClear(nullptr, nullptr), 0);
    EXPECT_EQ(uListUninit(nullptr), 0);
}

TEST_F(ListTest, RemoveAndGetAtBadPositionsChangeNothing) {
    fill("abc");
    EXPECT_EQ(uListRemove(list, -1), nullptr);
    EXPECT_EQ(uListRemove(list, 3), nullptr);
    EXPECT_EQ(uListGet(list, -1), nullptr);
    EXPECT_EQ(uListGet(list, 3), nullptr);
    EXPECT_EQ(uListEol(list, 2), 0);
    EXPECT_EQ(uListEol(list, 3), 1);
    EXPECT_EQ(uListEol(list, -1), 1);
    EXPECT_EQ(contents(), "abc");

    EXPECT_STREQ(static_cast<const char *>(uListRemove(list, 1)), "b");
    EXPECT_EQ(contents(), "ac");
    EXPECT_STREQ(static_cast<const char *>(uListRemove(list, 0)), "a");
    EXPECT_STREQ(static_cast<const char *>(uListRemove(list, 0)), "c");
    EXPECT_EQ(uListSize(list), 0);
    EXPECT_EQ(uListFirst(list), nullptr);
    EXPECT_EQ(uListRemove(list, 0), nullptr);
}

TEST_F(ListTest, UninitRefusesANonEmptyListAndLogs) {
    pu::test::LogCapture log;
    fill("a");
    EXPECT_EQ(uListUninit(list), -1);
    EXPECT_EQ(
        log.count(3, "basalt.utils.list", "uListUninit: Uninit list that has nodes not free!"), 1)
        << log.dump();
    // Still usable afterwards.
    EXPECT_EQ(uListAppend(list, letter('b')), 2);
    EXPECT_EQ(contents(), "ab");
}

int compareStrings(void *element, void *key) {
    return std::strcmp(static_cast<char *>(element), static_cast<char *>(key));
}

TEST_F(ListTest, SearchByIdentityOrComparator) {
    fill("abcb");
    char other[] = "b"; // equal text, different address
    EXPECT_EQ(uListSearch(list, other, nullptr), -1);
    EXPECT_EQ(uListSearch(list, letter('b'), nullptr), 1);
    EXPECT_EQ(uListSearch(list, other, compareStrings), 1); // the first match wins
    char missing[] = "z";
    EXPECT_EQ(uListSearch(list, missing, compareStrings), -1);
    EXPECT_EQ(uListPosGetByElement(list, letter('c')), 2);
    EXPECT_EQ(uListPosGetByElement(list, other), -1);
}

int alwaysDifferent(void *, void *) {
    return 0;
}
int sameLength(void *a, void *b) {
    return std::strlen(static_cast<char *>(a)) == std::strlen(static_cast<char *>(b));
}

TEST(ListEqual, DefaultsAndPredicateSense) {
    EXPECT_EQ(uListEqual(nullptr, nullptr, nullptr), 1);
    uList *a = uListInit(0);
    uList *b = uListInit(0);
    EXPECT_EQ(uListEqual(a, nullptr, nullptr), 0);
    EXPECT_EQ(uListEqual(nullptr, b, nullptr), 0);
    EXPECT_EQ(uListEqual(a, b, alwaysDifferent), 1); // two empty lists are equal

    char a1[] = "one", a2[] = "two", b1[] = "one", b2[] = "two", b3[] = "six";
    uListAppend(a, a1);
    uListAppend(a, a2);
    uListAppend(b, b1);
    EXPECT_EQ(uListEqual(a, b, nullptr), 0); // sizes differ
    uListAppend(b, b2);
    EXPECT_EQ(uListEqual(a, b, nullptr), 1); // equal strings at different addresses
    EXPECT_EQ(uListEqual(a, b, alwaysDifferent), 0);
    uListRemove(b, 1);
    uListAppend(b, b3);
    EXPECT_EQ(uListEqual(a, b, nullptr), 0);
    EXPECT_EQ(uListEqual(a, b, sameLength), 1); // non-zero from the predicate means equal

    uListClearWithNodeNoNeedFree(a);
    uListClearWithNodeNoNeedFree(b);
    uListUninit(a);
    uListUninit(b);
}

std::vector<std::string> released;
void recordRelease(void *element) {
    released.emplace_back(static_cast<char *>(element));
    uFree(element);
}

char *ownedCopy(const char *text) {
    auto *copy = static_cast<char *>(uMalloc(static_cast<uint32_t>(std::strlen(text) + 1)));
    std::strcpy(copy, text);
    return copy;
}

TEST(ListClear, SpecialClearReleasesInOrderAndKeepsTheHeader) {
    uList *list = uListInit(1);
    for (const char *text : {"first", "second", "third"}) {
        uListAppend(list, ownedCopy(text));
    }
    released.clear();
    EXPECT_EQ(uListSpecialClear(list, recordRelease), 0);
    EXPECT_EQ(released, (std::vector<std::string>{"first", "second", "third"}));
    EXPECT_EQ(uListSize(list), 0);

    // The header stays usable, and null freeFn falls back to uFree (ASan sees leaks otherwise).
    uListAppend(list, ownedCopy("again"));
    EXPECT_EQ(uListSize(list), 1);
    EXPECT_EQ(uListSpecialClear(list, nullptr), 0);
    EXPECT_EQ(uListUninit(list), 0);
}

TEST(ListClear, RemoveAndFreeUsesTheGivenReleaseOrUFree) {
    uList *list = uListInit(0);
    uListAppend(list, ownedCopy("x"));
    uListAppend(list, ownedCopy("y"));
    released.clear();
    EXPECT_EQ(uListRemoveAndFree(list, 1, recordRelease), 1);
    EXPECT_EQ(released, std::vector<std::string>{"y"});
    EXPECT_EQ(uListRemoveAndFree(list, 5, recordRelease), 1); // nothing there
    EXPECT_EQ(uListRemoveAndFree(list, 0, nullptr), 0);
    EXPECT_EQ(uListUninit(list), 0);
}

TEST(ListClear, ClearWithoutFreeLeavesElementsAlone) {
    uList *list = uListInit(0);
    char *kept = ownedCopy("kept");
    uListAppend(list, kept);
    EXPECT_EQ(uListClearWithNodeNoNeedFree(list), 0);
    EXPECT_EQ(uListSize(list), 0);
    EXPECT_STREQ(kept, "kept"); // still valid memory
    uFree(kept);
    EXPECT_EQ(uListUninit(list), 0);
}

// Several threads add and remove on one locked list; the count must match the chain at the end
// and no element may be lost or duplicated.
TEST(ListConcurrency, LockedListStaysConsistent) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 2000;
    uList *list = uListInit(1);
    std::vector<std::vector<int>> values(kThreads, std::vector<int>(kPerThread));
    std::atomic<int> removed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                values[t][i] = t * kPerThread + i;
                uListAdd(list, &values[t][i], (i % 3 == 0) ? 0 : -1);
                if (i % 2 == 1 && uListRemove(list, 0) != nullptr) {
                    removed.fetch_add(1);
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    const int expected = kThreads * kPerThread - removed.load();
    EXPECT_EQ(uListSize(list), expected);
    int walked = 0;
    for (uListNode *node = list->head; node != nullptr; node = node->next) {
        ++walked;
    }
    EXPECT_EQ(walked, expected);
    uListClearWithNodeNoNeedFree(list);
    EXPECT_EQ(uListUninit(list), 0);
}

} // namespace
