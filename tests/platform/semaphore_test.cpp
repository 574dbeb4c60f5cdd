// SPDX-License-Identifier: MIT
// Mutexes and binary semaphores: ownership, merging, time-outs and dead handles.
#include "platform_test_util.hpp"

#include <platform_os.h>

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

namespace {

using pu::test::elapsedMs;

// Runs body on another thread and returns its result.
template <typename Body> auto onOtherThread(Body body) {
    return std::async(std::launch::async, body).get();
}

// Starts semTake(id, WAIT_FOREVER) on another thread and returns once it is (very likely)
// blocked in it.
std::future<int> blockedTake(SEM_ID id) {
    std::promise<pid_t> started;
    auto tid = started.get_future();
    auto result = std::async(std::launch::async, [id, started = std::move(started)]() mutable {
        started.set_value(pu::test::currentTid());
        return semTake(id, WAIT_FOREVER);
    });
    pu::test::waitUntilBlocked(tid.get());
    return result;
}

TEST(SemMutex, OwnerReentersAndMustGiveEveryTake) {
    SEM_ID id = semMCreate(0);
    ASSERT_NE(id, 0u);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(semTake(id, NO_WAIT), 0) << "take " << i;
    }
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(semGive(id), 0);
        EXPECT_EQ(onOtherThread([id] { return semTake(id, NO_WAIT); }), -1)
            << "still held after " << i + 1 << " of 3 gives";
    }
    ASSERT_EQ(semGive(id), 0);
    EXPECT_EQ(semGive(id), -1) << "a fourth give has nothing to release";
    EXPECT_EQ(onOtherThread([id] {
                  int taken = semTake(id, NO_WAIT);
                  return taken == 0 ? semGive(id) : -2;
              }),
              0);
    EXPECT_EQ(semDelete(id), 0);
}

TEST(SemMutex, OtherThreadTimesOutWhileHeldAndGetsItAfterwards) {
    SEM_ID id = semMCreate(0);
    ASSERT_EQ(semTake(id, WAIT_FOREVER), 0);
    ASSERT_EQ(semTake(id, WAIT_FOREVER), 0);

    int result = 0;
    long long ms = elapsedMs([&] { result = onOtherThread([id] { return semTake(id, 5); }); });
    EXPECT_EQ(result, -1);
    EXPECT_GE(ms, 45) << "5 ticks are 50 ms";
    EXPECT_LT(ms, 5000);

    ASSERT_EQ(semGive(id), 0);
    EXPECT_EQ(onOtherThread([id] { return semTake(id, 5); }), -1) << "one take still held";
    ASSERT_EQ(semGive(id), 0);
    EXPECT_EQ(onOtherThread([id] {
                  int taken = semTake(id, 5);
                  return taken == 0 ? semGive(id) : -2;
              }),
              0);
    EXPECT_EQ(semDelete(id), 0);
}

TEST(SemMutex, WaiterGetsTheMutexWhenTheOwnerGivesIt) {
    SEM_ID id = semMCreate(0);
    ASSERT_EQ(semTake(id, WAIT_FOREVER), 0);
    std::future<int> waiter = blockedTake(id);
    ASSERT_EQ(semGive(id), 0);
    EXPECT_EQ(waiter.get(), 0);
    EXPECT_EQ(semTake(id, NO_WAIT), -1) << "the waiter still holds it";
    EXPECT_EQ(semDelete(id), 0);
}

TEST(SemMutex, GiveByNonOwnerIsHarmless) {
    SEM_ID id = semMCreate(0);
    EXPECT_EQ(semGive(id), -1) << "nobody holds it";
    ASSERT_EQ(semTake(id, NO_WAIT), 0);
    EXPECT_EQ(onOtherThread([id] { return semGive(id); }), -1);
    EXPECT_EQ(onOtherThread([id] { return semTake(id, NO_WAIT); }), -1) << "owner still holds";
    EXPECT_EQ(semGive(id), 0);
    EXPECT_EQ(semDelete(id), 0);
}

TEST(SemBinary, GivesMergeIntoOnePendingTake) {
    SEM_ID id = semBCreate(0, SEM_EMPTY);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(semTake(id, NO_WAIT), -1);
    EXPECT_EQ(semGive(id), 0);
    EXPECT_EQ(semGive(id), 0);
    EXPECT_EQ(semGive(id), 0);
    EXPECT_EQ(semTake(id, NO_WAIT), 0);
    EXPECT_EQ(semTake(id, NO_WAIT), -1) << "three gives leave one take";
    EXPECT_EQ(semDelete(id), 0);

    SEM_ID full = semBCreate(0, SEM_FULL);
    EXPECT_EQ(semTake(full, NO_WAIT), 0);
    EXPECT_EQ(semTake(full, NO_WAIT), -1);
    EXPECT_EQ(semDelete(full), 0);
}

