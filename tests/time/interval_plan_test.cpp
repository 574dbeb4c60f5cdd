// SPDX-License-Identifier: MIT
// Interval plans on the simulated clock: callback sequences, counting, pause and resume in both
// waiting and running, operations a state does not allow, removal and id reuse, refused input,
// and several plans driven from several threads while their timers fire.
#include "timer_harness.hpp"

#include <log_capture.hpp>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace pu::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char *kModule = "basalt.utils.intervalPlan";

// Callback codes per plan id, in the order the callbacks ran.
struct Calls {
    std::mutex mutex;
    std::map<std::int32_t, std::vector<std::int32_t>> codes;
    std::vector<std::string> threads;
};

Calls &calls() {
    static Calls instance;
    return instance;
}

void recordCall(std::int32_t code, std::int32_t id) {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    std::lock_guard lock(calls().mutex);
    calls().codes[id].push_back(code);
    calls().threads.emplace_back(name);
}

// Waits for the queued callbacks, then returns what plan id has seen.
std::vector<std::int32_t> codesOf(std::int32_t id) {
    platformSimWaitPoolsIdle();
    std::lock_guard lock(calls().mutex);
    return calls().codes[id];
}

// Whether the plan still exists: only an unknown plan makes an operation log "invaild task!".
// Resume is the probe because it changes nothing for the unpaused plans it is used on here.
bool planExists(std::int32_t id) {
    LogCapture capture;
    uIntervalPlanResume(id);
    return capture.count(2, kModule, "uIntervalPlanResume, invaild task!") == 0;
}

// Runs one operation and waits for the callback it queued: callbacks queued back to back may
// run in any order.
std::int32_t settled(std::int32_t (*operation)(std::int32_t), std::int32_t id) {
    const std::int32_t result = operation(id);
    platformSimWaitPoolsIdle();
    return result;
}

class IntervalPlanTest : public TimerTest {
  protected:
    void SetUp() override {
        TimerTest::SetUp();
        {
            std::lock_guard lock(calls().mutex);
            calls().codes.clear();
            calls().threads.clear();
        }
        ASSERT_EQ(uIntervalPlanInit(), 0);
    }
    void TearDown() override {
        // Deleting every plan first also deletes the timers of waiting ones, which uninit
        // would leave armed for the next test.
        LogCapture quiet;
        for (std::int32_t id = 1; id <= 100; ++id) {
            uIntervalPlanDel(id);
        }
        platformSimWaitPoolsIdle();
        uIntervalPlanUninit();
    }
};

TEST_F(IntervalPlanTest, APlanRunsItsCountThenStopsAndIsRemoved) {
    const std::int32_t id = uIntervalPlanAdd(2, 10, recordCall);
    ASSERT_EQ(id, 1);
    EXPECT_THAT(codesOf(id), IsEmpty()); // nothing until started
    EXPECT_EQ(uIntervalPlanStart(id), 0);
    EXPECT_THAT(codesOf(id), ElementsAre(0));
    EXPECT_EQ(uIntervalPlanComplete(id), 0);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4));
    advance(9999);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4));
    advance(1); // the wait is over: the timer starts the next run
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 0));
    EXPECT_EQ(uIntervalPlanComplete(id), 0);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 0, 1));
    EXPECT_FALSE(planExists(id));
    {
        std::lock_guard lock(calls().mutex);
        for (const std::string &thread : calls().threads) {
            EXPECT_EQ(thread.rfind("tPool", 0), 0U) << thread; // never the caller's thread
        }
    }
    advance(20000);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 0, 1));
}

TEST_F(IntervalPlanTest, CountZeroFinishesAtTheFirstCompletion) {
    const std::int32_t id = uIntervalPlanAdd(0, 1, recordCall);
    settled(uIntervalPlanStart, id);
    settled(uIntervalPlanComplete, id);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 1));
    EXPECT_FALSE(planExists(id));
}

TEST_F(IntervalPlanTest, CountOneRunsOnceAndCountThreeThreeTimes) {
    const std::int32_t once = uIntervalPlanAdd(1, 1, recordCall);
    const std::int32_t thrice = uIntervalPlanAdd(3, 1, recordCall);
    settled(uIntervalPlanStart, once);
    settled(uIntervalPlanStart, thrice);
    LogCapture quiet;
    for (int run = 0; run < 3; ++run) {
        settled(uIntervalPlanComplete, once); // after the first run: no plan, logged
        settled(uIntervalPlanComplete, thrice);
        platformSimWaitPoolsIdle();
        advance(1000);
    }
    EXPECT_THAT(codesOf(once), ElementsAre(0, 1));
    EXPECT_THAT(codesOf(thrice), ElementsAre(0, 4, 0, 4, 0, 1));
}

