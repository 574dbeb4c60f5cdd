// SPDX-License-Identifier: MIT
// The live timers: pool records indexed by expiry and by id under the timer mutex. Adding,
// deleting, refreshing and querying timers, arming the device wake-up, and expiring the earliest.
#include "core/lazy.hpp"
#include "core/checked_size.hpp"
#include "time/timer_service.hpp"

#include <uasync.h>
#include <umem.h>

#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <algorithm>
#include <new>

namespace pu::timer {

Service &service() {
    return pu::core::immortal<Service>();
}

namespace {

using pu::core::SemGuard;

// Ordering and remaining times use only the low 32 bits of delays, taken as signed; delays are
// meant to stay below 2^31 ms.
std::uint32_t low32(std::int64_t value) {
    return static_cast<std::uint32_t>(value);
}

std::int32_t asSigned(std::uint32_t value) {
    return static_cast<std::int32_t>(value);
}

// Caller holds the timer mutex. Milliseconds from the last pass to the record's expiry.
std::int64_t dueOf(const Service &s, const TimerNode *record) {
    return record->expiry - s.now;
}

void armWakeUp(void *cell) {
    if (cell == nullptr) {
        return;
    }
    osaSmAddWakeUpTimer(service().powerHandle.load(std::memory_order_relaxed),
                        *static_cast<std::uint32_t *>(cell));
    uFree(cell);
}

// Arming from under the timer mutex goes through the pool, so the power manager is never
// called with the mutex held. It can therefore reach the power manager after a later delete.
void armWakeUpLater(std::int32_t delayMs) {
    auto *cell = static_cast<std::uint32_t *>(uMalloc(sizeof(std::uint32_t)));
    if (cell == nullptr) {
        return;
    }
    *cell = static_cast<std::uint32_t>(delayMs);
    uAsyncCall(armWakeUp, cell);
}

// Caller holds the timer mutex. Queues record to expire delayMs after the last pass, before
// every timer that expires at the same time or later: among equal expiries the newest fires
// first, on purpose. Ordering uses only the low 32 bits of the delay, taken as signed; delays
// are meant to stay below 2^31 ms. Arms the device wake-up when record becomes the earliest
// wake-up timer.
void insertTimer(Service &s, TimerNode *record, std::int64_t delayMs) {
    const std::int32_t delay = asSigned(low32(delayMs));
    record->expiry = s.now + delay;
    record->order = s.nextOrder++;
    s.queue.push(record);
    s.byId.insert(record);
    if (record->wakeup != 0) {
        s.wakeQueue.push(record);
        if (s.wakeQueue.top() == record) {
            armWakeUpLater(delay);
        }
    }
}

// Caller holds the timer mutex. Takes record out of the indexes; the pool block stays taken.
void unlinkTimer(Service &s, TimerNode *record) {
    s.queue.remove(record);
    s.byId.erase(record);
    if (record->wakeup != 0) {
        s.wakeQueue.remove(record);
    }
}

uBm *poolOf(Service &s) {
    return s.hasPool ? &s.pool : nullptr;
}

// Caller holds the timer mutex. Ids wrap after 2^32 - 1 timers and never give 0; a wrapped id
// is not checked against live ones.
std::uint32_t takeNextId(Service &s) {
    const std::uint32_t id = s.nextId++;
    if (s.nextId == 0) {
        s.nextId = 1;
    }
    return id;
}

// Intended: the seconds variants multiply in 32 bits and sign-extend the product, so from
// 2,147,484 s on the delay wraps (usually negative, refused with id 0): keep them below that.
std::int64_t secondsToMs(std::uint32_t seconds) {
    return static_cast<std::int32_t>(seconds * 1000U);
}

void startService(std::int32_t count, bool explicitCall) {
    Service &s = service();
    std::lock_guard lock(s.startMutex);
    if (s.started.load(std::memory_order_relaxed)) {
        if (explicitCall) {
            pu::log::info(pu::log::kTimer, "uTimer is already initialized.\n");
        }
        return;
    }
    const std::int32_t blocks = std::max(count, kMinPoolBlocks);
    pu::log::info(pu::log::kTimer, "uTimer initialize.");
    s.powerHandle.store(osaSmRegisterApp("utils timer", uTimerHeartBeat),
                        std::memory_order_relaxed);
    s.mutex = semMCreate(0);
    s.heartbeats.store(uListInit(1), std::memory_order_release);

    // U_BM_HEAP_SIZE's product, checked: a huge count on a 32-bit build must not wrap.
    void *memory = pu::core::allocate(pu::core::checkedMul(
        static_cast<std::size_t>(blocks), sizeof(TimerNode) + U_BM_BLOCK_OVERHEAD));
    const auto records = static_cast<std::size_t>(blocks);
    if (memory != nullptr && s.queue.reserve(records) && s.wakeQueue.reserve(records) &&
        s.byId.reserve(records)) {
        uBmInitHeap(&s.pool, static_cast<std::uint32_t>(blocks), sizeof(TimerNode), memory);
        s.hasPool = true;
    } else {
        uFree(memory);
        // The service runs on without a pool: every add fails.
        pu::log::error(pu::log::kTimer, "Malloc timer pool failed.");
    }
    startTimerTask();
    s.started.store(true, std::memory_order_release);
}

} // namespace

void ensureStarted() {
    if (!isStarted()) {
        startService(kMinPoolBlocks, false);
    }
}

void runTimers(std::int32_t elapsedMs, std::vector<TimerNode *> &batch) {
    ensureStarted();
    Service &s = service();
    batch.clear();
    bool wakeupExpired = false;
    const TimerNode *nextWakeup = nullptr;
    std::int64_t nextWakeupDue = 0;
    {
        SemGuard guard(s.mutex);
        s.now += elapsedMs;
        while (TimerNode *head = s.queue.top()) {
            if (dueOf(s, head) >= 1) {
                break;
            }
            try {
                batch.push_back(head);
            } catch (const std::bad_alloc &) {
                break; // out of memory: what is left expires on the next pass
            }
            unlinkTimer(s, head);
            wakeupExpired = wakeupExpired || head->wakeup != 0;
        }
        if (wakeupExpired && (nextWakeup = s.wakeQueue.top()) != nullptr) {
            nextWakeupDue = dueOf(s, nextWakeup);
        }
    }
    const int handle = s.powerHandle.load(std::memory_order_relaxed);
    if (nextWakeup != nullptr && nextWakeupDue >= 1) {
        osaSmAddWakeUpTimer(handle, low32(nextWakeupDue));
    }
    // The power manager counts the application active only while a wake-up timer's callback is
    // being queued, not while it runs; intended.
    for (TimerNode *record : batch) {
        if (record->wakeup != 0) {
            osaSmAddActiveApp(handle, 1);
        }
        if (record->callback != nullptr) {
            uAsyncCall(record->callback, record->arg);
        }
        if (record->wakeup != 0) {
            osaSmDelActiveApp(handle);
        }
        uBmFree(record);
    }
    batch.clear();
}

} // namespace pu::timer

