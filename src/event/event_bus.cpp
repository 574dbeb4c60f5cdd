// SPDX-License-Identifier: MIT
// uEvent: the named event bus. 256 slots keyed by two hashes of the event name, each with a chain
// of carers in registration order; raises call the carers from a snapshot, read without the lock
// while no change is under way.
#include <uevent.h>

#include <umem.h>

#include "core/checked_size.hpp"
#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "hash/string_hash.hpp"

#include <atomic>
#include <cstdint>

namespace {

using pu::core::SemGuard;

constexpr std::uint32_t kSlotCount = 256;
constexpr std::int32_t kAbsent = -2;    // the probe met a free slot
constexpr std::int32_t kTableFull = -1; // the probe went all the way round

// Raises read the table without the bus lock. Every change is made under the lock inside a change
// window that holds the bus version odd, and a raise keeps what it read only when the version was
// even and the same before and after its reading (otherwise it reads again under the lock).
// Stores of shared fields are releases and raises load them as acquires, so a raise that saw any
// part of a change also sees the version that change made odd. A carer that a clear removes is
// kept for reuse instead of freed while the bus lives, because a raise may still be walking it.
template <typename T> T get(const std::atomic<T> &field) {
    return field.load(std::memory_order_acquire);
}
template <typename T> void put(std::atomic<T> &field, T value) {
    field.store(value, std::memory_order_release);
}

struct Carer {
    std::atomic<Carer *> next;
    std::atomic<void *> userData;
    std::atomic<uEventCallback> callback;
};

struct Slot {
    std::atomic<std::uint32_t> occupied;
    std::atomic<std::uint32_t> key1; // bkdrHash(name), 31 bits
    std::atomic<std::uint32_t> key2; // rsHash(name, 256), also the slot where the probe starts
    std::atomic<Carer *> carers;
};

// The whole bus is one uMalloc'd record published through an atomic pointer, so lazy
// initialisation needs no lock: of two racing first calls one installs its record and the other
// discards its own.
struct Bus {
    SEM_ID lock;
    std::atomic<std::uint32_t> version; // odd while a change is under way
    Carer *spare;                       // removed carers for reuse; the lock guards it
    Slot slots[kSlotCount];
};

std::atomic<Bus *> theBus{nullptr};

using pu::hash::NameKeys;

NameKeys keysOf(const char *name) {
    return pu::hash::nameKeys(name, kSlotCount);
}

// Caller holds the bus lock: the version is odd for the scope of the window.
class ChangeWindow {
  public:
    explicit ChangeWindow(Bus &bus)
        : bus_(bus), start_(bus.version.load(std::memory_order_relaxed)) {
        bus_.version.store(start_ + 1, std::memory_order_relaxed);
    }
    ~ChangeWindow() { put(bus_.version, start_ + 2); }
    ChangeWindow(const ChangeWindow &) = delete;
    ChangeWindow &operator=(const ChangeWindow &) = delete;

