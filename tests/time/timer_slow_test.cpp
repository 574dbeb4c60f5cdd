// SPDX-License-Identifier: MIT
// The real heartbeat: its period from the environment, and timers firing without a manual pass.
#include "timer_harness.hpp"

#include <chrono>
#include <cstdlib>
#include <thread>

namespace pu::test {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<int> beats{0};
void countBeat() {
    ++beats;
}

// The period is read when the heartbeat thread starts, once per process: each row runs in a
// fresh child. Bounds are generous (a loaded machine only delays beats); a period of 250 ms
// allows at most 5 beats a second, the default of 10 ms far more.
TEST(SlowHeartbeat, PeriodComesFromTheEnvironment) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *value;
        int atLeast, atMost;
    } rows[] = {
        {"250", 1, 5}, {"1000", 0, 2}, {"0", 10, 255}, {"abc", 10, 255}, {"60001", 10, 255}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.value);
        const auto beatsInASecond = [&] {
            setenv("PLATFORM_HEARTBEAT_MS", r.value, 1);
            osaSmRegisterApp("period-probe", countBeat);
            std::this_thread::sleep_for(std::chrono::milliseconds(1050));
            const int n = beats.load();
            std::_Exit(n >= r.atLeast && n <= r.atMost ? 0 : 1);
        };
        EXPECT_EXIT(beatsInASecond(), testing::ExitedWithCode(0), "");
    }
}

std::atomic<int> arrived{0};
void arrive(void *) {
    ++arrived;
}

TEST(SlowHeartbeat, RealHeartbeatFiresEveryTimer) {
    timerPowerHandle();
    // The simulated clock is brought to the real one before each switch, so neither switch
    // looks like a jump of the up-time to the timer task.
    auto syncToReal = [](std::uint32_t extra) {
        timespec now{};
        clock_gettime(CLOCK_BOOTTIME, &now);
        platformSimSetUpTime(static_cast<std::uint32_t>(now.tv_sec) + extra,
                             static_cast<std::uint32_t>(now.tv_nsec / 1000));
    };
    syncToReal(0);
    platformSimHeartbeat();
    EventCounter updated("SYSTEM_TIME_UPDATED");
    platformSimSetManual(0);
    Timers t;
    for (std::int64_t delay : {40, 80, 160}) {
        t.keep(uTimerAdd(arrive, nullptr, delay));
    }
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(5);
    while (arrived.load() < 3 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    syncToReal(1);
    platformSimSetManual(1);
    platformSimHeartbeat();
    EXPECT_EQ(arrived.load(), 3);
    EXPECT_EQ(updated.count, 0);
}

} // namespace
} // namespace pu::test