using namespace pu::timer;
using pu::core::SemGuard;

extern "C" {

void uTimerInit(int32_t count) {
    startService(count, true);
}

uint32_t uTimerAddWithOptions(uTimerCallback callback, void *arg, int64_t delayMs,
                              uint32_t options) {
    ensureStarted();
    if (delayMs < 0) {
        return 0;
    }
    Service &s = service();
    std::int32_t listSize = 0;
    {
        SemGuard guard(s.mutex);
        auto *record = static_cast<TimerNode *>(uBmAlloc(poolOf(s)));
        if (record != nullptr) {
            *record = TimerNode{0, 0, callback, arg, takeNextId(s), options, 0, 0};
            insertTimer(s, record, delayMs);
            return record->id;
        }
        listSize = static_cast<std::int32_t>(s.queue.size());
    }
    pu::log::error(pu::log::kTimer, "timer malloc failed! timerListSize=%d\n", listSize);
    return 0;
}

uint32_t uTimerAdd(uTimerCallback callback, void *arg, int64_t delayMs) {
    return uTimerAddWithOptions(callback, arg, delayMs, 0);
}

uint32_t uTimerAddWithWakeup(uTimerCallback callback, void *arg, int64_t delayMs) {
    return uTimerAddWithOptions(callback, arg, delayMs, 1);
}

uint32_t uTimerAddSec(uTimerCallback callback, void *arg, uint32_t seconds) {
    return uTimerAdd(callback, arg, secondsToMs(seconds));
}

uint32_t uTimerAddSecWithWakeup(uTimerCallback callback, void *arg, uint32_t seconds) {
    return uTimerAddWithOptions(callback, arg, secondsToMs(seconds), 1);
}

void uTimerDel(uint32_t id) {
    if (id == 0 || !isStarted()) {
        return;
    }
    Service &s = service();
    enum class WakeUp { keep, rearm, cancel } wake = WakeUp::keep;
    std::int64_t dueMs = 0;
    {
        SemGuard guard(s.mutex);
        TimerNode *record = s.byId.find(id);
        if (record == nullptr) {
            return;
        }
        const bool wasEarliestWakeup = record->wakeup != 0 && s.wakeQueue.top() == record;
        unlinkTimer(s, record);
        uBmFree(record);
        if (wasEarliestWakeup) {
            const TimerNode *next = s.wakeQueue.top();
            wake = next != nullptr ? WakeUp::rearm : WakeUp::cancel;
            dueMs = next != nullptr ? dueOf(s, next) : 0;
        }
    }
    const int handle = s.powerHandle.load(std::memory_order_relaxed);
    if (wake == WakeUp::rearm) {
        osaSmAddWakeUpTimer(handle, low32(dueMs));
    } else if (wake == WakeUp::cancel) {
        osaSmDelWakeUpTimer(handle);
    }
}

void uTimerRefresh(uint32_t id, int32_t delayMs) {
    if (id == 0 || delayMs < 0 || !isStarted()) {
        return;
    }
    Service &s = service();
    SemGuard guard(s.mutex);
    TimerNode *old = s.byId.find(id);
    if (old == nullptr) {
        return;
    }
    // The new record is taken before the old one is returned, so a full pool refuses the
    // refresh and leaves the timer as it was.
    auto *fresh = static_cast<TimerNode *>(uBmAlloc(poolOf(s)));
    if (fresh == nullptr) {
        return;
    }
    *fresh = TimerNode{0, 0, old->callback, old->arg, old->id, old->wakeup, 0, 0};
    unlinkTimer(s, old);
    uBmFree(old);
    // A wake-up timer refreshed to a later time leaves the armed device wake-up where it was.
    insertTimer(s, fresh, delayMs);
}

void uTimerRefreshSec(uint32_t id, uint32_t seconds) {
    uTimerRefresh(id, static_cast<std::int32_t>(secondsToMs(seconds)));
}

uint32_t uTimerRemainGet(uint32_t id) {
    if (id == 0 || !isStarted()) {
        return 0;
    }
    Service &s = service();
    SemGuard guard(s.mutex);
    const TimerNode *record = s.byId.find(id);
    return record != nullptr ? low32(dueOf(s, record)) : 0;
}

void uTimerShow(void) {
    pu::log::info(pu::log::kTimer, "%s: tick=[%lu]", "uTimerShow", tickGet());
    if (!isStarted()) {
        return;
    }
    Service &s = service();
    SemGuard guard(s.mutex);
    std::vector<const TimerNode *> timers;
    try {
        timers.assign(s.queue.begin(), s.queue.end());
    } catch (const std::bad_alloc &) {
        pu::log::error(pu::log::kTimer, "%s: out of memory", "uTimerShow");
        return;
    }
    // Over raw pointers: the iterators' three-way comparison would leave a unique C++ symbol
    // exported from unoptimised builds.
    std::sort(timers.data(), timers.data() + timers.size(), firesBefore);
    for (const TimerNode *record : timers) {
        pu::log::info(pu::log::kTimer, "id=[%d] expires=[%d]", static_cast<int>(record->id),
                      static_cast<int>(dueOf(s, record)));
    }
}

void uTimerRun(int32_t elapsedMs) {
    std::vector<TimerNode *> batch;
    runTimers(elapsedMs, batch);
}

} // extern "C"
