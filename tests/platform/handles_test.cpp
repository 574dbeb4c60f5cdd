// SPDX-License-Identifier: MIT
// Semaphores and message queues: ownership, merging, order, bounds, wake-ups, ticks, dead
// handles, and handles created, used and deleted from many threads at once.
#include "call_table.hpp"
#include "test_support.hpp"

#include <platform_os.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <climits>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using pu::test::checkRows;
using pu::test::fanOut;
using Call = pu::test::BlockedCall<int>;

int other(const std::function<int()> &call) {
    return std::async(std::launch::async, call).get();
}

int send(MSG_Q_ID id, const std::string &text, int timeout = NO_WAIT, int priority = 0) {
    return msgQSend(id, text.data(), static_cast<uint32_t>(text.size()), timeout, priority);
}

std::string receive(MSG_Q_ID id, uint32_t size = 64, int timeout = NO_WAIT) {
    std::string buffer(size, '\0');
    const int n = msgQReceive(id, buffer.data(), size, timeout);
    return n < 0 ? "<none>" : buffer.substr(0, static_cast<std::size_t>(n));
}

TEST(Semaphore, MutexIsRecursiveForItsOwnerOnlyAndBinaryKeepsOneGive) {
    const SEM_ID m = semMCreate(0), b = semBCreate(0, SEM_EMPTY), f = semBCreate(0, SEM_FULL);
    const auto otherTake = [m] { return other([m] { return semTake(m, NO_WAIT); }); };
    checkRows({
        {"give a mutex nobody holds", semGive(m), -1},
        {"take", semTake(m, NO_WAIT), 0},
        {"take again", semTake(m, NO_WAIT), 0},
        {"take a third time", semTake(m, WAIT_FOREVER), 0},
        {"another thread", otherTake(), -1},
        {"give 1 of 3", semGive(m), 0},
        {"give 2 of 3", semGive(m), 0},
        {"another thread, still held", otherTake(), -1},
        {"another thread gives", other([m] { return semGive(m); }), -1},
        {"give 3 of 3", semGive(m), 0},
        {"a fourth give", semGive(m), -1},
        {"another thread, free now", otherTake(), 0},
        {"held by that thread", semTake(m, NO_WAIT), -1},
        {"delete a held mutex", semDelete(m), 0},
        {"binary, empty", semTake(b, NO_WAIT), -1},
        {"give", semGive(b), 0},
        {"give again", semGive(b), 0},
        {"take", semTake(b, NO_WAIT), 0},
        {"two gives left one take", semTake(b, NO_WAIT), -1},
        {"another thread gives", other([b] { return semGive(b); }), 0},
        {"take", semTake(b, NO_WAIT), 0},
        {"full", semTake(f, NO_WAIT), 0},
        {"then empty", semTake(f, NO_WAIT), -1},
    });
    semDelete(b);
    semDelete(f);
}

TEST(Blocking, GivesSendsReceivesAndDeletesEndTheWait) {
    const SEM_ID b = semBCreate(0, SEM_EMPTY), m = semMCreate(0), db = semBCreate(0, SEM_EMPTY);
    const SEM_ID dm = semMCreate(0);
    const MSG_Q_ID q = msgQCreate(1, 8, 0), full = msgQCreate(1, 8, 0), dq = msgQCreate(1, 8, 0);
    const MSG_Q_ID dfull = msgQCreate(1, 8, 0);
    semTake(m, NO_WAIT);
    semTake(dm, NO_WAIT);
    send(full, "x");
    send(dfull, "x");
    char buffer[8];
    const auto take = [](SEM_ID id) { return [id] { return semTake(id, WAIT_FOREVER); }; };
    Call bTake(take(b)), mTake(take(m)), db1(take(db)), db2(take(db)), dmTake(take(dm));
    Call qReceive([&] { return msgQReceive(q, buffer, sizeof buffer, 500); });
    Call dqReceive([&] { return msgQReceive(dq, buffer, 4, WAIT_FOREVER); });
    Call fullSend([full] { return send(full, "y", WAIT_FOREVER); });
    Call dfullSend([dfull] { return send(dfull, "y", WAIT_FOREVER); });
    int index = 0; // every call is waiting before anything wakes it
    for (const Call *call :
         {&bTake, &mTake, &db1, &db2, &dmTake, &qReceive, &dqReceive, &fullSend, &dfullSend}) {
        EXPECT_TRUE(call->stillBlocked()) << "call " << index++;
    }
    checkRows({
        {"a give wakes the binary taker", (semGive(b), bTake.result()), 0},
        {"which consumed the give", semTake(b, NO_WAIT), -1},
        {"a give hands the mutex to its waiter", (semGive(m), mTake.result()), 0},
        {"who holds it now", semTake(m, NO_WAIT), -1},
        {"a delete fails every binary taker", (semDelete(db), db1.result() + db2.result()), -2},
        {"a delete fails the mutex waiter", (semDelete(dm), dmTake.result()), -1},
        {"the former owner's give", semGive(dm), -1},
        {"a send wakes a timed receive: byte count", (send(q, "late"), qReceive.result()), 4},
        {"the message", std::string(buffer, 4), "late"},
        {"a receive makes room", receive(full), "x"},
        {"for the blocked send", fullSend.result(), 0},
        {"which arrived", receive(full), "y"},
        {"a delete fails a blocked receive", (msgQDelete(dq), dqReceive.result()), -1},
        {"a delete fails a blocked send", (msgQDelete(dfull), dfullSend.result()), -1},
    });
    for (uint32_t id : {b, m}) {
        semDelete(id);
    }
    msgQDelete(q);
    msgQDelete(full);
}

