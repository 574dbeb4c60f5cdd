// SPDX-License-Identifier: MIT
// Local-time helpers shared by the time plan sources.
#pragma once

#include <ctime>

namespace pu::timeplan {

inline constexpr time_t kSecondsPerDay = 86400;

// localtime_r of t into tm; false when t cannot be represented.
bool localTm(time_t t, struct tm &tm);

// mktime of tm with the daylight-saving flag left for mktime to determine.
time_t makeLocalTime(struct tm tm);

// The broken-down local time of time(nullptr).
struct tm nowTm();

} // namespace pu::timeplan
