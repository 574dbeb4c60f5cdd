// SPDX-License-Identifier: MIT
// One run at the real heartbeat: every timer fires without a manual pass.
#include "timer_harness.hpp"

#include <algorithm>
#include <chrono>

namespace pu::test {
namespace {

using Clock = std::chrono::steady_clock;

UpTime realUpTime(std::uint32_t extraSeconds = 0) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return {static_cast<std::uint32_t>(now.tv_sec) + extraSeconds,
            static_cast<std::uint32_t>(now.tv_nsec / 1000)};
}

struct Arrivals {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<std::uintptr_t, Clock::time_point>> seen;
};

Arrivals arrivals;

void arrive(void *arg) {
    std::lock_guard lock(arrivals.mutex);
    arrivals.seen.emplace_back(reinterpret_cast<std::uintptr_t>(arg), Clock::now());
    arrivals.changed.notify_all();
}

TEST_F(TimerTest, RealHeartbeatFiresEveryTimer) {
    {
        std::lock_guard lock(arrivals.mutex);
        arrivals.seen.clear();
    }
    // The simulated clock is brought to the real one before each switch, so neither switch
    // looks like a jump of the up-time to the timer task. Earlier tests may have run the
    // simulated clock anywhere, so this first step may be one.
    const UpTime now = realUpTime();
    platformSimSetUpTime(now.seconds, now.microseconds);
    platformSimHeartbeat();
    EventCounter updated("SYSTEM_TIME_UPDATED");
    platformSimSetManual(0);

    static constexpr std::int64_t kDelays[] = {40, 80, 160};
    const Clock::time_point added = Clock::now();
    Timers timers;
    for (std::uintptr_t i = 0; i < std::size(kDelays); ++i) {
        timers.keep(uTimerAdd(arrive, tag(i), kDelays[i]));
    }
    bool allArrived = false;
    {
        std::unique_lock lock(arrivals.mutex);
        allArrived = arrivals.changed.wait_for(lock, std::chrono::seconds(5), [] {
            return arrivals.seen.size() == std::size(kDelays);
        });
    }
    const UpTime ahead = realUpTime(1);
    platformSimSetUpTime(ahead.seconds, ahead.microseconds);
    platformSimSetManual(1);
    platformSimHeartbeat();

    // Only that every timer fires, within generous bounds, is asserted: exact lateness and the
    // order in which timers expiring in one pass reach the pool's threads depend on the
    // machine's load. Lateness is measured by the timer benchmark instead.
    ASSERT_TRUE(allArrived);
    std::lock_guard lock(arrivals.mutex);
    std::vector<std::uintptr_t> tags;
    for (const auto &arrival : arrivals.seen) {
        tags.push_back(arrival.first);
        // Generous: a timer may fire up to one heartbeat early (its delay counts from the last
        // pass) and late by whatever the machine's load adds.
        EXPECT_LT(arrival.second - added, std::chrono::milliseconds(4000));
    }
    std::sort(tags.begin(), tags.end());
    EXPECT_EQ(tags, (std::vector<std::uintptr_t>{0, 1, 2}));
    EXPECT_EQ(updated.count(), 0);
}

} // namespace
} // namespace pu::test