  private:
    Bus &bus_;
    std::uint32_t start_;
};

void setSlot(Slot &slot, std::uint32_t occupied, const NameKeys &keys, Carer *carers) {
    put(slot.occupied, occupied);
    put(slot.key1, static_cast<std::uint32_t>(keys.key1));
    put(slot.key2, static_cast<std::uint32_t>(keys.key2));
    put(slot.carers, carers);
}

void releaseSlot(Slot &slot) {
    setSlot(slot, 0, NameKeys{0, 0, 0}, nullptr);
}

Bus *createBus() {
    void *memory = uMalloc(sizeof(Bus));
    if (memory == nullptr) {
        return nullptr;
    }
    auto *bus = ::new (memory) Bus{};
    bus->lock = semMCreate(0);
    return bus;
}

void freeCarers(Carer *carer) {
    while (carer != nullptr) {
        Carer *next = get(carer->next);
        uFree(carer);
        carer = next;
    }
}

// Caller holds the bus lock, or is the bus's last user.
void clearSlots(Bus &bus) {
    ChangeWindow window(bus);
    for (Slot &slot : bus.slots) {
        freeCarers(get(slot.carers));
        releaseSlot(slot);
    }
    freeCarers(bus.spare);
    bus.spare = nullptr;
}

void destroyBus(Bus *bus) {
    clearSlots(*bus);
    semDelete(bus->lock);
    uFree(bus);
}

// Installs a new bus unless another task got there first. Returns the bus in use, or null when
// memory is short. logIfPresent is for the explicit uEventInit only.
Bus *initialise(bool logIfPresent) {
    Bus *current = theBus.load(std::memory_order_acquire);
    if (current != nullptr && logIfPresent) {
        pu::log::info(pu::log::kEvent, "Event is alreday init.");
    }
    return pu::core::createOnce(theBus, createBus, destroyBus);
}

// The bus for a call about name, initialised on demand; null for a null name or when the bus
// cannot be made.
Bus *busFor(const char *name) {
    if (name == nullptr) {
        return nullptr;
    }
    Bus *bus = theBus.load(std::memory_order_acquire);
    return bus != nullptr ? bus : initialise(false);
}

// The slot index of the event, kAbsent or kTableFull. Without the bus lock the answer counts only
// if the version did not move meanwhile.
std::int32_t findSlot(const Bus &bus, const NameKeys &keys) {
    const std::int32_t index = pu::hash::probe(keys, kSlotCount, [&](std::uint32_t i) {
        const Slot &slot = bus.slots[i];
        return get(slot.occupied) == 0 ||
               (get(slot.key1) == keys.key1 && get(slot.key2) == keys.key2);
    });
    if (index < 0) {
        return kTableFull;
    }
    return get(bus.slots[index].occupied) == 0 ? kAbsent : index;
}

// Caller holds the bus lock. The first free slot from the probe start, or kTableFull.
std::int32_t findFreeSlot(const Bus &bus, const NameKeys &keys) {
    const std::int32_t index = pu::hash::probe(
        keys, kSlotCount, [&](std::uint32_t i) { return get(bus.slots[i].occupied) == 0; });
    return index < 0 ? kTableFull : index;
}

// Caller holds the bus lock, inside a change window: a spare carer may still be read by a raise.
Carer *newCarer(Bus &bus, uEventCallback callback, void *userData) {
    Carer *carer = bus.spare;
    if (carer != nullptr) {
        bus.spare = get(carer->next);
    } else {
        void *memory = uMalloc(sizeof(Carer));
        if (memory == nullptr) {
            return nullptr;
        }
        carer = ::new (memory) Carer{};
    }
    put(carer->next, static_cast<Carer *>(nullptr));
    put(carer->userData, userData);
    put(carer->callback, callback);
    return carer;
}

enum class CareOutcome { added, duplicate, noFreeSlot, tableFull, noMemory };

// Caller holds the bus lock; the slot holds the event already. A callback is registered once:
// userData is not compared and a duplicate keeps the first userData.
CareOutcome addCarer(Bus &bus, Slot &slot, uEventCallback callback, void *userData) {
    std::atomic<Carer *> *link = &slot.carers;
    for (; get(*link) != nullptr; link = &get(*link)->next) {
        if (get(get(*link)->callback) == callback) {
            return CareOutcome::duplicate;
        }
    }
    ChangeWindow window(bus);
    Carer *carer = newCarer(bus, callback, userData);
    put(*link, carer);
    return carer != nullptr ? CareOutcome::added : CareOutcome::noMemory;
}

// Caller holds the bus lock.
CareOutcome care(Bus &bus, const NameKeys &keys, uEventCallback callback, void *userData) {
    std::int32_t index = findSlot(bus, keys);
    if (index == kTableFull) {
        return CareOutcome::tableFull;
    }
    if (index >= 0) {
        return addCarer(bus, bus.slots[index], callback, userData);
    }
    index = findFreeSlot(bus, keys);
    if (index < 0) {
        return CareOutcome::noFreeSlot;
    }
    ChangeWindow window(bus);
    Carer *carer = newCarer(bus, callback, userData);
    if (carer == nullptr) {
        return CareOutcome::noMemory;
    }
    setSlot(bus.slots[index], 1, keys, carer);
    return CareOutcome::added;
}

// What a raise keeps of a carer, so the carer may be cleared while its call is pending.
struct CarerCopy {
    void *userData;
    uEventCallback callback;
};

// Hands visit a copy of each carer of slot that has a callback, in registration order, while
// visit returns true. False when visit stopped the walk or more than maxRecords records were
// walked (read without the lock, a chain seen in the middle of a change may be any length).
template <typename Visit> bool eachCallback(const Slot &slot, std::size_t maxRecords, Visit visit) {
    std::size_t walked = 0;
    for (const Carer *carer = get(slot.carers); carer != nullptr; carer = get(carer->next)) {
        if (++walked > maxRecords) {
            return false;
        }
        const uEventCallback callback = get(carer->callback);
        if (callback != nullptr && !visit(CarerCopy{get(carer->userData), callback})) {
            return false;
        }
    }
    return true;
}

constexpr std::size_t kAnyLength = SIZE_MAX;

// Copies for the common case of a few carers live on the raising task's stack.
constexpr std::size_t kInlineCopies = 8;

class Snapshot {
  public:
    Snapshot() = default;
    Snapshot(const Snapshot &) = delete;
    Snapshot &operator=(const Snapshot &) = delete;
    ~Snapshot() {
        if (copies_ != inline_) {
            uFree(copies_);
        }
    }

