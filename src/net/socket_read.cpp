// SPDX-License-Identifier: MIT
// Readers of unknown amounts: everything until the peer goes quiet, and single lines.
#include <platform_os.h>
#include <umem.h>
#include <usocket.h>

#include "core/log_modules.hpp"
#include "net/socket_wait.hpp"

#include <cstdint>
#include <cstdlib>
#include <unistd.h>

namespace {

constexpr const char *kReadLimitName = "uSocketReadLimitWithoutSize";
constexpr std::int32_t kBlockBytes = 2048;
constexpr std::int32_t kReadBytes = 1024;
constexpr std::int32_t kFirstWaitSec = 60;
constexpr std::int32_t kLaterWaitSec = 15;
constexpr std::int32_t kNoLimit = -1;

constexpr char kLineFeed = '\n';
constexpr char kCarriageReturn = '\r';

} // namespace

extern "C" {

int32_t uSocketReadLimitWithoutSize(int32_t fd, char **out, int32_t limit) {
    if (out == nullptr || !pu::net::selectable(fd)) {
        return 0;
    }
    auto *buffer = static_cast<char *>(uMalloc(kBlockBytes));
    if (buffer == nullptr) {
        pu::log::error(pu::log::kSocket, "%s: malloc error", kReadLimitName);
        return 0;
    }
    std::int32_t blocks = 1;
    std::int32_t total = 0;
    std::int32_t waitSec = kFirstWaitSec;
    while (pu::net::waitReady(fd, pu::net::Readiness::kRead, waitSec)) {
        waitSec = kLaterWaitSec;
        const ssize_t got = read(fd, buffer + total, kReadBytes);
        if (got <= 0) {
            break;
        }
        total += static_cast<std::int32_t>(got);
        // Room for one more full read plus the terminator; the limit is looked at only here, so
        // a caller may get somewhat more than it asked for. That is intended.
        if (std::int64_t{total} + kReadBytes >= std::int64_t{blocks} * kBlockBytes) {
            if (limit != kNoLimit && total >= limit) {
                pu::log::error(pu::log::kSocket, "%s: read too much.", kReadLimitName);
                uFree(buffer);
                return -1;
            }
            // Counts are 32-bit: a buffer the count could not address is refused like a failed
            // realloc.
            const std::int64_t grownBytes = std::int64_t{blocks + 1} * kBlockBytes;
            void *grown = grownBytes <= INT32_MAX
                              ? std::realloc(buffer, static_cast<size_t>(grownBytes))
                              : nullptr;
            if (grown == nullptr) {
                pu::log::error(pu::log::kSocket, "%s: realloc error", kReadLimitName);
                uFree(buffer);
                return 0;
            }
            buffer = static_cast<char *>(grown);
            ++blocks;
        }
    }
    if (total == 0) {
        uFree(buffer);
        return 0;
    }
    buffer[total] = '\0';
    *out = buffer;
    return total;
}

int32_t uSocketReadWithoutSize(int32_t fd, char **out) {
    return uSocketReadLimitWithoutSize(fd, out, kNoLimit);
}

int32_t uSocketReadLine(int32_t fd, char *buffer, int32_t size) {
    if (buffer == nullptr || size < 1) {
        return -1;
    }
    std::int32_t count = 0;
    char byte = 0;
    while (uSocketReadNormalData(fd, &byte, 1) > 0) {
        if (byte == kLineFeed) {
            if (count > 0 && buffer[count - 1] == kCarriageReturn) {
                buffer[count - 1] = '\0';
                return count - 1;
            }
            buffer[count] = '\0';
            return count;
        }
        buffer[count++] = byte;
        if (count == size) {
            return count; // full: deliberately left unterminated, the caller must allow for it
        }
    }
    return count > 0 ? count : -1;
}

} // extern "C"
