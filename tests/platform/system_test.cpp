// SPDX-License-Identifier: MIT
// The operating-system layer: the power manager's records and heartbeats, thread pools, the
// clock, the time-zone offset, numeric addresses, semaphores and message queues.
// The platform logger: the level from the environment and at run time, the line format and its
// newline around the line buffer, and the sink. And every line the platform layer logs.
#include "call_table.hpp"
#include "test_support.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

using pu::test::checkRows;

using Lines = std::vector<std::string>;

void collect(void *context, int level, const char *module, const char *message) {
    static_cast<Lines *>(context)->push_back(std::to_string(level) + "|" + module + "|" + message);
}

// The setting is read when the logger is first used, so each row runs in a fresh process.
TEST(LoggerEnvironment, LevelSettingAcceptsOnlyWholeNumbers) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *text; // null: not set
        int level;
    } cases[] = {
        {"2147483647", INT_MAX},
        {"2147483648", PLATFORM_LOG_WARNING},
        {"1x", PLATFORM_LOG_WARNING},
    };
    for (const auto &c : cases) {
        EXPECT_EXIT(
            {
                c.text != nullptr ? setenv("PLATFORM_LOG_LEVEL", c.text, 1)
                                  : unsetenv("PLATFORM_LOG_LEVEL");
                std::exit(platformLogGetLevel() == c.level ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << "PLATFORM_LOG_LEVEL=" << pu::test::orNull(c.text);
    }
}

// Each row is logged twice: to stderr, then to the application's sink that replaces it. Lines
// around the 1 KiB line buffer leave it for the heap.
TEST(Logger, LevelLineFormatAndTheSinkWithoutTheNewline) {
    const std::string edge(1017, 'x'); // "3 m: " + 1017 + newline + terminator fill 1 KiB exactly
    const struct {
        int threshold, level;
        const char *module;
        std::string message, line, handed; // line: on stderr, "" when filtered
    } cases[] = {
        {PLATFORM_LOG_WARNING, 3, "m", "two\n\n", "3 m: two\n\n", "3|m|two\n"},
        {PLATFORM_LOG_WARNING, 3, nullptr, "no module", "3 : no module\n", "3||no module"},
        {PLATFORM_LOG_WARNING, 3, "m", edge, "3 m: " + edge + "\n", "3|m|" + edge},
        {PLATFORM_LOG_WARNING, 3, "m", edge + "y\n", "3 m: " + edge + "y\n", "3|m|" + edge + "y"},
        {PLATFORM_LOG_ERROR, 2, "m", "below", "", ""},
        {PLATFORM_LOG_ERROR, 3, "m", "at", "3 m: at\n", "3|m|at"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line.substr(0, 20) + " (" + std::to_string(c.message.size()) + ")");
        const int before = platformLogSetLevel(c.threshold);
        EXPECT_EQ(platformLogGetLevel(), c.threshold);
        for (bool toSink : {false, true}) {
            Lines sink;
            platformLogSetSink(toSink ? collect : nullptr, &sink);
            CaptureStderr();
            const int written = basaltPrintLog(c.level, c.module, "%s", c.message.c_str());
            EXPECT_EQ(GetCapturedStderr(), toSink ? "" : c.line);
            EXPECT_EQ(written, static_cast<int>(c.line.size()));
            EXPECT_EQ(sink, toSink && !c.handed.empty() ? Lines{c.handed} : Lines{});
        }
        EXPECT_EQ(platformLogSetLevel(before), c.threshold) << "returns the previous";
    }
    platformLogSetSink(nullptr, nullptr);
}

// Every line the platform layer logs, exactly: applications watch for these texts.
TEST(LogCatalogue, PlatformMessages) {
    int app = 0;
    const auto line = [](const std::string &text) { return "0 platform.os: osaSm" + text; };
    const std::string registered = pu::test::logged([&] { app = osaSmRegisterApp("cat", [] {}); });
    pu::test::checkRows({
        {"register", registered,
         line("RegisterApp: app " + std::to_string(app) + " \"cat\" registered")},
        {"active", pu::test::logged([&] { osaSmAddActiveApp(app, 2); }),
         line("AddActiveApp: app " + std::to_string(app) + " active count 2")},
        {"inactive", pu::test::logged([&] { osaSmDelActiveApp(app); }),
         line("DelActiveApp: app " + std::to_string(app) + " active count 1")},
        {"wake-up", pu::test::logged([&] { osaSmAddWakeUpTimer(app, 4000000000u); }),
         line("AddWakeUpTimer: app " + std::to_string(app) + " wake-up in 4000000000 ms")},
        {"no wake-up", pu::test::logged([&] { EXPECT_EQ(osaSmDelWakeUpTimer(app), 0); }),
         line("DelWakeUpTimer: app " + std::to_string(app) + " wake-up cancelled")},
        {"time base", pu::test::logged([] { EXPECT_EQ(osaUpdateSysTimeBase(1000, 5, 1500), 0); }),
         "0 platform.os: osaUpdateSysTimeBase: time base 1000.000005 s re-based, step 1500 ms"},
    });
}

// Leaves the process in real mode whatever the test did.
class Sim : public ::testing::Test {
  protected:
    void TearDown() override {
        platformSimSetManual(0);
        platformSimClearTimeZoneOffset();
    }
};

// "delay/arms/cancels/active/peak", as recorded.
std::string state(int app) {
    PLATFORM_SM_APP_STATE s{};
    osaSmGetAppState(app, &s);
    return std::to_string(s.wakeUpDelayMs) + "/" + std::to_string(s.wakeUpArms) + "/" +
           std::to_string(s.wakeUpCancels) + "/" + std::to_string(s.activeCount) + "/" +
           std::to_string(s.activePeak);
}

TEST_F(Sim, RegistrationAndWhatThePowerManagerRecords) {
    const int first = osaSmRegisterApp("records", [] {}),
              app = osaSmRegisterApp("records 2", [] {});
    PLATFORM_SM_APP_STATE untouched{7, 7, 7, 7, 7};
    checkRows({
        {"no heartbeat", osaSmRegisterApp("no heartbeat", nullptr), -1},
        {"handles from 1, rising", first >= 1 && app > first, true},
        {"a full 32-bit delay", (osaSmAddWakeUpTimer(app, 0xFFFFFFFFu), state(app)),
         "4294967295/1/0/0/0"},
        {"cancel", (osaSmDelWakeUpTimer(app), state(app)), "-1/1/1/0/0"},
        {"active twice, once more",
         (osaSmAddActiveApp(app, 2), osaSmAddActiveApp(app, 1), state(app)), "-1/1/1/3/3"},
        {"inactive", (osaSmDelActiveApp(app), state(app)), "-1/1/1/2/3"},
        {"per application", state(first), "-1/0/0/0/0"},
        {"unknown application", osaSmAddWakeUpTimer(0, 10) + osaSmAddActiveApp(100000, 1), -2},
        {"unknown state", osaSmGetAppState(-1, &untouched) + untouched.activeCount, 6},
    });
}

// Never destroyed: the real heartbeat keeps calling the application after the test.
auto &gEvents = *new pu::test::CallRecorder<std::string>;

TEST_F(Sim, ManualHeartbeatRunsInOrderAndWaitsForThePassAndThePools) {
    platformSimSetManual(1);
    static const THR_POOL_ID pool = taskThrPoolCreate(1);
    static std::atomic<bool> poolCallDone{false};
    const int app = osaSmRegisterApp("observed", [] { gEvents.record("beat"); });
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
        const std::vector<std::string> seen = gEvents.values();
        gEvents.clear();
        return testing::PrintToString(seen);
    };
    checkRows({
        {"observer", osaSmSetPassObserver(app, begin, wait), 0},
        {"only in pairs", osaSmSetPassObserver(app, begin, nullptr), -1},
        {"beat", (gEvents.clear(), platformSimHeartbeat(), events()),
         R"({ "begin", "beat", "wait42" })"},
        {"after the pool's call", poolCallDone.load(), true},
        {"removed", osaSmSetPassObserver(app, nullptr, nullptr), 0},
        {"beat", (platformSimHeartbeat(), events()), R"({ "beat" })"},
    });
}

// Calls of one task id run on one worker, in the order they were queued, 0 included; in a pool
// of 4, id 104 shares the worker of 0.
TEST(ThreadPool, RefusesBadArgumentsAndKeepsEachIdInOrder) {
    const THR_POOL_ID pool = taskThrPoolCreate(4);
    checkRows({
        {"no threads", taskThrPoolCreate(0), 0},
        {"null fn", taskThrPoolAddTask(pool, nullptr, nullptr, -1), -1},
    });
    using Ran = std::vector<std::pair<int, std::thread::id>>; // number and worker of each call
    Ran ran[2]; // unlocked on purpose: same-id calls never overlap
    std::vector<std::pair<Ran *, int>> calls(2000);
    // The worker of 0 and 104 waits at a gate until every call is queued, so a call of id 0 that
    // went to the shared queue would run on another, idle worker.
    SEM_ID gate = semBCreate(0, SEM_EMPTY);
    taskThrPoolAddTask(
        pool, [](void *g) { semTake(*static_cast<SEM_ID *>(g), WAIT_FOREVER); }, &gate, 104);
    for (int n = 0; n < 2000; ++n) {
        calls[n] = {&ran[n % 2], n};
        taskThrPoolAddTask(
            pool,
            [](void *raw) {
                auto *call = static_cast<std::pair<Ran *, int> *>(raw);
                call->first->emplace_back(call->second, std::this_thread::get_id());
            },
            &calls[n], n % 2 == 0 ? 0 : 104);
    }
    semGive(gate);
    platformSimWaitPoolsIdle();
    semDelete(gate);
    for (const Ran &r : ran) {
        EXPECT_EQ(r.size(), 1000u);
        EXPECT_TRUE(std::is_sorted(r.begin(), r.end()));
        for (const auto &call : r) {
            ASSERT_EQ(call.second, ran[0][0].second) << "call " << call.first;
        }
    }
}

// "seconds.microseconds ms" of the up-time.
std::string upTime() {
    uint32_t seconds = 0, microseconds = 0;
    osaGetSysUpTime(&seconds, &microseconds);
    return std::to_string(seconds) + "." + std::to_string(microseconds) + " " +
           std::to_string(osaGetSysUpMs());
}

// The simulated clock wraps its milliseconds, not its seconds. The time-zone offset set at run
// time wins over TZ, 0 included, until it is reset.
TEST_F(Sim, TheClockWrapsAndTheTimeZoneOffset) {
    const char *saved = std::getenv("TZ");
    const std::string savedTz = saved != nullptr ? saved : "";
    setenv("TZ", "IST-5:30", 1);
    checkRows({
        {"rounded down, 2 ms before the wrap",
         (platformSimSetManual(1), platformSimSetUpTime(4'294'967, 294'999), upTime()),
         "4294967.294999 4294967294"},
        {"ms wrap, seconds not", (platformSimAdvanceUs(1001), upTime()), "4294967.296000 0"},
        {"span over the wrap", osaLongTimeSpanCompute(0xFFFFFF00u, 0x10u), 0x110},
        {"from TZ, east positive", osaTimeZoneOffsetGet(), 5 * 3600 + 30 * 60},
        {"set wins, 0 too", (osaTimeZoneOffsetSet(0), osaTimeZoneOffsetGet()), 0},
        {"reset", (osaTimeZoneOffsetReset(), osaTimeZoneOffsetGet()), 19800},
    });
    saved != nullptr ? setenv("TZ", savedTz.c_str(), 1) : unsetenv("TZ");
    tzset();
}

using Call = pu::test::BlockedCall<int>;

int send(MSG_Q_ID id, const std::string &text, int timeout = NO_WAIT, int priority = 0) {
    return msgQSend(id, text.data(), static_cast<uint32_t>(text.size()), timeout, priority);
}

std::string receive(MSG_Q_ID id, uint32_t size = 64) {
    std::string buffer(size, '\0');
    const int n = msgQReceive(id, buffer.data(), size, NO_WAIT);
    return n < 0 ? "<none>" : buffer.substr(0, static_cast<std::size_t>(n));
}

TEST(Blocking, GivesSendsReceivesAndDeletesEndTheWait) {
    const SEM_ID b = semBCreate(0, SEM_EMPTY), m = semMCreate(0), db = semBCreate(0, SEM_EMPTY);
    const MSG_Q_ID q = msgQCreate(1, 8, 0), full = msgQCreate(1, 8, 0);
    semTake(m, NO_WAIT);
    send(full, "x");
    char buffer[8];
    const auto take = [](SEM_ID id) { return [id] { return semTake(id, WAIT_FOREVER); }; };
    Call bTake(take(b)), mTake(take(m)), db1(take(db)), db2(take(db));
    Call qReceive([&] { return msgQReceive(q, buffer, sizeof buffer, 500); });
    Call fullSend([full] { return send(full, "y", WAIT_FOREVER); });
    int index = 0; // every call is waiting before anything wakes it
    for (const Call *call : {&bTake, &mTake, &db1, &db2, &qReceive, &fullSend}) {
        EXPECT_TRUE(call->stillBlocked()) << "call " << index++;
    }
    checkRows({
        {"a give wakes the binary taker", (semGive(b), bTake.result()), 0},
        {"two gives keep one", (semGive(b), semGive(b), semTake(b, NO_WAIT) + semTake(b, NO_WAIT)),
         -1},
        {"a give hands the mutex to its waiter", (semGive(m), mTake.result()), 0},
        {"which the first owner no longer holds", semGive(m), -1},
        {"a delete fails every taker", (semDelete(db), db1.result() + db2.result()), -2},
        {"a send wakes a timed receive", (send(q, "late"), qReceive.result()), 4},
        {"the message", std::string(buffer, 4), "late"},
        {"a receive makes room", receive(full), "x"},
        {"for the blocked send", fullSend.result(), 0},
    });
    semDelete(b);
    semDelete(m);
    msgQDelete(q);
    msgQDelete(full);
}

TEST(Handles, ZeroForgedDeletedAndOtherKindsFailAtOnce) {
    const SEM_ID deadB = semBCreate(0, SEM_FULL), sem = semBCreate(0, 1);
    const MSG_Q_ID deadQ = msgQCreate(2, 4, 0), queue = msgQCreate(1, 4, 0);
    semDelete(deadB);
    send(deadQ, "x");
    msgQDelete(deadQ);
    char buffer[4];
    for (uint32_t id : {0u, 0xFFFFFFFFu, deadB, deadQ}) {
        SCOPED_TRACE(id);
        checkRows({{"take", semTake(id, WAIT_FOREVER), -1},
                   {"give", semGive(id), -1},
                   {"delete", semDelete(id), -1},
                   {"send", send(id, "x", WAIT_FOREVER), -1},
                   {"receive", msgQReceive(id, buffer, 4, WAIT_FOREVER), -1},
                   {"count", msgQNumMsgs(id), -1},
                   {"delete", msgQDelete(id), -1}});
    }
    checkRows({{"a queue is no semaphore", semTake(queue, NO_WAIT) + semDelete(queue), -2},
               {"a semaphore no queue", msgQNumMsgs(sem) + msgQDelete(sem), -2},
               {"both untouched", msgQNumMsgs(queue) + semTake(sem, NO_WAIT), 0}});
    semDelete(sem);
    msgQDelete(queue);
}

// Most freed slots come back re-generated: stale handles stay dead. A full table refuses with 0
// (queues have a table of their own) and recovers once handles are deleted.
TEST(Handles, StaleHandlesStayDeadAndAFullTableRefusesWithZeroAndRecovers) {
    std::vector<SEM_ID> all, stale(3000);
    for (SEM_ID &id : stale) {
        id = semBCreate(0, SEM_FULL);
    }
    for (SEM_ID id : stale) {
        ASSERT_EQ(semDelete(id), 0);
    }
    for (SEM_ID id = semBCreate(0, SEM_FULL); id != 0 && all.size() < (1u << 20);
         id = semBCreate(0, SEM_FULL)) {
        all.push_back(id);
    }
    for (SEM_ID id : stale) {
        ASSERT_EQ(semTake(id, NO_WAIT), -1) << std::hex << id;
    }
    EXPECT_LT(all.size(), 1u << 20) << "the table has a limit";
    EXPECT_GT(all.size(), 100000u);
    EXPECT_EQ(semMCreate(0), 0u);
    EXPECT_EQ(msgQDelete(msgQCreate(1, 1, 0)), 0);
    for (SEM_ID id : all) {
        ASSERT_EQ(semTake(id, NO_WAIT) + semDelete(id), 0);
    }
    EXPECT_EQ(semDelete(semBCreate(0, SEM_FULL)), 0);
}

// Steps: "+t" sends t, "!t" sends t urgently, "-" receives. The record lists what each receive
// gave and "F" for each refused send.
TEST(MsgQ, OrderUrgencyAndBounds) {
    const struct {
        int messages, length;
        const char *steps, *record;
    } cases[] = {
        {3, 8, "+a - +b - +c !d - - +e !f - - -", "a b d c f e <none> "}, // urgent round the ring
        {2, 8, "+1 +2 +3 !3 - - -", "F F 1 2 <none> "},
        {4, 4, "+12345 +1234 + - -", "F 1234  "},
    };
    for (const auto &c : cases) {
        const MSG_Q_ID id = msgQCreate(c.messages, c.length, 0);
        std::istringstream steps(c.steps);
        std::string record;
        for (std::string step; steps >> step;) {
            if (step == "-") {
                record += receive(id) + " ";
            } else if (send(id, step.substr(1), NO_WAIT, step[0] == '!' ? MSG_PRI_URGENT : 0)) {
                record += "F ";
            }
        }
        EXPECT_EQ(record, c.record) << c.steps;
        EXPECT_EQ(msgQDelete(id), 0);
    }
    const MSG_Q_ID id = msgQCreate(4, 4, 0);
    checkRows({
        {"storage that cannot exist", msgQCreate(INT_MAX, INT_MAX, 0), 0},
        {"a short buffer cuts", (send(id, "1234"), receive(id, 2)), "12"},
        {"and the rest is gone", msgQNumMsgs(id), 0},
        {"null buffer takes nothing", (send(id, "x"), msgQReceive(id, nullptr, 4, NO_WAIT)), -1},
        {"still there", msgQNumMsgs(id), 1},
        {"with size 0 it takes it", msgQReceive(id, nullptr, 0, NO_WAIT) * 10 + msgQNumMsgs(id), 0},
        {"deleted", msgQDelete(id), 0},
    });
}

// Four threads create, use and delete handles (a deleted one stays dead while its slot is
// reused) and take a shared mutex recursively.
TEST(Concurrency, HandlesAndMutexesOnManyThreads) {
    std::atomic<int> failures{0};
    const SEM_ID shared = semMCreate(0);
    long counter = 0; // guarded only by the platform mutex
    pu::test::fanOut(4, [&](int t) {
        for (int i = 0; i < 3000; ++i) {
            const bool isQueue = (i + t) % 3 == 0;
            const uint32_t id = isQueue ? msgQCreate(2, 4, 0) : semBCreate(0, SEM_FULL);
            const bool used = isQueue ? msgQNumMsgs(id) == 0 : semTake(id, NO_WAIT) == 0;
            const int deleted = isQueue ? msgQDelete(id) : semDelete(id);
            const bool dead = isQueue ? msgQNumMsgs(id) == -1 : semTake(id, NO_WAIT) == -1;
            failures += id == 0 || !used || deleted != 0 || !dead;
            semTake(shared, WAIT_FOREVER);
            semTake(shared, WAIT_FOREVER); // re-entry, as nested list operations do
            ++counter;
            semGive(shared);
            semGive(shared);
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(counter, 4 * 3000);
    EXPECT_EQ(semDelete(shared), 0);
}

// Numeric IPv4 and IPv6 addresses only: no names, zones, brackets, ports or blanks.
TEST(SockAddr, NumericAddressesOnly) {
    for (const char *good : {"255.255.255.255", "::ffff:192.168.1.1"}) {
        EXPECT_NE(sockIsValidAddr(good), 0) << good;
    }
    for (const char *bad : {"localhost", "256.1.1.1", "fe80::1%eth0", "[::1]", "1.2.3.4:80",
                            static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(sockIsValidAddr(bad), 0) << pu::test::orNull(bad);
    }
}

// The heartbeat period comes from PLATFORM_HEARTBEAT_MS, read once when the heartbeat thread
// starts; anything that is not a number from 1 to 60000 leaves the default of 10 ms.
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
