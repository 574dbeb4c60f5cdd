// SPDX-License-Identifier: MIT
// uEvent: the named event bus. 256 slots keyed by two hashes of the event name, each with a chain
// of carers in registration order; raises call the carers from a snapshot taken under the lock.
#include <uevent.h>

#include <umem.h>

#include "core/checked_size.hpp"
#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "hash/string_hash.hpp"

#include <atomic>

namespace {

using pu::core::SemGuard;

constexpr std::uint32_t kSlotCount = 256;
constexpr std::int32_t kAbsent = -2;    // the probe met a free slot
constexpr std::int32_t kTableFull = -1; // the probe went all the way round

struct Carer {
    Carer *next;
    void *userData;
    uEventCallback callback;
};

struct Slot {
    std::uint32_t occupied;
    std::uint64_t key1; // bkdrHash(name)
    std::uint64_t key2; // rsHash(name, 256), also the slot where the probe starts
    Carer *carers;
};

// The whole bus is one uMalloc'd record published through an atomic pointer, so lazy
// initialisation needs no lock: of two racing first calls one installs its record and the other
// discards its own.
struct Bus {
    SEM_ID lock;
    Slot slots[kSlotCount];
};

std::atomic<Bus *> theBus{nullptr};

using pu::hash::NameKeys;

NameKeys keysOf(const char *name) {
    return pu::hash::nameKeys(name, kSlotCount);
}

Bus *createBus() {
    auto *bus = static_cast<Bus *>(uMalloc(sizeof(Bus)));
    if (bus == nullptr) {
        return nullptr;
    }
    bus->lock = semMCreate(0);
    for (Slot &slot : bus->slots) {
        slot = Slot{0, 0, 0, nullptr};
    }
    return bus;
}

void freeCarers(Carer *carer) {
    while (carer != nullptr) {
        Carer *next = carer->next;
        uFree(carer);
        carer = next;
    }
}

void clearSlots(Bus &bus) {
    for (Slot &slot : bus.slots) {
        freeCarers(slot.carers);
        slot = Slot{0, 0, 0, nullptr};
    }
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

// Caller holds the bus lock. The slot index of the event, kAbsent or kTableFull.
std::int32_t findSlot(const Bus &bus, const NameKeys &keys) {
    const std::int32_t index = pu::hash::probe(keys, kSlotCount, [&](std::uint32_t i) {
        const Slot &slot = bus.slots[i];
        return slot.occupied == 0 || (slot.key1 == keys.key1 && slot.key2 == keys.key2);
    });
    if (index < 0) {
        return kTableFull;
    }
    return bus.slots[index].occupied == 0 ? kAbsent : index;
}

// Caller holds the bus lock. The first free slot from the probe start, or kTableFull.
std::int32_t findFreeSlot(const Bus &bus, const NameKeys &keys) {
    const std::int32_t index = pu::hash::probe(
        keys, kSlotCount, [&](std::uint32_t i) { return bus.slots[i].occupied == 0; });
    return index < 0 ? kTableFull : index;
}

Carer *newCarer(uEventCallback callback, void *userData) {
    auto *carer = static_cast<Carer *>(uMalloc(sizeof(Carer)));
    if (carer != nullptr) {
        *carer = Carer{nullptr, userData, callback};
    }
    return carer;
}

enum class CareOutcome { added, duplicate, noFreeSlot, tableFull, noMemory };

// Caller holds the bus lock; the slot holds the event already. A callback is registered once:
// userData is not compared and a duplicate keeps the first userData.
CareOutcome addCarer(Slot &slot, uEventCallback callback, void *userData) {
    Carer **link = &slot.carers;
    for (; *link != nullptr; link = &(*link)->next) {
        if ((*link)->callback == callback) {
            return CareOutcome::duplicate;
        }
    }
    *link = newCarer(callback, userData);
    return *link != nullptr ? CareOutcome::added : CareOutcome::noMemory;
}

// Caller holds the bus lock.
CareOutcome care(Bus &bus, const NameKeys &keys, uEventCallback callback, void *userData) {
    std::int32_t index = findSlot(bus, keys);
    if (index == kTableFull) {
        return CareOutcome::tableFull;
    }
    if (index >= 0) {
        return addCarer(bus.slots[index], callback, userData);
    }
    index = findFreeSlot(bus, keys);
    if (index < 0) {
        return CareOutcome::noFreeSlot;
    }
    Carer *carer = newCarer(callback, userData);
    if (carer == nullptr) {
        return CareOutcome::noMemory;
    }
    bus.slots[index] = Slot{1, keys.key1, keys.key2, carer};
    return CareOutcome::added;
}

// What a raise keeps of a carer, so the carer may be cleared while its call is pending.
struct CarerCopy {
    void *userData;
    uEventCallback callback;
};

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

    // Caller holds the bus lock. Copies every carer that has a callback; false when the copies
    // cannot be had, in which case nothing was copied. One walk for the usual few carers; a
    // longer chain is counted and copied again into heap storage.
    bool take(const Slot &slot) {
        std::size_t needed = 0;
        for (const Carer *carer = slot.carers; carer != nullptr; carer = carer->next) {
            if (carer->callback != nullptr) {
                if (needed < kInlineCopies) {
                    inline_[needed] = CarerCopy{carer->userData, carer->callback};
                }
                ++needed;
            }
        }
        if (needed > kInlineCopies) {
            copies_ = static_cast<CarerCopy *>(
                pu::core::allocate(pu::core::checkedMul(needed, sizeof(CarerCopy))));
            if (copies_ == nullptr) {
                copies_ = inline_;
                return false;
            }
            for (const Carer *carer = slot.carers; carer != nullptr; carer = carer->next) {
                if (carer->callback != nullptr) {
                    copies_[count_++] = CarerCopy{carer->userData, carer->callback};
                }
            }
            return true;
        }
        count_ = needed;
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
    for (const Carer *carer = slot.carers; carer != nullptr; carer = carer->next) {
        if (carer->callback != nullptr) {
            carer->callback(name, carer->userData, data, length);
        }
    }
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
    Carer **link = &slot.carers;
    while (*link != nullptr && (*link)->callback != callback) {
        link = &(*link)->next;
    }
    Carer *removed = *link;
    if (removed == nullptr) {
        pu::log::debug(pu::log::kEvent, "This eventprocess didn't exist");
        return 1;
    }
    *link = removed->next;
    // Slot 0 is deliberately never released: it stays occupied with an empty chain. A
    // released slot leaves no marker, so events probed past it become unreachable; that is intended
    // too.
    if (slot.carers == nullptr && index > 0) {
        slot = Slot{0, 0, 0, nullptr};
    }
    uFree(removed);
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
    {
        SemGuard guard(bus->lock);
        const std::int32_t index = findSlot(*bus, keys);
        if (index >= 0) {
            known = true;
            const Slot &slot = bus->slots[index];
            if (!snapshot.take(slot)) {
                callUnderLock(slot, name, data, length);
            }
        }
    }
    if (!known) {
        pu::log::debug(pu::log::kEvent, "No module care event %s.", name);
        return 0;
    }
    // The lock is given back: callbacks may care, clear or raise.
    snapshot.call(name, data, length);
    return 1;
}

} // extern "C"
