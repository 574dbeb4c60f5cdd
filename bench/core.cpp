// SPDX-License-Identifier: MIT
// Core containers and the platform pool, each beside a plain reference in the same run:
//   - semTake/semGive of a platform mutex against pthread_mutex_lock/unlock, alone and with 2
//     and 4 threads on one lock;
//   - uBmAlloc/uBmFree against malloc/free of the same size;
//   - taskThrPoolAddTask hand-over latency (queue to run) against a std::thread fed through a
//     mutex and a condition variable.
#include <platform_os.h>
#include <platform_utils.h>

#include <benchmark/benchmark.h>
#include <pthread.h>

#include "support/times_reporter.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// One lock taken and given in a loop by every thread of the run: uncontended with one thread,
// contended with more (the figure is per pair, per thread).
void BM_SemTakeGive(benchmark::State &state) {
    static SEM_ID lock;
    if (state.thread_index() == 0) {
        lock = semMCreate(0);
    }
    for (auto _ : state) {
        semTake(lock, WAIT_FOREVER);
        semGive(lock);
    }
    if (state.thread_index() == 0) {
        semDelete(lock);
    }
}
BENCHMARK(BM_SemTakeGive)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();

void BM_PthreadLockUnlock(benchmark::State &state) {
    static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        pthread_mutex_lock(&lock);
        pthread_mutex_unlock(&lock);
    }
}
BENCHMARK(BM_PthreadLockUnlock)->Threads(1)->Threads(2)->Threads(4)->UseRealTime();

constexpr std::uint32_t kBlockSize = 24;
constexpr std::uint32_t kBlockCount = 1024;

void BM_PoolAllocFree(benchmark::State &state) {
    std::vector<char> memory(U_BM_HEAP_SIZE(kBlockCount, kBlockSize));
    uBm pool{};
    uBmInitHeap(&pool, kBlockCount, kBlockSize, memory.data());
    for (auto _ : state) {
        void *block = uBmAlloc(&pool);
        benchmark::DoNotOptimize(block);
        uBmFree(block);
    }
    semDelete(pool.freeQueue.lock);
}
BENCHMARK(BM_PoolAllocFree);

void BM_MallocFree(benchmark::State &state) {
    for (auto _ : state) {
        void *block = std::malloc(kBlockSize);
        benchmark::DoNotOptimize(block);
        std::free(block);
    }
}
BENCHMARK(BM_MallocFree);

// The least a thread-safe take and give from one shared queue need: one atomic read-modify-write
// each (a lock-free queue's compare-exchange, or a lock's take without its give). This is the
// floor under any pool that keeps its least-recently-freed order across threads.
void BM_TwoCompareExchanges(benchmark::State &state) {
    std::atomic<std::uintptr_t> head{0};
    for (auto _ : state) {
        std::uintptr_t seen = head.load(std::memory_order_relaxed);
        head.compare_exchange_strong(seen, seen + 1, std::memory_order_acq_rel);
        seen = head.load(std::memory_order_relaxed);
        head.compare_exchange_strong(seen, seen + 1, std::memory_order_acq_rel);
    }
    benchmark::DoNotOptimize(head.load());
}
BENCHMARK(BM_TwoCompareExchanges);

// Many blocks live at once, as in a timer list: allocate 256, then free them all.
void BM_PoolBurst256(benchmark::State &state) {
    std::vector<char> memory(U_BM_HEAP_SIZE(kBlockCount, kBlockSize));
    uBm pool{};
    uBmInitHeap(&pool, kBlockCount, kBlockSize, memory.data());
    std::vector<void *> blocks(256);
    for (auto _ : state) {
        for (auto &block : blocks) {
            block = uBmAlloc(&pool);
        }
        for (auto *block : blocks) {
            uBmFree(block);
        }
    }
    semDelete(pool.freeQueue.lock);
}
BENCHMARK(BM_PoolBurst256);

