// SPDX-License-Identifier: MIT
// Recursive mutexes and binary semaphores behind 32-bit handles.
#include "handle_table.hpp"
#include "platform_internal.hpp"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace pu::platform {
namespace {

enum class SemKind : std::uint8_t { mutex, binary };

// Taking and giving an uncontended semaphore touches only atomics: the word `state` is the
// semaphore (mutex: 1 while held; binary: 1 while a give is pending, gives merge). The guard and
// the condition variable serve only threads that must wait, and a giver looks at them only when
// `waiters` says someone sleeps. Both sides use sequentially consistent order on state and
// waiters, so a giver either sees the waiter or the waiter sees the given state: no lost wake-up.
struct Semaphore {
    std::mutex guard;
    std::condition_variable changed;
    SemKind kind = SemKind::mutex;
    std::atomic<std::uint32_t> state{0};
    std::atomic<std::uint32_t> waiters{0}; // never reset: a waiter of a deleted handle leaves late
    std::atomic<std::thread::id> owner{};  // mutex: holder; compared only with the caller's id
    std::uint32_t depth = 0;               // mutex: touched only by the holder
};

using SemTable = HandleTable<Semaphore>;

SemTable &semaphores() {
    static auto &table = *new SemTable(HandleKind::semaphore);
    return table;
}

bool isDeleted(const SemTable::Slot &slot, SEM_ID id) noexcept {
    return slot.handle.load(std::memory_order_acquire) != id;
}

// One attempt to take the state word: 0 -> 1 for a mutex, 1 -> 0 for a binary semaphore.
bool tryClaim(Semaphore &sem) noexcept {
    std::uint32_t expected = sem.kind == SemKind::mutex ? 0 : 1;
    return sem.state.compare_exchange_strong(expected, 1 - expected, std::memory_order_seq_cst);
}

// Puts the state word back to "available" and wakes one sleeper if there is one.
void makeAvailable(Semaphore &sem) {
    sem.state.store(sem.kind == SemKind::mutex ? 0 : 1, std::memory_order_seq_cst);
    if (sem.waiters.load(std::memory_order_seq_cst) != 0) {
        std::lock_guard lock(sem.guard);
        sem.changed.notify_one();
    }
}

SEM_ID createSemaphore(SemKind kind, bool full) {
    auto reservation = semaphores().reserve();
    if (reservation.slot == nullptr) {
        return 0;
    }
    Semaphore &sem = reservation.slot->object;
    std::lock_guard lock(sem.guard);
    sem.kind = kind;
    sem.state.store(kind == SemKind::binary && full ? 1 : 0, std::memory_order_relaxed);
    sem.owner.store(std::thread::id{}, std::memory_order_relaxed);
    sem.depth = 0;
    SemTable::publish(reservation);
    return reservation.handle;
}

// Waits (the slow path) until the semaphore can be claimed, the timeout passes or the handle is
// deleted; true when claimed.
bool waitAndClaim(SemTable::Slot &slot, SEM_ID id, int timeout) {
    Semaphore &sem = slot.object;
    std::unique_lock lock(sem.guard);
    sem.waiters.fetch_add(1, std::memory_order_seq_cst);
    bool claimed = false;
    waitTicks(sem.changed, lock, timeout, [&] {
        if (isDeleted(slot, id)) {
            return true;
        }
        claimed = tryClaim(sem);
        return claimed;
    });
    sem.waiters.fetch_sub(1, std::memory_order_seq_cst);
    return claimed;
}

int takeSemaphore(SEM_ID id, int timeout) {
    SemTable::Slot *slot = semaphores().find(id);
    if (slot == nullptr) {
        return -1;
    }
    Semaphore &sem = slot->object;
    const std::thread::id self = std::this_thread::get_id();
    if (sem.kind == SemKind::mutex && sem.owner.load(std::memory_order_relaxed) == self) {
        ++sem.depth; // only this thread ever stores its own id, so the test needs no order
        return 0;
    }
    if (!tryClaim(sem) && (timeout == NO_WAIT || !waitAndClaim(*slot, id, timeout))) {
        return -1;
    }
    if (isDeleted(*slot, id)) {
        // Deleted between the look-up and the claim: the object is recycled, not freed, so give
        // the state back rather than keep a claim on a handle that no longer exists.
        makeAvailable(sem);
        return -1;
    }
    if (sem.kind == SemKind::mutex) {
        sem.owner.store(self, std::memory_order_relaxed);
        sem.depth = 1;
    }
    return 0;
}

int giveSemaphore(SEM_ID id) {
    SemTable::Slot *slot = semaphores().find(id);
    if (slot == nullptr) {
        return -1;
    }
    Semaphore &sem = slot->object;
    if (sem.kind == SemKind::mutex) {
        if (sem.owner.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
            return -1; // not held by the caller: harmless by design
        }
        if (--sem.depth > 0) {
            return 0;
        }
        sem.owner.store(std::thread::id{}, std::memory_order_relaxed);
    }
    makeAvailable(sem);
    return 0;
}

int deleteSemaphore(SEM_ID id) {
    SemTable::Slot *slot = semaphores().find(id);
    if (slot == nullptr) {
        return -1;
    }
    Semaphore &sem = slot->object;
    std::lock_guard lock(sem.guard);
    if (isDeleted(*slot, id)) {
        return -1;
    }
    semaphores().release(slot);
    sem.changed.notify_all(); // waiters see the handle gone and return -1
    return 0;
}

} // namespace
} // namespace pu::platform

using namespace pu::platform;

SEM_ID semMCreate(int /*options*/) {
    return guarded(SEM_ID{0}, [] { return createSemaphore(SemKind::mutex, false); });
}

SEM_ID semBCreate(int /*options*/, int initialState) {
    return guarded(SEM_ID{0},
                   [&] { return createSemaphore(SemKind::binary, initialState != SEM_EMPTY); });
}

int semTake(SEM_ID id, int timeout) {
    return guarded(-1, [&] { return takeSemaphore(id, timeout); });
}

int semGive(SEM_ID id) {
    return guarded(-1, [&] { return giveSemaphore(id); });
}

int semDelete(SEM_ID id) {
    return guarded(-1, [&] { return deleteSemaphore(id); });
}
