// SPDX-License-Identifier: MIT
// uFsm dispatch and the id maps: first match wins, and only the terminator gives the default.
// The unique id manager: next-fit draws that wrap, releases that leave the cursor alone,
// registrations that are refused, moved or repeated, and unregistration. The manager is
// process-wide, so every row uses a module name of its own.
#include <ufsm.h>
#include <umap.h>
#include <uuniqueid.h>

#include "call_table.hpp"
#include "log_capture.hpp"
#include "test_support.hpp"

#include <gtest/gtest.h>

#include <sstream>
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
        {"null", uFsmAdd(nullptr, 1, 1, handlerA) + run(nullptr, 1, 1, nullptr).size(), 1},
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
        // The other way: the first matching row, never the terminator's value.
        {"addr", uMapIdByAddr(addrs, &b), 5},
        {"addr, default", uMapIdByAddr(addrs, &end), U_MAP_END_ID},
        {"value", uMapIdByValue(values, 20), 5},
        {"case is ignored", uMapIdByString(strings, "ALPHA"), 5},
        {"no prefix", uMapIdByString(strings, "alph"), U_MAP_END_ID},
        {"char", uMapIdByChar(chars, 0xFF), 5},
        {"characters are not folded", uMapIdByChar(chars, 'A'), U_MAP_END_ID},
        {"set the first row", uMapValueSetById(values, 5, 99), 0},
        {"never the default", uMapValueSetById(values, U_MAP_END_ID, 1), -1},
        {"only that row", values[0].value == 99 && values[1].value == 20 && values[3].value == -9,
         true},
        // Null tables give the family defaults.
        {"null value", uMapValueById(nullptr, 1) + uMapValueSetById(nullptr, 1, 1), -2},
        {"null string", uMapStringById(nullptr, 3), ""},
    });
}

// Runs a script on module name: "R<first>,<count>" registers, "D<id>,<id>..." draws and expects
// those ids, "X<id>" releases, "U" unregisters. Returns a description of the first mismatch.
std::string runScript(const char *name, const std::string &script) {
    std::istringstream steps(script);
    for (std::string step; steps >> step;) {
        std::istringstream args(step.substr(1));
        long a = 0, b = 0;
        char comma = 0;
        switch (step[0]) {
        case 'R':
            args >> a >> comma >> b;
            uIdRegisterUniqueIdModule(name, static_cast<int32_t>(a), static_cast<int32_t>(b));
            break;
        case 'X':
            args >> a;
            uIdReleaseModuleUniqueId(name, static_cast<int32_t>(a));
            break;
        case 'U':
            uIdUnregisterUniqueIdModule(name);
            break;
        default:
            for (std::string id; std::getline(args, id, ',');) {
                const int32_t drawn = uIdGetModuleAvailableUniqueId(name);
                if (drawn != std::stol(id)) {
                    return step + ": drew " + std::to_string(drawn) + " for " + id;
                }
            }
        }
    }
    return "";
}

TEST(UniqueId, Scripts) {
    const struct {
        const char *name;
        const char *script;
    } cases[] = {
        {"next fit wraps", "R1,3 D1,2,3,-1 X2 D2,-1"},
        {"a released id waits for the cursor", "R1,3 D1,2 X1 D3,1,-1 X3 X2 D2,3,-1"},
        // The cursor sits on the end of the shrunk range, in front of flags still allocated.
        {"the cursor at the end of a shrunk range wraps", "R0,8 D0 R0,1 X0 D0,-1"},
        {"releases outside the range", "R10,2 D10,11 X9 X12 X-1 X2147483647 D-1"},
        {"range past INT32_MAX", "R2147483646,3 D-1"},
        {"range up to INT32_MAX", "R2147483645,2 D2147483645,2147483646,-1"},
        {"growing keeps the flags and the cursor", "R10,3 D10,11 R10,5 D12,13,14,-1"},
        {"a moved range keeps flags by offset; a cursor below it restarts",
         "R0,3 D0 R100,3 D101,102,-1"},
        // Listed once however often registered, so one unregistration removes it.
        {"registered twice, unregistered once", "R0,2 R0,4 U D-1 X0 D-1"},
    };
    pu::test::LogCapture quiet;
    for (const auto &c : cases) {
        EXPECT_EQ(runScript(c.name, c.script), "") << '"' << c.name << "\" " << c.script;
    }
}

} // namespace