    // Copies every carer that has a callback onto the stack; false when they do not fit (or, read
    // without the lock, the chain was seen in the middle of a change). A consistent chain that
    // fits has at most one carer without a callback, so the walk is bounded either way.
    bool takeInline(const Slot &slot) {
        count_ = 0;
        return eachCallback(slot, kInlineCopies + 1, [&](const CarerCopy &copy) {
            if (count_ == kInlineCopies) {
                return false;
            }
            inline_[count_++] = copy;
            return true;
        });
    }

    // Caller holds the bus lock. Copies every carer that has a callback; false when the copies
    // cannot be had, in which case nothing was copied. A chain longer than the stack copies is
    // counted and copied into heap storage.
    bool take(const Slot &slot) {
        if (takeInline(slot)) {
            return true;
        }
        std::size_t needed = 0;
        eachCallback(slot, kAnyLength, [&](const CarerCopy &) {
            ++needed;
            return true;
        });
        copies_ = static_cast<CarerCopy *>(
            pu::core::allocate(pu::core::checkedMul(needed, sizeof(CarerCopy))));
        count_ = 0;
        if (copies_ == nullptr) {
            copies_ = inline_;
            return false;
        }
        eachCallback(slot, kAnyLength, [&](const CarerCopy &copy) {
            copies_[count_++] = copy;
            return true;
        });
        return true;
    }

    void call(const char *name, void *data, std::uint32_t length) const {
        for (std::size_t i = 0; i < count_; ++i) {
            copies_[i].callback(name, copies_[i].userData, data, length);
        }
    }

  private:
    CarerCopy inline_[kInlineCopies]; // only the first count_ are ever read
    CarerCopy *copies_ = inline_;
    std::size_t count_ = 0;
};

// Caller holds the bus lock; the fallback when no snapshot can be had.
void callUnderLock(const Slot &slot, const char *name, void *data, std::uint32_t length) {
    eachCallback(slot, kAnyLength, [&](const CarerCopy &copy) {
        copy.callback(name, copy.userData, data, length);
        return true;
    });
}

// A raise's reading of the table without the lock: a few attempts, none waiting for a change to
// end. False sends the raise to the lock (a change under way, or more carers than the stack
// copies hold); otherwise known tells whether the event has a slot.
constexpr int kUnlockedAttempts = 3;

bool readUnlocked(const Bus &bus, const NameKeys &keys, Snapshot &snapshot, bool &known) {
    for (int attempt = 0; attempt < kUnlockedAttempts; ++attempt) {
        const std::uint32_t before = get(bus.version);
        if ((before & 1U) != 0) {
            continue;
        }
        const std::int32_t index = findSlot(bus, keys);
        const bool copied = index < 0 || snapshot.takeInline(bus.slots[index]);
        if (get(bus.version) == before) {
            known = index >= 0;
            return copied;
        }
    }
    return false;
}

} // namespace

