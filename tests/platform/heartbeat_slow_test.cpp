// SPDX-License-Identifier: MIT
// The heartbeat period comes from PLATFORM_HEARTBEAT_MS, read once when the heartbeat thread
// starts; anything that is not a number from 1 to 60000 leaves the default of 10 ms.
#include <platform_os.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<int> beats{0};

// Each row runs in a fresh child, as the period is read once per process. Bounds are generous
// (a loaded machine only delays beats): 250 ms allows at most 5 beats a second, 10 ms far more.
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
            osaSmRegisterApp("period-probe", [] { ++beats; });
            std::this_thread::sleep_for(std::chrono::milliseconds(1050));
            std::_Exit(beats >= r.atLeast && beats <= r.atMost ? 0 : 1);
        };
        EXPECT_EXIT(beatsInASecond(), testing::ExitedWithCode(0), "");
    }
}

} // namespace
