// SPDX-License-Identifier: MIT
// The simulated clock: manual up-time and heartbeats, built on the platform layer's up-time
// source, heartbeat pause and on-demand beat.
#include <platform_sim.h>

#include <atomic>
#include <cstdint>

namespace {

constexpr std::uint64_t kUsPerSecond = 1'000'000;
constexpr std::uint64_t kUnset = UINT64_MAX;

// Plain atomics with trivial destructors: the up-time source may be read by threads still
// running at exit.
std::atomic<bool> manualMode{false};
std::atomic<std::uint64_t> simulatedUs{kUnset};

std::uint64_t simulatedUpTime() {
    return simulatedUs.load(std::memory_order_relaxed);
}

// The simulated clock starts from the platform's up-time the first time anyone needs it. Until
// then the source is not installed, so osaGetSysUpTime reads the real clock.
void startSimulatedClockOnce() noexcept {
    if (simulatedUs.load(std::memory_order_relaxed) != kUnset) {
        return;
    }
    std::uint32_t seconds = 0;
    std::uint32_t microseconds = 0;
    osaGetSysUpTime(&seconds, &microseconds);
    std::uint64_t expected = kUnset;
    simulatedUs.compare_exchange_strong(expected, seconds * kUsPerSecond + microseconds,
                                        std::memory_order_relaxed);
}

} // namespace

void platformSimSetManual(int manual) {
    // Heartbeats stop before the clock switches and resume after it switches back, so no beat of
    // the heartbeat thread ever sees the simulated clock.
    if (manual != 0) {
        osaSmPauseHeartbeats(1);
        startSimulatedClockOnce();
        osaSetSysUpTimeSource(simulatedUpTime);
        manualMode.store(true, std::memory_order_release);
    } else {
        osaSetSysUpTimeSource(nullptr);
        manualMode.store(false, std::memory_order_release);
        osaSmPauseHeartbeats(0);
    }
}

int platformSimIsManual(void) {
    return manualMode.load(std::memory_order_acquire) ? 1 : 0;
}

void platformSimSetUpTime(uint32_t seconds, uint32_t microseconds) {
    simulatedUs.store(seconds * kUsPerSecond + microseconds, std::memory_order_relaxed);
}

void platformSimAdvanceMs(uint32_t ms) {
    platformSimAdvanceUs(static_cast<uint64_t>(ms) * 1000);
}

void platformSimAdvanceUs(uint64_t us) {
    startSimulatedClockOnce();
    simulatedUs.fetch_add(us, std::memory_order_relaxed);
}

void platformSimHeartbeat(void) {
    osaSmHeartbeat();
    taskThrPoolWaitIdle();
}

void platformSimWaitPoolsIdle(void) {
    taskThrPoolWaitIdle();
}

void platformSimSetTimeZoneOffset(int32_t seconds) {
    osaTimeZoneOffsetSet(seconds);
}

void platformSimClearTimeZoneOffset(void) {
    osaTimeZoneOffsetReset();
}

uint32_t platformSimTimeBaseUpdates(uint32_t *seconds, uint32_t *microseconds, uint32_t *stepMs) {
    return osaGetSysTimeBase(seconds, microseconds, stepMs);
}