extern "C" {

void uEventInit(void) {
    (void)initialise(true);
}

void uEventUninit(void) {
    Bus *bus = theBus.load(std::memory_order_acquire);
    if (bus == nullptr) {
        pu::log::info(pu::log::kEvent, "Event not init.");
        return;
    }
    {
        // Callers still holding the bus finish first; the lock is given back before it is deleted.
        SemGuard guard(bus->lock);
        theBus.store(nullptr, std::memory_order_release);
        clearSlots(*bus);
    }
    destroyBus(bus);
}

int32_t uEventCare(const char *name, uEventCallback callback, void *userData) {
    Bus *bus = busFor(name);
    if (bus == nullptr) {
        return 0;
    }
    const NameKeys keys = keysOf(name);
    CareOutcome outcome = CareOutcome::noMemory;
    {
        SemGuard guard(bus->lock);
        outcome = care(*bus, keys, callback, userData);
    }
    switch (outcome) {
    case CareOutcome::added:
        return 1;
    case CareOutcome::duplicate:
        pu::log::debug(pu::log::kEvent, "eventprocess has existed\n");
        return 1;
    case CareOutcome::noFreeSlot:
        pu::log::error(pu::log::kEvent, "register event %s fail.", name);
        return 0;
    case CareOutcome::tableFull:
        pu::log::error(pu::log::kEvent, "Event hash buffer full.");
        return 0;
    case CareOutcome::noMemory:
        break;
    }
    return 0;
}

int32_t uEventClear(const char *name, uEventCallback callback) {
    Bus *bus = busFor(name);
    if (bus == nullptr) {
        return 0;
    }
    const NameKeys keys = keysOf(name);
    SemGuard guard(bus->lock);
    const std::int32_t index = findSlot(*bus, keys);
    if (index < 0) {
        return 0;
    }
    Slot &slot = bus->slots[index];
    std::atomic<Carer *> *link = &slot.carers;
    while (get(*link) != nullptr && get(get(*link)->callback) != callback) {
        link = &get(*link)->next;
    }
    Carer *removed = get(*link);
    if (removed == nullptr) {
        pu::log::debug(pu::log::kEvent, "This eventprocess didn't exist");
        return 1;
    }
    ChangeWindow window(*bus);
    put(*link, get(removed->next));
    // Slot 0 is deliberately never released: it stays occupied with an empty chain. A
    // released slot leaves no marker, so events probed past it become unreachable; that is intended
    // too.
    if (get(slot.carers) == nullptr && index > 0) {
        releaseSlot(slot);
    }
    put(removed->next, bus->spare);
    bus->spare = removed;
    return 1;
}

int32_t uEventRaise(const char *name, void *data, uint32_t length) {
    Bus *bus = busFor(name);
    if (bus == nullptr) {
        return 0;
    }
    const NameKeys keys = keysOf(name);
    Snapshot snapshot;
    bool known = false;
    if (!readUnlocked(*bus, keys, snapshot, known)) {
        SemGuard guard(bus->lock);
        const std::int32_t index = findSlot(*bus, keys);
        known = index >= 0;
        if (known && !snapshot.take(bus->slots[index])) {
            callUnderLock(bus->slots[index], name, data, length);
        }
    }
    if (!known) {
        pu::log::debug(pu::log::kEvent, "No module care event %s.", name);
        return 0;
    }
    // No lock is held: callbacks may care, clear or raise.
    snapshot.call(name, data, length);
    return 1;
}

} // extern "C"
