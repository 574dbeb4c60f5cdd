// SPDX-License-Identifier: MIT
// The longest delays the timer service arms as asked. Timer delays are compared in 32 signed
// bits of milliseconds, and the seconds variants multiply by 1000 in 32 bits, so anything longer
// would be armed as a wrapped, much shorter (or refused) delay.
#pragma once

#include <cstdint>

namespace pu::timer {

inline constexpr std::int64_t kMaxDelayMs = INT32_MAX;
// 2,147,483 s, about 24.8 days.
inline constexpr std::int64_t kMaxDelaySeconds = kMaxDelayMs / 1000;

} // namespace pu::timer
