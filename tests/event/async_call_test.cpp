// SPDX-License-Identifier: MIT
// Asynchronous calls: lazy creation of the two pools, routing, refusal, the task-id counter.
// The executable's own taskThrPoolCreate and taskThrPoolAddTask take precedence over the
// platform's; they record what the library asks for and pass it on.
#include <platform_os.h>
#include <platform_sim.h>
#include <platform_utils.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

struct PoolLog {
    std::mutex mutex;
    std::vector<int> createdSizes;
    std::vector<THR_POOL_ID> createdIds;
    THR_POOL_ID lastPool = 0;
    int lastTaskId = 0;
};

PoolLog &poolLog() {
    static PoolLog log;
    return log;
}

void refusedCall(void *) {
    ADD_FAILURE() << "a refused call ran";
}

template <typename Fn> Fn realFunction(const char *name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" __attribute__((visibility("default"))) THR_POOL_ID taskThrPoolCreate(int threadCount) {
    static auto real = realFunction<THR_POOL_ID (*)(int)>("taskThrPoolCreate");
    const THR_POOL_ID id = real(threadCount);
    std::lock_guard lock(poolLog().mutex);
    poolLog().createdSizes.push_back(threadCount);
    poolLog().createdIds.push_back(id);
    return id;
}

extern "C" __attribute__((visibility("default"))) int taskThrPoolAddTask(THR_POOL_ID pool,
                                                                         PLATFORM_POOL_FN fn,
                                                                         void *argument,
                                                                         int taskId) {
    static auto real =
        realFunction<int (*)(THR_POOL_ID, PLATFORM_POOL_FN, void *, int)>("taskThrPoolAddTask");
    {
        std::lock_guard lock(poolLog().mutex);
        poolLog().lastPool = pool;
        poolLog().lastTaskId = taskId;
    }
    if (fn == refusedCall) {
        return -1;
    }
    return real(pool, fn, argument, taskId);
}

namespace pu::test {
namespace {

using ::testing::ElementsAre;

TEST(AsyncCall, TheFirstCallCreatesBothPoolsAndLaterCallsNone) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(uAsyncCall([](void *) {}, nullptr), 0);
        EXPECT_EQ(uAsyncCallWithTaskId([](void *) {}, nullptr, i), 0);
    }
    platformSimWaitPoolsIdle();
    std::lock_guard lock(poolLog().mutex);
    EXPECT_THAT(poolLog().createdSizes, ElementsAre(5, 2));
}

std::atomic<std::uintptr_t> seenArgument{0};
char seenThread[16];

void remember(void *argument) {
    pthread_getname_np(pthread_self(), seenThread, sizeof seenThread);
    seenArgument.store(reinterpret_cast<std::uintptr_t>(argument));
}

TEST(AsyncCall, CallsRunOnAPoolThreadWithTheWholeArgument) {
    const auto wide = static_cast<std::uintptr_t>(~std::uintptr_t{0} - 5); // all pointer bits
    uAsyncCall(remember, reinterpret_cast<void *>(wide));
    {
        std::lock_guard lock(poolLog().mutex);
        EXPECT_EQ(poolLog().lastTaskId, -1);
        EXPECT_EQ(poolLog().lastPool, poolLog().createdIds.at(0));
    }
    platformSimWaitPoolsIdle();
    EXPECT_EQ(seenArgument.load(), wide);
    EXPECT_EQ(std::strncmp(seenThread, "tPool", 5), 0) << seenThread;
}

std::mutex orderMutex;
std::vector<int> order;

void appendOrder(void *argument) {
    std::lock_guard lock(orderMutex);
    order.push_back(static_cast<int>(reinterpret_cast<std::intptr_t>(argument)));
}

TEST(AsyncCall, CallsWithATaskIdGoToTheSecondPoolInOrder) {
    order.clear();
    for (std::intptr_t i = 0; i < 100; ++i) {
        uAsyncCallWithTaskId(appendOrder, reinterpret_cast<void *>(i), 1);
    }
    {
        std::lock_guard lock(poolLog().mutex);
        EXPECT_EQ(poolLog().lastTaskId, 1);
        EXPECT_EQ(poolLog().lastPool, poolLog().createdIds.at(1));
    }
    platformSimWaitPoolsIdle();
    std::lock_guard lock(orderMutex);
    ASSERT_EQ(order.size(), 100U);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(order[i], i);
    }
}

TEST(AsyncCall, RefusedCallsStillReportSuccess) {
    EXPECT_EQ(uAsyncCall(refusedCall, nullptr), 0);
    EXPECT_EQ(uAsyncCallWithTaskId(refusedCall, nullptr, 0), 0);
    platformSimWaitPoolsIdle();
}

TEST(AsyncCall, TaskIdsAlternateFromZero) {
    // Nothing else in this program asks for task ids, so the counter starts fresh here.
    std::vector<int> ids;
    for (int i = 0; i < 4; ++i) {
        ids.push_back(uAsyncCallGetAvailableTaskId());
    }
    EXPECT_THAT(ids, ElementsAre(0, 1, 0, 1));
}

} // namespace
} // namespace pu::test
