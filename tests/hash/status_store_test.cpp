// SPDX-License-Identifier: MIT
// The status store: identity by the two hashes, the probe sequence and its wrap, the full table.
#include <uhash.h>
#include <ustatus.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kSlots = 1024;

// count names prefix<n> whose probe starts at slot.
std::vector<std::string> namesStartingAt(std::uint32_t slot, std::size_t count,
                                         const std::string &prefix) {
    std::vector<std::string> names;
    for (int n = 0; names.size() < count; ++n) {
        if (rsHash((prefix + std::to_string(n)).c_str(), kSlots) == slot) {
            names.push_back(prefix + std::to_string(n));
        }
    }
    return names;
}

std::int64_t valueOf(const char *name) {
    std::uint32_t value = 0xDEADBEEF;
    return getSystemStatus(name, &value) == 0 ? static_cast<std::int64_t>(value) : -1;
}

TEST(StatusStore, NamesAreTheirHashesAndCollisionsProbeOnWrapping) {
    // Bytes moved by +1 at one position and -131 at the next leave the BKDR hash alone.
    const std::string twinA = "sO\xd3O\xd2\xd3PO\xd3P", twinB = "sPPPPO\xd3PPP";
    ASSERT_EQ(bkdrHash(twinA.c_str()), bkdrHash(twinB.c_str()));
    ASSERT_EQ(rsHash(twinA.c_str(), kSlots), rsHash(twinB.c_str(), kSlots));
    for (std::uint32_t start : {100u, kSlots - 1}) {
        SCOPED_TRACE(start);
        statusBuffFree();
        const std::vector<std::string> names = namesStartingAt(start, 4, "c");
        // The slot after three colliding names (past the last slot, wrapped) holds the third, so
        // a name that starts there probes on as well.
        const std::string follower = namesStartingAt((start + 2) % kSlots, 1, "f")[0];
        const struct {
            const char *name;
            std::uint32_t value;
        } sets[] = {{names[0].c_str(), 1},
                    {names[1].c_str(), 2},
                    {names[2].c_str(), 3},
                    {follower.c_str(), 4},
                    {names[1].c_str(), 0xFFFFFFFF},
                    {nullptr, 5},
                    {"", 6},
                    {twinA.c_str(), 7},
                    {twinB.c_str(), 8}};
        for (const auto &set : sets) {
            EXPECT_EQ(setSystemStatus(set.name, set.value), 0);
        }
        const std::pair<const char *, std::int64_t> expected[] = {{names[0].c_str(), 1},
                                                                  {names[1].c_str(), 0xFFFFFFFF},
                                                                  {names[2].c_str(), 3},
                                                                  {names[3].c_str(), -1},
                                                                  {follower.c_str(), 4},
                                                                  {nullptr, 6},
                                                                  {"", 6},
                                                                  {twinA.c_str(), 8},
                                                                  {"C0", -1}};
        for (const auto &[name, value] : expected) {
            EXPECT_EQ(valueOf(name), value) << (name != nullptr ? name : "(null)");
        }
    }
    std::uint32_t untouched = 5;
    EXPECT_EQ(getSystemStatus("missing", &untouched), -1);
    EXPECT_EQ(untouched, 5u) << "a miss leaves the output alone";
    EXPECT_EQ(getSystemStatus(twinA.c_str(), nullptr), -1);
    statusBuffFree();
}

TEST(StatusStore, FullTableRefusesNewNamesButUpdatesKnownOnes) {
    statusBuffFree();
    for (std::uint32_t i = 0; i < kSlots; ++i) {
        ASSERT_EQ(setSystemStatus(("status-" + std::to_string(i)).c_str(), i), 0) << i;
    }
    EXPECT_EQ(setSystemStatus("one-too-many", 1), -1);
    EXPECT_EQ(valueOf("one-too-many"), -1);
    EXPECT_EQ(setSystemStatus("status-500", 5000), 0);
    EXPECT_EQ(valueOf("status-500"), 5000);
    EXPECT_EQ(valueOf("status-1023"), 1023);
    statusBuffFree();
    EXPECT_EQ(valueOf("status-0"), -1);
    EXPECT_EQ(setSystemStatus("one-too-many", 1), 0);
    statusBuffFree();
}

} // namespace