void BM_MallocBurst256(benchmark::State &state) {
    std::vector<void *> blocks(256);
    for (auto _ : state) {
        for (auto &block : blocks) {
            block = std::malloc(kBlockSize);
            benchmark::DoNotOptimize(block);
        }
        for (auto *block : blocks) {
            std::free(block);
        }
    }
}
BENCHMARK(BM_MallocBurst256);

using Clock = std::chrono::steady_clock;

// One hand-over: the time from queueing a call to the call starting on a worker.
struct HandOver {
    Clock::time_point queued;
    std::atomic<long long> latencyNs{-1};
};

void recordHandOver(void *argument) {
    auto *handOver = static_cast<HandOver *>(argument);
    const auto ns =
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - handOver->queued);
    handOver->latencyNs.store(ns.count(), std::memory_order_release);
}

long long waitForLatency(const HandOver &handOver) {
    long long ns;
    while ((ns = handOver.latencyNs.load(std::memory_order_acquire)) < 0) {
        std::this_thread::yield();
    }
    return ns;
}

void BM_PoolHandOver(benchmark::State &state) {
    static const THR_POOL_ID pool = taskThrPoolCreate(1);
    double totalNs = 0;
    for (auto _ : state) {
        HandOver handOver;
        handOver.queued = Clock::now();
        taskThrPoolAddTask(pool, recordHandOver, &handOver, -1);
        totalNs += static_cast<double>(waitForLatency(handOver));
    }
    state.counters["handover_ns"] = benchmark::Counter(totalNs, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_PoolHandOver)->UseRealTime();

// The baseline: one std::thread taking calls from a deque under a mutex and condition variable.
class PlainWorker {
  public:
    PlainWorker() : thread_([this] { run(); }) {}
    ~PlainWorker() {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        ready_.notify_one();
        thread_.join();
    }
    void post(std::function<void()> call) {
        {
            std::lock_guard lock(mutex_);
            calls_.push_back(std::move(call));
        }
        ready_.notify_one();
    }

  private:
    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            ready_.wait(lock, [this] { return stop_ || !calls_.empty(); });
            if (calls_.empty()) {
                return;
            }
            auto call = std::move(calls_.front());
            calls_.pop_front();
            lock.unlock();
            call();
            lock.lock();
        }
    }
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> calls_;
    bool stop_ = false;
    std::thread thread_;
};

void BM_PlainThreadHandOver(benchmark::State &state) {
    PlainWorker worker;
    double totalNs = 0;
    for (auto _ : state) {
        HandOver handOver;
        handOver.queued = Clock::now();
        worker.post([&handOver] { recordHandOver(&handOver); });
        totalNs += static_cast<double>(waitForLatency(handOver));
    }
    state.counters["handover_ns"] = benchmark::Counter(totalNs, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_PlainThreadHandOver)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    return pu::bench::runBenchmarks(argc, argv, [](const pu::bench::TimesReporter &times) {
        pu::bench::printRatios(
            times, "time relative to the reference (our time / reference time):",
            {
                {"semTake+semGive vs pthread mutex, 1 thread", "BM_SemTakeGive/real_time/threads:1",
                 "BM_PthreadLockUnlock/real_time/threads:1", "   (goal <= 1.5)"},
                {"semTake+semGive vs pthread mutex, 2 threads",
                 "BM_SemTakeGive/real_time/threads:2", "BM_PthreadLockUnlock/real_time/threads:2"},
                {"semTake+semGive vs pthread mutex, 4 threads",
                 "BM_SemTakeGive/real_time/threads:4", "BM_PthreadLockUnlock/real_time/threads:4"},
                {"uBmAlloc+uBmFree vs malloc+free, 24 bytes", "BM_PoolAllocFree", "BM_MallocFree",
                 "   (goal <= 1)"},
                {"two atomic compare-exchanges vs malloc+free", "BM_TwoCompareExchanges",
                 "BM_MallocFree", "   (the floor of a shared FIFO pool)"},
                {"uBm burst of 256 vs malloc", "BM_PoolBurst256", "BM_MallocBurst256"},
            });
    });
}
