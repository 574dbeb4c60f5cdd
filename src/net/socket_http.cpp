// SPDX-License-Identifier: MIT
// HTTP request bodies streamed from a socket to a callback, optionally without the closing
// boundary line.
#include <umem.h>
#include <usocket.h>

#include "net/socket_wait.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::int32_t kChunkBytes = 1024;
constexpr std::int32_t kHttpWaitSec = 10;
// Carriage return and line feed on both sides of the boundary text.
constexpr std::int64_t kBoundaryFraming = 4;

// Bytes of the closing boundary line: the text plus its framing, or 0 without a boundary.
std::int64_t trailerBytes(const char *boundary) {
    return boundary == nullptr
               ? 0
               : static_cast<std::int64_t>(std::strlen(boundary)) + kBoundaryFraming;
}

// The held-back tail is dropped only when it carries the boundary text followed by a zero byte
// from its third byte on, so a tail ending in the usual carriage return and line feed is
// delivered after all. That is intended; the comparison includes the text's terminator.
bool tailIsClosingBoundary(const char *tail, const char *boundary) {
    return std::memcmp(tail + 2, boundary, std::strlen(boundary) + 1) == 0;
}

void deliver(uSocketDataFn dataFn, void *context, const char *data, std::int32_t length) {
    if (dataFn != nullptr) {
        dataFn(context, data, static_cast<std::uint32_t>(length));
    }
}

// Reads and drops count bytes, stopping at the first read that comes up short; returns the
// number dropped.
std::int32_t discard(std::int32_t fd, char *scratch, std::int32_t count) {
    std::int32_t dropped = 0;
    while (dropped < count) {
        const std::int32_t want = std::min(count - dropped, kChunkBytes);
        const std::int32_t got = uSocketReadWithTimeout(fd, scratch, want, kHttpWaitSec);
        dropped += got;
        if (got < want) {
            break;
        }
    }
    return dropped;
}

} // namespace

extern "C" {

int32_t uSocketReadHttpData(int32_t fd, const char *boundary, void *context, uSocketDataFn dataFn) {
    const std::int64_t tailBytes = trailerBytes(boundary);
    const std::int64_t bufferBytes = tailBytes + kChunkBytes;
    if (!pu::net::selectable(fd) || bufferBytes > INT32_MAX) {
        return 0;
    }
    const auto tail = static_cast<std::int32_t>(tailBytes);
    const auto size = static_cast<std::int32_t>(bufferBytes);
    auto *buffer = static_cast<char *>(uMalloc(static_cast<std::uint32_t>(size)));
    if (buffer == nullptr) {
        return 0;
    }
    std::int32_t held = 0;
    std::int32_t delivered = 0;
    for (;;) {
        const std::int32_t want = size - held;
        const std::int32_t got = uSocketReadWithTimeout(fd, buffer + held, want, kHttpWaitSec);
        const std::int32_t have = held + got;
        if (have < tail) {
            break; // too short to hold a boundary line: the held bytes are not delivered
        }
        const std::int32_t ready = have - tail;
        delivered += ready;
        deliver(dataFn, context, buffer, ready);
        if (tail > 0) {
            std::memmove(buffer, buffer + ready, static_cast<size_t>(tail));
            held = tail;
        }
        if (got == want) {
            continue;
        }
        if (boundary != nullptr && !tailIsClosingBoundary(buffer, boundary)) {
            deliver(dataFn, context, buffer, held);
            delivered += tail;
        }
        break;
    }
    uFree(buffer);
    return delivered;
}

int32_t uSocketReadHttpDataWithSize(int32_t fd, const char *boundary, int32_t contentLength,
                                    void *context, uSocketDataFn dataFn) {
    if (contentLength < 1) {
        return 0;
    }
    const std::int64_t trailer = trailerBytes(boundary);
    const std::int64_t body = contentLength - trailer;
    if (body < 0 || !pu::net::selectable(fd)) {
        return 0;
    }
    auto *buffer = static_cast<char *>(uMalloc(kChunkBytes));
    if (buffer == nullptr) {
        return 0;
    }
    std::int32_t consumed = 0;
    do {
        const auto want =
            static_cast<std::int32_t>(std::min<std::int64_t>(body - consumed, kChunkBytes));
        const std::int32_t got = uSocketReadWithTimeout(fd, buffer, want, kHttpWaitSec);
        deliver(dataFn, context, buffer, got);
        if (got <= 0) {
            break;
        }
        consumed += got;
    } while (consumed < body);
    if (boundary != nullptr && consumed == body) {
        consumed += discard(fd, buffer, static_cast<std::int32_t>(trailer));
    }
    uFree(buffer);
    return consumed;
}

} // extern "C"
