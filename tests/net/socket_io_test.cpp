// SPDX-License-Identifier: MIT
// Reads and writes with time-outs over loopback connections, and the refusal of descriptors
// that select() cannot watch.
#include <umem.h>
#include <usocket.h>

#include "socket_test_util.hpp"

namespace pu::test {
namespace {

TEST(SocketReadWithTimeout, ShortCountsWithoutWaitingForQuietClosedOrPollingReads) {
    Connection c = connectLoopback();
    char buffer[128] = {};
    const auto start = std::chrono::steady_clock::now();
    // Length, time-out (0 or less: no wait), then the result; a wait would take whole seconds.
    using Row = std::tuple<std::int32_t, std::int32_t, std::int32_t>;
    for (const auto &[length, timeout, result] :
         {Row{10, 0, 0}, Row{10, -5, 0}, Row{0, 60, 0}, Row{-1, 60, 0}}) {
        EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, length, timeout), result);
    }
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), nullptr, 10, 60), 0);
    sendAndFinish(c, "0123456789abc");
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 10, 0),
              10); // a poll takes what is there
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer + 10, 100, 60), 3); // end of stream
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 60), 0);
    EXPECT_STREQ(buffer, "0123456789abc");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
}

TEST(SlowSocketReadWithTimeout, ATimeOutOfOneSecondEndsAPartialRead) {
    Connection c = connectLoopback();
    sendAll(c.far.get(), "ten bytes!");
    char buffer[100];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 1), 10);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}

TEST(SocketWriteWithTimeout, ContinuesPartialWritesAndStopsShortWhenTheReaderStallsOrGoes) {
    Connection slow = connectLoopback(4096), stalled = connectLoopback(4096),
               gone = connectLoopback(4096);
    const std::string data = pattern(600000, 7);
    const auto size = static_cast<std::int32_t>(data.size());
    std::thread reader([&] {
        std::string got(data.size(), '\0');
        EXPECT_EQ(uSocketReadNormalData(slow.far.get(), got.data(), size), size);
        EXPECT_TRUE(got == data);
    });
    EXPECT_EQ(uSocketSafeWriteData(slow.near.get(), data.data(), size), size);
    reader.join();
    const std::int32_t fitted = uSocketWriteWithTimeout(stalled.near.get(), data.data(), size, 0);
    EXPECT_GT(fitted, 0); // what fits, then the first wait finds no room
    EXPECT_LT(fitted, size);
    gone.far.reset(); // a short count instead of a signal that ends the process
    EXPECT_LT(uSocketWriteWithTimeout(gone.near.get(), data.data(), size, 1), size);
    EXPECT_EQ(uSocketWriteWithTimeout(slow.near.get(), data.data(), 0, 1), 0);
    EXPECT_EQ(uSocketWriteWithTimeout(slow.near.get(), nullptr, 10, 1), 0);
}

std::int32_t countPiece(void *calls, const char *, std::uint32_t) {
    return ++*static_cast<int *>(calls);
}

// Every helper refuses such descriptors at once, without touching the socket (its data is
// still there afterwards) and without writing outside an fd_set.
TEST(SocketDescriptorGuard, DescriptorsBeyondSelectCapacityAreRefused) {
    if (!allowDescriptorsUpTo(FD_SETSIZE + 17)) {
        GTEST_SKIP() << "the hard descriptor limit is below " << FD_SETSIZE + 17;
    }
    Connection c = connectLoopback();
    sendAndFinish(c, "line\n");
    const Fd high(dup2(c.near.get(), FD_SETSIZE + 17));
    ASSERT_EQ(high.get(), FD_SETSIZE + 17);
    char buffer[16] = {}, *out = buffer;
    int pieces = 0;
    for (int fd : {high.get(), FD_SETSIZE, -1}) {
        SCOPED_TRACE(fd);
        EXPECT_EQ(uSocketReadWithTimeout(fd, buffer, 5, 1) + uSocketReadNormalData(fd, buffer, 5),
                  0);
        EXPECT_EQ(uSocketWriteWithTimeout(fd, "x", 1, 1) + uSocketSafeWriteData(fd, "x", 1), 0);
        EXPECT_EQ(uSocketReadLine(fd, buffer, sizeof buffer), -1);
        EXPECT_EQ(uSocketReadLimitWithoutSize(fd, &out, -1) + uSocketReadWithoutSize(fd, &out), 0);
        EXPECT_EQ(uSocketReadHttpData(fd, nullptr, &pieces, countPiece) +
                      uSocketReadHttpData(fd, "b", &pieces, countPiece),
                  0);
        EXPECT_EQ(uSocketReadHttpDataWithSize(fd, nullptr, 5, &pieces, countPiece), 0);
    }
    EXPECT_EQ(out, buffer);
    EXPECT_EQ(pieces, 0);
    EXPECT_EQ(uSocketReadLine(c.near.get(), buffer, sizeof buffer), 4);
}

} // namespace
} // namespace pu::test
