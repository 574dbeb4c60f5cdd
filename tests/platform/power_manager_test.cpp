// SPDX-License-Identifier: MIT
// The emulated power manager: heartbeats (real and manual) and the recorded requests.
#include "log_capture.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// Beats seen by the test's heartbeat functions. Registered functions stay registered for the
// rest of the process, so this state is never destroyed.
struct BeatLog {
    std::mutex mutex;
    std::condition_variable changed;
    int beats[2] = {0, 0};
    std::thread::id lastThread;
    std::vector<std::string> events; // only while recording
    bool recording = false;

    void beat(int which) {
        std::lock_guard lock(mutex);
        ++beats[which];
        lastThread = std::this_thread::get_id();
        if (recording) {
            events.push_back("beat" + std::to_string(which));
        }
        changed.notify_all();
    }

    int count(int which) {
        std::lock_guard lock(mutex);
        return beats[which];
    }

    // Waits (generously) until each function has beaten at least n more times than in start.
    bool waitForBeats(const int (&start)[2], int n) {
        std::unique_lock lock(mutex);
        return changed.wait_for(
            lock, 10s, [&] { return beats[0] >= start[0] + n && beats[1] >= start[1] + n; });
    }

    void record(std::string event) {
        std::lock_guard lock(mutex);
        events.push_back(std::move(event));
    }
};

BeatLog &beatLog() {
    static auto &log = *new BeatLog;
    return log;
}

int registeredHandles[2] = {0, 0};

void registerTestApps() {
    static bool done = [] {
        registeredHandles[0] = osaSmRegisterApp("test app 0", [] { beatLog().beat(0); });
        registeredHandles[1] = osaSmRegisterApp("test app 1", [] { beatLog().beat(1); });
        return true;
    }();
    (void)done;
}

class PowerManager : public ::testing::Test {
  protected:
    void SetUp() override { registerTestApps(); }
    void TearDown() override {
        osaSmSetPassObserver(registeredHandles[0], nullptr, nullptr);
        platformSimSetManual(0);
    }
};

TEST_F(PowerManager, RegistrationHandsOutHandlesFromOne) {
    EXPECT_GE(registeredHandles[0], 1);
    EXPECT_GT(registeredHandles[1], registeredHandles[0]);
    EXPECT_EQ(osaSmRegisterApp("no heartbeat", nullptr), -1);
}

TEST_F(PowerManager, HeartbeatThreadCallsEveryRegisteredFunction) {
    BeatLog &log = beatLog();
    int start[2] = {log.count(0), log.count(1)};
    ASSERT_TRUE(log.waitForBeats(start, 3)) << "the heartbeat thread did not call both";
    std::lock_guard lock(log.mutex);
    EXPECT_NE(log.lastThread, std::this_thread::get_id());
}

TEST_F(PowerManager, ManualModeStopsTheThreadAndHeartbeatsRunOnTheCaller) {
    BeatLog &log = beatLog();
    platformSimSetManual(1);
    int stopped[2] = {log.count(0), log.count(1)};
    // Ten heartbeat periods with nothing: real time is what is under test here.
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(log.count(0), stopped[0]);
    EXPECT_EQ(log.count(1), stopped[1]);

    platformSimHeartbeat();
    EXPECT_EQ(log.count(0), stopped[0] + 1);
    EXPECT_EQ(log.count(1), stopped[1] + 1);
    {
        std::lock_guard lock(log.mutex);
        EXPECT_EQ(log.lastThread, std::this_thread::get_id());
    }

    platformSimSetManual(0);
    int resumed[2] = {log.count(0), log.count(1)};
    EXPECT_TRUE(log.waitForBeats(resumed, 2)) << "real heartbeats did not resume";
}

std::atomic<bool> poolCallDone{false};

TEST_F(PowerManager, ManualHeartbeatRunsThePassObserverAndWaitsForPools) {
    BeatLog &log = beatLog();
    platformSimSetManual(1);
    static THR_POOL_ID pool = taskThrPoolCreate(2);
    osaSmSetPassObserver(
        registeredHandles[0],
        [] {
            beatLog().record("begin");
            // The pass queues work on a pool; the heartbeat must wait for it as well.
            taskThrPoolAddTask(
                pool,
                [](void *) {
                    std::this_thread::sleep_for(20ms);
                    poolCallDone.store(true);
                },
                nullptr, -1);
            return uint64_t{42};
        },
        [](uint64_t token) { beatLog().record("wait" + std::to_string(token)); });
    {
        std::lock_guard lock(log.mutex);
        log.events.clear();
        log.recording = true;
    }
    platformSimHeartbeat();
    EXPECT_TRUE(poolCallDone.load());
    std::lock_guard lock(log.mutex);
    log.recording = false;
    EXPECT_EQ(log.events, (std::vector<std::string>{"begin", "beat0", "beat1", "wait42"}));
}

