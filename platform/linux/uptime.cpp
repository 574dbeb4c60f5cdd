// SPDX-License-Identifier: MIT
// Up-time from CLOCK_BOOTTIME or an installed source, the recorded time base, and the time-zone
// offset.
#include "platform_internal.hpp"

#include <atomic>
#include <ctime>
#include <mutex>

namespace pu::platform {
namespace {

constexpr std::uint64_t kUsPerSecond = 1'000'000;

// Plain atomics with trivial destructors: safe to read from threads still running at exit.
std::atomic<PLATFORM_UPTIME_SOURCE> upTimeSource{nullptr};
std::atomic<bool> timeZoneOverridden{false};
std::atomic<std::int32_t> timeZoneOverride{0};

struct TimeBaseRecord {
    std::mutex mutex;
    std::uint32_t updates = 0;
    std::uint32_t seconds = 0;
    std::uint32_t microseconds = 0;
    std::uint32_t stepMs = 0;
};

TimeBaseRecord &timeBase() {
    static auto &record = *new TimeBaseRecord;
    return record;
}

std::uint64_t realUpTimeUs() noexcept {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * kUsPerSecond +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

std::uint64_t upTimeUs() noexcept {
    PLATFORM_UPTIME_SOURCE source = upTimeSource.load(std::memory_order_acquire);
    return source != nullptr ? source() : realUpTimeUs();
}

int32_t localTimeZoneOffset() noexcept {
    time_t now = time(nullptr);
    tm local{};
    tzset(); // pick up a TZ changed since the last call
    if (localtime_r(&now, &local) == nullptr) {
        return 0;
    }
    return static_cast<int32_t>(local.tm_gmtoff);
}

} // namespace

} // namespace pu::platform

using namespace pu::platform;

int osaGetSysUpTime(uint32_t *seconds, uint32_t *microseconds) {
    std::uint64_t now = upTimeUs();
    if (seconds != nullptr) {
        *seconds = static_cast<uint32_t>(now / kUsPerSecond);
    }
    if (microseconds != nullptr) {
        *microseconds = static_cast<uint32_t>(now % kUsPerSecond);
    }
    return 0;
}

uint32_t osaGetSysUpMs(void) {
    return static_cast<uint32_t>(upTimeUs() / 1000);
}

uint32_t osaLongTimeSpanCompute(uint32_t start, uint32_t end) {
    return end - start;
}

int osaUpdateSysTimeBase(uint32_t seconds, uint32_t microseconds, uint32_t stepMs) {
    guarded(0, [&] {
        TimeBaseRecord &record = timeBase();
        std::lock_guard lock(record.mutex);
        ++record.updates;
        record.seconds = seconds;
        record.microseconds = microseconds;
        record.stepMs = stepMs;
        return 0;
    });
    basaltPrintLog(PLATFORM_LOG_DEBUG, kLogModule,
                   "osaUpdateSysTimeBase: time base %u.%06u s re-based, step %u ms", seconds,
                   microseconds, stepMs);
    return 0;
}

int32_t osaTimeZoneOffsetGet(void) {
    if (timeZoneOverridden.load(std::memory_order_acquire)) {
        return timeZoneOverride.load(std::memory_order_relaxed);
    }
    return localTimeZoneOffset();
}

void osaSetSysUpTimeSource(PLATFORM_UPTIME_SOURCE source) {
    upTimeSource.store(source, std::memory_order_release);
}

uint32_t osaGetSysTimeBase(uint32_t *seconds, uint32_t *microseconds, uint32_t *stepMs) {
    return guarded(0u, [&] {
        TimeBaseRecord &record = timeBase();
        std::lock_guard lock(record.mutex);
        if (seconds != nullptr) {
            *seconds = record.seconds;
        }
        if (microseconds != nullptr) {
            *microseconds = record.microseconds;
        }
        if (stepMs != nullptr) {
            *stepMs = record.stepMs;
        }
        return record.updates;
    });
}

void osaTimeZoneOffsetSet(int32_t seconds) {
    timeZoneOverride.store(seconds, std::memory_order_relaxed);
    timeZoneOverridden.store(true, std::memory_order_release);
}

void osaTimeZoneOffsetReset(void) {
    timeZoneOverridden.store(false, std::memory_order_release);
}
