// SPDX-License-Identifier: MIT
// Reading until the peer goes quiet into a growing buffer, and reading lines.
#include <umem.h>
#include <usocket.h>

#include "log_capture.hpp"
#include "socket_test_util.hpp"

#include <cstring>
#include <thread>

#include <gtest/gtest.h>

namespace {

using pu::test::Connection;
using pu::test::connectLoopback;
using pu::test::pattern;
using pu::test::sendAndFinish;

constexpr const char *kModule = "basalt.utils.socket";

// Feeds `size` bytes and end of stream, then reads them back with the given limit.
struct LimitedRead {
    int32_t result;
    std::string data;
    bool outTouched;
};

LimitedRead readWithLimit(std::size_t size, int32_t limit) {
    Connection c = connectLoopback();
    const std::string sent = pattern(size, 3);
    sendAndFinish(c, sent);
    char sentinel = 0;
    char *out = &sentinel;
    LimitedRead r{uSocketReadLimitWithoutSize(c.near.get(), &out, limit), {}, out != &sentinel};
    if (r.outTouched) {
        EXPECT_EQ(out[r.result], '\0') << "data is followed by a zero byte";
        r.data.assign(out, static_cast<std::size_t>(r.result));
        EXPECT_EQ(r.data, sent.substr(0, r.data.size()));
        uFree(out);
    }
    return r;
}

TEST(SocketReadWithoutSize, LimitIsConsultedOnlyWhereTheBufferGrows) {
    pu::test::LogCapture log;
    // 1023 bytes never reach the first growth point (1024), so even a limit of 1 is not checked.
    EXPECT_EQ(readWithLimit(1023, 1).result, 1023);
    EXPECT_EQ(log.count(3, kModule, "uSocketReadLimitWithoutSize: read too much."), 0);

    // At exactly 1024 bytes the buffer must grow: the limit is compared there (>=).
    LimitedRead atLimit = readWithLimit(1024, 1024);
    EXPECT_EQ(atLimit.result, -1);
    EXPECT_FALSE(atLimit.outTouched);
    EXPECT_EQ(log.count(3, kModule, "uSocketReadLimitWithoutSize: read too much."), 1);
    EXPECT_EQ(readWithLimit(1024, 1025).result, 1024);

    // The next growth point is 3072: below it, more than the limit comes back successfully.
    EXPECT_EQ(readWithLimit(3000, 2048).result, 3000);
    EXPECT_EQ(readWithLimit(3071, 2048).result, 3071);
    EXPECT_EQ(readWithLimit(3072, 2048).result, -1);
    EXPECT_EQ(readWithLimit(3072, 3073).result, 3072);
    // Any limit other than -1 counts, negative ones included.
    EXPECT_EQ(readWithLimit(1024, -2).result, -1);
    EXPECT_EQ(log.count(3, kModule, "uSocketReadLimitWithoutSize: read too much."), 3);

    // Without a limit the buffer keeps growing.
    LimitedRead big = readWithLimit(20000, -1);
    EXPECT_EQ(big.result, 20000);
    EXPECT_EQ(big.data.size(), 20000u);
}

TEST(SocketReadWithoutSize, NothingReadLeavesTheOutputAlone) {
    Connection c = connectLoopback();
    c.far.reset(); // closed without sending
    char sentinel = 0;
    char *out = &sentinel;
    EXPECT_EQ(uSocketReadWithoutSize(c.near.get(), &out), 0);
    EXPECT_EQ(out, &sentinel);
    EXPECT_EQ(uSocketReadWithoutSize(c.near.get(), nullptr), 0);
}

TEST(SocketReadWithoutSize, CollectsAnUnevenSenderUntilItCloses) {
    Connection c = connectLoopback();
    const std::string data = pattern(50003, 11);
    std::thread peer([&] {
        pu::test::sendUnevenly(c.far.get(), data);
        c.far.reset();
    });
    char *out = nullptr;
    const int32_t got = uSocketReadWithoutSize(c.near.get(), &out);
    peer.join();
    ASSERT_EQ(got, static_cast<int32_t>(data.size()));
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, data.size()), data);
    EXPECT_EQ(out[data.size()], '\0');
    uFree(out);
}

// Reads one line of at most size bytes from what `input` leaves on a finished stream.
struct LineReader {
    Connection c = connectLoopback();
    explicit LineReader(const std::string &input) { sendAndFinish(c, input); }
    int32_t next(char *buffer, int32_t size) { return uSocketReadLine(c.near.get(), buffer, size); }
};

TEST(SocketReadLine, TerminatorsAndTheirCarriageReturns) {
    char buffer[32];
    LineReader lines("abc\r\nabc\n\n\r\na\rb\n\r\r\n");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 0); // a lone line feed
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 0); // a carriage return alone is dropped
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 3); // only the last one is
    EXPECT_STREQ(buffer, "a\rb");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 1);
    EXPECT_STREQ(buffer, "\r");
    EXPECT_EQ(lines.next(buffer, sizeof buffer), -1); // end of stream, nothing read
}

TEST(SocketReadLine, FullBufferAndEarlyEndAreNotTerminated) {
    char buffer[8];
    LineReader lines("abc\nxy");
    std::memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(lines.next(buffer, 2), 2);
    EXPECT_EQ(std::string(buffer, 3), "abZ"); // no terminator written
    // The reader consumed only what it stored: the rest of the line is still there.
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 1);
    EXPECT_STREQ(buffer, "c");
    std::memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(lines.next(buffer, sizeof buffer), 2); // the stream ends mid-line
    EXPECT_EQ(std::string(buffer, 3), "xyZ");

    LineReader tiny("\na\n");
    EXPECT_EQ(tiny.next(buffer, 1), 0); // the terminator fits where no byte was stored
    EXPECT_EQ(tiny.next(buffer, 1), 1);
    EXPECT_EQ(buffer[0], 'a');

    EXPECT_EQ(tiny.next(buffer, 0), -1);
    EXPECT_EQ(tiny.next(nullptr, 8), -1);
    EXPECT_EQ(tiny.next(buffer, 8), 0); // the line feed after "a" was untouched by the above
}

} // namespace
