// SPDX-License-Identifier: MIT
// The power manager's records and heartbeats, spawned tasks, thread pools, the clocks, the
// time-zone offset and numeric addresses.
#include "call_table.hpp"
#include "test_support.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using pu::test::checkRows;

// Leaves the process in real mode whatever the test did.
class Sim : public ::testing::Test {
  protected:
    void TearDown() override {
        platformSimSetManual(0);
        platformSimClearTimeZoneOffset();
    }
};

// "delay/arms/cancels/active/peak", as recorded; "x" when the two ways of reading it disagree.
std::string state(int app) {
    PLATFORM_SM_APP_STATE s{};
    if (osaSmGetAppState(app, &s) != 0) {
        return "unknown";
    }
    const bool agree = platformSimWakeUpDelay(app) == s.wakeUpDelayMs &&
                       platformSimWakeUpArmCount(app) == s.wakeUpArms &&
                       platformSimWakeUpCancelCount(app) == s.wakeUpCancels &&
                       platformSimActiveAppCount(app) == s.activeCount &&
                       platformSimActiveAppPeak(app) == s.activePeak;
    return agree ? std::to_string(s.wakeUpDelayMs) + "/" + std::to_string(s.wakeUpArms) + "/" +
                       std::to_string(s.wakeUpCancels) + "/" + std::to_string(s.activeCount) + "/" +
                       std::to_string(s.activePeak)
                 : "x";
}

TEST_F(Sim, RegistrationAndWhatThePowerManagerRecords) {
    const int first = osaSmRegisterApp("records", [] {}),
              app = osaSmRegisterApp("records 2", [] {});
    checkRows({
        {"no heartbeat", osaSmRegisterApp("no heartbeat", nullptr), -1},
        {"handles from 1", first >= 1, true},
        {"rising", app > first, true},
        {"arm", (osaSmAddWakeUpTimer(app, 1500), state(app)), "1500/1/0/0/0"},
        {"a full 32-bit delay", (osaSmAddWakeUpTimer(app, 0xFFFFFFFFu), state(app)),
         "4294967295/2/0/0/0"},
        {"cancel", (osaSmDelWakeUpTimer(app), state(app)), "-1/2/1/0/0"},
        {"cancel returns 0", osaSmDelWakeUpTimer(app), 0},
        {"cancel again", state(app), "-1/2/2/0/0"},
        {"active twice", (osaSmAddActiveApp(app, 2), state(app)), "-1/2/2/2/2"},
        {"once more", (osaSmAddActiveApp(app, 1), state(app)), "-1/2/2/3/3"},
        {"inactive", (osaSmDelActiveApp(app), state(app)), "-1/2/2/2/3"},
        {"per application", state(first), "-1/0/0/0/0"},
        {"no state pointer", osaSmGetAppState(app, nullptr), -1},
    });
    for (int bad : {0, -1, 100000}) {
        SCOPED_TRACE(bad);
        PLATFORM_SM_APP_STATE untouched{7, 7, 7, 7, 7};
        checkRows({
            {"arm", osaSmAddWakeUpTimer(bad, 10), -1},
            {"cancel", osaSmDelWakeUpTimer(bad), -1},
            {"active", osaSmAddActiveApp(bad, 1), -1},
            {"inactive", osaSmDelActiveApp(bad), -1},
            {"observer",
             osaSmSetPassObserver(
                 bad, [] { return uint64_t{0}; }, [](uint64_t) {}),
             -1},
            {"state", osaSmGetAppState(bad, &untouched) + untouched.activeCount, 6},
            {"simulation",
             static_cast<long long>(platformSimWakeUpDelay(bad)) + platformSimWakeUpArmCount(bad) +
                 platformSimWakeUpCancelCount(bad) + platformSimActiveAppCount(bad) +
                 platformSimActiveAppPeak(bad),
             -1},
        });
    }
}

pu::test::CallRecorder<std::string> gEvents;
std::atomic<bool> gRecording{true}; // the functions stay registered after the test