TEST(SemBinary, AnyThreadGivesAndWakesTheWaiter) {
    SEM_ID id = semBCreate(0, SEM_EMPTY);
    std::future<int> waiter = blockedTake(id);
    EXPECT_EQ(onOtherThread([id] { return semGive(id); }), 0);
    EXPECT_EQ(waiter.get(), 0);
    EXPECT_EQ(semTake(id, NO_WAIT), -1) << "the waiter consumed the give";
    EXPECT_EQ(semDelete(id), 0);
}

TEST(SemTimeout, TicksAreTenMilliseconds) {
    SEM_ID id = semBCreate(0, SEM_EMPTY);
    long long noWait = elapsedMs([&] { EXPECT_EQ(semTake(id, NO_WAIT), -1); });
    EXPECT_LT(noWait, 1000);
    long long tenTicks = elapsedMs([&] { EXPECT_EQ(semTake(id, 10), -1); });
    EXPECT_GE(tenTicks, 95);
    EXPECT_LT(tenTicks, 5000);
    long long oneTick = elapsedMs([&] { EXPECT_EQ(semTake(id, 1), -1); });
    EXPECT_GE(oneTick, 9);
    EXPECT_LT(oneTick, tenTicks + 1000);
    EXPECT_EQ(semDelete(id), 0);
}

TEST(SemHandles, ZeroForgedAndDeletedHandlesFailHarmlessly) {
    for (SEM_ID bad : {SEM_ID{0}, SEM_ID{0xFFFFFFFF}, SEM_ID{0xFFF00000}, SEM_ID{0x000FFFFF}}) {
        EXPECT_EQ(semTake(bad, NO_WAIT), -1) << bad;
        EXPECT_EQ(semTake(bad, WAIT_FOREVER), -1) << "must not block on " << bad;
        EXPECT_EQ(semGive(bad), -1) << bad;
        EXPECT_EQ(semDelete(bad), -1) << bad;
    }
    SEM_ID mutex = semMCreate(0);
    SEM_ID binary = semBCreate(0, SEM_FULL);
    ASSERT_NE(mutex, binary);
    ASSERT_EQ(semTake(mutex, NO_WAIT), 0);
    EXPECT_EQ(semDelete(mutex), 0) << "a held mutex may be deleted";
    EXPECT_EQ(semDelete(binary), 0);
    for (SEM_ID dead : {mutex, binary}) {
        EXPECT_EQ(semTake(dead, WAIT_FOREVER), -1);
        EXPECT_EQ(semGive(dead), -1);
        EXPECT_EQ(semDelete(dead), -1);
    }
}

TEST(SemHandles, StaleHandlesStayDeadWhenTheirSlotsAreReused) {
    std::vector<SEM_ID> stale;
    for (int i = 0; i < 3000; ++i) {
        SEM_ID id = semBCreate(0, SEM_FULL);
        ASSERT_NE(id, 0u);
        stale.push_back(id);
    }
    for (SEM_ID id : stale) {
        ASSERT_EQ(semDelete(id), 0);
    }
    // Enough creates that most freed slots come back under a new generation.
    std::vector<SEM_ID> fresh;
    for (int i = 0; i < 6000; ++i) {
        fresh.push_back(semBCreate(0, SEM_FULL));
        ASSERT_NE(fresh.back(), 0u);
    }
    for (SEM_ID id : stale) {
        ASSERT_EQ(semTake(id, NO_WAIT), -1) << std::hex << id;
    }
    for (SEM_ID id : fresh) {
        ASSERT_EQ(semTake(id, NO_WAIT), 0);
        ASSERT_EQ(semDelete(id), 0);
    }
}

TEST(SemDelete, WakesEveryWaiterWithFailure) {
    SEM_ID binary = semBCreate(0, SEM_EMPTY);
    std::future<int> first = blockedTake(binary);
    std::future<int> second = blockedTake(binary);
    ASSERT_EQ(semDelete(binary), 0);
    EXPECT_EQ(first.get(), -1);
    EXPECT_EQ(second.get(), -1);

    SEM_ID mutex = semMCreate(0);
    ASSERT_EQ(semTake(mutex, WAIT_FOREVER), 0);
    std::future<int> waiter = blockedTake(mutex);
    ASSERT_EQ(semDelete(mutex), 0);
    EXPECT_EQ(waiter.get(), -1);
    EXPECT_EQ(semGive(mutex), -1) << "the former owner's give is harmless";
}

} // namespace