TEST_F(IntervalPlanTest, PausingAWaitKeepsItsRestToTheMillisecond) {
    const std::int32_t id = uIntervalPlanAdd(3, 10, recordCall);
    settled(uIntervalPlanStart, id);
    settled(uIntervalPlanComplete, id);
    advance(2500);
    EXPECT_EQ(uIntervalPlanPause(id), 0); // 7.5 s of the wait left
    advance(60000);
    EXPECT_EQ(uIntervalPlanResume(id), 0);
    advance(7499);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4)); // no callback for pausing or resuming a wait
    advance(1);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 0));
}

TEST_F(IntervalPlanTest, PausingARunCallsBackBothWays) {
    // Callbacks queued back to back may run in any order, so each is awaited.
    const std::int32_t id = uIntervalPlanAdd(2, 1, recordCall);
    settled(uIntervalPlanStart, id);
    EXPECT_THAT(codesOf(id), ElementsAre(0));
    EXPECT_EQ(uIntervalPlanPause(id), 0);
    EXPECT_EQ(uIntervalPlanPause(id), -1);    // already paused
    EXPECT_EQ(uIntervalPlanComplete(id), -1); // a paused run cannot complete
    EXPECT_THAT(codesOf(id), ElementsAre(0, 3));
    EXPECT_EQ(uIntervalPlanResume(id), 0);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 3, 2));
    EXPECT_EQ(uIntervalPlanComplete(id), 0);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 3, 2, 4));
}

TEST_F(IntervalPlanTest, OperationsTheStateDoesNotAllowDoNothing) {
    const std::int32_t id = uIntervalPlanAdd(2, 5, recordCall);
    // An added plan cannot be deleted, paused, resumed or completed.
    EXPECT_EQ(uIntervalPlanDel(id), -1);
    EXPECT_EQ(uIntervalPlanPause(id), -1);
    EXPECT_EQ(uIntervalPlanResume(id), -1);
    EXPECT_EQ(uIntervalPlanComplete(id), -1);
    EXPECT_TRUE(planExists(id));
    EXPECT_THAT(codesOf(id), IsEmpty());

    settled(uIntervalPlanStart, id);
    EXPECT_EQ(uIntervalPlanStart(id), -1);  // running
    EXPECT_EQ(uIntervalPlanResume(id), -1); // running
    settled(uIntervalPlanComplete, id);
    EXPECT_EQ(uIntervalPlanComplete(id), -1); // waiting
    EXPECT_EQ(uIntervalPlanResume(id), -1);   // waiting
    settled(uIntervalPlanPause, id);
    EXPECT_EQ(uIntervalPlanPause(id), -1);    // paused wait
    EXPECT_EQ(uIntervalPlanStart(id), -1);    // paused wait
    EXPECT_EQ(uIntervalPlanComplete(id), -1); // paused wait
    advance(10000);                           // the wait's timer is gone while paused
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4));
}

TEST_F(IntervalPlanTest, DeletingStopsThePlanFromEveryStateButAdded) {
    const std::int32_t running = uIntervalPlanAdd(3, 5, recordCall);
    const std::int32_t runPaused = uIntervalPlanAdd(3, 5, recordCall);
    const std::int32_t waiting = uIntervalPlanAdd(3, 5, recordCall);
    const std::int32_t waitPaused = uIntervalPlanAdd(3, 5, recordCall);
    for (std::int32_t id : {running, runPaused, waiting, waitPaused}) {
        settled(uIntervalPlanStart, id);
    }
    settled(uIntervalPlanPause, runPaused);
    settled(uIntervalPlanComplete, waiting);
    settled(uIntervalPlanComplete, waitPaused);
    settled(uIntervalPlanPause, waitPaused);
    platformSimWaitPoolsIdle();
    for (std::int32_t id : {running, runPaused, waiting, waitPaused}) {
        EXPECT_EQ(uIntervalPlanDel(id), 0);
        EXPECT_FALSE(planExists(id)) << id;
        EXPECT_EQ(codesOf(id).back(), 1) << id;
    }
    advance(10000); // the waiting plan's timer went with it
    EXPECT_THAT(codesOf(waiting), ElementsAre(0, 4, 1));
}

