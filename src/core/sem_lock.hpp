// Scoped holding of a platform semaphore, so no return path forgets to give it.
#pragma once

#include <platform_os.h>

#include <cstdint>

namespace pu::core {

// BasicLockable view of a platform mutex id; works with std::scoped_lock and std::unique_lock.
// Id 0 (a lock-less list, a store whose lock does not exist yet) locks nothing, so callers need
// no test at every call site.
class SemMutex {
  public:
    explicit SemMutex(std::uint32_t id) noexcept : id_(id) {}
    // Id 0 is skipped here rather than sent to the platform, where it would fail anyway: lists
    // without a lock are the common case and sit on every hot path.
    void lock() noexcept {
        if (id_ != 0) {
            (void)semTake(id_, WAIT_FOREVER);
        }
    }
    void unlock() noexcept {
        if (id_ != 0) {
            (void)semGive(id_);
        }
    }

  private:
    std::uint32_t id_;
};

// Takes the semaphore for the scope of the guard.
class SemGuard {
  public:
    explicit SemGuard(std::uint32_t id) noexcept : mutex_(id) { mutex_.lock(); }
    ~SemGuard() { mutex_.unlock(); }
    SemGuard(const SemGuard &) = delete;
    SemGuard &operator=(const SemGuard &) = delete;

  private:
    SemMutex mutex_;
};

} // namespace pu::core
