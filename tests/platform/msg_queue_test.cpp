// SPDX-License-Identifier: MIT
// Message queues: order, urgency, bounds, time-outs and dead handles.
#include "platform_test_util.hpp"

#include <platform_os.h>

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <string>
#include <thread>

namespace {

using pu::test::elapsedMs;

int send(MSG_Q_ID id, const std::string &text, int timeout = NO_WAIT,
         int priority = MSG_PRI_NORMAL) {
    return msgQSend(id, text.data(), static_cast<uint32_t>(text.size()), timeout, priority);
}

// Receives one message without waiting; "<none>" when the queue is empty.
std::string receive(MSG_Q_ID id, uint32_t capacity = 64) {
    std::string buffer(capacity, '\0');
    int n = msgQReceive(id, buffer.data(), capacity, NO_WAIT);
    return n < 0 ? "<none>" : buffer.substr(0, static_cast<size_t>(n));
}

// Runs call on another thread, returning once that thread is (very likely) blocked in it.
template <typename Call> std::future<int> blockedCall(Call call) {
    std::promise<pid_t> started;
    auto tid = started.get_future();
    auto result = std::async(std::launch::async, [call, started = std::move(started)]() mutable {
        started.set_value(pu::test::currentTid());
        return call();
    });
    pu::test::waitUntilBlocked(tid.get());
    return result;
}

TEST(MsgQ, CreateRefusesNonPositiveSizes) {
    EXPECT_EQ(msgQCreate(0, 8, 0), 0u);
    EXPECT_EQ(msgQCreate(4, 0, 0), 0u);
    EXPECT_EQ(msgQCreate(-1, 8, 0), 0u);
    EXPECT_EQ(msgQCreate(4, -8, 0), 0u);
    EXPECT_EQ(msgQCreate(0x7FFFFFFF, 0x7FFFFFFF, 0), 0u) << "storage that cannot exist";
}

TEST(MsgQ, FifoWithUrgentMessagesAtTheHead) {
    MSG_Q_ID id = msgQCreate(4, 16, 0);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(send(id, "a"), 0);
    EXPECT_EQ(send(id, "b"), 0);
    EXPECT_EQ(send(id, "u1", NO_WAIT, MSG_PRI_URGENT), 0);
    EXPECT_EQ(send(id, "u2", NO_WAIT, MSG_PRI_URGENT), 0);
    EXPECT_EQ(msgQNumMsgs(id), 4);
    EXPECT_EQ(receive(id), "u2") << "the latest urgent message comes first";
    EXPECT_EQ(receive(id), "u1");
    EXPECT_EQ(receive(id), "a");
    EXPECT_EQ(receive(id), "b");
    EXPECT_EQ(receive(id), "<none>");

    // Around the end of the ring: the head has moved, urgent still goes before it.
    for (int round = 0; round < 6; ++round) {
        std::string n = std::to_string(round);
        ASSERT_EQ(send(id, "n" + n), 0);
        ASSERT_EQ(send(id, "u" + n, NO_WAIT, MSG_PRI_URGENT), 0);
        ASSERT_EQ(receive(id), "u" + n);
        ASSERT_EQ(receive(id), "n" + n);
    }
    EXPECT_EQ(msgQDelete(id), 0);
}

TEST(MsgQ, FullQueueRefusesOrWaits) {
    MSG_Q_ID id = msgQCreate(2, 8, 0);
    ASSERT_EQ(send(id, "1"), 0);
    ASSERT_EQ(send(id, "2"), 0);
    EXPECT_EQ(send(id, "3"), -1) << "no-wait send on a full queue";
    EXPECT_EQ(send(id, "3", NO_WAIT, MSG_PRI_URGENT), -1) << "urgent does not make room";
    long long ms = elapsedMs([&] { EXPECT_EQ(send(id, "3", 5), -1); });
    EXPECT_GE(ms, 45);
    EXPECT_LT(ms, 5000);
    EXPECT_EQ(msgQNumMsgs(id), 2);

    std::future<int> sender = blockedCall([id] { return send(id, "3", WAIT_FOREVER); });
    EXPECT_EQ(receive(id), "1");
    EXPECT_EQ(sender.get(), 0);
    EXPECT_EQ(receive(id), "2");
    EXPECT_EQ(receive(id), "3");
    EXPECT_EQ(msgQDelete(id), 0);
}

TEST(MsgQ, ReceiveTimesOutOnAnEmptyQueue) {
    MSG_Q_ID id = msgQCreate(2, 8, 0);
    char buffer[8];
    long long ms = elapsedMs([&] { EXPECT_EQ(msgQReceive(id, buffer, sizeof buffer, 5), -1); });
    EXPECT_GE(ms, 45);
    EXPECT_LT(ms, 5000);

    std::future<int> receiver =
        blockedCall([id, &buffer] { return msgQReceive(id, buffer, sizeof buffer, 500); });
    ASSERT_EQ(send(id, "late"), 0);
    EXPECT_EQ(receiver.get(), 4) << "a timed receive returns the byte count";
    EXPECT_EQ(std::string(buffer, 4), "late");
    EXPECT_EQ(msgQDelete(id), 0);
}

TEST(MsgQ, LengthLimits) {
    MSG_Q_ID id = msgQCreate(4, 4, 0);
    EXPECT_EQ(send(id, "12345"), -1) << "longer than the message size";
    EXPECT_EQ(msgQNumMsgs(id), 0);
    EXPECT_EQ(send(id, "1234"), 0);
    EXPECT_EQ(send(id, ""), 0) << "an empty message is a message";
    EXPECT_EQ(msgQSend(id, nullptr, 1, NO_WAIT, MSG_PRI_NORMAL), -1);

    char small[2] = {'x', 'x'};
    EXPECT_EQ(msgQReceive(id, small, sizeof small, NO_WAIT), 2) << "cut to the buffer";
    EXPECT_EQ(std::string(small, 2), "12");
    EXPECT_EQ(msgQNumMsgs(id), 1) << "the cut message is gone, rest included";
    EXPECT_EQ(msgQReceive(id, small, sizeof small, NO_WAIT), 0);
    EXPECT_EQ(msgQReceive(id, nullptr, 4, NO_WAIT), -1);
    EXPECT_EQ(msgQDelete(id), 0);
}

TEST(MsgQ, HandlesOfOtherKindsAreNotQueues) {
    SEM_ID sem = semBCreate(0, SEM_FULL);
    MSG_Q_ID queue = msgQCreate(1, 4, 0);
    EXPECT_EQ(msgQNumMsgs(sem), -1);
    EXPECT_EQ(msgQDelete(sem), -1);
    EXPECT_EQ(semTake(queue, NO_WAIT), -1);
    EXPECT_EQ(semDelete(queue), -1);
    EXPECT_EQ(msgQNumMsgs(queue), 0);
    EXPECT_EQ(semTake(sem, NO_WAIT), 0);
    EXPECT_EQ(semDelete(sem), 0);
    EXPECT_EQ(msgQDelete(queue), 0);
}

TEST(MsgQ, ZeroAndDeletedHandlesFail) {
    char buffer[4] = {};
    MSG_Q_ID dead = msgQCreate(2, 4, 0);
    ASSERT_EQ(send(dead, "x"), 0);
    ASSERT_EQ(msgQDelete(dead), 0);
    for (MSG_Q_ID id : {MSG_Q_ID{0}, dead}) {
        EXPECT_EQ(msgQSend(id, "x", 1, WAIT_FOREVER, MSG_PRI_NORMAL), -1);
        EXPECT_EQ(msgQReceive(id, buffer, sizeof buffer, WAIT_FOREVER), -1);
        EXPECT_EQ(msgQNumMsgs(id), -1);
        EXPECT_EQ(msgQDelete(id), -1);
    }
}

TEST(MsgQ, DeleteWakesReceiversAndSenders) {
    MSG_Q_ID empty = msgQCreate(1, 4, 0);
    char buffer[4];
    std::future<int> receiver =
        blockedCall([empty, &buffer] { return msgQReceive(empty, buffer, 4, WAIT_FOREVER); });
    ASSERT_EQ(msgQDelete(empty), 0);
    EXPECT_EQ(receiver.get(), -1);

    MSG_Q_ID full = msgQCreate(1, 4, 0);
    ASSERT_EQ(send(full, "x"), 0);
    std::future<int> sender = blockedCall([full] { return send(full, "y", WAIT_FOREVER); });
    ASSERT_EQ(msgQDelete(full), 0);
    EXPECT_EQ(sender.get(), -1);
}

TEST(MsgQ, ProducerAndConsumerKeepOrderThroughASmallQueue) {
    MSG_Q_ID id = msgQCreate(3, sizeof(int), 0);
    constexpr int kCount = 2000;
    std::thread producer([id] {
        for (int i = 0; i < kCount; ++i) {
            ASSERT_EQ(msgQSend(id, reinterpret_cast<const char *>(&i), sizeof i, WAIT_FOREVER,
                               MSG_PRI_NORMAL),
                      0);
        }
    });
    for (int i = 0; i < kCount; ++i) {
        int value = -1;
        ASSERT_EQ(msgQReceive(id, reinterpret_cast<char *>(&value), sizeof value, WAIT_FOREVER),
                  static_cast<int>(sizeof value));
        ASSERT_EQ(value, i);
    }
    producer.join();
    EXPECT_EQ(msgQDelete(id), 0);
}

} // namespace