TEST_F(IntervalPlanTest, ARemovedPlansIdComesBackWhenTheSearchWrapsRound) {
    const std::int32_t first = uIntervalPlanAdd(1, 0, recordCall);
    ASSERT_EQ(first, 1);
    settled(uIntervalPlanStart, first);
    settled(uIntervalPlanComplete, first);
    EXPECT_THAT(codesOf(first), ElementsAre(0, 1));
    for (std::int32_t expected = 2; expected <= 100; ++expected) {
        ASSERT_EQ(uIntervalPlanAdd(1, 0, recordCall), expected);
    }
    EXPECT_EQ(uIntervalPlanAdd(1, 0, recordCall), 1);
    LogCapture capture;
    EXPECT_EQ(uIntervalPlanAdd(1, 0, recordCall), -1); // all 100 in use
    EXPECT_EQ(capture.countContaining("basalt.utils.uidManager", "intervalPlanIdName"), 1);
}

TEST_F(IntervalPlanTest, ResumingAWaitWithNothingLeftStaysPaused) {
    // A wait of 0 s has 0 ms left until the next pass; paused then, there is nothing to re-arm.
    const std::int32_t id = uIntervalPlanAdd(2, 0, recordCall);
    settled(uIntervalPlanStart, id);
    settled(uIntervalPlanComplete, id);
    settled(uIntervalPlanPause, id);
    LogCapture capture;
    EXPECT_EQ(uIntervalPlanResume(id), 0);
    EXPECT_EQ(uIntervalPlanResume(id), 0); // still paused: the same row matches again
    EXPECT_EQ(capture.count(3, kModule,
                            "uIntervalPlanPause2ResumeProcess, invaild lastTimerRemainTime:0!"),
              2)
        << capture.dump();
    advance(1000);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4));
    EXPECT_EQ(uIntervalPlanDel(id), 0);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 1));
}

TEST_F(IntervalPlanTest, StartingAWaitingPlanByHandCancelsItsWait) {
    const std::int32_t id = uIntervalPlanAdd(3, 10, recordCall);
    settled(uIntervalPlanStart, id);
    settled(uIntervalPlanComplete, id);
    advance(5000);
    EXPECT_EQ(settled(uIntervalPlanStart, id), 0);
    settled(uIntervalPlanComplete, id); // a new wait of 10 s from here
    advance(5000);                      // the first wait would have ended here
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 0, 4));
    advance(5000);
    EXPECT_THAT(codesOf(id), ElementsAre(0, 4, 0, 4, 0));
}

// A callback may drive its own plan: callbacks run on the pool without the plan lock.
std::atomic<int> selfDrivenRuns{0};

void completeEachRun(std::int32_t code, std::int32_t id) {
    recordCall(code, id);
    if (code == U_INTERVAL_PLAN_STARTED) {
        selfDrivenRuns.fetch_add(1);
        uIntervalPlanComplete(id);
    }
}

TEST_F(IntervalPlanTest, ACallbackMayCompleteItsOwnRun) {
    selfDrivenRuns = 0;
    const std::int32_t id = uIntervalPlanAdd(3, 2, completeEachRun);
    uIntervalPlanStart(id);
    platformSimWaitPoolsIdle();
    EXPECT_EQ(selfDrivenRuns.load(), 1);
    advance(2000);
    EXPECT_EQ(selfDrivenRuns.load(), 2);
    advance(2000);
    EXPECT_EQ(selfDrivenRuns.load(), 3);
    advance(2000);
    EXPECT_EQ(selfDrivenRuns.load(), 3);
    const std::vector<std::int32_t> codes = codesOf(id);
    EXPECT_EQ(std::count(codes.begin(), codes.end(), 0), 3);
    EXPECT_EQ(std::count(codes.begin(), codes.end(), 4), 2);
    EXPECT_EQ(codes.back(), 1);
    EXPECT_FALSE(planExists(id));
}

TEST_F(IntervalPlanTest, RefusedInputIsLogged) {
    LogCapture capture;
    EXPECT_EQ(uIntervalPlanAdd(1, 1, nullptr), -1);
    EXPECT_EQ(uIntervalPlanAdd(-1, 1, recordCall), -1);
    EXPECT_EQ(uIntervalPlanAdd(1, -1, recordCall), -1);
    EXPECT_EQ(capture.count(2, kModule, "uIntervalPlanAdd, invaild param."), 3);

    using Operation = std::int32_t (*)(std::int32_t);
    const std::pair<const char *, Operation> operations[] = {
        {"uIntervalPlanStart", uIntervalPlanStart},
        {"uIntervalPlanDel", uIntervalPlanDel},
        {"uIntervalPlanPause", uIntervalPlanPause},
        {"uIntervalPlanResume", uIntervalPlanResume},
        {"uIntervalPlanComplete", uIntervalPlanComplete},
    };
    for (const auto &[name, operation] : operations) {
        EXPECT_EQ(operation(-1), -1);
        EXPECT_EQ(capture.count(2, kModule, std::string(name) + ", invaild param."), 1) << name;
        EXPECT_EQ(operation(42), -1);
        EXPECT_EQ(capture.count(2, kModule, std::string(name) + ", invaild task!"), 1) << name;
    }
}

