// SPDX-License-Identifier: MIT
// Thin setters for socket buffer sizes and time-outs.
#include <usocket.h>

#include <cstdint>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

template <typename Value> std::int32_t setOption(std::int32_t fd, int option, const Value &value) {
    return setsockopt(fd, SOL_SOCKET, option, &value, sizeof value) == 0 ? 0 : -1;
}

std::int32_t setBufferSize(std::int32_t fd, int option, std::int32_t size) {
    if (size < 0) {
        return -1;
    }
    const int bytes = size;
    return setOption(fd, option, bytes);
}

std::int32_t setTimeout(std::int32_t fd, int option, std::int32_t seconds) {
    if (fd < 0 || seconds < 0) {
        return -1;
    }
    const timeval limit{seconds, 0};
    return setOption(fd, option, limit);
}

} // namespace

extern "C" {

int32_t uSocketSetSendBufferSize(int32_t fd, int32_t size) {
    return setBufferSize(fd, SO_SNDBUF, size);
}

int32_t uSocketSetRecvBufferSize(int32_t fd, int32_t size) {
    return setBufferSize(fd, SO_RCVBUF, size);
}

int32_t uSocketSetSendTimeout(int32_t fd, int32_t seconds) {
    return setTimeout(fd, SO_SNDTIMEO, seconds);
}

int32_t uSocketSetRecvTimeout(int32_t fd, int32_t seconds) {
    return setTimeout(fd, SO_RCVTIMEO, seconds);
}

} // extern "C"
