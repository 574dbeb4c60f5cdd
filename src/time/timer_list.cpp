// SPDX-License-Identifier: MIT
// The timer list: a delta list of pool records under the timer mutex. Adding, deleting,
// refreshing and querying timers, arming the device wake-up, and expiring the head.
#include "core/lazy.hpp"
#include "core/checked_size.hpp"
#include "time/timer_service.hpp"

#include <uasync.h>
#include <umem.h>

#include "core/list_internal.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <algorithm>
#include <limits>
#include <new>

namespace pu::timer {

Service &service() {
    return pu::core::immortal<Service>();
}

namespace {

using pu::core::SemGuard;

// Ordering and remaining times use only the low 32 bits of delays, taken as signed; delays are
// meant to stay below 2^31 ms. Arithmetic is done unsigned so it wraps instead of overflowing.
std::uint32_t low32(std::int64_t value) {
    return static_cast<std::uint32_t>(value);
}

std::int32_t asSigned(std::uint32_t value) {
    return static_cast<std::int32_t>(value);
}

TimerNode *recordOf(const uListNode *node) {
    return static_cast<TimerNode *>(node->data);
}

// The timer list has no lock of its own; every walk below runs under the timer mutex, so the
// chain is read directly instead of position by position.
uListNode *firstNode(const Service &s) {
    return s.timers != nullptr ? s.timers->head : nullptr;
}

struct Position {
    std::int32_t index = -1;
    uListNode *node = nullptr;
    uListNode *prev = nullptr; // null for the head
};

// Caller holds the timer mutex. The live entry with this id, or index -1.
Position findTimer(const Service &s, std::uint32_t id) {
    std::int32_t index = 0;
    uListNode *prev = nullptr;
    for (uListNode *node = firstNode(s); node != nullptr; prev = node, node = node->next) {
        if (recordOf(node)->id == id) {
            return {index, node, prev};
        }
        ++index;
    }
    return {};
}

struct FirstWakeup {
    std::int32_t index = -1;
    std::int64_t dueMs = 0; // from the last pass
};

// Caller holds the timer mutex. The earliest wake-up timer, or index -1 when there is none.
FirstWakeup earliestWakeup(const Service &s) {
    std::int64_t sum = 0;
    std::int32_t index = 0;
    for (uListNode *node = firstNode(s); node != nullptr; node = node->next, ++index) {
        sum += recordOf(node)->delta;
        if (recordOf(node)->wakeup != 0) {
            return {index, sum};
        }
    }
    return {};
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

// Caller holds the timer mutex. Links record into the list by its delay, before every entry
// that expires at the same time or later: among equal expiries the newest fires first, on
// purpose. Arms the device wake-up when record becomes the earliest wake-up timer. Returns the
// list size after the insertion, or -1 (the list is then unchanged).
std::int32_t insertTimer(Service &s, TimerNode *record) {
    const std::int32_t delay = asSigned(low32(record->delta));
    std::uint32_t sum = 0; // expiry of the entry before the current one
    std::int32_t firstWake = -1;
    std::int32_t index = 0;
    uListNode *prev = nullptr;
    TimerNode *successor = nullptr;
    for (uListNode *node = firstNode(s); node != nullptr; prev = node, node = node->next) {
        TimerNode *entry = recordOf(node);
        if (firstWake == -1 && entry->wakeup != 0) {
            firstWake = index;
        }
        const std::uint32_t expiry = sum + low32(entry->delta);
        if (delay <= asSigned(expiry)) {
            successor = entry;
            break;
        }
        sum = expiry;
        ++index;
    }
    record->delta = asSigned(static_cast<std::uint32_t>(delay) - sum);
    if (successor != nullptr) {
        successor->delta -= record->delta;
    }
    // Linked right behind the node the walk stopped after, so the list is walked once.
    const std::int32_t size = pu::core::listInsertAfter(s.timers, prev, record);
    if (size < 0) {
        if (successor != nullptr) {
            successor->delta += record->delta;
        }
        return size;
    }
    const bool appended = successor == nullptr;
    if (record->wakeup != 0 && (firstWake == -1 || (!appended && firstWake >= index))) {
        armWakeUpLater(delay);
    }
    return size;
}

// Caller holds the timer mutex. Unlinks the entry at at, handing its delay on to its successor
// so the later timers keep their expiry, and returns its record to the pool.
void removeTimer(Service &s, const Position &at) {
    TimerNode *record = recordOf(at.node);
    if (at.node->next != nullptr) {
        record->callback = nullptr;
        record->id = 0;
        recordOf(at.node->next)->delta += record->delta;
    }
    pu::core::listRemoveAfter(s.timers, at.prev);
    uBmFree(record);
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
    s.timers = uListInit(0);
    s.heartbeats.store(uListInit(1), std::memory_order_release);

    // U_BM_HEAP_SIZE's product, checked: a huge count on a 32-bit build must not wrap.
    void *memory = pu::core::allocate(pu::core::checkedMul(
        static_cast<std::size_t>(blocks), sizeof(TimerNode) + U_BM_BLOCK_OVERHEAD));
    if (memory != nullptr) {
        uBmInitHeap(&s.pool, static_cast<std::uint32_t>(blocks), sizeof(TimerNode), memory);
        s.hasPool = true;
    } else {
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
    FirstWakeup next;
    {
        SemGuard guard(s.mutex);
        std::int64_t rest = elapsedMs;
        while (uListNode *head = firstNode(s)) {
            TimerNode *record = recordOf(head);
            const std::int64_t left = record->delta - rest;
            if (left >= 1) {
                record->delta = left;
                break;
            }
            try {
                batch.push_back(record);
            } catch (const std::bad_alloc &) {
                // Out of memory: what is left expires on the next pass.
                record->delta = left;
                break;
            }
            pu::core::listRemoveAfter(s.timers, nullptr);
            rest -= record->delta;
            wakeupExpired = wakeupExpired || record->wakeup != 0;
        }
        // Dead records are unlinked when they die; should one ever stay linked at the head, it
        // is dropped here and its delay handed on.
        std::int64_t deadDelay = 0;
        while (uListNode *head = firstNode(s)) {
            if (recordOf(head)->id != 0) {
                recordOf(head)->delta += deadDelay;
                break;
            }
            deadDelay += recordOf(head)->delta;
            uBmFree(pu::core::listRemoveAfter(s.timers, nullptr));
        }
        if (wakeupExpired) {
            next = earliestWakeup(s);
        }
    }
    const int handle = s.powerHandle.load(std::memory_order_relaxed);
    if (next.index >= 0 && next.dueMs >= 1) {
        osaSmAddWakeUpTimer(handle, low32(next.dueMs));
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
            *record = TimerNode{delayMs, callback, arg, takeNextId(s), options};
            if (insertTimer(s, record) < 0) {
                uBmFree(record);
                return 0;
            }
            return record->id;
        }
        listSize = uListSize(s.timers);
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
        const Position at = findTimer(s, id);
        if (at.index < 0) {
            return;
        }
        const bool wasWakeup = recordOf(at.node)->wakeup != 0;
        removeTimer(s, at);
        if (wasWakeup) {
            const FirstWakeup next = earliestWakeup(s);
            if (next.index < 0) {
                wake = WakeUp::cancel;
            } else if (next.index >= at.index) {
                // It lay behind the deleted one, so the deleted one was the earliest.
                wake = WakeUp::rearm;
                dueMs = next.dueMs;
            }
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
    const Position at = findTimer(s, id);
    if (at.index < 0) {
        return;
    }
    // The new record is taken before the old one is returned, so a full pool refuses the
    // refresh and leaves the timer as it was.
    auto *fresh = static_cast<TimerNode *>(uBmAlloc(poolOf(s)));
    if (fresh == nullptr) {
        return;
    }
    const TimerNode *old = recordOf(at.node);
    *fresh = TimerNode{delayMs, old->callback, old->arg, old->id, old->wakeup};
    removeTimer(s, at);
    // A wake-up timer refreshed to a later time leaves the armed device wake-up where it was.
    if (insertTimer(s, fresh) < 0) {
        uBmFree(fresh);
    }
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
    std::uint32_t sum = 0;
    for (uListNode *node = firstNode(s); node != nullptr; node = node->next) {
        sum += low32(recordOf(node)->delta);
        if (recordOf(node)->id == id) {
            return sum;
        }
    }
    return 0;
}

void uTimerShow(void) {
    pu::log::info(pu::log::kTimer, "%s: tick=[%lu]", "uTimerShow", tickGet());
    if (!isStarted()) {
        return;
    }
    Service &s = service();
    SemGuard guard(s.mutex);
    std::int64_t sum = 0;
    for (uListNode *node = firstNode(s); node != nullptr; node = node->next) {
        sum += recordOf(node)->delta;
        pu::log::info(pu::log::kTimer, "id=[%d] expires=[%d]", static_cast<int>(recordOf(node)->id),
                      static_cast<int>(sum));
    }
}

void uTimerRun(int32_t elapsedMs) {
    std::vector<TimerNode *> batch;
    runTimers(elapsedMs, batch);
}

} // extern "C"
