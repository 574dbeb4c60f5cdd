// SPDX-License-Identifier: MIT
// The socket helpers over loopback: pairs and their ports, the UDP port check and the option
// setters; reads with time-outs, reading until the peer goes quiet into a growing buffer, reading
// lines, the refusal of descriptors select() cannot watch; HTTP request bodies of a given length
// streamed to a callback; every exact log text. Bodies read to the end of the stream (pieces of
// at most 1024 bytes, the tail held back only when it matches) are the socket_http_body fuzz
// target's to check.
#include <umem.h>
#include <usocket.h>

#include "log_capture.hpp"
#include "socket_test_util.hpp"

#include <fcntl.h>

namespace pu::test {
namespace {

int recvTimeoutSec(int fd) {
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
    return static_cast<int>(limit.tv_sec);
}

using Maker = std::pair<std::int32_t (*)(uSocketPair *), int>;

TEST(SocketPeer, PairsAreConnectedNonBlockingEndsOnPortsFromTheProcessGenerator) {
    for (auto [makePair, type] :
         {Maker{uSocketPeer, SOCK_STREAM}, Maker{uSocketUdpPeer, SOCK_DGRAM}}) {
        SCOPED_TRACE(type);
        // A seed whose first two draws are distinct ports that type can bind now.
        unsigned seed = 1;
        for (std::vector<int> p = drawnPorts(seed, 2);
             p[0] == p[1] || bindLoopback(type, p[0]).get() < 0 ||
             bindLoopback(type, p[1]).get() < 0;
             p = drawnPorts(++seed, 2)) {
        }
        const std::vector<int> ports = drawnPorts(seed, 2);
        srand(seed);
        uSocketPair pair{-7, -7};
        ASSERT_EQ(makePair(&pair), 0);
        Fd client(pair.clientSock), accepted(pair.acceptSock);
        EXPECT_EQ(portOf(client.get(), getpeername), ports[0]); // the end bound first
        EXPECT_EQ(portOf(accepted.get(), getpeername), ports[1]);
        EXPECT_EQ(fcntl(client.get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
        EXPECT_EQ(fcntl(client.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        char got[5] = {};
        for (int fd : {client.get(), accepted.get()}) {
            EXPECT_EQ(recvTimeoutSec(fd), 60);
            EXPECT_EQ(uSocketSafeWriteData(fd, "ping", 4), 4);
            EXPECT_EQ(uSocketReadWithTimeout(fd == client.get() ? accepted.get() : client.get(),
                                             got, 4, 5),
                      4);
            EXPECT_STREQ(got, "ping");
        }
    }
}

TEST(SocketPortIsUsable, OnlyAPortFreeForUdpOnAllInterfacesCounts) {
    Fd udp = bindLoopback(SOCK_DGRAM, 0), tcp = bindLoopback(SOCK_STREAM, 0),
       gone = bindLoopback(SOCK_DGRAM, 0);
    const int freed = portOf(gone.get());
    gone.reset();
    const std::pair<int, int> cases[] = {
        {-1, 0}, {65536, 0}, {0, 1}, {portOf(udp.get()), 0}, {portOf(tcp.get()), 1}, {freed, 1}};
    for (auto [port, usable] : cases) {
        EXPECT_EQ(uSocketPortIsUsable(port), usable) << port;
    }
}

TEST(SocketOptions, SettersRefuseNegativeValuesAndNonSockets) {
    Fd s(socket(AF_INET, SOCK_STREAM, 0)), notSocket(open("/dev/null", O_RDONLY));
    for (auto set : {uSocketSetSendBufferSize, uSocketSetRecvBufferSize, uSocketSetSendTimeout,
                     uSocketSetRecvTimeout}) {
        const std::tuple<int, int, int> cases[] = {{s.get(), 0, 0},
                                                   {s.get(), 3, 0},
                                                   {s.get(), -1, -1},
                                                   {-1, 1, -1},
                                                   {notSocket.get(), 1, -1}};
        for (auto [fd, value, result] : cases) {
            EXPECT_EQ(set(fd, value), result) << fd << " " << value;
        }
    }
    EXPECT_EQ(recvTimeoutSec(s.get()), 3);
}

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
          Row{3071, 2048, 3071}, Row{3072, 2048, -1}, Row{1024, -2, -1}, Row{20000, -1, 20000}}) {
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
             Row{"\na\n", 1, {"", "a|Z", "", "-1"}},
             Row{"a\n", 0, {"-1"}},
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

// Makes a pair fail to bind its first (end 0) or second end (end 1): after srand(seed) every
// port that end draws is held. The failure closes all it made and leaves the pair untouched.
std::string failBind(std::int32_t (*makePair)(uSocketPair *), int type, int end) {
    // For the second end the first draw must be free now: an earlier connection may have left
    // a port in TIME_WAIT, so take the first seed whose first port binds.
    unsigned seed = 5;
    std::vector<int> ports = drawnPorts(seed, 101);
    while (end == 1 && bindLoopback(type, ports[0]).get() < 0) {
        ports = drawnPorts(++seed, 101);
    }
    std::vector<Fd> held;
    for (int i = end; i < end + 100; ++i) {
        held.push_back(ports[i] != ports[0] || end == 0 ? bindLoopback(type, ports[i]) : Fd());
    }
    const int before = openDescriptors();
    uSocketPair pair{-7, -7};
    srand(seed);
    EXPECT_EQ(makePair(&pair), -1);
    EXPECT_EQ(pair.clientSock + pair.acceptSock, -14);
    EXPECT_EQ(openDescriptors(), before);
    return "";
}

// A pair made and closed; its success line carries the descriptors.
std::string madePair(std::int32_t (*makePair)(uSocketPair *)) {
    uSocketPair pair{-1, -1};
    EXPECT_EQ(makePair(&pair), 0);
    const Fd client(pair.clientSock), accepted(pair.acceptSock);
    return std::to_string(client.get()) + ", acceptSock=" + std::to_string(accepted.get());
}

// Every exact log text of the socket helpers, with its level: log filters match on them, the
// fixed numbers of the bind failures included.
TEST(NetLogCatalogue, EveryMessageWithItsLevel) {
    // The call (giving the end of its text where that varies), the level, the fixed text.
    using Row = std::tuple<std::function<std::string()>, int, std::string>;
    for (const auto &[call, level, text] : {
             Row{[] { return (madePair(uSocketPeer), ""); }, 0, "uSocketPeer "},
             Row{[] { return madePair(uSocketPeer); }, 0, "uSocketPeer success clientSock="},
             Row{[] { return madePair(uSocketUdpPeer); }, 0, "uSocketUdpPeer success clientSock="},
             Row{[] { return failBind(uSocketPeer, SOCK_STREAM, 0); }, 3,
                 "uSocketPeer 421 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketPeer, SOCK_STREAM, 1); }, 3,
                 "uSocketPeer 449 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketPeer, SOCK_STREAM, 1); }, 0, "uSocketPeer failed !"},
             Row{[] { return failBind(uSocketUdpPeer, SOCK_DGRAM, 0); }, 3,
                 "uSocketUdpPeer 559 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketUdpPeer, SOCK_DGRAM, 1); }, 3,
                 "uSocketUdpPeer 581 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketUdpPeer, SOCK_DGRAM, 0); }, 0,
                 "uSocketUdpPeer failed !"},
             Row{[] { return (uSocketWaitSendDataConfirmed(-1, 5), ""); }, 3,
                 "uSocketWaitSendDataConfirmed: ioctl error"},
             Row{[] {
                     Connection c = connectLoopback();
                     sendAndFinish(c, pattern(2048));
                     char *out = nullptr;
                     return (uSocketReadLimitWithoutSize(c.near.get(), &out, 1), "");
                 },
                 3, "uSocketReadLimitWithoutSize: read too much."},
         }) {
        SCOPED_TRACE(text);
        LogCapture capture;
        const std::string end = call();
        EXPECT_EQ(capture.count(level, "basalt.utils.socket", text + end), 1) << capture.dump();
    }
}

} // namespace
} // namespace pu::test
