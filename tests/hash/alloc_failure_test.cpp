// SPDX-License-Identifier: MIT
// The maps and the status store with each of their uMalloc calls failing in turn: the documented
// failure value, nothing leaked, the structure still usable. The table storage of the maps comes
// from malloc, so running out there is out of the sweep's reach. And every line the status store
// logs.
#include "call_table.hpp"
#include "fail_alloc.hpp"

#include <uhash.h>
#include <ustatus.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

namespace {

using pu::test::AllocCase;
using pu::test::FailAlloc;

int gValue = 7;

// Creates a map and inserts a key twice (the second spelling folds onto the first when it is
// a string): the first insert fails exactly when the fault was hit, the second then adds.
template <typename Map, typename Key>
void insertTwice(const FailAlloc &fault, Map *map, int32_t (*insert)(Map *, Key, void *),
                 void *(*get)(Map *, Key), void (*destroy)(Map *, uHashFreeFn), Key first,
                 Key second) {
    const int32_t added = map != nullptr ? insert(map, first, &gValue) : -1;
    EXPECT_EQ(added == -1, fault.hit());
    if (map != nullptr) {
        EXPECT_EQ(insert(map, second, &gValue), added == 1 ? 0 : 1);
        EXPECT_EQ(get(map, second), &gValue);
        destroy(map, nullptr);
    }
}

const AllocCase kCases[] = {
    {"StringMap",
     [](const FailAlloc &fault) {
         insertTwice<uHash, const char *>(fault, uHashCreateMap(1), uHashInsert, uHashGetValue,
                                          uHashDestroyMap, "Key", "key");
     }},
    {"IntMap",
     [](const FailAlloc &fault) {
         insertTwice<uIntHash, int32_t>(fault, uIntHashMapCreate(), uIntHashInsert,
                                        uIntHashGetValue, uIntHashDestroyMap, -3, -3);
     }},
    {"StatusStore",
     [](const FailAlloc &fault) {
         const int32_t set = setSystemStatus("alloc.sweep", 5); // before asking about the fault
         EXPECT_EQ(set == -1, fault.hit());
         // From another task, so a lock left held shows as a hang instead of a recursive take.
         auto again =
             std::async(std::launch::async, [] { return setSystemStatus("alloc.sweep", 6); });
         ASSERT_EQ(again.wait_for(std::chrono::seconds(10)), std::future_status::ready)
             << "the store's lock is still held";
         uint32_t value = 0;
         EXPECT_EQ(again.get() + getSystemStatus("alloc.sweep", &value), 0);
         EXPECT_EQ(value, 6U);
         statusBuffFree();
     }},
};

class HashAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(HashAllocFailure, kCases);

// Every line the status store logs, exactly: applications watch for these texts. Some show only
// before the first status is set, so the table runs in a fresh process, in order. The full table
// also shows that it refuses new names but still updates known ones.
std::uint32_t gStatus = 0;

TEST(LogCatalogue, StatusMessagesFromAFreshStore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const char *status = "basalt.utils.status";
            pu::test::checkLogRows({
                PU_LOG_ROW(getSystemStatus("never", &gStatus), 0, status,
                           "The status [never] is not set yet."),
                PU_LOG_ROW(getSystemStatus(nullptr, &gStatus), 0, status,
                           "The status [(null)] is not set yet."),
                PU_LOG_ROW((setSystemStatus("first", 3), getSystemStatus("First", &gStatus)), 0,
                           status, "Cannot find this status: First "),
                PU_LOG_ROW((statusBuffFree(), getSystemStatus("first", &gStatus)), 0, status,
                           "Cannot find this status: first "),
            });
            for (int i = 0; i < 1024; ++i) { // every slot taken: the probe goes all the way round
                setSystemStatus(("s" + std::to_string(i)).c_str(), 1);
            }
            pu::test::checkLogRows({PU_LOG_ROW(getSystemStatus("s-1", &gStatus), 0, status,
                                               "cannot find this status: s-1 ")});
            EXPECT_EQ(setSystemStatus("one-too-many", 1), -1) << "full";
            EXPECT_EQ(setSystemStatus("s500", 5000) + getSystemStatus("s500", &gStatus), 0)
                << "known names still update";
            EXPECT_EQ(gStatus, 5000u);
            statusBuffFree();
            std::exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
