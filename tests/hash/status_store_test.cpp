// SPDX-License-Identifier: MIT
// System status store: identity by hashes, the probe sequence, the full table, the lazy first
// call and statusBuffFree.
#include <uhash.h>
#include <umem.h>
#include <ustatus.h>

#include "log_capture.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char *kModule = "basalt.utils.status";
constexpr int kDebug = 0;
constexpr std::uint32_t kSlots = 1024;

class StatusStore : public testing::Test {
  protected:
    void SetUp() override { statusBuffFree(); }
    void TearDown() override { statusBuffFree(); }
};

std::uint32_t slotOf(const std::string &name) {
    return rsHash(name.c_str(), kSlots);
}

// count names of the form prefix<n> whose probe starts at slot.
std::vector<std::string> namesStartingAt(std::uint32_t slot, int count, const std::string &prefix) {
    std::vector<std::string> names;
    for (int n = 0; static_cast<int>(names.size()) < count; ++n) {
        std::string name = prefix + std::to_string(n);
        if (slotOf(name) == slot) {
            names.push_back(name);
        }
    }
    return names;
}

std::uint32_t valueOf(const std::string &name) {
    std::uint32_t value = 0xDEADBEEF;
    EXPECT_EQ(getSystemStatus(name.c_str(), &value), 0) << name;
    return value;
}

TEST(StatusStoreFirstUse, ReportsNotSetYetUntilTheFirstSet) {
    // The store is process-wide: run in a fresh process that has never set a status.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            pu::test::LogCapture log;
            std::uint32_t value = 7;
            bool ok = getSystemStatus("never", &value) == -1 && value == 7;
            ok = ok && log.count(kDebug, kModule, "The status [never] is not set yet.") == 1;
            statusBuffFree(); // before any set: harmless, and the store stays uninitialised
            ok = ok && getSystemStatus(nullptr, &value) == -1;
            ok = ok && log.count(kDebug, kModule, "The status [(null)] is not set yet.") == 1;
            // The first set runs without a lock (there is none yet) and creates the store.
            ok = ok && setSystemStatus("first", 3) == 0 && setSystemStatus("second", 4) == 0;
            ok = ok && getSystemStatus("first", &value) == 0 && value == 3;
            statusBuffFree();
            ok = ok && getSystemStatus("first", &value) == -1;
            ok = ok && log.count(kDebug, kModule, "Cannot find this status: first ") == 1;
            std::exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(StatusStore, SetOverwritesAndGetLeavesOutputAloneOnMiss) {
    EXPECT_EQ(setSystemStatus("volume", 10), 0);
    EXPECT_EQ(setSystemStatus("volume", 0xFFFFFFFF), 0);
    EXPECT_EQ(valueOf("volume"), 0xFFFFFFFFu);

    pu::test::LogCapture log;
    std::uint32_t value = 5;
    EXPECT_EQ(getSystemStatus("Volume", &value), -1); // names are case-sensitive
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(getSystemStatus("volume", nullptr), -1);
    EXPECT_EQ(log.count(kDebug, kModule, "Cannot find this status: Volume "), 1) << log.dump();
}

TEST_F(StatusStore, NullAndEmptyNameAreOneValidKey) {
    EXPECT_EQ(setSystemStatus(nullptr, 11), 0);
    EXPECT_EQ(valueOf(""), 11u);
    EXPECT_EQ(setSystemStatus("", 12), 0);
    std::uint32_t value = 0;
    EXPECT_EQ(getSystemStatus(nullptr, &value), 0);
    EXPECT_EQ(value, 12u);
}

TEST_F(StatusStore, NamesWithEqualHashesAreOneStatus) {
    // Two texts built to share both hashes (bytes moved by +1 at one position and -131 at the
    // next leave the BKDR hash alone).
    const std::string first = "sO\xd3O\xd2\xd3PO\xd3P";
    const std::string second = "sPPPPO\xd3PPP";
    ASSERT_EQ(bkdrHash(first.c_str()), bkdrHash(second.c_str()));
    ASSERT_EQ(slotOf(first), slotOf(second));
    EXPECT_EQ(setSystemStatus(first.c_str(), 1), 0);
    EXPECT_EQ(setSystemStatus(second.c_str(), 2), 0);
    EXPECT_EQ(valueOf(first), 2u);
}

TEST_F(StatusStore, CollidingNamesTakeConsecutiveSlotsAndWrapAtTheEnd) {
    for (std::uint32_t start : {100u, kSlots - 1}) {
        SCOPED_TRACE(start);
        const std::vector<std::string> names = namesStartingAt(start, 4, "c");
        // Three stored, the fourth probes past them to an empty slot.
        for (std::uint32_t i = 0; i < 3; ++i) {
            EXPECT_EQ(setSystemStatus(names[i].c_str(), 1000 + i), 0);
        }
        for (std::uint32_t i = 0; i < 3; ++i) {
            EXPECT_EQ(valueOf(names[i]), 1000 + i);
        }
        // The slot after the run (wrapped past the last slot) now holds the third name, so a
        // name starting there must probe on to the next one.
        const std::string follower = namesStartingAt((start + 2) % kSlots, 1, "f")[0];
        EXPECT_EQ(setSystemStatus(follower.c_str(), 77), 0);
        EXPECT_EQ(valueOf(follower), 77u);
        EXPECT_EQ(valueOf(names[2]), 1002u);

        pu::test::LogCapture log;
        std::uint32_t value = 0;
        EXPECT_EQ(getSystemStatus(names[3].c_str(), &value), -1);
        EXPECT_EQ(log.count(kDebug, kModule, "Cannot find this status: " + names[3] + " "), 1);
        statusBuffFree();
    }
}

TEST_F(StatusStore, FullTableRefusesNewNamesButUpdatesKnownOnes) {
    std::vector<std::string> names;
    std::set<std::pair<std::uint64_t, std::uint32_t>> keys;
    for (std::uint32_t i = 0; i < kSlots; ++i) {
        names.push_back("status-" + std::to_string(i));
        keys.emplace(bkdrHash(names.back().c_str()), slotOf(names.back()));
        ASSERT_EQ(setSystemStatus(names.back().c_str(), i), 0) << i;
    }
    ASSERT_EQ(keys.size(), kSlots); // 1024 distinct statuses, not fewer

    EXPECT_EQ(setSystemStatus("one-too-many", 1), -1);
    EXPECT_EQ(setSystemStatus(names[500].c_str(), 5000), 0);
    EXPECT_EQ(valueOf(names[500]), 5000u);
    EXPECT_EQ(valueOf(names[kSlots - 1]), kSlots - 1);

    pu::test::LogCapture log;
    std::uint32_t value = 0;
    EXPECT_EQ(getSystemStatus("one-too-many", &value), -1);
    // A probe that comes all the way round logs the lower-case variant.
    EXPECT_EQ(log.count(kDebug, kModule, "cannot find this status: one-too-many "), 1)
        << log.dump();

    statusBuffFree();
    EXPECT_EQ(getSystemStatus(names[0].c_str(), &value), -1);
    EXPECT_EQ(setSystemStatus("one-too-many", 1), 0);
    EXPECT_EQ(valueOf("one-too-many"), 1u);
}

// A failed allocation is covered by the allocation-failure sweep of this suite.

} // namespace