TEST(Handles, ZeroForgedDeletedAndOtherKindsFailAtOnce) {
    const SEM_ID deadM = semMCreate(0), deadB = semBCreate(0, SEM_FULL), sem = semBCreate(0, 1);
    const MSG_Q_ID deadQ = msgQCreate(2, 4, 0), queue = msgQCreate(1, 4, 0);
    semDelete(deadM);
    semDelete(deadB);
    send(deadQ, "x");
    msgQDelete(deadQ);
    char buffer[4];
    for (uint32_t id : {0u, 0xFFFFFFFFu, 0xFFF00000u, 0x000FFFFFu, deadM, deadB, queue}) {
        SCOPED_TRACE(id);
        checkRows({{"take", semTake(id, WAIT_FOREVER), -1},
                   {"give", semGive(id), -1},
                   {"delete", semDelete(id), -1}});
    }
    for (uint32_t id : {0u, 0xFFFFFFFFu, 0x000FFFFFu, deadQ, sem}) {
        SCOPED_TRACE(id);
        checkRows({{"send", send(id, "x", WAIT_FOREVER), -1},
                   {"receive", msgQReceive(id, buffer, 4, WAIT_FOREVER), -1},
                   {"count", msgQNumMsgs(id), -1},
                   {"delete", msgQDelete(id), -1}});
    }
    checkRows({{"the queue is untouched", msgQNumMsgs(queue), 0},
               {"the semaphore too", semTake(sem, NO_WAIT), 0}});
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
    const MSG_Q_ID queue = msgQCreate(1, 1, 0);
    EXPECT_EQ(msgQDelete(queue), 0);
    for (SEM_ID id : all) {
        ASSERT_EQ(semTake(id, NO_WAIT) + semDelete(id), 0);
    }
    const SEM_ID again = semBCreate(0, SEM_FULL);
    EXPECT_EQ(semDelete(again), 0);
}

// Steps: "+t" sends t, "!t" sends t urgently, "-" receives. The record lists what each receive
// gave and "F" for each refused send.
TEST(MsgQ, OrderUrgencyAndBounds) {
    const struct {
        int messages, length;
        const char *steps, *record;
    } cases[] = {
        {4, 16, "+a +b !u1 !u2 - - - - -", "u2 u1 a b <none> "},
        {3, 8, "+a - +b - +c !d - - +e !f - -", "a b d c f e "}, // urgent round the ring
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
        {"no queues of 0 messages", msgQCreate(0, 8, 0), 0},
        {"or of 0 bytes", msgQCreate(4, 0, 0), 0},
        {"or negative sizes", msgQCreate(-1, 8, 0) + msgQCreate(4, -8, 0), 0},
        {"or storage that cannot exist", msgQCreate(INT_MAX, INT_MAX, 0), 0},
        {"send", send(id, "1234"), 0},
        {"null text", msgQSend(id, nullptr, 1, NO_WAIT, 0), -1},
        {"a short buffer cuts", receive(id, 2), "12"},
        {"and the rest is gone", msgQNumMsgs(id), 0},
        {"null buffer", (send(id, "x"), msgQReceive(id, nullptr, 4, NO_WAIT)), -1},
        {"takes nothing", msgQNumMsgs(id), 1},
        {"delete", msgQDelete(id), 0},
    });
}

