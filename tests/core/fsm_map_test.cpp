// SPDX-License-Identifier: MIT
// uFsm dispatch and the id maps: first match wins, and only the terminator gives the default.
#include <ufsm.h>
#include <umap.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string gCalls;
int32_t handlerA(void *argument) {
    gCalls += argument != nullptr ? "A*" : "A";
    return -1; // ignored: a row that ran counts as handled
}
int32_t handlerB(void *) {
    gCalls += "B";
    return 0;
}

TEST(Fsm, FirstMatchingRowWinsAndOthersAreNotRun) {
    pu::test::Owned<uFsm, uFsmDestroy> fsm(uFsmCreate());
    ASSERT_NE(fsm, nullptr);
    EXPECT_EQ(uFsmExecute(fsm.get(), 1, 2, nullptr), -1) << "empty table";
    // uFsmAdd(fsm, event, state, handler)
    ASSERT_EQ(uFsmAdd(fsm.get(), 1, 2, handlerA), 0);
    ASSERT_EQ(uFsmAdd(fsm.get(), 1, 2, handlerB), 0);
    ASSERT_EQ(uFsmAdd(fsm.get(), 3, 4, handlerB), 0);
    ASSERT_EQ(uFsmAdd(fsm.get(), 5, 5, nullptr), 0);
    int x = 0;
    const struct {
        uint32_t event, state;
        void *argument;
        int result;
        const char *calls;
    } cases[] = {
        {1, 2, &x, 0, "A*"}, {1, 2, nullptr, 0, "A"}, {3, 4, nullptr, 0, "B"},
        {5, 5, &x, 0, ""},   {1, 4, &x, -1, ""}, // event known only in another state
        {2, 1, &x, -1, ""},                      // event and state swapped
        {4, 3, &x, -1, ""},
    };
    for (const auto &c : cases) {
        gCalls.clear();
        EXPECT_EQ(uFsmExecute(fsm.get(), c.event, c.state, c.argument), c.result)
            << c.event << "/" << c.state;
        EXPECT_EQ(gCalls, c.calls) << c.event << "/" << c.state;
    }
    EXPECT_EQ(uFsmAdd(nullptr, 1, 1, handlerA), -1);
    EXPECT_EQ(uFsmExecute(nullptr, 1, 1, nullptr), -1);
    EXPECT_EQ(uFsmDestroy(nullptr), -1);
}

TEST(IdMap, LookupsBothWays) {
    int a = 0, b = 0, end = 0;
    const uMapAddr addrs[] = {{5, &a}, {5, &b}, {6, &a}, {U_MAP_END_ID, &end}};
    const uMapValue values[] = {{5, 10}, {5, 20}, {6, 10}, {U_MAP_END_ID, -9}};
    const uMapString strings[] = {{5, "Alpha"}, {5, "beta"}, {6, "alpha"}, {U_MAP_END_ID, "none"}};
    const uMapChar chars[] = {{5, 'a'}, {5, 0xFF}, {6, 'a'}, {U_MAP_END_ID, '?'}};
    // id 5: the first row; 6: its own row; 7, 0 and the terminator's id: the terminator's value.
    const struct {
        uint32_t id;
        void *addr;
        int32_t value;
        const char *text;
        unsigned char ch;
    } byId[] = {{5, &a, 10, "Alpha", 'a'},
                {6, &a, 10, "alpha", 'a'},
                {7, &end, -9, "none", '?'},
                {0, &end, -9, "none", '?'},
                {U_MAP_END_ID, &end, -9, "none", '?'}};
    for (const auto &c : byId) {
        EXPECT_EQ(uMapAddrById(addrs, c.id), c.addr) << c.id;
        EXPECT_EQ(uMapValueById(values, c.id), c.value) << c.id;
        EXPECT_STREQ(uMapStringById(strings, c.id), c.text) << c.id;
        EXPECT_EQ(uMapCharById(chars, c.id), c.ch) << c.id;
    }
    // The other way: the first matching row, never the terminator's value.
    EXPECT_EQ(uMapIdByAddr(addrs, &b), 5u);
    EXPECT_EQ(uMapIdByAddr(addrs, &end), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByValue(values, 20), 5u);
    EXPECT_EQ(uMapIdByValue(values, -9), U_MAP_END_ID);
    const std::pair<const char *, uint32_t> texts[] = {{"ALPHA", 5},
                                                       {"Beta", 5},
                                                       {"alph", U_MAP_END_ID},
                                                       {"none", U_MAP_END_ID},
                                                       {nullptr, U_MAP_END_ID}};
    for (const auto &[text, id] : texts) {
        EXPECT_EQ(uMapIdByString(strings, text), id)
            << pu::test::orNull(text) << ": case is ignored";
    }
    EXPECT_EQ(uMapIdByChar(chars, 0xFF), 5u);
    EXPECT_EQ(uMapIdByChar(chars, 'A'), U_MAP_END_ID) << "characters are not case-folded";
    EXPECT_EQ(uMapIdByChar(chars, '?'), U_MAP_END_ID);
}

TEST(IdMap, SetChangesOnlyTheFirstRowAndNeverTheDefault) {
    uMapValue values[] = {{5, 10}, {5, 20}, {U_MAP_END_ID, -9}};
    EXPECT_EQ(uMapValueSetById(values, 5, 99), 0);
    EXPECT_EQ(uMapValueSetById(values, 8, 1), -1);
    EXPECT_EQ(uMapValueSetById(values, U_MAP_END_ID, 1), -1);
    EXPECT_EQ(values[0].value, 99);
    EXPECT_EQ(values[1].value, 20);
    EXPECT_EQ(values[2].value, -9);
}

TEST(IdMap, NullTablesGiveTheFamilyDefaults) {
    EXPECT_EQ(uMapAddrById(nullptr, 1), nullptr);
    EXPECT_EQ(uMapValueById(nullptr, 1), -1);
    EXPECT_STREQ(uMapStringById(nullptr, 3), "");
    EXPECT_EQ(uMapCharById(nullptr, 1), 0);
    EXPECT_EQ(uMapIdByAddr(nullptr, nullptr), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByValue(nullptr, 0), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByString(nullptr, "x"), U_MAP_END_ID);
    EXPECT_EQ(uMapIdByChar(nullptr, 'x'), U_MAP_END_ID);
    EXPECT_EQ(uMapValueSetById(nullptr, 1, 1), -1);
}

} // namespace
