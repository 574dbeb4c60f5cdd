// Scoped holding of a platform semaphore, so no return path forgets to give it.
#pragma once

#include <platform_os.h>

#include <cstdint>

namespace pu::core {

// BasicLockable view of a platform mutex id; works with std::scoped_lock and std::unique_lock.
// Taking id 0 fails harmlessly in the platform layer, so a lock-less list or a store that does
// not exist yet can be "locked" without a test at every call site.
class SemMutex {
  public:
    explicit SemMutex(std::uint32_t id) noexcept : id_(id) {}
    void lock() noexcept { (void)semTake(id_, WAIT_FOREVER); }
    void unlock() noexcept { (void)semGive(id_); }

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
