// SPDX-License-Identifier: MIT
// The socket helpers over loopback: pairs, their ports (drawn from the process's generator) and
// their clean failure when no port of the range is free (a slow test: it holds the whole range),
// the UDP port check and the option setters; reads with time-outs, reading until the peer goes
// quiet into a growing buffer, reading lines, the refusal of descriptors select() cannot watch;
// HTTP request bodies of a given length streamed to a callback; every exact log text. Bodies read
// to the end of the stream (pieces of at most 1024 bytes, the tail held back only when it matches)
// are the socket_http_body fuzz target's to check.
#include <umem.h>
#include <usocket.h>

#include "call_table.hpp"
#include "log_capture.hpp"
#include "net/owned_fd.hpp"
#include "test_support.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace pu::test {
namespace {

// Loopback plumbing: connected TCP ends on 127.0.0.1, and descriptors above what select() can
// watch. A descriptor closed on scope exit:
using Fd = pu::net::OwnedFd;

// The port fd is bound to, or -1.
int portOf(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0
               ? ntohs(address.sin_port)
               : -1;
}

// Binds a new socket of type to 127.0.0.1:port (0: the kernel picks); an empty Fd if it fails.
Fd bindLoopback(int type, int port) {
    Fd fd(socket(AF_INET, type, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
               ? std::move(fd)
               : Fd();
}

// Two connected, blocking TCP ends on 127.0.0.1: `near` is used by the code under test, `far`
// is the peer.
struct Connection {
    Fd near, far;
};
Connection connectLoopback() {
    Fd listener = bindLoopback(SOCK_STREAM, 0), far(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(listen(listener.get(), 1), 0);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &length);
    EXPECT_EQ(connect(far.get(), reinterpret_cast<sockaddr *>(&address), length), 0);
    return {Fd(accept(listener.get(), nullptr, nullptr)), std::move(far)};
}

// Sends data and ends the stream, and waits until all of it is queued at `near`, so a reader
// meets it at once and then end of stream instead of a time-out.
void sendAndFinish(Connection &c, const std::string &data) {
    for (std::size_t done = 0; done < data.size();) {
        const ssize_t sent =
            send(c.far.get(), data.data() + done, data.size() - done, MSG_NOSIGNAL);
        ASSERT_GT(sent, 0);
        done += static_cast<std::size_t>(sent);
    }
    shutdown(c.far.get(), SHUT_WR);
    int queued = 0;
    for (int round = 0; round < 100000 && queued < static_cast<int>(data.size()); ++round) {
        std::this_thread::yield();
        ioctl(c.near.get(), FIONREAD, &queued);
    }
    ASSERT_GE(queued, static_cast<int>(data.size())) << "data did not arrive";
}

// Lets this process open descriptors up to `highest`, whatever the soft limit it started with;
// false when the hard limit does not allow it (the test should then skip).
bool allowDescriptorsUpTo(int highest) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, rlim_t(highest) + 1);
    return limit.rlim_max > rlim_t(highest) && setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

constexpr const char *kSocketModule = "basalt.utils.socket";

int recvTimeoutSec(int fd) {
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
    return static_cast<int>(limit.tv_sec);
}

// Closes both ends of a pair with a reset, so that no port of it lingers in TIME_WAIT, and
// returns the ports of its first and second end.
std::pair<int, int> closePair(const uSocketPair &pair) {
    const linger reset{1, 0};
    for (int fd : {pair.clientSock, pair.acceptSock}) {
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    const Fd client(pair.clientSock), accepted(pair.acceptSock);
    return {portOf(accepted.get()), portOf(client.get())};
}

// Also the exact log lines of a pair made (every other socket log text is in NetLogCatalogue
// and SlowSocketPeer): log filters match on them.
TEST(SocketPeer, PairsAreConnectedNonBlockingEndsOnPortsFromTheProcessGenerator) {
    using Maker = std::pair<std::int32_t (*)(uSocketPair *), const char *>;
    for (auto [makePair, name] :
         {Maker{uSocketPeer, "uSocketPeer"}, Maker{uSocketUdpPeer, "uSocketUdpPeer"}}) {
        SCOPED_TRACE(name);
        srand(7);
        const int firstDraw = rand();
        // After the same seed two pairs take the same ports: an application that seeds the
        // generator gets a reproducible choice.
        std::pair<int, int> ports[2];
        for (auto &taken : ports) {
            srand(7);
            uSocketPair pair{-7, -7};
            LogCapture capture;
            ASSERT_EQ(makePair(&pair), 0);
            const std::string made = " success clientSock=" + std::to_string(pair.clientSock) +
                                     ", acceptSock=" + std::to_string(pair.acceptSock);
            EXPECT_EQ(capture.count(0, kSocketModule, name + made), 1);
            EXPECT_EQ(capture.count(0, kSocketModule, "uSocketPeer "), makePair == uSocketPeer);
            EXPECT_EQ(fcntl(pair.clientSock, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
            EXPECT_EQ(fcntl(pair.clientSock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
            char got[5] = {};
            for (int fd : {pair.clientSock, pair.acceptSock}) {
                EXPECT_EQ(recvTimeoutSec(fd), 60);
                EXPECT_EQ(uSocketSafeWriteData(fd, "ping", 4), 4);
                const int peer = fd == pair.clientSock ? pair.acceptSock : pair.clientSock;
                EXPECT_EQ(uSocketReadWithTimeout(peer, got, 4, 5), 4);
                EXPECT_STREQ(got, "ping");
            }
            taken = closePair(pair);
        }
        EXPECT_EQ(ports[0], ports[1]);
        EXPECT_NE(rand(), firstDraw); // the pairs drew from the process's generator
        EXPECT_THAT((std::vector{ports[0].first, ports[0].second}),
                    testing::Each(testing::AllOf(testing::Ge(10240), testing::Le(11239))));
    }
}

TEST(SocketPortIsUsable, OnlyAPortFreeForUdpOnAllInterfacesCounts) {
    Fd udp = bindLoopback(SOCK_DGRAM, 0), tcp = bindLoopback(SOCK_STREAM, 0);
    for (auto [port, usable] : {std::pair{portOf(udp.get()), 0}, {portOf(tcp.get()), 1}}) {
        EXPECT_EQ(uSocketPortIsUsable(port), usable) << port;
    }
}

TEST(SocketReadWithTimeout, ShortCountsWithoutWaitingForQuietClosedOrPollingReads) {
    Connection c = connectLoopback();
    char buffer[128] = {};
    const auto start = std::chrono::steady_clock::now();
    // A time-out of 0 or less does not wait; a wait would take whole seconds.
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 10, -5), 0);
    sendAndFinish(c, "0123456789abc");
    // A poll takes what is there.
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 10, 0), 10);
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer + 10, 100, 60), 3); // end of stream
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 60), 0);
    EXPECT_STREQ(buffer, "0123456789abc");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    // The option setters: 0 when set, a buffer size of 0 too.
    EXPECT_EQ(uSocketSetRecvTimeout(c.near.get(), 3) + uSocketSetSendBufferSize(c.near.get(), 0),
              0);
    EXPECT_EQ(recvTimeoutSec(c.near.get()), 3);
}