TEST_F(Sim, ManualHeartbeatRunsInOrderAndWaitsForThePassAndThePools) {
    platformSimSetManual(1);
    static const THR_POOL_ID pool = taskThrPoolCreate(2);
    static std::atomic<bool> poolCallDone{false};
    const int app = osaSmRegisterApp("observed", [] {
        if (gRecording) {
            gEvents.record("beat0");
        }
    });
    osaSmRegisterApp("second", [] {
        if (gRecording) {
            gEvents.record("beat1");
        }
    });
    const auto begin = [] {
        gEvents.record("begin");
        taskThrPoolAddTask(
            pool,
            [](void *) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                poolCallDone = true;
            },
            nullptr, -1);
        return uint64_t{42};
    };
    const auto wait = [](uint64_t token) { gEvents.record("wait" + std::to_string(token)); };
    const auto events = [] {
        std::string out;
        for (const std::string &e : gEvents.values()) {
            out += e + " ";
        }
        gEvents.clear();
        return out;
    };
    checkRows({
        {"observer", osaSmSetPassObserver(app, begin, wait), 0},
        {"only in pairs", osaSmSetPassObserver(app, begin, nullptr), -1},
        {"only in pairs", osaSmSetPassObserver(app, nullptr, wait), -1},
        {"beat", (gEvents.clear(), platformSimHeartbeat(), events()), "begin beat0 beat1 wait42 "},
        {"after the pool's call", poolCallDone.load(), true},
        {"removed", osaSmSetPassObserver(app, nullptr, nullptr), 0},
        {"beat", (platformSimHeartbeat(), events()), "beat0 beat1 "},
    });
    gRecording = false;
}

TEST(SlowHeartbeat, TheThreadBeatsUnlessManualModeStopsIt) {
    // The application stays registered and beating until the process ends: never destroyed.
    static auto &beats = *new pu::test::CallRecorder<std::thread::id>;
    osaSmRegisterApp("slow beat", [] { beats.record(std::this_thread::get_id()); });
    ASSERT_TRUE(beats.waitFor(3)) << "the heartbeat thread did not call it";
    EXPECT_NE(beats.values().back(), std::this_thread::get_id());
    platformSimSetManual(1);
    const std::size_t stopped = beats.size();
    std::this_thread::sleep_for(std::chrono::milliseconds(100)); // ten periods
    EXPECT_EQ(beats.size(), stopped);
    platformSimHeartbeat();
    ASSERT_EQ(beats.size(), stopped + 1);
    EXPECT_EQ(beats.values().back(), std::this_thread::get_id()) << "beats on the caller";
    platformSimSetManual(0);
    EXPECT_TRUE(beats.waitFor(stopped + 3)) << "real heartbeats did not resume";
}

// The arguments and the thread name as one text; deep stack use shows the stack was raised.
int describeRun(intptr_t a1, intptr_t a2, intptr_t a3, intptr_t, intptr_t, intptr_t, intptr_t,
                intptr_t, intptr_t a9, intptr_t a10) {
    char name[32] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    volatile char deep[64 * 1024];
    std::memset(const_cast<char *>(deep), 0x5A, sizeof deep);
    reinterpret_cast<std::promise<std::string> *>(a10)->set_value(
        std::string(name) + " " + std::to_string(a1) + " " + std::to_string(a2) + " " +
        std::to_string(a3) + " " + std::to_string(a9 == INTPTR_MAX));
    return 0;
}

std::string spawn(const char *name, int stackSize) {
    std::promise<std::string> done;
    auto result = done.get_future();
    if (taskSpawn(name, 100, 0, stackSize, describeRun, 0, 1, -2, 0, 0, 0, 0, 0, INTPTR_MAX,
                  reinterpret_cast<intptr_t>(&done)) == 0) {
        return "not spawned";
    }
    return result.get();
}

TEST(TaskSpawn, RunsTheEntryWithItsArgumentsOnANamedThreadWithEnoughStack) {
    checkRows({
        {"named", spawn("tMonitor", 2048), "tMonitor 0 1 -2 1"},
        {"cut to 15", spawn("aVeryLongTaskNameIndeed", 1024), "aVeryLongTaskNa 0 1 -2 1"},
        {"negative stack", spawn("tNegative", -5), "tNegative 0 1 -2 1"},
        {"no entry", taskSpawn("tNull", 100, 0, 4096, nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), 0},
    });
}

struct SequencedCall {
    std::vector<int> *seen;
    std::set<std::thread::id> *threads; // a task id keeps to its own worker, 0 included
    int number;
};