TEST_F(PowerManager, WakeUpTimersAndActiveCountsAreRecorded) {
    pu::test::LogCapture capture;
    int app = registeredHandles[1];
    uint32_t arms = platformSimWakeUpArmCount(app);
    uint32_t cancels = platformSimWakeUpCancelCount(app);

    EXPECT_EQ(osaSmAddWakeUpTimer(app, 1500), 0);
    EXPECT_EQ(platformSimWakeUpDelay(app), 1500);
    EXPECT_EQ(osaSmAddWakeUpTimer(app, 0xFFFFFFFFu), 0);
    EXPECT_EQ(platformSimWakeUpDelay(app), 0xFFFFFFFFll) << "a full 32-bit delay, not -1";
    EXPECT_EQ(osaSmDelWakeUpTimer(app), 0);
    EXPECT_EQ(platformSimWakeUpDelay(app), -1);
    EXPECT_EQ(osaSmDelWakeUpTimer(app), 0) << "cancelling twice is recorded twice";
    EXPECT_EQ(platformSimWakeUpArmCount(app), arms + 2);
    EXPECT_EQ(platformSimWakeUpCancelCount(app), cancels + 2);
    EXPECT_EQ(platformSimWakeUpDelay(registeredHandles[0]), -1) << "per handle";

    int active = platformSimActiveAppCount(app);
    EXPECT_EQ(osaSmAddActiveApp(app, 2), 0);
    EXPECT_EQ(osaSmAddActiveApp(app, 1), 0);
    EXPECT_EQ(osaSmDelActiveApp(app), 0);
    EXPECT_EQ(platformSimActiveAppCount(app), active + 2);
    EXPECT_GE(platformSimActiveAppPeak(app), active + 3);

    EXPECT_EQ(capture.countContaining("platform.os", "wake-up in 1500 ms"), 1) << capture.dump();
    EXPECT_EQ(capture.countContaining("platform.os", "wake-up cancelled"), 2);
    EXPECT_EQ(capture.countContaining("platform.os", "osaSmAddActiveApp"), 2);
    for (const auto &line : capture.lines()) {
        EXPECT_EQ(line.level, PLATFORM_LOG_DEBUG) << line.message;
    }
}

TEST_F(PowerManager, UnknownHandlesAreRefused) {
    for (int bad : {0, -1, 100000}) {
        EXPECT_EQ(osaSmAddWakeUpTimer(bad, 10), -1);
        EXPECT_EQ(osaSmDelWakeUpTimer(bad), -1);
        EXPECT_EQ(osaSmAddActiveApp(bad, 1), -1);
        EXPECT_EQ(osaSmDelActiveApp(bad), -1);
        EXPECT_EQ(platformSimWakeUpDelay(bad), -1);
        EXPECT_EQ(platformSimWakeUpArmCount(bad), 0u);
        EXPECT_EQ(platformSimActiveAppCount(bad), 0);
        PLATFORM_SM_APP_STATE state{7, 7, 7, 7, 7};
        EXPECT_EQ(osaSmGetAppState(bad, &state), -1);
        EXPECT_EQ(state.activeCount, 7) << "left alone";
        EXPECT_EQ(osaSmSetPassObserver(
                      bad, [] { return uint64_t{0}; }, [](uint64_t) {}),
                  -1);
    }
    EXPECT_EQ(osaSmGetAppState(registeredHandles[0], nullptr), -1);
}

TEST_F(PowerManager, PassObserverComesInPairs) {
    // A begin whose token nobody waits for, or a wait with no token, is refused and leaves the
    // installed pair in place.
    static std::atomic<int> begins{0};
    auto begin = [] {
        ++begins;
        return uint64_t{0};
    };
    auto wait = [](uint64_t) {};
    const int app = registeredHandles[0];
    ASSERT_EQ(osaSmSetPassObserver(app, begin, wait), 0);
    EXPECT_EQ(osaSmSetPassObserver(app, begin, nullptr), -1);
    EXPECT_EQ(osaSmSetPassObserver(app, nullptr, wait), -1);
    platformSimSetManual(1);
    int before = begins.load();
    platformSimHeartbeat();
    EXPECT_EQ(begins.load(), before + 1);
    EXPECT_EQ(osaSmSetPassObserver(app, nullptr, nullptr), 0);
    platformSimHeartbeat();
    EXPECT_EQ(begins.load(), before + 1) << "removed";
}

} // namespace