TEST(SlowSocketReadWithTimeout, ATimeOutOfOneSecondEndsAPartialRead) {
    Connection c = connectLoopback();
    ASSERT_EQ(send(c.far.get(), "ten bytes!", 10, 0), 10);
    char buffer[100];
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), buffer, 100, 1), 10);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}

// What an HTTP body callback was handed: the bytes, and the size of each piece.
struct Body {
    std::string data;
    std::vector<std::uint32_t> pieces;
    static std::int32_t collect(void *context, const char *bytes, std::uint32_t length) {
        static_cast<Body *>(context)->data.append(bytes, length);
        static_cast<Body *>(context)->pieces.push_back(length);
        return -1; // ignored
    }
};

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
    Body body;
    for (int fd : {high.get(), FD_SETSIZE, -1}) {
        SCOPED_TRACE(fd);
        EXPECT_EQ(uSocketReadWithTimeout(fd, buffer, 5, 1) + uSocketReadNormalData(fd, buffer, 5),
                  0);
        EXPECT_EQ(uSocketWriteWithTimeout(fd, "x", 1, 1) + uSocketSafeWriteData(fd, "x", 1), 0);
        EXPECT_EQ(uSocketReadLine(fd, buffer, sizeof buffer), -1);
        EXPECT_EQ(uSocketReadLimitWithoutSize(fd, &out, -1) + uSocketReadWithoutSize(fd, &out), 0);
        EXPECT_EQ(uSocketReadHttpData(fd, nullptr, &body, Body::collect) +
                      uSocketReadHttpData(fd, "b", &body, Body::collect),
                  0);
        EXPECT_EQ(uSocketReadHttpDataWithSize(fd, nullptr, 5, &body, Body::collect), 0);
    }
    EXPECT_EQ(out, buffer);
    EXPECT_TRUE(body.pieces.empty());
    EXPECT_EQ(uSocketReadLine(c.near.get(), buffer, sizeof buffer), 4);
}

