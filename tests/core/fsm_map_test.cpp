// SPDX-License-Identifier: MIT
// uFsm dispatch rules and the id maps' terminator conventions.
#include <ufsm.h>
#include <umap.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<std::pair<char, void *>> calls;
int32_t handlerA(void *argument) {
    calls.emplace_back('A', argument);
    return 0;
}
int32_t handlerB(void *argument) {
    calls.emplace_back('B', argument);
    return 0;
}

TEST(Fsm, FirstMatchingRowWinsAndOthersAreNotRun) {
    calls.clear();
    uFsm *fsm = uFsmCreate();
    ASSERT_NE(fsm, nullptr);
    int x = 0;
    EXPECT_EQ(uFsmExecute(fsm, 1, 2, &x), -1); // empty table
    EXPECT_TRUE(calls.empty());

    ASSERT_EQ(uFsmAdd(fsm, 1, 2, handlerA), 0);
    ASSERT_EQ(uFsmAdd(fsm, 1, 2, handlerB), 0);
    ASSERT_EQ(uFsmAdd(fsm, 3, 4, handlerB), 0);
    EXPECT_EQ(uFsmExecute(fsm, 1, 2, &x), 0);
    EXPECT_EQ(calls, (std::vector<std::pair<char, void *>>{{'A', &x}}));

    calls.clear();
    EXPECT_EQ(uFsmExecute(fsm, 1, 4, &x), -1); // event known only in another state
    EXPECT_EQ(uFsmExecute(fsm, 2, 1, &x), -1); // event and state swapped
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(uFsmExecute(fsm, 3, 4, nullptr), 0);
    EXPECT_EQ(calls, (std::vector<std::pair<char, void *>>{{'B', nullptr}}));

    EXPECT_EQ(uFsmDestroy(fsm), 0);
}

TEST(Fsm, NullTableFails) {
    EXPECT_EQ(uFsmAdd(nullptr, 1, 1, handlerA), -1);
    EXPECT_EQ(uFsmExecute(nullptr, 1, 1, nullptr), -1);
    EXPECT_EQ(uFsmDestroy(nullptr), -1);
}

TEST(IdMap, OnlyTheTerminatorGivesDefaultsAndMinusOne) {
    int sentinel = 0;
    const uMapAddr addrs[] = {{U_MAP_END_ID, &sentinel}};
    const uMapValue values[] = {{U_MAP_END_ID, 77}};
    const uMapString strings[] = {{U_MAP_END_ID, "none"}};
    const uMapChar chars[] = {{U_MAP_END_ID, '?'}};
    for (uint32_t id : {0u, 5u, U_MAP_END_ID}) {
        EXPECT_EQ(uMapAddrById(addrs, id), &sentinel);
        EXPECT_EQ(uMapValueById(values, id), 77);
        EXPECT_STREQ(uMapStringById(strings, id), "none");
        EXPECT_EQ(uMapCharById(chars, id), '?');
    }
    // The terminator's own value is never matched in the value-to-id direction.
    EXPECT_EQ(uMapIdByAddr(addrs, &sentinel), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByValue(values, 77), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByString(strings, "none"), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByChar(chars, '?'), U_MAP_END_ID);
}

TEST(IdMap, FirstRowWinsInBothDirections) {
    uMapValue values[] = {{5, 10}, {5, 20}, {6, 10}, {U_MAP_END_ID, -9}};
    EXPECT_EQ(uMapValueById(values, 5), 10);
    EXPECT_EQ(uMapValueById(values, 6), 10);
    EXPECT_EQ(uMapValueById(values, 7), -9);
    EXPECT_EQ(uMapIdByValue(values, 10), 5u);
    EXPECT_EQ(uMapIdByValue(values, 20), 5u);
    EXPECT_EQ(uMapIdByValue(values, -9), U_MAP_END_ID);

    EXPECT_EQ(uMapValueSetById(values, 5, 99), 0);
    EXPECT_EQ(values[0].value, 99);
    EXPECT_EQ(values[1].value, 20); // only the first row of id 5
    EXPECT_EQ(uMapValueSetById(values, 8, 1), -1);
    EXPECT_EQ(uMapValueSetById(values, U_MAP_END_ID, 1), -1); // the default cannot be changed
    EXPECT_EQ(values[3].value, -9);
}

TEST(IdMap, StringsCompareIgnoringCaseAndCharsByByte) {
    const uMapString strings[] = {{1, "Alpha"}, {2, "beta"}, {U_MAP_END_ID, "?"}};
    EXPECT_EQ(uMapIdByString(strings, "ALPHA"), 1u);
    EXPECT_EQ(uMapIdByString(strings, "Beta"), 2u);
    EXPECT_EQ(uMapIdByString(strings, "alph"), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByString(strings, nullptr), U_MAP_END_ID);
    EXPECT_STREQ(uMapStringById(strings, 2), "beta");

    const uMapChar chars[] = {{1, 'a'}, {2, 0xFF}, {U_MAP_END_ID, 0}};
    EXPECT_EQ(uMapIdByChar(chars, 0xFF), 2u);
    EXPECT_EQ(uMapIdByChar(chars, 'A'), U_MAP_END_ID); // characters are not case-folded
    EXPECT_EQ(uMapCharById(chars, 1), 'a');
}

TEST(IdMap, NullTablesGiveTheFamilyDefaults) {
    EXPECT_EQ(uMapAddrById(nullptr, 1), nullptr);
    EXPECT_EQ(uMapValueById(nullptr, 1), -1);
    ASSERT_NE(uMapStringById(nullptr, 3), nullptr);
    EXPECT_STREQ(uMapStringById(nullptr, 3), "");
    EXPECT_EQ(uMapCharById(nullptr, 1), 0);
    EXPECT_EQ(uMapIdByAddr(nullptr, nullptr), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByValue(nullptr, 0), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByString(nullptr, "x"), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByChar(nullptr, 'x'), U_MAP_END_ID);
    EXPECT_EQ(uMapValueSetById(nullptr, 1, 1), -1);
}

} // namespace
