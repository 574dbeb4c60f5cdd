// SPDX-License-Identifier: MIT
// The status store: identity by the two hashes, the probe sequence and its wrap, the full table,
// and writers and unlocked readers on many threads (under ThreadSanitizer: no data races).
#include <uhash.h>
#include <ustatus.h>
#include <uuniqueid.h>

#include "test_support.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kSlots = 1024;

// The first name prefix<n> whose probe starts at slot.
std::string nameStartingAt(std::uint32_t slot, const std::string &prefix, int from = 0) {
    for (int n = from;; ++n) {
        if (rsHash((prefix + std::to_string(n)).c_str(), kSlots) == slot) {
            return prefix + std::to_string(n);
        }
    }
}

std::int64_t valueOf(const std::string &name, bool null = false) {
    std::uint32_t value = 0xDEADBEEF;
    return getSystemStatus(null ? nullptr : name.c_str(), &value) == 0
               ? static_cast<std::int64_t>(value)
               : -1;
}

TEST(StatusStore, NamesAreTheirHashesAndCollisionsProbeOnWrapping) {
    // Bytes moved by +1 at one position and -131 at the next leave the BKDR hash alone.
    const std::string twinA = "sO\xd3O\xd2\xd3PO\xd3P", twinB = "sPPPPO\xd3PPP";
    ASSERT_EQ(rsHash(twinA.c_str(), kSlots), rsHash(twinB.c_str(), kSlots));
    for (std::uint32_t start : {100u, kSlots - 1}) {
        SCOPED_TRACE(start);
        statusBuffFree();
        std::vector<std::string> c{nameStartingAt(start, "c")};
        for (int i = 0; i < 3; ++i) {
            c.push_back(nameStartingAt(start, "c", std::stoi(c.back().substr(1)) + 1));
        }
        // The slot after three colliding names (past the last slot, wrapped) holds the third, so
        // a name that starts there probes on as well.
        const std::string follower = nameStartingAt((start + 2) % kSlots, "f");
        const std::pair<const char *, std::uint32_t> sets[] = {
            {c[0].c_str(), 1},          {c[1].c_str(), 2}, {c[2].c_str(), 3}, {follower.c_str(), 4},
            {c[1].c_str(), 0xFFFFFFFF}, {nullptr, 5},      {"", 6},           {twinA.c_str(), 7},
            {twinB.c_str(), 8}};
        for (const auto &[name, value] : sets) {
            EXPECT_EQ(setSystemStatus(name, value), 0) << pu::test::orNull(name);
        }
        const std::pair<std::string, std::int64_t> expected[] = {
            {c[0], 1}, {c[1], 0xFFFFFFFF}, {c[2], 3}, {c[3], -1}, {follower, 4},
            {"", 6},   {twinA, 8},         {"C0", -1}};
        for (const auto &[name, value] : expected) {
            EXPECT_EQ(valueOf(name), value) << name;
        }
        EXPECT_EQ(valueOf("", true), 6) << "null and empty are the same name";
    }
    std::uint32_t untouched = 5;
    EXPECT_EQ(getSystemStatus("missing", &untouched) + getSystemStatus(twinA.c_str(), nullptr), -2);
    EXPECT_EQ(untouched, 5u) << "a miss leaves the output alone";
    statusBuffFree();
    for (std::uint32_t i = 0; i < kSlots; ++i) {
        ASSERT_EQ(setSystemStatus(("status-" + std::to_string(i)).c_str(), i), 0) << i;
    }
    EXPECT_EQ(setSystemStatus("one-too-many", 1), -1) << "full";
    EXPECT_EQ(setSystemStatus("status-500", 5000), 0) << "known names still update";
    EXPECT_EQ(valueOf("status-500") + valueOf("status-1023") + valueOf("one-too-many"), 6022);
    statusBuffFree();
    EXPECT_EQ(valueOf("status-0"), -1);
    EXPECT_EQ(setSystemStatus("one-too-many", 1), 0);
    statusBuffFree();
}

TEST(StatusStore, StatusesAndIdsUnderContention) {
    constexpr int kThreads = 4, kIds = 32, kHeld = 6; // 4 * (6 + 1) < 32: a draw never runs dry
    constexpr std::uint32_t kRounds = 3000;
    statusBuffFree();
    uIdRegisterUniqueIdModule("stress", 0, kIds);
    std::array<std::atomic<int>, kIds> holders{};
    std::atomic<int> failures{0};
    pu::test::fanOut(kThreads, [&](int self) {
        const std::string own = "own-" + std::to_string(self),
                          watched = "own-" + std::to_string((self + 1) % kThreads);
        std::uint32_t lastSeen = 0, seen = 0;
        std::vector<std::int32_t> held;
        for (std::uint32_t round = 1; round <= kRounds; ++round) {
            setSystemStatus(own.c_str(), round);
            // New names keep arriving while others probe past the slots they land in.
            setSystemStatus(("shared-" + std::to_string(round % 300)).c_str(), round);
            if (getSystemStatus(watched.c_str(), &seen) == 0) {
                failures += seen < lastSeen; // stale maybe, but a counter never goes back
                lastSeen = seen;
            }
            const std::int32_t id = uIdGetModuleAvailableUniqueId("stress");
            failures += id < 0 || id >= kIds || holders[id & 31].exchange(1) != 0;
            held.push_back(id & 31);
            if (held.size() > kHeld || round == kRounds) {
                for (std::int32_t h : held) {
                    holders[h].store(0);
                    uIdReleaseModuleUniqueId("stress", h);
                }
                held.clear();
            }
        }
    });
    EXPECT_EQ(failures.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(valueOf("own-" + std::to_string(t)), kRounds) << t;
    }
    std::set<std::int32_t> all; // every id came back
    for (int i = 0; i <= kIds; ++i) {
        all.insert(uIdGetModuleAvailableUniqueId("stress"));
    }
    EXPECT_EQ(all.size(), kIds + 1u) << "every id came back, then no more";
    uIdUnregisterUniqueIdModule("stress");
    statusBuffFree();
}

} // namespace
