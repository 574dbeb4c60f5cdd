// SPDX-License-Identifier: MIT
// Waiting on one descriptor with select(), shared by the socket helpers that block.
#pragma once

#include <cstdint>

namespace pu::net {

enum class Readiness { kRead, kWrite };

// True when select() can watch fd: 0 <= fd < FD_SETSIZE. Anything else would index outside an
// fd_set, so such descriptors are refused before they reach select().
bool selectable(std::int32_t fd);

// One select() on fd alone for up to seconds (0 or less: a poll that does not block). True when
// fd is ready; false on time-out or error. EINTR is not retried: an interrupted wait ends a
// transfer like a time-out. A descriptor that is not selectable is never ready.
bool waitReady(std::int32_t fd, Readiness readiness, std::int32_t seconds);

// Per-wait time-out of the convenience wrappers, in seconds.
inline constexpr std::int32_t kNormalTimeoutSec = 15;

} // namespace pu::net
