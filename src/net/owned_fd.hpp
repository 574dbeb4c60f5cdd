// SPDX-License-Identifier: MIT
// A descriptor that is closed when its owner goes out of scope.
#pragma once

#include <unistd.h>
#include <utility>

namespace pu::net {

class OwnedFd {
  public:
    explicit OwnedFd(int fd = -1) : fd_(fd) {}
    ~OwnedFd() { reset(); }
    OwnedFd(const OwnedFd &) = delete;
    OwnedFd &operator=(const OwnedFd &) = delete;
    OwnedFd(OwnedFd &&other) noexcept : fd_(other.release()) {}
    OwnedFd &operator=(OwnedFd &&other) noexcept {
        reset(other.release());
        return *this;
    }

    int get() const { return fd_; }
    // Hands the descriptor on; this owner no longer closes it.
    int release() { return std::exchange(fd_, -1); }
    // Closes the held descriptor (if any) and holds fd instead.
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_;
};

} // namespace pu::net
