// System status store: 1024 slots of named 32-bit values, open addressing with linear probing
// from rsHash, a name known only by its two hashes. Writers serialise on the store's mutex;
// readers take no lock.
#include <platform_os.h>
#include <umem.h>
#include <ustatus.h>
#include <ustr.h>

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
    SEM_ID fresh = semMCreate(0);
    SEM_ID none = 0;
    if (!gLock.compare_exchange_strong(none, fresh, std::memory_order_acq_rel)) {
        semDelete(fresh);
    }
    gInitialised.store(true, std::memory_order_release);
}

// A filled record, ready to be published in a slot, or null when it or its copy of the name
// cannot be allocated (the set then fails whole, as for the record itself).
StatusRecord *newRecord(const char *name, std::uint32_t value, const pu::hash::NameKeys &keys) {
    auto *record = static_cast<StatusRecord *>(uMalloc(sizeof(StatusRecord)));
    if (record != nullptr) {
        record->name = uStrGetCopy(name);
        record->value = value;
        record->key1 = keys.key1;
        record->key2 = keys.key2;
        if (record->name == nullptr && name != nullptr && name[0] != '\0') {
            uFree(record);
            return nullptr;
        }
    }
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
    std::uint32_t slot = keys.start;
    do {
        StatusRecord *record = gSlots[slot].load(std::memory_order_acquire);
        if (record == nullptr) {
            StatusRecord *fresh = newRecord(name, value, keys);
            if (fresh == nullptr) {
                return -1;
            }
            // Filled before it is published, so a reader never sees a half-made record. Only an
            // unlocked first call can lose this exchange; it then looks at the winner's record.
            if (gSlots[slot].compare_exchange_strong(record, fresh, std::memory_order_acq_rel)) {
                return 0;
            }
            freeRecord(fresh);
        }
        if (matches(record, keys)) {
            storeValue(record, value);
            return 0;
        }
        slot = (slot + 1) % kSlots;
    } while (slot != keys.start);
    return -1;
}

int32_t getSystemStatus(const char *name, uint32_t *valueOut) {
    if (valueOut == nullptr) {
        return -1;
    }
    const pu::hash::NameKeys keys = pu::hash::nameKeys(name, kSlots);
    if (!gInitialised.load(std::memory_order_acquire)) {
        basaltPrintLog(pu::log::kDebug, pu::log::kStatus, "The status [%s] is not set yet.",
                       printable(name));
        return -1;
    }
    std::uint32_t slot = keys.start;
    do {
        StatusRecord *record = gSlots[slot].load(std::memory_order_acquire);
        if (record == nullptr) {
            basaltPrintLog(pu::log::kDebug, pu::log::kStatus, "Cannot find this status: %s ",
                           printable(name));
            return -1;
        }
        if (matches(record, keys)) {
            *valueOut = loadValue(record);
            return 0;
        }
        slot = (slot + 1) % kSlots;
    } while (slot != keys.start);
    basaltPrintLog(pu::log::kDebug, pu::log::kStatus, "cannot find this status: %s ",
                   printable(name));
    return -1;
}

void statusBuffFree(void) {
    for (auto &slot : gSlots) {
        if (StatusRecord *record = slot.exchange(nullptr, std::memory_order_acq_rel)) {
            freeRecord(record);
        }
    }
}

} // extern "C"
