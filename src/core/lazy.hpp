// SPDX-License-Identifier: MIT
// Create-once of a shared handle or record published through an atomic, and the never-destroyed
// instance used for service state that pool threads reach.
#pragma once

#include <platform_os.h>

#include <atomic>
#include <new>

namespace pu::core {

// The value in slot, created by create() when the slot is still empty. Racing first callers each
// create one; the one whose compare-and-swap publishes it wins and the others hand theirs to
// destroy(). Empty (T{}) when create() fails; the slot then stays empty for a later attempt.
template <typename T, typename Create, typename Destroy>
T createOnce(std::atomic<T> &slot, Create create, Destroy destroy) noexcept {
    T current = slot.load(std::memory_order_acquire);
    if (current != T{}) {
        return current;
    }
    T fresh = create();
    if (fresh == T{}) {
        return T{};
    }
    if (slot.compare_exchange_strong(current, fresh, std::memory_order_acq_rel)) {
        return fresh;
    }
    destroy(fresh);
    return current;
}

// The platform mutex in slot, created on first use; 0 when none can be created.
inline SEM_ID createMutexOnce(std::atomic<SEM_ID> &slot) noexcept {
    return createOnce(
        slot, [] { return semMCreate(0); }, [](SEM_ID id) { (void)semDelete(id); });
}

// The one instance of T, built on first use in static storage and never destroyed. Service state
// that pool threads reach lives here: a thread still running while the process exits then finds
// the state intact instead of racing its static destructor.
template <typename T> T &immortal() noexcept {
    alignas(T) static unsigned char storage[sizeof(T)];
    static T *const instance = ::new (static_cast<void *>(storage)) T();
    return *instance;
}

} // namespace pu::core
