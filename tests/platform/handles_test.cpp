// SPDX-License-Identifier: MIT
// Semaphores and message queues: ownership, merging, order, bounds, wake-ups, ticks, dead
// handles, and handles created, used and deleted from many threads at once.
#include "call_table.hpp"
#include "platform_test_util.hpp"
#include "test_support.hpp"

#include <platform_os.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using pu::test::checkRows;
using pu::test::fanOut;
using pu::test::startBlocked;

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
    const auto take = [](SEM_ID id) {
        return startBlocked([id] { return semTake(id, WAIT_FOREVER); });
    };
    auto bTake = take(b), mTake = take(m), db1 = take(db), db2 = take(db), dmTake = take(dm);
    auto qReceive = startBlocked([&] { return msgQReceive(q, buffer, sizeof buffer, 500); });
    auto dqReceive = startBlocked([&] { return msgQReceive(dq, buffer, 4, WAIT_FOREVER); });
    auto fullSend = startBlocked([full] { return send(full, "y", WAIT_FOREVER); });
    auto dfullSend = startBlocked([dfull] { return send(dfull, "y", WAIT_FOREVER); });
    checkRows({
        {"a give wakes the binary taker", (semGive(b), bTake.get()), 0},
        {"which consumed the give", semTake(b, NO_WAIT), -1},
        {"a give hands the mutex to its waiter", (semGive(m), mTake.get()), 0},
        {"who holds it now", semTake(m, NO_WAIT), -1},
        {"a delete fails every binary taker", (semDelete(db), db1.get() + db2.get()), -2},
        {"a delete fails the mutex waiter", (semDelete(dm), dmTake.get()), -1},
        {"the former owner's give", semGive(dm), -1},
        {"a send wakes a timed receive: byte count", (send(q, "late"), qReceive.get()), 4},
        {"the message", std::string(buffer, 4), "late"},
        {"a receive makes room", receive(full), "x"},
        {"for the blocked send", fullSend.get(), 0},
        {"which arrived", receive(full), "y"},
        {"a delete fails a blocked receive", (msgQDelete(dq), dqReceive.get()), -1},
        {"a delete fails a blocked send", (msgQDelete(dfull), dfullSend.get()), -1},
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

TEST(Handles, StaleHandlesStayDeadWhenTheirSlotsAreReused) {
    std::vector<SEM_ID> stale(3000), fresh(6000); // most freed slots come back, re-generated
    for (SEM_ID &id : stale) {
        id = semBCreate(0, SEM_FULL);
    }
    for (SEM_ID id : stale) {
        ASSERT_EQ(semDelete(id), 0);
    }
    for (SEM_ID &id : fresh) {
        id = semBCreate(0, SEM_FULL);
    }
    for (SEM_ID id : stale) {
        ASSERT_EQ(semTake(id, NO_WAIT), -1) << std::hex << id;
    }
    for (SEM_ID id : fresh) {
        ASSERT_EQ(semTake(id, NO_WAIT), 0);
        ASSERT_EQ(semDelete(id), 0);
    }
}

TEST(Handles, AFullTableRefusesWithZeroAndRecovers) {
    std::vector<SEM_ID> all;
    for (SEM_ID id = semBCreate(0, SEM_FULL); id != 0 && all.size() < (1u << 20);
         id = semBCreate(0, SEM_FULL)) {
        all.push_back(id);
    }
    EXPECT_LT(all.size(), 1u << 20) << "the table has a limit";
    EXPECT_GT(all.size(), 100000u);
    EXPECT_EQ(semMCreate(0), 0u);
    EXPECT_NE(msgQCreate(1, 1, 0), 0u) << "queues have a table of their own";
    for (SEM_ID id : all) {
        semDelete(id);
    }
    const SEM_ID again = semBCreate(0, SEM_FULL);
    EXPECT_NE(again, 0u);
    semDelete(again);
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
        {"one tick", [&] { return semTake(empty, 1); }, -1, 10},
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
        const long long ms = pu::test::elapsedMs([&] { result = c.call(); });
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

TEST(Concurrency, ProducerAndConsumerKeepOrderThroughASmallQueue) {
    const MSG_Q_ID id = msgQCreate(3, sizeof(int), 0);
    std::vector<int> received;
    fanOut(2, [&](int role) {
        for (int i = 0; i < 2000; ++i) {
            int value = i;
            if (role == 0) {
                msgQSend(id, reinterpret_cast<char *>(&value), sizeof value, WAIT_FOREVER, 0);
            } else if (msgQReceive(id, reinterpret_cast<char *>(&value), 4, WAIT_FOREVER) == 4) {
                received.push_back(value);
            }
        }
    });
    ASSERT_EQ(received.size(), 2000u);
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(received[static_cast<std::size_t>(i)], i);
    }
    EXPECT_EQ(msgQDelete(id), 0);
}

TEST(Concurrency, HandlesAreUniqueWhileLiveAndMutexesExclude) {
    std::mutex mutex;
    std::set<uint32_t> live;
    std::atomic<int> failures{0};
    const SEM_ID shared = semMCreate(0);
    long counter = 0; // guarded only by the platform mutex
    fanOut(4, [&](int t) {
        for (int i = 0; i < 3000; ++i) {
            const bool queue = (i + t) % 3 == 0;
            const uint32_t id = queue ? msgQCreate(2, 4, 0) : semBCreate(0, SEM_FULL);
            {
                std::lock_guard lock(mutex);
                failures += id == 0 || !live.insert(id).second;
            }
            const bool used = queue ? msgQNumMsgs(id) == 0 : semTake(id, NO_WAIT) == 0;
            {
                std::lock_guard lock(mutex);
                live.erase(id);
            }
            const int deleted = queue ? msgQDelete(id) : semDelete(id);
            const bool dead = queue ? msgQNumMsgs(id) == -1 : semTake(id, NO_WAIT) == -1;
            failures += !used || deleted != 0 || !dead;
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

// Lookups constantly meet handles deleted a moment ago and slots that were reused.
TEST(Concurrency, DeletesRacingWithTakesAndGives) {
    std::atomic<uint32_t> ids[16];
    for (auto &id : ids) {
        id.store(semMCreate(0));
    }
    std::atomic<int> failures{0};
    fanOut(4, [&](int t) {
        for (int i = 0; i < 20000; ++i) {
            auto &slot = ids[(i * 7 + t * 3) % 16];
            uint32_t id = slot.load();
            if (i % 16 == t) {
                const uint32_t fresh = semMCreate(0);
                semDelete(slot.compare_exchange_strong(id, fresh) ? id : fresh);
            } else if (semTake(id, 1) == 0 && semGive(id) != 0) {
                failures += semTake(id, NO_WAIT) != -1; // a give fails only once deleted
            }
        }
    });
    EXPECT_EQ(failures.load(), 0);
    for (auto &id : ids) {
        EXPECT_EQ(semDelete(id.load()), 0);
    }
}

} // namespace