TEST(SlowTicks, TimeOutsAndDelaysLastTheirTicks) {
    const SEM_ID empty = semBCreate(0, SEM_EMPTY), held = semMCreate(0);
    const MSG_Q_ID full = msgQCreate(1, 4, 0), none = msgQCreate(1, 4, 0);
    semTake(held, NO_WAIT);
    send(full, "x");
    char buffer[4];
    const struct {
        const char *name;
        std::function<int()> call;
        int result;
        long long ms;
    } cases[] = {
        {"no wait", [&] { return semTake(empty, NO_WAIT); }, -1, 0},
        {"ten ticks", [&] { return semTake(empty, 10); }, -1, 100},
        {"a mutex held elsewhere", [&] { return other([&] { return semTake(held, 5); }); }, -1, 50},
        {"a full queue", [&] { return send(full, "y", 5); }, -1, 50},
        {"an empty queue", [&] { return msgQReceive(none, buffer, 4, 5); }, -1, 50},
        {"delay", [] { return taskDelay(5); }, 0, 50},
        {"zero and negative delays yield", [] { return taskDelay(0) + taskDelay(-3); }, 0, 0},
    };
    for (const auto &c : cases) {
        int result = 0;
        const unsigned long before = tickGet();
        const auto start = std::chrono::steady_clock::now();
        result = c.call();
        const long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count();
        const long long ticks = static_cast<long long>(tickGet() - before);
        EXPECT_EQ(result, c.result) << c.name;
        EXPECT_GE(ms, c.ms * 9 / 10) << c.name;
        EXPECT_LT(ms, c.ms * 10 + 1000) << c.name;
        EXPECT_GE(ticks, c.ms / 10 - 1) << c.name;
        EXPECT_LE(ticks, ms / 10 + 2) << c.name;
    }
    EXPECT_EQ(sysClkRateGet(), 100);
    semDelete(empty);
    semDelete(held);
    msgQDelete(full);
    msgQDelete(none);
}

// Four threads create, use and delete handles, take a shared mutex recursively, and look up
// handles deleted a moment ago in slots that were reused; two more pass numbers through a
// small queue, in order.
TEST(Concurrency, HandlesMutexesAndQueuesOnManyThreads) {
    std::mutex mutex;
    std::set<uint32_t> live;
    std::atomic<int> failures{0};
    std::atomic<uint32_t> ids[16];
    for (auto &id : ids) {
        id.store(semMCreate(0));
    }
    const SEM_ID shared = semMCreate(0);
    const MSG_Q_ID queue = msgQCreate(3, sizeof(int), 0);
    long counter = 0; // guarded only by the platform mutex
    std::vector<int> received;
    fanOut(6, [&](int t) {
        for (int i = 0; i < 3000 && t < 4; ++i) {
            const bool isQueue = (i + t) % 3 == 0;
            const uint32_t id = isQueue ? msgQCreate(2, 4, 0) : semBCreate(0, SEM_FULL);
            {
                std::lock_guard lock(mutex);
                failures += id == 0 || !live.insert(id).second;
            }
            const bool used = isQueue ? msgQNumMsgs(id) == 0 : semTake(id, NO_WAIT) == 0;
            {
                std::lock_guard lock(mutex);
                live.erase(id);
            }
            const int deleted = isQueue ? msgQDelete(id) : semDelete(id);
            const bool dead = isQueue ? msgQNumMsgs(id) == -1 : semTake(id, NO_WAIT) == -1;
            failures += !used || deleted != 0 || !dead;
            semTake(shared, WAIT_FOREVER);
            semTake(shared, WAIT_FOREVER); // re-entry, as nested list operations do
            ++counter;
            semGive(shared);
            semGive(shared);
        }
        for (int i = 0; i < 20000 && t < 4; ++i) {
            auto &slot = ids[(i * 7 + t * 3) % 16];
            uint32_t id = slot.load();
            if (i % 16 == t) {
                const uint32_t fresh = semMCreate(0);
                semDelete(slot.compare_exchange_strong(id, fresh) ? id : fresh);
            } else if (semTake(id, 1) == 0 && semGive(id) != 0) {
                failures += semTake(id, NO_WAIT) != -1; // a give fails only once deleted
            }
        }
        for (int i = 0; i < 2000 && t >= 4; ++i) {
            int value = i;
            if (t == 4) {
                msgQSend(queue, reinterpret_cast<char *>(&value), sizeof value, WAIT_FOREVER, 0);
            } else if (msgQReceive(queue, reinterpret_cast<char *>(&value), 4, WAIT_FOREVER) == 4) {
                failures += value != static_cast<int>(received.size());
                received.push_back(value);
            }
        }
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(counter, 4 * 3000);
    EXPECT_EQ(received.size(), 2000u);
    EXPECT_EQ(semDelete(shared) + msgQDelete(queue), 0);
    for (auto &id : ids) {
        EXPECT_EQ(semDelete(id.load()), 0);
    }
}

} // namespace
