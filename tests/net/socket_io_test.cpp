// SPDX-License-Identifier: MIT
// Reads and writes with time-outs over loopback connections, reading until the peer goes quiet
// into a growing buffer, reading lines, and the refusal of descriptors select() cannot watch.
#include <umem.h>
#include <usocket.h>

#include "log_capture.hpp"

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

TEST(SocketWriteWithTimeout, StopsShortWhenTheReaderStallsOrGoes) {
    Connection stalled = connectLoopback(4096), gone = connectLoopback(4096);
    const std::string data = pattern(600000, 7);
    const auto size = static_cast<std::int32_t>(data.size());
    const std::int32_t fitted = uSocketWriteWithTimeout(stalled.near.get(), data.data(), size, 0);
    EXPECT_GT(fitted, 0); // what fits, then the first wait finds no room
    EXPECT_LT(fitted, size);
    gone.far.reset(); // a short count instead of a signal that ends the process
    EXPECT_LT(uSocketWriteWithTimeout(gone.near.get(), data.data(), size, 1), size);
    EXPECT_EQ(uSocketWriteWithTimeout(gone.near.get(), nullptr, 10, 1), 0);
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

TEST(SocketReadWithoutSize, TheLimitIsConsultedOnlyWhereTheBufferGrows) {
    // Bytes sent, the limit (-1: none), the result. The buffer grows when 1024 more bytes would
    // not fit with the terminator: at 1024 bytes read, then at 3072, 5120...
    using Row = std::tuple<std::size_t, std::int32_t, std::int32_t>;
    LogCapture quiet;
    for (const auto &[size, limit, result] :
         {Row{0, -1, 0}, Row{1023, 1, 1023}, Row{1024, 1024, -1}, Row{1024, 1025, 1024},
          Row{3071, 2048, 3071}, Row{3072, 2048, -1}, Row{3072, 3073, 3072}, Row{1024, -2, -1},
          Row{20000, -1, 20000}}) {
        SCOPED_TRACE(testing::Message() << size << " bytes, limit " << limit);
        Connection c = connectLoopback();
        const std::string sent = pattern(size, 3);
        sendAndFinish(c, sent);
        char sentinel = 0, *out = &sentinel;
        EXPECT_EQ(uSocketReadLimitWithoutSize(c.near.get(), &out, limit), result);
        if (result > 0) {
            EXPECT_EQ(std::string(out, size + 1), sent + '\0');
            uFree(out);
        } else {
            EXPECT_EQ(out, &sentinel); // untouched
        }
    }
}

TEST(SocketReadLine, TerminatorsFullBuffersAndEarlyEnds) {
    // Stream, then for each read the size given and what it returns; an unterminated result is
    // shown with the byte after it, which the reader left as it was ('Z').
    using Row = std::tuple<const char *, std::vector<std::pair<std::int32_t, std::string>>>;
    for (const auto &[stream, reads] : {
             Row{"abc\r\nabc\n\n\r\na\rb\n\r\r\n",
                 {{32, "abc"},
                  {32, "abc"},
                  {32, ""},
                  {32, ""},
                  {32, "a\rb"},
                  {32, "\r"},
                  {32, "-1"}}},
             Row{"abc\nxy", {{2, "ab|Z"}, {32, "c"}, {32, "xy|Z"}, {32, "-1"}}},
             Row{"\na\n", {{1, ""}, {1, "a|Z"}, {0, "-1"}, {32, ""}, {32, "-1"}}},
         }) {
        SCOPED_TRACE(stream);
        Connection c = connectLoopback();
        sendAndFinish(c, stream);
        for (const auto &[size, expected] : reads) {
            char buffer[33];
            std::fill(std::begin(buffer), std::end(buffer), 'Z');
            const std::int32_t n = uSocketReadLine(c.near.get(), buffer, size);
            const bool terminated = n >= 0 && buffer[n] == '\0';
            EXPECT_EQ(n < 0 ? "-1"
                            : std::string(buffer, n) +
                                  (terminated ? "" : "|" + std::string(1, buffer[n])),
                      expected);
        }
    }
    char buffer[8];
    Connection c = connectLoopback();
    sendAndFinish(c, "x\n");
    EXPECT_EQ(uSocketReadLine(c.near.get(), nullptr, 8), -1);
    EXPECT_EQ(uSocketReadLine(c.near.get(), buffer, 8), 1); // the refusal read nothing
}

} // namespace
} // namespace pu::test
