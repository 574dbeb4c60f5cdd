// SPDX-License-Identifier: MIT
// Up-time, the simulated clock, the time-zone offset and the recorded time base.
#include "log_capture.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

uint64_t bootTimeUs() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 +
           static_cast<uint64_t>(now.tv_nsec) / 1000;
}

uint64_t sysUpTimeUs() {
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    EXPECT_EQ(osaGetSysUpTime(&seconds, &microseconds), 0);
    EXPECT_LT(microseconds, 1'000'000u);
    return static_cast<uint64_t>(seconds) * 1'000'000 + microseconds;
}

// Leaves the process in real mode whatever the test did.
class SimClock : public ::testing::Test {
  protected:
    void TearDown() override {
        platformSimSetManual(0);
        platformSimClearTimeZoneOffset();
    }
};

TEST_F(SimClock, RealModeFollowsBootTime) {
    ASSERT_EQ(platformSimIsManual(), 0);
    uint64_t before = bootTimeUs();
    uint64_t upTime = sysUpTimeUs();
    uint64_t after = bootTimeUs();
    EXPECT_GE(upTime, before);
    EXPECT_LE(upTime, after);
    uint32_t ms = osaGetSysUpMs();
    EXPECT_LE(static_cast<uint32_t>(before / 1000), ms);
    EXPECT_EQ(osaGetSysUpTime(nullptr, nullptr), 0);
}

TEST_F(SimClock, FirstManualModeStartsAtTheRealUpTime) {
    // Needs a process that has never been in manual mode.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            uint64_t before = bootTimeUs();
            platformSimSetManual(1);
            uint64_t simulated = sysUpTimeUs();
            uint64_t after = bootTimeUs();
            std::exit(simulated >= before && simulated <= after && platformSimIsManual() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(SimClock, SetAndAdvance) {
    platformSimSetManual(1);
    EXPECT_EQ(platformSimIsManual(), 1);
    platformSimSetUpTime(100, 250'000);
    EXPECT_EQ(sysUpTimeUs(), 100'250'000u);
    EXPECT_EQ(osaGetSysUpMs(), 100'250u);
    EXPECT_EQ(sysUpTimeUs(), 100'250'000u) << "the simulated clock stands still";

    platformSimAdvanceMs(1500);
    EXPECT_EQ(osaGetSysUpMs(), 101'750u);
    platformSimAdvanceUs(999);
    EXPECT_EQ(sysUpTimeUs(), 101'750'999u);
    EXPECT_EQ(osaGetSysUpMs(), 101'750u) << "milliseconds round down";
    platformSimAdvanceUs(1);
    EXPECT_EQ(osaGetSysUpMs(), 101'751u);

    platformSimSetUpTime(50, 0);
    EXPECT_EQ(osaGetSysUpMs(), 50'000u) << "a set may go backwards";
}

TEST_F(SimClock, MillisecondsWrapAt32Bits) {
    platformSimSetManual(1);
    platformSimSetUpTime(4'294'967, 295'000); // 2^32 - 1 ms
    EXPECT_EQ(osaGetSysUpMs(), 0xFFFFFFFFu);
    platformSimAdvanceMs(1);
    EXPECT_EQ(osaGetSysUpMs(), 0u);
    platformSimAdvanceMs(10);
    EXPECT_EQ(osaGetSysUpMs(), 10u);
    uint32_t seconds = 0;
    osaGetSysUpTime(&seconds, nullptr);
    EXPECT_EQ(seconds, 4'294'967u) << "seconds do not wrap with the milliseconds";
}

TEST_F(SimClock, SimulatedTimeSurvivesLeavingManualMode) {
    platformSimSetManual(1);
    platformSimSetUpTime(7, 0);
    platformSimSetManual(0);
    EXPECT_EQ(platformSimIsManual(), 0);
    uint64_t real = sysUpTimeUs();
    EXPECT_NEAR(static_cast<double>(real), static_cast<double>(bootTimeUs()), 1e6);
    platformSimSetManual(1);
    EXPECT_EQ(sysUpTimeUs(), 7'000'000u);
}

TEST(TimeSpan, IsEndMinusStartWrapping) {
    EXPECT_EQ(osaLongTimeSpanCompute(100, 350), 250u);
    EXPECT_EQ(osaLongTimeSpanCompute(0xFFFFFFFFu, 0), 1u);
    EXPECT_EQ(osaLongTimeSpanCompute(0xFFFFFF00u, 0x10u), 0x110u);
    EXPECT_EQ(osaLongTimeSpanCompute(5, 3), 0xFFFFFFFEu) << "not clamped";
    EXPECT_EQ(osaLongTimeSpanCompute(9, 9), 0u);
}

// Restores TZ when the test ends.
class TimeZone : public ::testing::Test {
  protected:
    void SetUp() override {
        const char *tz = std::getenv("TZ");
        hadTz_ = tz != nullptr;
        savedTz_ = hadTz_ ? tz : "";
    }
    void TearDown() override {
        platformSimClearTimeZoneOffset();
        if (hadTz_) {
            setenv("TZ", savedTz_.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

  private:
    bool hadTz_ = false;
    std::string savedTz_;
};

TEST_F(TimeZone, FollowsTheCLibraryUnlessOverridden) {
    setenv("TZ", "UTC0", 1);
    EXPECT_EQ(osaTimeZoneOffsetGet(), 0);
    setenv("TZ", "EST5", 1);
    EXPECT_EQ(osaTimeZoneOffsetGet(), -5 * 3600) << "west of Greenwich is negative";
    setenv("TZ", "IST-5:30", 1);
    EXPECT_EQ(osaTimeZoneOffsetGet(), 5 * 3600 + 30 * 60);

    platformSimSetTimeZoneOffset(3600);
    EXPECT_EQ(osaTimeZoneOffsetGet(), 3600);
    platformSimSetTimeZoneOffset(-36000);
    EXPECT_EQ(osaTimeZoneOffsetGet(), -36000);
    platformSimSetTimeZoneOffset(0);
    EXPECT_EQ(osaTimeZoneOffsetGet(), 0);
    platformSimClearTimeZoneOffset();
    EXPECT_EQ(osaTimeZoneOffsetGet(), 5 * 3600 + 30 * 60);
}

TEST(TimeBase, RecordsEveryUpdateAndItsLastArguments) {
    pu::test::LogCapture log;
    uint32_t before = platformSimTimeBaseUpdates(nullptr, nullptr, nullptr);
    EXPECT_EQ(osaUpdateSysTimeBase(10, 20, 30), 0);
    EXPECT_EQ(osaUpdateSysTimeBase(1000, 999'999, 1500), 0);
    uint32_t seconds = 0;
    uint32_t microseconds = 0;
    uint32_t stepMs = 0;
    EXPECT_EQ(platformSimTimeBaseUpdates(&seconds, &microseconds, &stepMs), before + 2);
    EXPECT_EQ(seconds, 1000u);
    EXPECT_EQ(microseconds, 999'999u);
    EXPECT_EQ(stepMs, 1500u);
    ASSERT_EQ(log.countContaining("platform.os", "osaUpdateSysTimeBase"), 2) << log.dump();
    EXPECT_EQ(log.lines().back().level, PLATFORM_LOG_DEBUG);
}

} // namespace
