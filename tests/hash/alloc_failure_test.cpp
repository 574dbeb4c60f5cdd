// SPDX-License-Identifier: MIT
// The maps and the status store with each of their uMalloc calls failing in turn: the documented
// failure value, nothing leaked, the structure still usable. uthash's own table storage comes from
// malloc, so its exit(-1) on exhaustion is out of the sweep's reach.
#include "fail_alloc.hpp"

#include <uhash.h>
#include <ustatus.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace {

using pu::test::AllocCase;
using pu::test::FailAlloc;

int gValue = 7;

const AllocCase kCases[] = {
    {"StringMap",
     [](const FailAlloc &fault) {
         uHash *map = uHashCreateMap(1);
         if (map == nullptr) {
             EXPECT_TRUE(fault.hit());
             return;
         }
         const int32_t added = uHashInsert(map, "Key", &gValue);
         EXPECT_EQ(added == -1, fault.hit());
         EXPECT_EQ(uHashKeyExists(map, "KEY"), added == 1 ? 1 : 0);
         EXPECT_EQ(uHashInsert(map, "key", &gValue), added == 1 ? 0 : 1);
         EXPECT_EQ(uHashGetValue(map, "key"), &gValue);
         uHashDestroyMap(map, nullptr);
     }},
    {"IntMap",
     [](const FailAlloc &fault) {
         uIntHash *map = uIntHashMapCreate();
         if (map == nullptr) {
             EXPECT_TRUE(fault.hit());
             return;
         }
         const int32_t added = uIntHashInsert(map, -3, &gValue);
         EXPECT_EQ(added == -1, fault.hit());
         EXPECT_EQ(uIntHashKeyExists(map, -3), added == 1 ? 1 : 0);
         EXPECT_EQ(uIntHashInsert(map, -3, &gValue), added == 1 ? 0 : 1);
         EXPECT_EQ(uIntHashGetValue(map, -3), &gValue);
         uIntHashDestroyMap(map, nullptr);
     }},
    {"StatusStore",
     [](const FailAlloc &fault) {
         const int32_t set = setSystemStatus("alloc.sweep", 5);
         EXPECT_EQ(set == -1, fault.hit());
         // From another task, so a lock left held shows as a hang instead of a recursive take.
         std::promise<int32_t> done;
         std::future<int32_t> result = done.get_future();
         std::thread([&done] { done.set_value(setSystemStatus("alloc.sweep", 6)); }).detach();
         ASSERT_EQ(result.wait_for(std::chrono::seconds(10)), std::future_status::ready)
             << "the store's lock is still held";
         EXPECT_EQ(result.get(), 0);
         uint32_t value = 0;
         EXPECT_EQ(getSystemStatus("alloc.sweep", &value), 0);
         EXPECT_EQ(value, 6U);
         statusBuffFree();
     }},
};

class HashAllocFailure : public testing::TestWithParam<AllocCase> {};

PU_ALLOC_FAILURE_SWEEP(HashAllocFailure, kCases);

} // namespace
