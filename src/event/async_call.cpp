// SPDX-License-Identifier: MIT
// uAsyncCall: calls handed to the platform's worker pools, created on first use.
#include <uasync.h>

#include <platform_os.h>

#include <atomic>

namespace {

constexpr int kGeneralPoolThreads = 5;
constexpr int kTaskIdPoolThreads = 2;
constexpr int kAnyWorker = -1;

// Creation is deliberately unlocked: two first calls racing may both create pools and the later
// handles win. The handles and the flag are atomics so that race is not a data race.
std::atomic<THR_POOL_ID> generalPool{0};
std::atomic<THR_POOL_ID> taskIdPool{0};
std::atomic<bool> poolsCreated{false};
std::atomic<std::int32_t> nextTaskId{0};

void createPoolsIfNeeded() {
    if (poolsCreated.load(std::memory_order_acquire)) {
        return;
    }
    generalPool.store(taskThrPoolCreate(kGeneralPoolThreads), std::memory_order_relaxed);
    taskIdPool.store(taskThrPoolCreate(kTaskIdPoolThreads), std::memory_order_relaxed);
    poolsCreated.store(true, std::memory_order_release);
}

} // namespace

extern "C" {

int32_t uAsyncCall(uAsyncFunc function, void *argument) {
    createPoolsIfNeeded();
    (void)taskThrPoolAddTask(generalPool.load(std::memory_order_relaxed), function, argument,
                             kAnyWorker);
    return 0;
}

int32_t uAsyncCallWithTaskId(uAsyncFunc function, void *argument, int32_t taskId) {
    createPoolsIfNeeded();
    (void)taskThrPoolAddTask(taskIdPool.load(std::memory_order_relaxed), function, argument,
                             taskId);
    return 0;
}

int32_t uAsyncCallGetAvailableTaskId(void) {
    // The remainder keeps the dividend's sign, so a wrapped counter gives 0 and -1; intended.
    return nextTaskId.fetch_add(1, std::memory_order_relaxed) % kTaskIdPoolThreads;
}

} // extern "C"
