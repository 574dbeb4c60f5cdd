// SPDX-License-Identifier: MIT
// Loopback pairs and their ports, the UDP port check and the option setters.
#include <usocket.h>

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

} // namespace
} // namespace pu::test
