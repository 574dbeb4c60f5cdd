// SPDX-License-Identifier: MIT
// System status store: 1024 slots of named 32-bit values, open addressing with linear probing
// from rsHash, a name known only by its two hashes. Writers serialise on the store's mutex;
// readers take no lock.
#include <platform_os.h>
#include <umem.h>
#include <ustatus.h>
#include <ustr.h>

#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "hash/string_hash.hpp"

#include <array>
#include <atomic>

namespace {

constexpr std::uint32_t kSlots = 1024;

struct StatusRecord {
    char *name;          // private copy, null for a null or empty name; never compared
    std::uint32_t value; // read without the lock, so always accessed through atomic_ref
    std::uint64_t key1;  // bkdrHash(name)
    std::uint64_t key2;  // rsHash(name, 1024)
};
static_assert(sizeof(void *) != 4 || sizeof(StatusRecord) == 24, "32-bit record layout");

// The lock id and the initialised flag are created lazily by the first set, and the slots are
// read by unlocked readers: all three are atomics so those unguarded accesses are not races.
std::atomic<SEM_ID> gLock{0};
std::atomic<bool> gInitialised{false};
std::array<std::atomic<StatusRecord *>, kSlots> gSlots{};

void storeValue(StatusRecord *record, std::uint32_t value) {
    std::atomic_ref<std::uint32_t>(record->value).store(value, std::memory_order_relaxed);
}

std::uint32_t loadValue(StatusRecord *record) {
    return std::atomic_ref<std::uint32_t>(record->value).load(std::memory_order_relaxed);
}

bool matches(const StatusRecord *record, const pu::hash::NameKeys &keys) {
    return record->key1 == keys.key1 && record->key2 == keys.key2;
}

const char *printable(const char *name) {
    return name == nullptr ? "(null)" : name;
}

// Creates the store's mutex. The slots need no clearing: they start empty and only
// statusBuffFree empties them again. Two first callers racing here keep one mutex.
void initialise() {
    (void)pu::core::createMutexOnce(gLock);
    gInitialised.store(true, std::memory_order_release);
}

// A filled record, ready to be published in a slot, or null when it or its copy of the name
// cannot be allocated (the set then fails whole, as for the record itself).
StatusRecord *newRecord(const char *name, std::uint32_t value, const pu::hash::NameKeys &keys) {
    auto *record = static_cast<StatusRecord *>(uMalloc(sizeof(StatusRecord)));
    if (record == nullptr) {
        return nullptr;
    }
    record->name = uStrGetCopy(name);
    // uStrGetCopy gives no copy of an empty name; any other missing copy is memory running out,
    // and a record without its name could never be told apart in a dump.
    if (record->name == nullptr && name != nullptr && name[0] != '\0') {
        uFree(record);
        return nullptr;
    }
    record->value = value;
    record->key1 = keys.key1;
    record->key2 = keys.key2;
    return record;
}

void freeRecord(StatusRecord *record) {
    uFree(record->name);
    uFree(record);
}

} // namespace

extern "C" {

int32_t setSystemStatus(const char *name, uint32_t value) {
    const pu::hash::NameKeys keys = pu::hash::nameKeys(name, kSlots);
    // Taken before the lazy creation: the very first call takes id 0, which fails harmlessly,
    // and runs its critical section without a lock.
    const pu::core::SemGuard guard(gLock.load(std::memory_order_acquire));
    if (!gInitialised.load(std::memory_order_acquire)) {
        initialise();
    }
    int32_t result = -1;
    (void)pu::hash::probe(keys, kSlots, [&](std::uint32_t slot) {
        // A new record is filled before it is published, so a reader never sees a half-made one.
        // Only an unlocked first call can lose the race for an empty slot; it then looks at the
        // winner's record.
        StatusRecord *record = pu::core::createOnce(
            gSlots[slot], [&] { return newRecord(name, value, keys); }, freeRecord);
        if (record == nullptr) {
            return true;
        }
        if (matches(record, keys)) {
            storeValue(record, value);
            result = 0;
            return true;
        }
        return false;
    });
    return result;
}

int32_t getSystemStatus(const char *name, uint32_t *valueOut) {
    if (valueOut == nullptr) {
        return -1;
    }
    const pu::hash::NameKeys keys = pu::hash::nameKeys(name, kSlots);
    if (!gInitialised.load(std::memory_order_acquire)) {
        pu::log::debug(pu::log::kStatus, "The status [%s] is not set yet.", printable(name));
        return -1;
    }
    StatusRecord *found = nullptr;
    const std::int32_t stop = pu::hash::probe(keys, kSlots, [&](std::uint32_t slot) {
        found = gSlots[slot].load(std::memory_order_acquire);
        return found == nullptr || matches(found, keys);
    });
    if (stop < 0) {
        pu::log::debug(pu::log::kStatus, "cannot find this status: %s ", printable(name));
        return -1;
    }
    if (found == nullptr) {
        pu::log::debug(pu::log::kStatus, "Cannot find this status: %s ", printable(name));
        return -1;
    }
    *valueOut = loadValue(found);
    return 0;
}

void statusBuffFree(void) {
    for (auto &slot : gSlots) {
        if (StatusRecord *record = slot.exchange(nullptr, std::memory_order_acq_rel)) {
            freeRecord(record);
        }
    }
}

} // extern "C"
