// SPDX-License-Identifier: MIT
// uFsm dispatch and the id maps: first match wins, and only the terminator gives the default.
#include <ufsm.h>
#include <umap.h>

#include "call_table.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using pu::test::checkRows;

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
        {"event and state swapped", run(fsm, 2, 1, &x), "-1"},
        {"null", uFsmAdd(nullptr, 1, 1, handlerA) + run(nullptr, 1, 1, nullptr).size(), 1},
        {"null destroy", uFsmDestroy(nullptr), -1},
    });
}

TEST(IdMap, LookupsBothWaysAndSet) {
    int a = 0, b = 0, end = 0;
    const uMapAddr addrs[] = {{5, &a}, {5, &b}, {6, &a}, {U_MAP_END_ID, &end}};
    uMapValue values[] = {{5, 10}, {5, 20}, {6, 10}, {U_MAP_END_ID, -9}};
    const uMapString strings[] = {{5, "Alpha"}, {5, "beta"}, {6, "alpha"}, {U_MAP_END_ID, "none"}};
    const uMapChar chars[] = {{5, 'a'}, {5, 0xFF}, {6, 'a'}, {U_MAP_END_ID, '?'}};
    // id 5: the first row; 6: its own row; 7, 0 and the terminator's id: the terminator's value.
    const auto byId = [&](uint32_t id) {
        return std::to_string((uMapAddrById(addrs, id) == &a) +
                              2 * (uMapAddrById(addrs, id) == &end)) +
               " " + std::to_string(uMapValueById(values, id)) + " " + uMapStringById(strings, id) +
               " " + static_cast<char>(uMapCharById(chars, id));
    };
    checkRows({
        {"5", byId(5), "1 10 Alpha a"},
        {"6", byId(6), "1 10 alpha a"},
        {"7", byId(7), "2 -9 none ?"},
        {"end", byId(U_MAP_END_ID), "2 -9 none ?"},
        // The other way: the first matching row, never the terminator's value.
        {"addr", uMapIdByAddr(addrs, &b), 5},
        {"addr, default", uMapIdByAddr(addrs, &end), U_MAP_END_ID},
        {"value", uMapIdByValue(values, 20), 5},
        {"case is ignored", uMapIdByString(strings, "ALPHA"), 5},
        {"no prefix", uMapIdByString(strings, "alph"), U_MAP_END_ID},
        {"string, default", uMapIdByString(strings, "none"), U_MAP_END_ID},
        {"char", uMapIdByChar(chars, 0xFF), 5},
        {"characters are not folded", uMapIdByChar(chars, 'A'), U_MAP_END_ID},
        {"set the first row", uMapValueSetById(values, 5, 99), 0},
        {"no such row", uMapValueSetById(values, 8, 1), -1},
        {"never the default", uMapValueSetById(values, U_MAP_END_ID, 1), -1},
        {"values",
         std::to_string(values[0].value) + " " + std::to_string(values[1].value) + " " +
             std::to_string(values[3].value),
         "99 20 -9"},
        // Null tables give the family defaults.
        {"null tables", uMapAddrById(nullptr, 1) == nullptr && uMapCharById(nullptr, 1) == 0, true},
        {"null value", uMapValueById(nullptr, 1) + uMapValueSetById(nullptr, 1, 1), -2},
        {"null string", uMapStringById(nullptr, 3), ""},
        {"null reverse",
         uMapIdByAddr(nullptr, nullptr) & uMapIdByValue(nullptr, 0) & uMapIdByString(nullptr, "x") &
             uMapIdByChar(nullptr, 'x'),
         U_MAP_END_ID},
    });
}

} // namespace
