// SPDX-License-Identifier: MIT
// State of the timer service shared by its sources: the timer indexes and pool under the timer
// mutex, and the pieces the timer task, the heartbeat and the wall-clock code share.
#pragma once

#include "time/timer_index.hpp"

#include <ulist.h>
#include <uqueue.h>
#include <utimer.h>

#include <platform_os.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace pu::timer {

// A timer bound to a calendar time by uTimerEventAdd.
struct TimerEvent {
    std::uint32_t wallTime;
    std::uint32_t timerId;
};
static_assert(sizeof(TimerEvent) == 8, "the event-timer entry is two 32-bit words");

inline constexpr std::int32_t kMinPoolBlocks = 300;
inline constexpr std::uint32_t kZoneOffsetUnread = 0xFFFFFFFF;

struct Service {
    // Serialises starting the service, so concurrent first adds start one task and one pool.
    std::mutex startMutex;
    // Set once everything below that start-up creates exists; read with acquire before use.
    std::atomic<bool> started{false};

    SEM_ID mutex = 0; // the timer mutex: timers, pool, next id, event timers, last resync
    // The live timers: by expiry, the wake-up ones by expiry, by id.
    TimerHeap<&TimerNode::heapSlot> queue;
    TimerHeap<&TimerNode::wakeSlot> wakeQueue;
    IdIndex byId;
    std::int64_t now = 0;        // the pass clock: milliseconds all passes have advanced
    std::uint64_t nextOrder = 0; // insertion sequence of the next timer
    uBm pool{};
    bool hasPool = false;
    std::uint32_t nextId = 1;
    uList *eventTimers = nullptr; // TimerEvent pointers, created on the first event timer
    std::uint32_t lastResync = 0; // calendar seconds of the last re-synchronisation

    // Published before the rest, since the power manager may beat during start-up.
    std::atomic<int> powerHandle{-1};
    std::atomic<uList *> heartbeats{nullptr}; // uTimerHeartBeatCb functions, with their own lock
    std::atomic<SEM_ID> tick{0};              // created by the timer task itself
    std::atomic<std::uint32_t> lastZoneOffset{kZoneOffsetUnread};
};

Service &service();

// True once the service runs; everything in Service is then safe to read.
inline bool isStarted() {
    return service().started.load(std::memory_order_acquire);
}

// Starts the service with the minimum pool when nobody has yet.
void ensureStarted();

// Spawns the timer task and returns once it can take heartbeats (or could not be spawned).
void startTimerTask();

// Advances the list by elapsedMs and hands on what expired. batch is scratch space, kept by the
// caller so the task reuses its capacity from pass to pass.
void runTimers(std::int32_t elapsedMs, std::vector<TimerNode *> &batch);

} // namespace pu::timer
