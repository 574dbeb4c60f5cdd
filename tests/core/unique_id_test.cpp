// SPDX-License-Identifier: MIT
// Unique id manager: next-fit order, wrap, release, re-registration and the messages. The
// manager is process-wide, so every test uses module names of its own.
#include <uuniqueid.h>

#include "log_capture.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace {

constexpr const char *kModule = "basalt.utils.uidManager";
constexpr int kDebug = 0;
constexpr int kWarning = 2;

std::vector<std::int32_t> draw(const char *name, int times) {
    std::vector<std::int32_t> ids;
    for (int i = 0; i < times; ++i) {
        ids.push_back(uIdGetModuleAvailableUniqueId(name));
    }
    return ids;
}

using Ids = std::vector<std::int32_t>;

// The formats end in a newline, which the log sink hands over removed.
std::string notRegistered(const std::string &name) {
    return "uIdGetModuleAvailableUniqueId: module=[" + name +
           "] does not registered in uniqueModule.";
}

std::string exhausted(const std::string &name) {
    return "uIdGetManagerAvailableId: Module[" + name + "] does not have any available id!";
}

TEST(UniqueIdFirstUse, EverythingIsHarmlessBeforeTheFirstRegistration) {
    // The manager is process-wide: run in a fresh process that has registered nothing.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            pu::test::LogCapture log;
            uIdReleaseModuleUniqueId("none", 1);
            uIdUnregisterUniqueIdModule("none");
            bool ok = uIdGetModuleAvailableUniqueId("none") == -1;
            ok = ok && log.count(kWarning, kModule, notRegistered("none")) == 1;
            uIdRegisterUniqueIdModule("first", 0, 2);
            ok = ok && draw("first", 3) == Ids({0, 1, -1});
            std::exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(UniqueId, NextFitWrapsAndReleaseDoesNotMoveTheCursor) {
    pu::test::LogCapture log;
    uIdRegisterUniqueIdModule("fit", 1, 3);
    EXPECT_EQ(log.count(kDebug, kModule,
                        "uIdRegisterUniqueIdModule: module=[fit] with max id=[3] register to "
                        "uniqueIdModule!"),
              1)
        << log.dump();
    EXPECT_EQ(draw("fit", 4), Ids({1, 2, 3, -1}));
    EXPECT_EQ(log.count(kWarning, kModule, exhausted("fit")), 1) << log.dump();

    uIdReleaseModuleUniqueId("fit", 2);
    EXPECT_EQ(draw("fit", 2), Ids({2, -1})); // wrapped to 1 (used), then 2

    // A released id waits until the cursor comes round again.
    uIdRegisterUniqueIdModule("fit2", 1, 3);
    EXPECT_EQ(draw("fit2", 2), Ids({1, 2}));
    uIdReleaseModuleUniqueId("fit2", 1);
    EXPECT_EQ(draw("fit2", 3), Ids({3, 1, -1}));
    uIdReleaseModuleUniqueId("fit2", 3);
    uIdReleaseModuleUniqueId("fit2", 2);
    EXPECT_EQ(draw("fit2", 3), Ids({2, 3, -1}));
}

TEST(UniqueId, ReleasesOutsideTheRangeOrOfUnknownModulesChangeNothing) {
    uIdRegisterUniqueIdModule("range", 10, 2);
    EXPECT_EQ(draw("range", 2), Ids({10, 11}));
    for (std::int32_t id : {9, 12, -1, std::numeric_limits<std::int32_t>::max()}) {
        uIdReleaseModuleUniqueId("range", id);
    }
    uIdReleaseModuleUniqueId("Range", 10); // names are case-sensitive
    uIdReleaseModuleUniqueId(nullptr, 10);
    uIdReleaseModuleUniqueId("unknown", 10);
    EXPECT_EQ(uIdGetModuleAvailableUniqueId("range"), -1);
}

TEST(UniqueId, BadRegistrationsAreIgnored) {
    pu::test::LogCapture log;
    uIdRegisterUniqueIdModule("zero", 0, 0);
    uIdRegisterUniqueIdModule("negative", -1, 5);
    uIdRegisterUniqueIdModule("negcount", 0, -5);
    uIdRegisterUniqueIdModule("overflow", std::numeric_limits<std::int32_t>::max() - 1, 3);
    uIdRegisterUniqueIdModule(nullptr, 0, 5);
    EXPECT_TRUE(log.lines().empty()) << log.dump(); // ignored without a word
    for (const char *name : {"zero", "negative", "negcount", "overflow"}) {
        EXPECT_EQ(uIdGetModuleAvailableUniqueId(name), -1);
        EXPECT_EQ(log.count(kWarning, kModule, notRegistered(name)), 1) << name;
    }
    EXPECT_EQ(uIdGetModuleAvailableUniqueId(nullptr), -1);
    EXPECT_EQ(log.count(kWarning, kModule, notRegistered("(null)")), 1) << log.dump();

    // The last id below the limit is fine.
    uIdRegisterUniqueIdModule("top", std::numeric_limits<std::int32_t>::max() - 2, 2);
    EXPECT_EQ(draw("top", 3), Ids({std::numeric_limits<std::int32_t>::max() - 2,
                                   std::numeric_limits<std::int32_t>::max() - 1, -1}));
}

TEST(UniqueId, ReRegistrationKeepsFlagsAndCursor) {
    uIdRegisterUniqueIdModule("grow", 10, 3);
    EXPECT_EQ(draw("grow", 2), Ids({10, 11}));
    uIdRegisterUniqueIdModule("grow", 10, 5);
    // The cursor stays at 12; 10 and 11 are still in use.
    EXPECT_EQ(draw("grow", 4), Ids({12, 13, 14, -1}));

    // A smaller count keeps the array but shrinks the range.
    uIdRegisterUniqueIdModule("shrink", 0, 5);
    EXPECT_EQ(draw("shrink", 5), Ids({0, 1, 2, 3, 4}));
    uIdRegisterUniqueIdModule("shrink", 0, 2);
    EXPECT_EQ(uIdGetModuleAvailableUniqueId("shrink"), -1);
    uIdReleaseModuleUniqueId("shrink", 3); // outside the range now
    uIdReleaseModuleUniqueId("shrink", 1);
    EXPECT_EQ(draw("shrink", 2), Ids({1, -1}));

    // A moved range keeps the flags by offset; a cursor left below it restarts at the start.
    uIdRegisterUniqueIdModule("move", 0, 3);
    EXPECT_EQ(draw("move", 1), Ids({0}));
    uIdRegisterUniqueIdModule("move", 100, 3);
    EXPECT_EQ(draw("move", 3), Ids({101, 102, -1}));
}

TEST(UniqueId, UnregisterForgetsTheModule) {
    uIdRegisterUniqueIdModule("gone", 0, 2);
    EXPECT_EQ(draw("gone", 1), Ids({0}));
    uIdUnregisterUniqueIdModule("gone");
    uIdUnregisterUniqueIdModule("gone"); // unknown now: nothing happens
    uIdUnregisterUniqueIdModule(nullptr);
    pu::test::LogCapture log;
    EXPECT_EQ(uIdGetModuleAvailableUniqueId("gone"), -1);
    EXPECT_EQ(log.count(kWarning, kModule, notRegistered("gone")), 1);
    uIdRegisterUniqueIdModule("gone", 0, 2); // afresh: all ids free again
    EXPECT_EQ(draw("gone", 3), Ids({0, 1, -1}));

    // Registered twice, unregistered once: the module is gone, and neither looking it up nor
    // looking up a module listed after it touches the freed record.
    uIdRegisterUniqueIdModule("twice", 0, 2);
    uIdRegisterUniqueIdModule("twice", 0, 4);
    uIdRegisterUniqueIdModule("afterTwice", 7, 1);
    uIdUnregisterUniqueIdModule("twice");
    EXPECT_EQ(uIdGetModuleAvailableUniqueId("twice"), -1);
    uIdReleaseModuleUniqueId("twice", 0);
    EXPECT_EQ(draw("afterTwice", 2), Ids({7, -1}));
    EXPECT_EQ(log.count(kWarning, kModule, notRegistered("twice")), 1);

    // The empty name is a module like any other.
    uIdRegisterUniqueIdModule("", 5, 1);
    EXPECT_EQ(draw("", 2), Ids({5, -1}));
    uIdUnregisterUniqueIdModule("");
    EXPECT_EQ(uIdGetModuleAvailableUniqueId(""), -1);
}

} // namespace
