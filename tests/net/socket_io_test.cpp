// SPDX-License-Identifier: MIT
// Reads and writes with time-outs, over real loopback connections.
#include <usocket.h>

#include "socket_test_util.hpp"

#include <chrono>
#include <fcntl.h>
#include <thread>

#include <gtest/gtest.h>

namespace {

using pu::test::Connection;
using pu::test::connectLoopback;
using pu::test::Fd;
using pu::test::pattern;
using pu::test::sendAll;

TEST(SocketReadWithTimeout, ShortCountsForQuietPeersClosedPeersAndZeroLength) {
    Connection c = connectLoopback();
    char buffer[100] = {};

    // Nothing pending and no waiting: returns at once. Length 0 returns before any wait, even
    // with a long time-out. (The bound is loose: a wait would take whole seconds.)
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 0), 0);
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, -5), 0);
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 0, 60), 0);
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, -1, 60), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));

    // Pending data is taken even by a non-blocking poll, and only what was asked for.
    sendAll(c.far.get(), "0123456789abc");
    pu::test::awaitReadable(c.near.get(), 13);
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 10, 0), 10);
    EXPECT_EQ(std::string(buffer, 10), "0123456789");

    // A peer that closes after 3 of 100 bytes gives 3, not an error.
    shutdown(c.far.get(), SHUT_WR);
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 5), 3);
    EXPECT_EQ(std::string(buffer, 3), "abc");
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 5), 0);
}

TEST(SocketReadWithTimeout, OneSecondTimeOutEndsAPartialRead) {
    Connection c = connectLoopback();
    sendAll(c.far.get(), "ten bytes!");
    char buffer[100];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 1), 10);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(990));
    EXPECT_LT(waited, std::chrono::seconds(10));
}

TEST(SocketWriteWithTimeout, ContinuesPartialWritesToASlowReader) {
    Connection c = connectLoopback(4096);
    const std::string data = pattern(600000, 7);
    std::string received;
    std::thread peer([&] {
        char chunk[777];
        ssize_t n;
        while ((n = read(c.far.get(), chunk, sizeof chunk)) > 0) {
            received.append(chunk, static_cast<std::size_t>(n));
        }
    });
    EXPECT_EQ(uSocketSafeWriteData(c.near.get(), data.data(), static_cast<int32_t>(data.size())),
              static_cast<int32_t>(data.size()));
    shutdown(c.near.get(), SHUT_WR);
    peer.join();
    EXPECT_EQ(received, data);
}

TEST(SocketWriteWithTimeout, ShortCountsWhenTheReaderStallsOrHasGone) {
    Connection c = connectLoopback(4096);
    const std::string data = pattern(8 << 20);
    const auto size = static_cast<int32_t>(data.size());

    // Nobody reads: a zero time-out writes what fits and stops at the first full wait.
    const int32_t fitted = uSocketWriteWithTimeout(c.near.get(), data.data(), size, 0);
    EXPECT_GT(fitted, 0);
    EXPECT_LT(fitted, size);

    // The reader has closed: the write ends with a short count instead of killing the process.
    Connection gone = connectLoopback(4096);
    gone.far.reset();
    EXPECT_LT(uSocketWriteWithTimeout(gone.near.get(), data.data(), size, 1), size);

    EXPECT_EQ(uSocketWriteWithTimeout(-1, data.data(), 10, 1), 0);
    EXPECT_EQ(uSocketWriteWithTimeout(c.near.get(), data.data(), 0, 1), 0);
    EXPECT_EQ(uSocketWriteWithTimeout(c.near.get(), nullptr, 10, 1), 0);
}

// Records every piece an HTTP reader hands over.
struct Collected {
    int calls = 0;
};

int32_t countCall(void *context, const char *, uint32_t) {
    ++static_cast<Collected *>(context)->calls;
    return 0;
}

// select() cannot watch such descriptors: every helper refuses them at once, without touching
// the socket (its data is still there afterwards) and without writing outside an fd_set, which
// the sanitizer builds would catch.
TEST(SocketDescriptorGuard, DescriptorsBeyondSelectCapacityAreRefused) {
    Connection c = connectLoopback();
    sendAll(c.far.get(), "line\n");
    pu::test::awaitReadable(c.near.get(), 5);
    const int high = FD_SETSIZE + 17;
    ASSERT_EQ(dup2(c.near.get(), high), high) << "needs a descriptor limit above FD_SETSIZE";
    Fd highFd(high);

    char buffer[16] = {};
    char *out = reinterpret_cast<char *>(&c);
    Collected collected;
    for (int fd : {high, FD_SETSIZE, -1}) {
        EXPECT_EQ(uSocketReadWithTimeout(fd, buffer, 5, 1), 0);
        EXPECT_EQ(uSocketReadNormalData(fd, buffer, 5), 0);
        EXPECT_EQ(uSocketWriteWithTimeout(fd, "x", 1, 1), 0);
        EXPECT_EQ(uSocketSafeWriteData(fd, "x", 1), 0);
        EXPECT_EQ(uSocketReadLine(fd, buffer, sizeof buffer), -1);
        EXPECT_EQ(uSocketReadLimitWithoutSize(fd, &out, -1), 0);
        EXPECT_EQ(uSocketReadWithoutSize(fd, &out), 0);
        EXPECT_EQ(uSocketReadHttpData(fd, nullptr, &collected, countCall), 0);
        EXPECT_EQ(uSocketReadHttpData(fd, "b", &collected, countCall), 0);
        EXPECT_EQ(uSocketReadHttpDataWithSize(fd, nullptr, 5, &collected, countCall), 0);
    }
    EXPECT_EQ(out, reinterpret_cast<char *>(&c));
    EXPECT_EQ(collected.calls, 0);

    EXPECT_EQ(uSocketReadLine(c.near.get(), buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "line");
}

} // namespace
