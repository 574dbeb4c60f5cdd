// SPDX-License-Identifier: MIT
// The unique id manager: next-fit draws that wrap, releases that leave the cursor alone,
// registrations that are refused, moved or repeated, and unregistration. The manager is
// process-wide, so every row uses a module name of its own.
#include <uuniqueid.h>

#include "log_capture.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

// Runs a script on module name: "R<first>,<count>" registers, "D<id>,<id>..." draws and expects
// those ids, "X<id>" releases, "U" unregisters. Returns a description of the first mismatch.
std::string run(const char *name, const std::string &script) {
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
        {"the cursor past the last id wraps", "R0,2 D0,1 X0 D0,-1"},
        // The cursor sits on the end of the shrunk range, in front of flags still allocated.
        {"the cursor at the end of a shrunk range wraps", "R0,8 D0 R0,1 X0 D0,-1"},
        {"releases outside the range", "R10,2 D10,11 X9 X12 X-1 X2147483647 D-1"},
        {"count 0", "R0,0 D-1"},
        {"negative first id", "R-1,5 D-1"},
        {"range past INT32_MAX", "R2147483646,3 D-1"},
        {"range up to INT32_MAX", "R2147483645,2 D2147483645,2147483646,-1"},
        {"growing keeps the flags and the cursor", "R10,3 D10,11 R10,5 D12,13,14,-1"},
        {"shrinking keeps the array", "R0,5 D0,1,2,3,4 R0,2 D-1 X3 X1 D1,-1"},
        {"a moved range keeps flags by offset; a cursor below it restarts",
         "R0,3 D0 R100,3 D101,102,-1"},
        {"unregister forgets the module; registering again starts afresh",
         "R0,2 D0 U U D-1 R0,2 D0,1,-1"},
        // Listed once however often registered, so one unregistration removes it.
        {"registered twice, unregistered once", "R0,2 R0,4 U D-1 X0 D-1"},
    };
    pu::test::LogCapture quiet;
    for (const auto &c : cases) {
        EXPECT_EQ(run(c.name, c.script), "") << '"' << c.name << "\" " << c.script;
    }
}

} // namespace