TEST(ThreadPool, RefusesBadArgumentsAndKeepsEachIdInOrder) {
    const THR_POOL_ID pool = taskThrPoolCreate(4), sem = semBCreate(0, SEM_FULL);
    const auto fn = [](void *) {};
    checkRows({
        {"no threads", taskThrPoolCreate(0) + taskThrPoolCreate(-1), 0},
        {"null fn", taskThrPoolAddTask(pool, nullptr, nullptr, -1), -1},
        {"pool 0", taskThrPoolAddTask(0, fn, nullptr, -1), -1},
        {"no such pool", taskThrPoolAddTask(pool + 1, fn, nullptr, -1), -1},
        {"not a pool", taskThrPoolAddTask(sem, fn, nullptr, -1), -1},
    });
    semDelete(sem);
    const int taskIds[] = {0, 1, 2, 3, 104, 105}; // 104 and 105 share workers with 0 and 1
    std::vector<int> seen[6];
    std::set<std::thread::id> threads[6];
    std::vector<SequencedCall> calls;
    calls.reserve(6000);
    for (int n = 0; n < 1000; ++n) {
        for (int i = 0; i < 6; ++i) {
            calls.push_back({&seen[i], &threads[i], n});
            taskThrPoolAddTask(
                pool,
                [](void *raw) { // unlocked on purpose: same-id calls never overlap
                    auto *call = static_cast<SequencedCall *>(raw);
                    call->seen->push_back(call->number);
                    call->threads->insert(std::this_thread::get_id());
                },
                &calls.back(), taskIds[i]);
        }
    }
    platformSimWaitPoolsIdle();
    for (const auto &sequence : seen) {
        ASSERT_EQ(threads[&sequence - seen].size(), 1u) << "task id " << taskIds[&sequence - seen];
        ASSERT_EQ(sequence.size(), 1000u);
        for (int n = 0; n < 1000; ++n) {
            ASSERT_EQ(sequence[static_cast<std::size_t>(n)], n);
        }
    }
}

// Calls that hold their worker until all of them have arrived; each on a worker of its own.
struct Rendezvous {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::thread::id> threads;
    std::size_t expected = 0;

    static void arrive(void *raw) {
        auto *self = static_cast<Rendezvous *>(raw);
        std::unique_lock lock(self->mutex);
        self->threads.insert(std::this_thread::get_id());
        self->changed.notify_all();
        self->changed.wait_for(lock, std::chrono::seconds(10),
                               [&] { return self->threads.size() >= self->expected; });
    }
};

TEST(ThreadPool, SharedCallsSpreadOverIdleWorkers) {
    const std::vector<int> cases[] = {{-1, -1, -1}, {INT32_MIN, -7}};
    for (const std::vector<int> &taskIds : cases) {
        const THR_POOL_ID pool = taskThrPoolCreate(static_cast<int>(taskIds.size()));
        Rendezvous rendezvous;
        rendezvous.expected = taskIds.size();
        for (int id : taskIds) {
            taskThrPoolAddTask(pool, Rendezvous::arrive, &rendezvous, id);
        }
        platformSimWaitPoolsIdle();
        EXPECT_EQ(rendezvous.threads.size(), taskIds.size()) << "a call waited for a busy worker";
    }
}

long long bootTimeUs() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000;
}

// "seconds.microseconds ms" of the up-time.
std::string upTime() {
    uint32_t seconds = 0, microseconds = 0;
    osaGetSysUpTime(&seconds, &microseconds);
    return std::to_string(seconds) + "." + std::to_string(microseconds) + " " +
           std::to_string(osaGetSysUpMs());
}