TEST_F(IntervalPlanTest, IntervalsATimerCannotWaitAreRefusedAtAdd) {
    // 2,147,483 s is the longest wait a timer holds. Longer ones must not wrap: 4,294,968 s
    // would wait 0.7 s, and 3,000,000 s would never start the next run.
    const struct {
        std::int32_t interval;
        bool accepted;
    } cases[] = {
        {2'147'483, true},  {2'147'484, false}, {3'000'000, false},
        {4'294'968, false}, {INT32_MAX, false},
    };
    for (const auto &c : cases) {
        LogCapture capture;
        const std::int32_t id = uIntervalPlanAdd(2, c.interval, recordCall);
        if (!c.accepted) {
            EXPECT_EQ(id, -1) << c.interval;
            EXPECT_EQ(capture.count(2, kModule, "uIntervalPlanAdd, invaild param."), 1);
            continue;
        }
        ASSERT_GT(id, 0);
        settled(uIntervalPlanStart, id);
        settled(uIntervalPlanComplete, id);
        uTimerShow(); // the wait is armed for its whole length
        EXPECT_EQ(capture.countContaining("basalt.utils.timer", "expires=[2147483000]"), 1)
            << capture.dump();
        EXPECT_EQ(settled(uIntervalPlanDel, id), 0);
    }
}

TEST_F(IntervalPlanTest, NothingWorksBetweenUninitAndInit) {
    const std::int32_t id = uIntervalPlanAdd(1, 1, recordCall);
    uIntervalPlanStart(id);
    uIntervalPlanUninit();
    LogCapture capture;
    EXPECT_EQ(uIntervalPlanAdd(1, 1, recordCall), -1);
    EXPECT_EQ(capture.count(2, kModule, "uIntervalPlanAdd, list not init!"), 1);
    EXPECT_EQ(uIntervalPlanComplete(id), -1);
    EXPECT_EQ(capture.count(2, kModule, "uIntervalPlanComplete, invaild task!"), 1);
    EXPECT_THAT(codesOf(id), ElementsAre(0)); // removed without a callback

    ASSERT_EQ(uIntervalPlanInit(), 0);
    EXPECT_EQ(uIntervalPlanInit(), 0); // a second init changes nothing
    EXPECT_EQ(uIntervalPlanAdd(1, 1, recordCall), 1);
}

// Threads drive their own plans through every operation while the main thread lets time pass;
// callbacks of one plan may run in any order, so only the totals are checked.
TEST_F(IntervalPlanTest, SeveralPlansFromSeveralThreadsWhileTimersFire) {
    constexpr int kThreads = 4;
    constexpr int kPlansPerThread = 5;
    constexpr int kRuns = 3;
    constexpr int kRounds = 300;
    LogCapture quiet; // refused operations are expected here
    std::vector<std::vector<std::int32_t>> ids(kThreads);
    for (auto &own : ids) {
        for (int p = 0; p < kPlansPerThread; ++p) {
            own.push_back(uIntervalPlanAdd(kRuns, 1, recordCall));
            ASSERT_GT(own.back(), 0);
        }
    }
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&own = ids[t], &running] {
            for (std::int32_t id : own) {
                uIntervalPlanStart(id);
            }
            for (int round = 0; round < kRounds; ++round) {
                for (std::int32_t id : own) {
                    uIntervalPlanComplete(id);
                    if (round % 3 == 0) {
                        uIntervalPlanPause(id);
                        uIntervalPlanResume(id);
                    }
                }
                std::this_thread::yield();
            }
            for (std::int32_t id : own) { // whatever did not finish in time is stopped
                uIntervalPlanDel(id);
            }
            running.fetch_sub(1);
        });
    }
    while (running.load() > 0) {
        advance(250);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    advance(5000);
    for (const auto &own : ids) {
        for (std::int32_t id : own) {
            const std::vector<std::int32_t> codes = codesOf(id);
            EXPECT_EQ(std::count(codes.begin(), codes.end(), 1), 1) << id;
            EXPECT_LE(std::count(codes.begin(), codes.end(), 0), kRuns) << id;
            EXPECT_FALSE(planExists(id)) << id;
        }
    }
}

} // namespace
} // namespace pu::test
