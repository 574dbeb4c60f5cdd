// SPDX-License-Identifier: MIT
// Unique id manager: named modules, each with a contiguous range of ids handed out next-fit.
// Process-wide; the family lock is created by the first call and the registry by the first
// registration.
#include <platform_os.h>
#include <ulist.h>
#include <umem.h>
#include <ustr.h>
#include <uuniqueid.h>

#include "core/checked_size.hpp"
#include "core/lazy.hpp"
#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

struct Module {
    char *name;          // private copy; null when registered as ""
    std::int32_t end;    // one past the highest id
    std::int32_t start;  // lowest id
    std::uint32_t *used; // one flag per id from start, 1 while handed out
    std::int32_t cursor; // where the next search begins
};
static_assert(sizeof(void *) != 4 || sizeof(Module) == 20, "32-bit record layout");

// Created lazily and read by every call, so both are atomics; the lock is published before the
// registry.
std::atomic<SEM_ID> gLock{0};
std::atomic<uList *> gRegistry{nullptr};

const char *printable(const char *name) {
    return name == nullptr ? "(null)" : name;
}

// The family lock, made by the first call of any kind. It exists before the registry, so every
// call that can see the registry holds the lock while it does.
SEM_ID managerLock() {
    return pu::core::createMutexOnce(gLock);
}

// Makes the registry if it does not exist yet. Racing first registrations keep one. False when
// the registry cannot be made.
bool ensureRegistry() {
    (void)managerLock();
    return pu::core::createOnce(
               gRegistry, [] { return uListInit(1); }, [](uList *list) { uListUninit(list); }) !=
           nullptr;
}

uList *registry() {
    return gRegistry.load(std::memory_order_acquire);
}

int compareName(void *element, void *key) {
    const char *name = static_cast<Module *>(element)->name;
    return std::strcmp(name == nullptr ? "" : name, static_cast<const char *>(key));
}

// The first registry entry named name, or null. Called with the family lock held.
Module *findModule(uList *registry, const char *name) {
    if (registry == nullptr || name == nullptr) {
        return nullptr;
    }
    const std::int32_t pos = uListSearch(registry, const_cast<char *>(name), compareName);
    return pos < 0 ? nullptr : static_cast<Module *>(uListGet(registry, pos));
}

std::uint32_t *newFlags(std::int32_t count) {
    if (count < 0) {
        return nullptr;
    }
    return static_cast<std::uint32_t *>(pu::core::allocate(
        pu::core::checkedMul(static_cast<std::size_t>(count), sizeof(std::uint32_t))));
}

void freeModule(Module *module) {
    uFree(module->name);
    uFree(module->used);
    uFree(module);
}

Module *newModule(const char *name, std::int32_t firstId, std::int32_t count) {
    auto *module = static_cast<Module *>(uMalloc(sizeof(Module)));
    if (module == nullptr) {
        return nullptr;
    }
    module->name = uStrGetCopy(name);
    module->used = newFlags(count);
    module->cursor = firstId;
    if (module->used == nullptr || (module->name == nullptr && name[0] != '\0')) {
        freeModule(module);
        return nullptr;
    }
    return module;
}

// A larger count gets a larger flag array that keeps the flags of the current range by their
// offset from the start; a smaller or equal count keeps the array. False when memory runs out
// (the module is then unchanged).
bool growFlags(Module *module, std::int32_t count) {
    const std::int32_t size = module->end - module->start;
    if (count <= size) {
        return true;
    }
    std::uint32_t *flags = newFlags(count);
    if (flags == nullptr) {
        return false;
    }
    if (size > 0) {
        std::memcpy(flags, module->used, static_cast<std::size_t>(size) * sizeof(*flags));
    }
    uFree(module->used);
    module->used = flags;
    return true;
}

// Next-fit search from the cursor, wrapping at the end of the range; -1 when every id is in
// use. A cursor left outside the range by a re-registration wraps to the start as well.
std::int32_t nextFreeId(Module *module) {
    const std::int32_t size = module->end - module->start;
    for (std::int32_t tries = 0; tries < size; ++tries) {
        if (module->cursor >= module->end || module->cursor < module->start) {
            module->cursor = module->start;
        }
        const std::int32_t candidate = module->cursor++;
        if (module->used[candidate - module->start] == 0) {
            return candidate;
        }
    }
    return -1;
}

bool inRange(const Module *module, std::int32_t id) {
    return id >= module->start && id < module->end;
}

void logAllocationFailure() {
    pu::log::error(pu::log::kUidManager, "%s: malloc error", "uIdRegisterUniqueIdModule");
}

} // namespace

extern "C" {

void uIdRegisterUniqueIdModule(const char *name, int32_t firstId, int32_t count) {
    if (name == nullptr || count <= 0 || firstId < 0 ||
        firstId > std::numeric_limits<std::int32_t>::max() - count) {
        return;
    }
    if (!ensureRegistry()) {
        logAllocationFailure();
        return;
    }
    {
        const pu::core::SemGuard guard(managerLock());
        Module *module = findModule(registry(), name);
        const bool known = module != nullptr;
        if (!known) {
            module = newModule(name, firstId, count);
        }
        if (module == nullptr || (known && !growFlags(module, count))) {
            logAllocationFailure();
            return;
        }
        module->start = firstId;
        module->end = firstId + count;
        // A known module stays listed once: a second entry would outlive the record when the
        // module is unregistered, and every later lookup would walk through freed memory.
        if (!known && uListAppend(registry(), module) < 0) {
            freeModule(module);
            logAllocationFailure();
            return;
        }
    }
    pu::log::debug(pu::log::kUidManager,
                   "%s: module=[%s] with max id=[%d] register to uniqueIdModule!\n",
                   "uIdRegisterUniqueIdModule", name, count);
}

void uIdUnregisterUniqueIdModule(const char *name) {
    const pu::core::SemGuard guard(managerLock());
    uList *modules = registry();
    if (name == nullptr || modules == nullptr) {
        return;
    }
    const std::int32_t pos = uListSearch(modules, const_cast<char *>(name), compareName);
    if (pos >= 0) {
        freeModule(static_cast<Module *>(uListRemove(modules, pos)));
    }
}

int32_t uIdGetModuleAvailableUniqueId(const char *name) {
    const pu::core::SemGuard guard(managerLock());
    Module *module = findModule(registry(), name);
    if (module == nullptr) {
        pu::log::warning(pu::log::kUidManager,
                         "%s: module=[%s] does not registered in uniqueModule.\n",
                         "uIdGetModuleAvailableUniqueId", printable(name));
        return -1;
    }
    const std::int32_t id = nextFreeId(module);
    if (id < 0 || !inRange(module, id)) {
        pu::log::warning(pu::log::kUidManager, "%s: Module[%s] does not have any available id!\n",
                         "uIdGetManagerAvailableId", printable(module->name));
        return -1;
    }
    module->used[id - module->start] = 1;
    return id;
}

void uIdReleaseModuleUniqueId(const char *name, int32_t id) {
    const pu::core::SemGuard guard(managerLock());
    Module *module = findModule(registry(), name);
    if (module != nullptr && inRange(module, id)) {
        module->used[id - module->start] = 0;
    }
}

} // extern "C"
