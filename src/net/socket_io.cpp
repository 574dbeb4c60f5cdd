// SPDX-License-Identifier: MIT
// Reads and writes that wait with select() before each step and give up after a time-out.
#include <usocket.h>

#include "net/socket_wait.hpp"

#include <cerrno>
#include <cstdint>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace pu::net {

bool selectable(std::int32_t fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

bool waitReady(std::int32_t fd, Readiness readiness, std::int32_t seconds) {
    if (!selectable(fd)) {
        return false;
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval limit{seconds > 0 ? seconds : 0, 0};
    fd_set *readSet = readiness == Readiness::kRead ? &set : nullptr;
    fd_set *writeSet = readiness == Readiness::kWrite ? &set : nullptr;
    return select(fd + 1, readSet, writeSet, nullptr, &limit) > 0 && FD_ISSET(fd, &set);
}

} // namespace pu::net

namespace {

using pu::net::Readiness;

// The loop both directions share: wait, then move at most the remainder; stop on a wait that
// sees nothing or a step that moves 0 bytes or fails. step(offset, count) does one read or write
// and answers kWaitAgain when it would have blocked.
constexpr ssize_t kWaitAgain = -2;

template <typename Step>
std::int32_t transfer(std::int32_t fd, Readiness readiness, std::int32_t length,
                      std::int32_t timeoutSec, Step step) {
    std::int32_t total = 0;
    while (total < length && pu::net::waitReady(fd, readiness, timeoutSec)) {
        const ssize_t moved = step(total, static_cast<size_t>(length - total));
        if (moved == kWaitAgain) {
            continue;
        }
        if (moved <= 0) {
            break;
        }
        total += static_cast<std::int32_t>(moved);
    }
    return total;
}

// One write step. On a socket it never blocks, so a reader that stalls is met by the next wait
// and its time-out, even on a blocking descriptor; and a peer that has gone away ends the write
// with a short count instead of raising SIGPIPE. Other descriptors get a plain write().
ssize_t writeStep(int fd, const void *data, size_t count) {
    const ssize_t sent = send(fd, data, count, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
        return sent;
    }
    if (errno == ENOTSOCK) {
        return write(fd, data, count);
    }
    return errno == EAGAIN || errno == EWOULDBLOCK ? kWaitAgain : sent;
}

} // namespace

extern "C" {

int32_t uSocketReadWithTimeout(int32_t fd, void *buffer, int32_t length, int32_t timeoutSec) {
    if (buffer == nullptr) {
        return 0;
    }
    auto *bytes = static_cast<char *>(buffer);
    return transfer(
        fd, Readiness::kRead, length, timeoutSec,
        [&](std::int32_t offset, size_t count) { return read(fd, bytes + offset, count); });
}

int32_t uSocketReadNormalData(int32_t fd, void *buffer, int32_t length) {
    return uSocketReadWithTimeout(fd, buffer, length, pu::net::kNormalTimeoutSec);
}

int32_t uSocketWriteWithTimeout(int32_t fd, const void *data, int32_t length, int32_t timeoutSec) {
    if (data == nullptr) {
        return 0;
    }
    const auto *bytes = static_cast<const char *>(data);
    return transfer(
        fd, Readiness::kWrite, length, timeoutSec,
        [&](std::int32_t offset, size_t count) { return writeStep(fd, bytes + offset, count); });
}

int32_t uSocketSafeWriteData(int32_t fd, const void *data, int32_t length) {
    return uSocketWriteWithTimeout(fd, data, length, pu::net::kNormalTimeoutSec);
}

} // extern "C"
