// SPDX-License-Identifier: MIT
// Loopback pairs and their ports, the UDP port check, the send-queue wait and the option setters.
#include <platform_os.h>
#include <usocket.h>

#include "log_capture.hpp"
#include "socket_test_util.hpp"

#include <dlfcn.h>
#include <fcntl.h>

namespace pu::test {
namespace {

CallRecorder<int> delays; // the ticks of each taskDelay while `recordDelays` is set
std::atomic<bool> recordDelays{false};
std::function<void(std::size_t)> onDelay; // runs inside the n-th recorded delay

} // namespace
} // namespace pu::test

// This program's taskDelay wins over the platform's for every caller, the library included, so
// a wait that polls once a second runs at once and its polls can be counted.
extern "C" __attribute__((visibility("default"))) int taskDelay(int ticks) {
    using namespace pu::test;
    if (!recordDelays) {
        return reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, __func__))(ticks);
    }
    delays.record(ticks);
    if (onDelay) {
        onDelay(delays.size());
    }
    return 0;
}

namespace pu::test {
namespace {

int recvTimeoutSec(int fd) {
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
    return static_cast<int>(limit.tv_sec);
}

// A seed whose first two draws are distinct ports that type can bind now.
unsigned usableSeed(int type) {
    for (unsigned seed = 1;; ++seed) {
        const std::vector<int> p = drawnPorts(seed, 2);
        if (p[0] != p[1] && bindLoopback(type, p[0]).get() >= 0 &&
            bindLoopback(type, p[1]).get() >= 0) {
            return seed;
        }
    }
}

using Maker = std::pair<std::int32_t (*)(uSocketPair *), int>;

TEST(SocketPeer, PairsAreConnectedNonBlockingEndsOnPortsFromTheProcessGenerator) {
    for (auto [makePair, type] :
         {Maker{uSocketPeer, SOCK_STREAM}, Maker{uSocketUdpPeer, SOCK_DGRAM}}) {
        SCOPED_TRACE(type);
        const unsigned seed = usableSeed(type);
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

TEST(SocketPeer, RefusesDescriptorsSelectCannotWatch) {
    if (!allowDescriptorsUpTo(FD_SETSIZE + 8)) {
        GTEST_SKIP() << "the hard descriptor limit is below " << FD_SETSIZE + 8;
    }
    std::vector<Fd> fillers; // every descriptor below FD_SETSIZE taken: the pair's land above
    while (fillers.empty() || fillers.back().get() < FD_SETSIZE - 1) {
        fillers.emplace_back(open("/dev/null", O_RDONLY));
        ASSERT_GE(fillers.back().get(), 0);
    }
    LogCapture log;
    const int before = openDescriptors();
    uSocketPair pair{-7, -7};
    EXPECT_EQ(uSocketPeer(&pair), -1);
    EXPECT_EQ(pair.clientSock, -7);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(log.countContaining("basalt.utils.socket", "error"), 0) << "refused before binding";
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

TEST(SocketWaitSendDataConfirmed, CountsUnchangedPollsInARowOneSecondApart) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0); // its queue changes only by reading
    Fd writer(ends[0]), reader(ends[1]);
    recordDelays = true;
    EXPECT_EQ(uSocketWaitSendDataConfirmed(writer.get(), 0), 0); // nothing queued: no poll
    EXPECT_EQ(delays.size(), 0U);
    fcntl(writer.get(), F_SETFL, O_NONBLOCK);
    while (send(writer.get(), "0123456789abcdef", 16, MSG_NOSIGNAL) > 0) {
    }
    // Tolerance, the poll in which the reader takes some bytes (0: none), result, polls made.
    using Row = std::tuple<int, std::size_t, std::size_t, int, std::size_t>;
    for (const auto &[tolerance, drainAt, bytes, result, polls] :
         {Row{0, 0, 0, -1, 1}, Row{1, 0, 0, -1, 2}, Row{3, 0, 0, -1, 4}, Row{-4, 0, 0, -1, 1},
          Row{1, 2, 1000, -1, 4}, Row{5, 3, 1 << 22, 0, 3}}) {
        SCOPED_TRACE(tolerance);
        delays.clear();
        onDelay = [&, drainAt = drainAt, bytes = bytes](std::size_t n) {
            std::string sink(bytes, '\0');
            EXPECT_TRUE(n != drainAt || read(reader.get(), sink.data(), bytes) > 0);
        };
        EXPECT_EQ(uSocketWaitSendDataConfirmed(writer.get(), tolerance), result);
        EXPECT_EQ(delays.values(), std::vector<int>(polls, sysClkRateGet()));
    }
    onDelay = nullptr;
    recordDelays = false;
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

} // namespace
} // namespace pu::test
