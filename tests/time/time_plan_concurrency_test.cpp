// SPDX-License-Identifier: MIT
// Plans and pauses added, queried and deleted from several threads while plan timers fire and a
// time change arrives. Meant for ThreadSanitizer as much as for its assertions.
#include "time_plan_harness.hpp"

#include <log_capture.hpp>

#include <atomic>
#include <cstdio>
#include <thread>

namespace pu::test {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 300;
constexpr int kMaxLivePerThread = 20;

// "HH:MM:SS" of the wall clock plus seconds.
void timeOfDay(char (&text)[16], int seconds) {
    const std::time_t at = time(nullptr) + seconds;
    struct tm tm {};
    localtime_r(&at, &tm);
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", tm.tm_hour, tm.tm_min, tm.tm_sec);
}

// Start callbacks call back into the service, from pool threads and from adding threads.
void queryOnStart(void *arg) {
    std::int32_t value = 0;
    uTimePlanStatusQuery(static_cast<std::int32_t>(reinterpret_cast<std::intptr_t>(arg)), &value,
                         nullptr, nullptr);
    PlanCalls::onStart(arg);
}

class Churn {
  public:
    Churn(int index, std::atomic<int> &done) : index_(index), done_(done) {}

    // Plans that begin within a few seconds, so their timers fire while others are added.
    void operator()() {
        char group[] = "shared";
        for (int round = 0; round < kRounds; ++round) {
            char start[16];
            char end[16];
            timeOfDay(start, (round + index_) % 3);
            timeOfDay(end, 1 + (round + index_) % 3 + round % 4);
            uTimePlanInfo info = planInfo(start, end, 1, 0);
            info.startCb = queryOnStart;
            info.pauseModule = (round % 3 == 0) ? group : nullptr;
            const std::int32_t id = uTimePlanAdd(&info);
            if (id > 0) {
                live_.push_back(id);
            }
            std::int32_t value = 0;
            uTimePlanStatusQuery(id, &value, nullptr, nullptr);
            if (round % 4 == 0) {
                churnPause();
            }
            if (static_cast<int>(live_.size()) > kMaxLivePerThread || round % 2 == 1) {
                uTimePlanDel(live_.front());
                live_.erase(live_.begin());
            }
        }
        for (std::int32_t id : live_) {
            uTimePlanDel(id);
        }
        done_.fetch_add(1);
    }

  private:
    void churnPause() {
        uTimePlanPauseInfo req{};
        req.module = "shared";
        std::snprintf(req.pauseStartTime, sizeof req.pauseStartTime, "2026-11-23");
        std::snprintf(req.pauseEndTime, sizeof req.pauseEndTime, "2026-11-24");
        const std::int32_t id = uTimePlanPauseAdd(&req);
        std::this_thread::yield();
        req.pauseId = id;
        uTimePlanPauseDel(&req);
    }

    int index_;
    std::atomic<int> &done_;
    std::vector<std::int32_t> live_;
};

using TimePlanConcurrency = TimePlanTest;

TEST_F(TimePlanConcurrency, AddDeleteAndPauseWhileTimersFire) {
    setNow(localAt(2026, 11, 23, 9, 59, 55));
    LogCapture quiet; // pauses overlapping each other log
    std::atomic<int> done{0};
    std::vector<Churn> churns;
    for (int i = 0; i < kThreads; ++i) {
        churns.emplace_back(i, done);
    }
    std::vector<std::thread> threads;
    for (Churn &churn : churns) {
        threads.emplace_back(std::ref(churn));
    }
    for (int second = 0; done.load() < kThreads; ++second) {
        elapse(1);
        if (second % 20 == 10) {
            uTimerCheckSysTimeUpdated(); // time changes on top
        }
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    platformSimWaitPoolsIdle();

    EXPECT_GT(PlanCalls::instance().all().size(), 0U); // timers did fire meanwhile
    // Every plan and pause is gone and every id is free again.
    for (std::int32_t id = 1; id <= 1000; ++id) {
        EXPECT_EQ(status(id), 0) << id;
    }
    std::vector<std::int32_t> drawn;
    for (std::int32_t id; (id = uIdGetModuleAvailableUniqueId("timePlanIdName")) > 0;) {
        drawn.push_back(id);
    }
    EXPECT_EQ(drawn.size(), 1000U);
    for (std::int32_t id : drawn) {
        uIdReleaseModuleUniqueId("timePlanIdName", id);
    }
}

} // namespace
} // namespace pu::test
