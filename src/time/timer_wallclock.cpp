// SPDX-License-Identifier: MIT
// Timers bound to a calendar time, and the periodic look at the wall clock: the time-zone offset
// and the re-synchronisation of those timers after the wall clock has been set.
#include "time/timer_service.hpp"

#include <uevent.h>
#include <umem.h>

#include "core/log_modules.hpp"
#include "core/sem_lock.hpp"
#include "time/timer_limits.hpp"

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace {

using namespace pu::timer;
using pu::core::SemGuard;

constexpr std::uint32_t kMsPerSecond = 1000;
// A calendar-bound timer this close to expiry is left alone and forgotten.
constexpr std::uint32_t kResyncMinRemainMs = 1000;

std::uint32_t wallClockNow() {
    // Calendar seconds in 32 bits, as the event timers keep them.
    return static_cast<std::uint32_t>(std::time(nullptr));
}

void pollTimeZone(Service &s) {
    if (s.lastZoneOffset.load(std::memory_order_relaxed) == kZoneOffsetUnread) {
        s.lastZoneOffset.store(static_cast<std::uint32_t>(osaTimeZoneOffsetGet()),
                               std::memory_order_relaxed);
    }
    const auto offset = static_cast<std::uint32_t>(osaTimeZoneOffsetGet());
    if (s.lastZoneOffset.exchange(offset, std::memory_order_relaxed) != offset) {
        uEventRaise("TIME_ZONE_CHANGED", nullptr, 0);
    }
}

// Caller holds the timer mutex. True when the wall clock advanced with timer time since the last
// re-synchronisation, within a tenth of the timer time.
bool wallClockFollowedTimers(const Service &s, std::uint32_t now, std::uint32_t accumulatedMs) {
    const auto drift = static_cast<std::int32_t>(kMsPerSecond * now -
                                                 (accumulatedMs + kMsPerSecond * s.lastResync));
    return std::llabs(drift) < static_cast<long long>(accumulatedMs / 10);
}

// Caller holds the timer mutex (which the timer calls below take again). Moves every
// calendar-bound timer to its calendar time; entries whose timer is gone or about to fire are
// dropped (the timer itself still fires).
void resynchronise(Service &s, std::uint32_t now) {
    std::int32_t pos = 0;
    while (uListEol(s.eventTimers, pos) == 0) {
        auto *entry = static_cast<TimerEvent *>(uListGet(s.eventTimers, pos));
        if (uTimerRemainGet(entry->timerId) < kResyncMinRemainMs) {
            uListRemove(s.eventTimers, pos);
            uFree(entry);
            continue;
        }
        const auto secondsLeft = static_cast<std::int32_t>(entry->wallTime - now);
        uTimerRefreshSec(entry->timerId, static_cast<std::uint32_t>(std::max(0, secondsLeft)));
        ++pos;
    }
}

} // namespace

extern "C" {

uint32_t uTimerEventAdd(uTimerCallback callback, void *arg, uint32_t wallTime) {
    const std::uint32_t now = wallClockNow();
    // Further ahead (or behind) than a timer can wait, the seconds' product would wrap to an
    // unrelated delay: refused instead of firing at a wrong time.
    const std::int64_t secondsAhead = std::int64_t{wallTime} - std::int64_t{now};
    if (secondsAhead > pu::timer::kMaxDelaySeconds || secondsAhead < -pu::timer::kMaxDelaySeconds) {
        pu::log::warning(pu::log::kTimer, "%s: wall time out of range \n", "uTimerEventAdd");
        return 0;
    }
    ensureStarted();
    Service &s = service();
    // The timer task walks this list too; the timer mutex guards it.
    SemGuard guard(s.mutex);
    if (s.eventTimers == nullptr) {
        s.eventTimers = uListInit(0);
        if (s.eventTimers == nullptr) {
            return 0;
        }
    }
    auto *entry = static_cast<TimerEvent *>(uMalloc(sizeof(TimerEvent)));
    if (entry == nullptr) {
        pu::log::warning(pu::log::kTimer, "%s: malloc error \n", "uTimerEventAdd");
        return 0;
    }
    const std::uint32_t id = uTimerAddSecWithWakeup(callback, arg, wallTime - now);
    // Kept even without a timer (a time already past); the next re-synchronisation drops it.
    *entry = TimerEvent{wallTime, id};
    if (uListAppend(s.eventTimers, entry) < 0) {
        uFree(entry);
    }
    return id;
}

void checktimeoutCb(uint32_t accumulatedMs) {
    Service &s = service();
    pollTimeZone(s);
    if (!pu::timer::isStarted()) {
        return;
    }
    const std::uint32_t now = wallClockNow();
    SemGuard guard(s.mutex);
    if (uListSize(s.eventTimers) > 0 && !wallClockFollowedTimers(s, now, accumulatedMs)) {
        resynchronise(s, now);
    }
    s.lastResync = now;
}

} // extern "C"
