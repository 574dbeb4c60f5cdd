// SPDX-License-Identifier: MIT
// The "uTimer" task: woken by the power manager's heartbeat, it measures the up-time that passed,
// advances the timer list by it and polls the wall clock every 30 s of timer time. Also the
// heartbeat callbacks, the up-time arithmetic with its jump detection, and the pass observer
// through which a heartbeat fired on demand (osaSmHeartbeat) waits for the pass it triggered.
#include "time/timer_service.hpp"

#include <uasync.h>
#include <uevent.h>

#include <platform_os.h>

#include "core/lazy.hpp"
#include "core/sem_lock.hpp"

#include <condition_variable>

namespace pu::timer {
namespace {

constexpr char kTaskName[] = "uTimer";
constexpr int kTaskPriority = 100;
constexpr int kTaskStackBytes = 1024;
constexpr std::uint32_t kUsPerMs = 1000;
constexpr std::uint32_t kUsPerSecond = 1000000;
constexpr std::uint32_t kMsPerSecond = 1000;
constexpr std::uint32_t kJumpSeconds = 10; // a longer step of the up-time is a jump
constexpr std::int32_t kJumpStepMs = 50;   // the tick reported for a jump
constexpr std::uint32_t kResyncEveryMs = 30000;

// Counts the task's passes so that a heartbeat fired on demand can wait for the pass it triggers.
struct Passes {
    std::mutex mutex;
    std::condition_variable changed;
    bool taskReady = false; // the tick semaphore exists (or the task gave up)
    std::uint64_t started = 0;
    std::uint64_t finished = 0;
};

Passes &passes() {
    return pu::core::immortal<Passes>();
}

constexpr std::uint64_t kNoPass = ~std::uint64_t{0};

// Pass observer, begin side: the number of passes started so far. The next pass to start takes the
// tick after this call, so it measures an up-time set before the heartbeat.
std::uint64_t passBegin() {
    Passes &p = passes();
    std::lock_guard lock(p.mutex);
    return service().tick.load(std::memory_order_acquire) != 0 ? p.started : kNoPass;
}

// Pass observer, wait side: blocks until the pass after token has finished. Without a tick
// semaphore the heartbeat triggered no pass, so there is nothing to wait for.
void passWait(std::uint64_t token) {
    if (token == kNoPass) {
        return;
    }
    Passes &p = passes();
    std::unique_lock lock(p.mutex);
    p.changed.wait(lock, [&] { return p.finished > token; });
}

void markPassStarted() {
    Passes &p = passes();
    std::lock_guard lock(p.mutex);
    ++p.started;
}

void markPassFinished() {
    Passes &p = passes();
    std::lock_guard lock(p.mutex);
    ++p.finished;
    p.changed.notify_all();
}

void markTaskReady(SEM_ID tick) {
    Passes &p = passes();
    std::lock_guard lock(p.mutex);
    service().tick.store(tick, std::memory_order_release);
    p.taskReady = true;
    p.changed.notify_all();
}

struct UpTime {
    std::uint32_t seconds = 0;
    std::uint32_t microseconds = 0;
};

UpTime readUpTime() {
    UpTime now;
    osaGetSysUpTime(&now.seconds, &now.microseconds);
    return now;
}

int timerTask(intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t, intptr_t,
              intptr_t, intptr_t) {
    const SEM_ID tick = semBCreate(0, SEM_EMPTY);
    UpTime previous = readUpTime();
    markTaskReady(tick);
    if (tick == 0) {
        return 0; // nothing could ever wake us
    }
    std::uint32_t carryUs = 0;
    std::uint32_t accumulatedMs = 0;
    std::vector<TimerNode *> batch;
    for (;;) {
        semTake(tick, WAIT_FOREVER);
        markPassStarted();
        const UpTime current = readUpTime();
        // Called for its jump handling only: the tick itself is measured below.
        (void)uTimerAdjust(previous.seconds, previous.microseconds, current.seconds,
                           current.microseconds, nullptr);
        std::uint32_t remainderUs = 0;
        std::uint32_t elapsedMs = uTimerDiffMs(previous.seconds, previous.microseconds,
                                               current.seconds, current.microseconds, &remainderUs);
        previous = current;
        if (remainderUs != 0) {
            carryUs += remainderUs;
            // Strictly greater: a carry of exactly 1000 us waits for the next pass; intended.
            if (carryUs > kUsPerMs) {
                ++elapsedMs;
                carryUs -= kUsPerMs;
            }
        }
        accumulatedMs += elapsedMs;
        runTimers(static_cast<std::int32_t>(elapsedMs), batch);
        if (accumulatedMs >= kResyncEveryMs) {
            checktimeoutCb(accumulatedMs);
            accumulatedMs = 0;
        }
        markPassFinished();
    }
}

void raiseSysTimeUpdated(void *) {
    uTimerCheckSysTimeUpdated();
}

// Elapsed time between two up-times that do not go backwards, and its sub-millisecond rest.
std::uint32_t forwardMs(const UpTime &from, const UpTime &to, std::uint32_t &remainderUs) {
    if (from.seconds == to.seconds) {
        if (from.microseconds >= to.microseconds) {
            remainderUs = 0;
            return 0;
        }
        const std::uint32_t us = to.microseconds - from.microseconds;
        remainderUs = us % kUsPerMs;
        return us / kUsPerMs;
    }
    if (from.seconds > to.seconds) {
        remainderUs = 0;
        return 0;
    }
    std::uint32_t seconds = to.seconds - from.seconds;
    std::uint32_t us = to.microseconds - from.microseconds;
    if (from.microseconds > to.microseconds) {
        us = to.microseconds + kUsPerSecond - from.microseconds;
        --seconds;
    }
    remainderUs = us % kUsPerMs;
    return us / kUsPerMs + kMsPerSecond * seconds;
}

} // namespace

void startTimerTask() {
    const TASK_ID task = taskSpawn(kTaskName, kTaskPriority, 0, kTaskStackBytes, timerTask, 0, 0, 0,
                                   0, 0, 0, 0, 0, 0, 0);
    if (task == 0) {
        return;
    }
    // Waiting here means a heartbeat after start-up always reaches the task, so the pass observer
    // never waits for a pass that no heartbeat could trigger.
    Passes &p = passes();
    {
        std::unique_lock lock(p.mutex);
        p.changed.wait(lock, [&] { return p.taskReady; });
    }
    osaSmSetPassObserver(service().powerHandle.load(std::memory_order_relaxed), passBegin,
                         passWait);
}

} // namespace pu::timer