TEST_F(Sim, TheClockRealAndSimulated) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a process that was never in manual mode
    EXPECT_EXIT(
        {
            const long long before = bootTimeUs();
            platformSimSetManual(1);
            uint32_t s = 0;
            uint32_t us = 0;
            osaGetSysUpTime(&s, &us);
            const long long simulated = s * 1'000'000LL + us;
            std::exit(simulated >= before && simulated <= bootTimeUs() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    uint32_t s = 0, us = 0;
    const long long before = bootTimeUs();
    osaGetSysUpTime(&s, &us);
    const long long real = s * 1'000'000LL + us;
    checkRows({
        {"real mode follows the boot clock", before <= real && real <= bootTimeUs(), true},
        {"null pointers", osaGetSysUpTime(nullptr, nullptr), 0},
        {"manual", (platformSimSetManual(1), platformSimIsManual()), 1},
        {"set", (platformSimSetUpTime(100, 250'000), upTime()), "100.250000 100250"},
        {"stands still", upTime(), "100.250000 100250"},
        {"advance", (platformSimAdvanceMs(1500), upTime()), "101.750000 101750"},
        {"ms round down", (platformSimAdvanceUs(999), upTime()), "101.750999 101750"},
        {"one more us", (platformSimAdvanceUs(1), upTime()), "101.751000 101751"},
        {"backwards", (platformSimSetUpTime(50, 0), upTime()), "50.0 50000"},
        {"2^32 - 1 ms", (platformSimSetUpTime(4'294'967, 295'000), upTime()),
         "4294967.295000 4294967295"},
        {"ms wrap, seconds not", (platformSimAdvanceMs(1), upTime()), "4294967.296000 0"},
        {"after the wrap", (platformSimAdvanceMs(10), upTime()), "4294967.306000 10"},
        {"real again", (platformSimSetUpTime(7, 0), platformSimSetManual(0), platformSimIsManual()),
         0},
        {"near the boot clock",
         std::llabs(bootTimeUs() - (osaGetSysUpTime(&s, &us), s * 1'000'000LL + us)) < 1'000'000,
         true},
        {"simulated time kept", (platformSimSetManual(1), upTime()), "7.0 7000"},
        {"span", osaLongTimeSpanCompute(100, 350), 250},
        {"span over the wrap", osaLongTimeSpanCompute(0xFFFFFFFFu, 0), 1},
        {"span over the wrap", osaLongTimeSpanCompute(0xFFFFFF00u, 0x10u), 0x110},
        {"a negative span wraps", osaLongTimeSpanCompute(5, 3), 0xFFFFFFFEu},
        {"no span", osaLongTimeSpanCompute(9, 9), 0},
    });
}

TEST_F(Sim, TimeZoneAndTimeBase) {
    const char *saved = std::getenv("TZ");
    const std::string savedTz = saved != nullptr ? saved : "";
    const auto zone = [](const char *tz) {
        setenv("TZ", tz, 1);
        return osaTimeZoneOffsetGet();
    };
    const uint32_t before = platformSimTimeBaseUpdates(nullptr, nullptr, nullptr);
    uint32_t a[3] = {}, b[3] = {};
    checkRows({
        {"UTC", zone("UTC0"), 0},
        {"west is negative", zone("EST5"), -5 * 3600},
        {"half hours", zone("IST-5:30"), 5 * 3600 + 30 * 60},
        {"set", (platformSimSetTimeZoneOffset(3600), zone("EST5")), 3600},
        {"set west", (osaTimeZoneOffsetSet(-36000), zone("UTC0")), -36000},
        {"set to 0", (osaTimeZoneOffsetSet(0), zone("EST5")), 0},
        {"reset", (osaTimeZoneOffsetReset(), zone("IST-5:30")), 19800},
        {"cleared", (osaTimeZoneOffsetSet(60), platformSimClearTimeZoneOffset(), zone("EST5")),
         -18000},
        {"update", osaUpdateSysTimeBase(10, 20, 30) + osaUpdateSysTimeBase(1000, 999'999, 1500), 0},
        {"count", platformSimTimeBaseUpdates(&a[0], &a[1], &a[2]) - before, 2},
        {"count", osaGetSysTimeBase(&b[0], &b[1], &b[2]) - before, 2},
        {"last", std::to_string(a[0]) + " " + std::to_string(a[1]) + " " + std::to_string(a[2]),
         "1000 999999 1500"},
        {"last", std::to_string(b[0]) + " " + std::to_string(b[1]) + " " + std::to_string(b[2]),
         "1000 999999 1500"},
    });
    saved != nullptr ? setenv("TZ", savedTz.c_str(), 1) : unsetenv("TZ");
    tzset();
}

TEST(SockIsValidAddr, AcceptsNumericIpv4AndIpv6Only) {
    for (const char *good : {"127.0.0.1", "0.0.0.0", "255.255.255.255", "::", "::1", "fe80::1",
                             "2001:db8::8a2e:370:7334", "::ffff:192.168.1.1"}) {
        EXPECT_NE(sockIsValidAddr(good), 0) << good;
    }
    for (const char *bad : std::initializer_list<const char *>{
             "", " ", "localhost", "256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.4 ", " 1.2.3.4",
             "01.2.3.4x", "::g", "1:2:3:4:5:6:7:8:9", "fe80::1%eth0", "[::1]", "1.2.3.4:80",
             nullptr}) {
        EXPECT_EQ(sockIsValidAddr(bad), 0) << pu::test::orNull(bad);
    }
}

} // namespace
