// SPDX-License-Identifier: MIT
// Spawned tasks and the tick clock.
#include "platform_test_util.hpp"

#include <platform_os.h>

#include <gtest/gtest.h>

#include <pthread.h>

#include <array>
#include <cstring>
#include <future>
#include <string>

namespace {

using pu::test::elapsedMs;

struct SpawnedRun {
    std::array<intptr_t, 10> arguments{};
    std::string threadName;
    bool deepStackUsed = false;
};

// Touches more stack than the 1 KiB that was asked for, to show the stack was raised.
bool useDeepStack() {
    volatile char block[64 * 1024];
    std::memset(const_cast<char *>(block), 0x5A, sizeof block);
    return block[sizeof block - 1] == 0x5A;
}

int recordSpawnedRun(intptr_t a1, intptr_t a2, intptr_t a3, intptr_t a4, intptr_t a5, intptr_t a6,
                     intptr_t a7, intptr_t a8, intptr_t a9, intptr_t a10) {
    SpawnedRun run;
    run.arguments = {a1, a2, a3, a4, a5, a6, a7, a8, a9, a10};
    char name[32] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    run.threadName = name;
    run.deepStackUsed = useDeepStack();
    // The last argument carries the promise to fulfil.
    reinterpret_cast<std::promise<SpawnedRun> *>(a10)->set_value(run);
    return 0;
}

SpawnedRun spawnAndWait(const char *name, int stackSize) {
    std::promise<SpawnedRun> promise;
    auto future = promise.get_future();
    auto pointer = reinterpret_cast<intptr_t>(&promise);
    TASK_ID id = taskSpawn(name, 100, 0, stackSize, recordSpawnedRun, 0, 1, -2, 3, 4, 5, 6, 7,
                           INTPTR_MAX, pointer);
    EXPECT_NE(id, 0u);
    if (id == 0) {
        return {};
    }
    return future.get();
}

TEST(TaskSpawn, RunsTheEntryWithItsTenArgumentsOnANamedThread) {
    SpawnedRun run = spawnAndWait("tMonitor", 2048);
    EXPECT_EQ(run.arguments[0], 0);
    EXPECT_EQ(run.arguments[2], -2);
    EXPECT_EQ(run.arguments[7], 7);
    EXPECT_EQ(run.arguments[8], INTPTR_MAX);
    EXPECT_NE(run.arguments[9], 0) << "pointer-sized arguments arrive whole";
    EXPECT_EQ(run.threadName, "tMonitor");
    EXPECT_TRUE(run.deepStackUsed);
}

TEST(TaskSpawn, LongNamesAreCutAndTinyStacksRaised) {
    SpawnedRun run = spawnAndWait("aVeryLongTaskNameIndeed", 1024);
    EXPECT_EQ(run.threadName, "aVeryLongTaskNa");
    EXPECT_TRUE(run.deepStackUsed);
    EXPECT_TRUE(spawnAndWait("tNegative", -5).deepStackUsed);
}

TEST(TaskSpawn, NullEntryIsRefused) {
    EXPECT_EQ(taskSpawn("tNull", 100, 0, 4096, nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), 0u);
}

TEST(Ticks, HundredPerSecondFromTheMonotonicClock) {
    EXPECT_EQ(sysClkRateGet(), 100);
    unsigned long before = tickGet();
    long long ms = elapsedMs([] { EXPECT_EQ(taskDelay(5), 0); });
    unsigned long after = tickGet();
    EXPECT_GE(ms, 45);
    EXPECT_LT(ms, 5000);
    EXPECT_GE(after - before, 4u);
    EXPECT_LE(after - before, 500u);
    EXPECT_EQ(taskDelay(0), 0) << "yields";
    EXPECT_EQ(taskDelay(-3), 0);
}

} // namespace