using namespace pu::timer;

extern "C" {

void uTimerHeartBeat(void) {
    Service &s = service();
    const SEM_ID tick = s.tick.load(std::memory_order_acquire);
    if (tick != 0) {
        semGive(tick);
    }
    // Each access locks on its own, so a callback may register or unregister callbacks.
    uList *callbacks = s.heartbeats.load(std::memory_order_acquire);
    for (std::int32_t pos = 0; uListEol(callbacks, pos) == 0; ++pos) {
        auto callback = reinterpret_cast<uTimerHeartBeatCb>(uListGet(callbacks, pos));
        if (callback != nullptr) {
            callback();
        }
    }
}

void uTimerRegisterHeartBeatCb(uTimerHeartBeatCb fn) {
    uListAppend(service().heartbeats.load(std::memory_order_acquire), reinterpret_cast<void *>(fn));
}

void uTimerUnregisterHeartBeatCb(uTimerHeartBeatCb fn) {
    uList *callbacks = service().heartbeats.load(std::memory_order_acquire);
    if (callbacks == nullptr || fn == nullptr) {
        return;
    }
    // The list's own (recursive) lock keeps the position valid until the removal.
    pu::core::SemGuard guard(callbacks->lock);
    uListRemove(callbacks, uListPosGetByElement(callbacks, reinterpret_cast<void *>(fn)));
}

uint32_t uTimerDiffMs(uint32_t prevSec, uint32_t prevUsec, uint32_t curSec, uint32_t curUsec,
                      uint32_t *remainderUs) {
    std::uint32_t rest = 0;
    const std::uint32_t ms = forwardMs({prevSec, prevUsec}, {curSec, curUsec}, rest);
    if (remainderUs != nullptr) {
        *remainderUs = rest;
    }
    return ms;
}

int32_t uTimerAdjust(uint32_t prevSec, uint32_t prevUsec, uint32_t curSec, uint32_t curUsec,
                     int32_t *carryUs) {
    std::int32_t ms = 0;
    std::uint32_t remainderUs = 0;
    if (osaLongTimeSpanCompute(prevSec, curSec) > kJumpSeconds || prevSec > curSec) {
        osaUpdateSysTimeBase(prevSec, prevUsec, kJumpStepMs);
        uAsyncCall(raiseSysTimeUpdated, reinterpret_cast<void *>(std::uintptr_t{kJumpStepMs}));
        ms = kJumpStepMs;
    } else {
        ms = static_cast<std::int32_t>(
            forwardMs({prevSec, prevUsec}, {curSec, curUsec}, remainderUs));
    }
    if (carryUs != nullptr) {
        // Unlike the task's own carry, this one gives the millisecond at exactly 1000 us.
        *carryUs += static_cast<std::int32_t>(remainderUs);
        if (*carryUs >= static_cast<std::int32_t>(kUsPerMs)) {
            ++ms;
            *carryUs -= static_cast<std::int32_t>(kUsPerMs);
        } else if (*carryUs <= -static_cast<std::int32_t>(kUsPerMs)) {
            --ms;
            *carryUs += static_cast<std::int32_t>(kUsPerMs);
        }
    }
    return ms;
}

void uTimerCheckSysTimeUpdated(void) {
    // The data is the plain number of milliseconds used for the jump, not a pointer to it.
    uEventRaise("SYSTEM_TIME_UPDATED", reinterpret_cast<void *>(std::uintptr_t{kJumpStepMs}),
                sizeof(std::uint32_t));
}

} // extern "C"
