// SPDX-License-Identifier: MIT
// Scoped holding of a platform semaphore, so no return path forgets to give it.
#pragma once

#include <platform_os.h>

#include <cstdint>

namespace pu::core {

// Takes the semaphore for the scope of the guard. Id 0 (a lock-less list, a store whose lock does
// not exist yet) locks nothing, so callers need no test at every call site; it is skipped here
// rather than sent to the platform, where it would fail anyway, because lists without a lock are
// the common case and sit on every hot path.
class SemGuard {
  public:
    explicit SemGuard(std::uint32_t id) noexcept : id_(id) {
        if (id_ != 0) {
            (void)semTake(id_, WAIT_FOREVER);
        }
    }
    ~SemGuard() {
        if (id_ != 0) {
            (void)semGive(id_);
        }
    }
    SemGuard(const SemGuard &) = delete;
    SemGuard &operator=(const SemGuard &) = delete;

  private:
    std::uint32_t id_;
};

} // namespace pu::core
