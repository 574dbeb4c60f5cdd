// SPDX-License-Identifier: MIT
// Thread pools: a shared queue any worker serves and one queue per worker for ordered calls.
#include "handle_table.hpp"
#include "platform_internal.hpp"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace pu::platform {
namespace {

constexpr int kMaxPoolThreads = 1024;

struct PoolCall {
    PLATFORM_POOL_FN fn;
    void *argument;
};

struct Worker {
    std::deque<PoolCall> own;
    std::condition_variable wake;
    bool idle = false; // waiting and not yet claimed for a shared call
};

// Never freed: there is no call that deletes a pool.
struct Pool {
    std::mutex guard;
    std::deque<PoolCall> shared;
    std::vector<std::unique_ptr<Worker>> workers;
};

struct PoolRef {
    Pool *pool = nullptr;
};

using PoolTable = HandleTable<PoolRef>;

PoolTable &pools() {
    static auto &table = *new PoolTable(HandleKind::threadPool);
    return table;
}

// Calls queued or running in every pool, for taskThrPoolWaitIdle.
struct IdleTracker {
    std::atomic<std::int64_t> busy{0};
    std::mutex mutex;
    std::condition_variable idle;
};

IdleTracker &idleTracker() {
    static auto &tracker = *new IdleTracker;
    return tracker;
}

void callQueued() {
    idleTracker().busy.fetch_add(1, std::memory_order_relaxed);
}

void callFinished() {
    IdleTracker &tracker = idleTracker();
    if (tracker.busy.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        // Locking orders this against a waiter between its check and its wait.
        std::lock_guard lock(tracker.mutex);
        tracker.idle.notify_all();
    }
}

struct WorkerStart {
    Pool *pool;
    std::size_t index;
};

// Caller holds pool.guard. The worker's own queue first: it carries the ordered calls.
bool takeCall(Pool &pool, Worker &worker, PoolCall &call) {
    std::deque<PoolCall> *queue = !worker.own.empty()    ? &worker.own
                                  : !pool.shared.empty() ? &pool.shared
                                                         : nullptr;
    if (queue == nullptr) {
        return false;
    }
    call = queue->front();
    queue->pop_front();
    return true;
}

void runWorker(WorkerStart &start) {
    Pool &pool = *start.pool;
    std::unique_lock lock(pool.guard);
    Worker &worker = *pool.workers[start.index];
    for (;;) {
        PoolCall call{};
        if (takeCall(pool, worker, call)) {
            lock.unlock();
            call.fn(call.argument);
            callFinished();
            lock.lock();
            continue;
        }
        worker.idle = true;
        worker.wake.wait(lock);
        worker.idle = false;
    }
}

// Caller holds pool.guard. Wakes one idle worker for a shared call; when none is idle, a busy
// worker looks at the shared queue before it waits again.
void wakeIdleWorker(Pool &pool) {
    for (auto &worker : pool.workers) {
        if (worker->idle) {
            worker->idle = false;
            worker->wake.notify_one();
            return;
        }
    }
}

// Caller holds pool.guard, which keeps the workers from starting work before all are there.
// Returns the number of workers started.
std::size_t startWorkers(Pool &pool, std::uint32_t poolIndex) {
    for (std::size_t i = 0; i < pool.workers.size(); ++i) {
        std::unique_ptr<WorkerStart> start(new (std::nothrow) WorkerStart{&pool, i});
        char name[48]; // the thread keeps the first 15 characters
        std::snprintf(name, sizeof name, "tPool%u.%zu", poolIndex, i);
        if (!startThreadWith<WorkerStart, runWorker>(name, 0, start)) {
            return i;
        }
    }
    return pool.workers.size();
}

THR_POOL_ID createPool(int threadCount) {
    if (threadCount <= 0 || threadCount > kMaxPoolThreads) {
        return 0;
    }
    auto pool = std::make_unique<Pool>();
    for (int i = 0; i < threadCount; ++i) {
        pool->workers.push_back(std::make_unique<Worker>());
    }
    auto reservation = pools().reserve();
    if (reservation.slot == nullptr) {
        return 0;
    }
    std::unique_lock lock(pool->guard);
    std::size_t started = startWorkers(*pool, reservation.handle & kIndexMask);
    if (started == 0) {
        pools().release(reservation.slot);
        return 0;
    }
    // Short of threads, the pool runs with those it got; same-id calls still share one worker.
    pool->workers.resize(started);
    lock.unlock();
    reservation.slot->object.pool = pool.release();
    PoolTable::publish(reservation);
    return reservation.handle;
}

int addCall(THR_POOL_ID id, PLATFORM_POOL_FN fn, void *argument, int taskId) {
    PoolTable::Slot *slot = pools().find(id);
    if (slot == nullptr || fn == nullptr) {
        return -1;
    }
    Pool &pool = *slot->object.pool;
    std::lock_guard lock(pool.guard);
    // Counted before any worker can see it, so the count never drops to 0 in between.
    callQueued();
    try {
        if (taskId < 0) {
            pool.shared.push_back({fn, argument});
            wakeIdleWorker(pool);
        } else {
            Worker &worker = *pool.workers[static_cast<std::size_t>(taskId) % pool.workers.size()];
            worker.own.push_back({fn, argument});
            worker.wake.notify_one();
        }
    } catch (const std::bad_alloc &) {
        callFinished();
        return -1;
    }
    return 0;
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

THR_POOL_ID taskThrPoolCreate(int threadCount) {
    return guarded(THR_POOL_ID{0}, [&] { return createPool(threadCount); });
}

int taskThrPoolAddTask(THR_POOL_ID pool, PLATFORM_POOL_FN fn, void *argument, int taskId) {
    return guarded(-1, [&] { return addCall(pool, fn, argument, taskId); });
}

void taskThrPoolWaitIdle(void) {
    guarded(0, [] {
        IdleTracker &tracker = idleTracker();
        std::unique_lock lock(tracker.mutex);
        tracker.idle.wait(lock, [&] { return tracker.busy.load(std::memory_order_acquire) == 0; });
        return 0;
    });
}
