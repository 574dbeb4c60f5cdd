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

struct Semaphore {
    std::mutex guard;
    std::condition_variable changed;
    SemKind kind = SemKind::mutex;
    bool full = false;     // binary: a give is pending (gives merge: at most one)
    std::thread::id owner; // mutex: holder, default-constructed while free
    std::uint32_t depth = 0;
};

using SemTable = HandleTable<Semaphore>;

SemTable &semaphores() {
    static auto &table = *new SemTable(HandleKind::semaphore);
    return table;
}

// Caller holds the semaphore's guard.
bool isDeleted(const SemTable::Slot &slot, SEM_ID id) noexcept {
    return slot.handle.load(std::memory_order_relaxed) != id;
}

bool isAvailable(const Semaphore &sem) noexcept {
    return sem.kind == SemKind::mutex ? sem.depth == 0 : sem.full;
}

void claim(Semaphore &sem) noexcept {
    if (sem.kind == SemKind::mutex) {
        sem.owner = std::this_thread::get_id();
        sem.depth = 1;
    } else {
        sem.full = false;
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
    sem.full = full;
    sem.owner = std::thread::id{};
    sem.depth = 0;
    SemTable::publish(reservation);
    return reservation.handle;
}

// Runs action(slot, semaphore, lock) with the semaphore's guard held; -1 when id is not a live
// semaphore (0, never created, or deleted).
template <typename Action> int withLiveSemaphore(SEM_ID id, Action action) {
    SemTable::Slot *slot = semaphores().find(id);
    if (slot == nullptr) {
        return -1;
    }
    std::unique_lock lock(slot->object.guard);
    if (isDeleted(*slot, id)) {
        return -1;
    }
    return action(*slot, slot->object, lock);
}

int takeSemaphore(SEM_ID id, int timeout) {
    return withLiveSemaphore(id, [&](SemTable::Slot &slot, Semaphore &sem, auto &lock) {
        if (sem.kind == SemKind::mutex && sem.depth > 0 &&
            sem.owner == std::this_thread::get_id()) {
            ++sem.depth;
            return 0;
        }
        waitTicks(sem.changed, lock, timeout,
                  [&] { return isDeleted(slot, id) || isAvailable(sem); });
        if (isDeleted(slot, id) || !isAvailable(sem)) {
            return -1;
        }
        claim(sem);
        return 0;
    });
}

int giveSemaphore(SEM_ID id) {
    return withLiveSemaphore(id, [](SemTable::Slot &, Semaphore &sem, auto &) {
        if (sem.kind == SemKind::binary) {
            sem.full = true;
            sem.changed.notify_one();
            return 0;
        }
        if (sem.depth == 0 || sem.owner != std::this_thread::get_id()) {
            return -1; // not held by the caller: harmless by design
        }
        if (--sem.depth == 0) {
            sem.owner = std::thread::id{};
            sem.changed.notify_one();
        }
        return 0;
    });
}

int deleteSemaphore(SEM_ID id) {
    return withLiveSemaphore(id, [](SemTable::Slot &slot, Semaphore &sem, auto &) {
        semaphores().release(&slot);
        sem.changed.notify_all(); // waiters see the handle gone and return -1
        return 0;
    });
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