TEST(SocketReadWithoutSize, TheLimitIsConsultedOnlyWhereTheBufferGrows) {
    // Bytes sent, the limit (-1: none), the result. The buffer grows when 1024 more bytes would
    // not fit with the terminator: at 1024 bytes read, then at 3072, 5120...
    using Row = std::tuple<std::size_t, std::int32_t, std::int32_t>;
    LogCapture quiet;
    for (const auto &[size, limit, result] :
         {Row{1023, 1, 1023}, Row{1024, 1024, -1}, Row{1024, 1025, 1024}, Row{3071, 2048, 3071},
          Row{3072, 2048, -1}, Row{20000, -1, 20000}}) {
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
    // Stream, the size given to each read and what the reads return in turn; an unterminated
    // result is shown with the byte after it, which the reader left as it was ('Z').
    using Row = std::tuple<const char *, std::int32_t, std::vector<std::string>>;
    for (const auto &[stream, size, reads] : {
             Row{"abc\r\nabc\n\n\r\na\rb\n\r\r\n", 32, {"abc", "abc", "", "", "a\rb", "\r", "-1"}},
             Row{"abc\nxy", 2, {"ab|Z", "c", "xy|Z", "-1"}},
         }) {
        SCOPED_TRACE(stream);
        Connection c = connectLoopback();
        sendAndFinish(c, stream);
        for (const std::string &expected : reads) {
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
}

TEST(SocketReadHttpDataWithSize, ConsumesTheContentLengthAndNoMore) {
    // Sent (then end of stream), boundary, content length, result, piece sizes, what is left.
    using Row = std::tuple<const char *, std::string, const char *, std::int32_t, std::int32_t,
                           std::vector<std::uint32_t>, std::string>;
    const std::string payload = pattern(2500, 5), closing = payload + "\r\nXYZ\r\nNEXT";
    for (const auto &[label, sent, boundary, length, result, pieces, rest] : {
             Row{"no boundary", payload + "NEXT", nullptr, 2500, 2500, {1024, 1024, 452}, "NEXT"},
             Row{"closing line", closing, "XYZ", 2507, 2507, {1024, 1024, 452}, "NEXT"},
             Row{"no content", "abc", nullptr, 0, 0, {}, "abc"},
             Row{"too short for the line", "abcdefgh", "ab", 5, 0, {}, "abcdefgh"},
             Row{"only the line", "abcdefNEXT", "ab", 6, 6, {0}, "NEXT"},
             Row{"peer ends early", "ghxyz", "ab", 1000, 5, {5, 0}, ""},
         }) {
        SCOPED_TRACE(label);
        Connection c = connectLoopback();
        sendAndFinish(c, sent);
        Body body;
        EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), boundary, length, &body, Body::collect),
                  result);
        EXPECT_EQ(body.pieces, pieces);
        EXPECT_EQ(body.data, sent.substr(0, body.data.size()));
        std::string left(100, '\0');
        left.resize(
            static_cast<std::size_t>(uSocketReadWithTimeout(c.near.get(), left.data(), 100, 1)));
        EXPECT_EQ(left, rest);
    }
}

// Every other exact log text of the socket helpers, with its level: log filters match on them.
TEST(NetLogCatalogue, EveryMessageWithItsLevel) {
    Connection c = connectLoopback();
    sendAndFinish(c, pattern(2048));
    char *out = nullptr;
    checkLogRows({
        PU_LOG_ROW(uSocketWaitSendDataConfirmed(-1, 5), 3, kSocketModule,
                   "uSocketWaitSendDataConfirmed: ioctl error"),
        PU_LOG_ROW(uSocketReadLimitWithoutSize(c.near.get(), &out, 1), 3, kSocketModule,
                   "uSocketReadLimitWithoutSize: read too much."),
    });
}

// With no port of the range free an end cannot be bound: the pair fails, says which end with its
// fixed number, closes all it made and leaves the pair untouched. For the second end the port
// the first end takes, found by a pair made after the same seed, is left free.
TEST(SlowSocketPeer, AnEndThatFindsNoFreePortInTheRangeFailsCleanly) {
    if (!allowDescriptorsUpTo(2 * FD_SETSIZE)) {
        GTEST_SKIP() << "the hard descriptor limit is below " << 2 * FD_SETSIZE;
    }
    using Row = std::tuple<std::int32_t (*)(uSocketPair *), int, bool, std::string, const char *>;
    for (const auto &[makePair, type, secondEnd, name, number] : {
             Row{uSocketPeer, SOCK_STREAM, false, "uSocketPeer", " 421"},
             Row{uSocketPeer, SOCK_STREAM, true, "uSocketPeer", " 449"},
             Row{uSocketUdpPeer, SOCK_DGRAM, false, "uSocketUdpPeer", " 559"},
             Row{uSocketUdpPeer, SOCK_DGRAM, true, "uSocketUdpPeer", " 581"},
         }) {
        SCOPED_TRACE(number);
        uSocketPair pair{-7, -7};
        srand(3);
        const int left = secondEnd && makePair(&pair) == 0 ? closePair(pair).first : -1;
        std::vector<Fd> held;
        for (int port = 10240; port <= 11239; ++port) {
            held.push_back(port != left ? bindLoopback(type, port) : Fd());
        }
        LogCapture capture;
        const int lowestFree = Fd(dup(2)).get(); // a descriptor left open would take it
        pair = {-7, -7};
        srand(3);
        EXPECT_EQ(makePair(&pair), -1);
        EXPECT_EQ(pair.clientSock + pair.acceptSock, -14);
        EXPECT_EQ(Fd(dup(2)).get(), lowestFree);
        EXPECT_EQ(capture.count(3, kSocketModule, name + number + " uSocketTryBind error !"), 1);
        EXPECT_EQ(capture.count(0, kSocketModule, name + " failed !"), 1) << capture.dump();
    }
}

} // namespace
} // namespace pu::test
