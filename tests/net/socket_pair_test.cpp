// SPDX-License-Identifier: MIT
// Loopback pairs, the UDP port check, the send-queue wait and the option setters.
#include <platform_os.h>
#include <usocket.h>

#include "log_capture.hpp"
#include "socket_test_util.hpp"
#include "task_delay_hook.hpp"

#include <cerrno>
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <sys/time.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using pu::test::connectLoopback;
using pu::test::Fd;
using pu::test::localPort;
using pu::test::openDescriptors;
using pu::test::pattern;
using pu::test::peerPort;

constexpr const char *kModule = "basalt.utils.socket";
constexpr int kFirstPort = 10240;
constexpr int kLastPort = 11239;

bool inPairRange(int port) {
    return port >= kFirstPort && port <= kLastPort;
}

// The pair's descriptors, closed on scope exit.
struct OwnedPair {
    Fd client;
    Fd accepted;
    explicit OwnedPair(const uSocketPair &pair)
        : client(pair.clientSock), accepted(pair.acceptSock) {}
};

int recvTimeoutSec(int fd) {
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length);
    return static_cast<int>(limit.tv_sec);
}

// Sends size bytes each way at once, on four threads, with the library's own helpers.
void exchangeBothWays(int a, int b, std::size_t size) {
    const std::string aToB = pattern(size, 1), bToA = pattern(size, 2);
    std::string atB(size, '\0'), atA(size, '\0');
    const auto n = static_cast<int32_t>(size);
    std::vector<std::thread> threads;
    threads.emplace_back([&] { EXPECT_EQ(uSocketSafeWriteData(a, aToB.data(), n), n); });
    threads.emplace_back([&] { EXPECT_EQ(uSocketSafeWriteData(b, bToA.data(), n), n); });
    threads.emplace_back([&] { EXPECT_EQ(uSocketReadNormalData(b, atB.data(), n), n); });
    threads.emplace_back([&] { EXPECT_EQ(uSocketReadNormalData(a, atA.data(), n), n); });
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(atB, aToB);
    EXPECT_EQ(atA, bToA);
}

TEST(SocketPeer, TcpPairCarriesDataBothWays) {
    pu::test::LogCapture log;
    uSocketPair pair{-7, -7};
    ASSERT_EQ(uSocketPeer(&pair), 0) << log.dump();
    OwnedPair owned(pair);

    EXPECT_TRUE(inPairRange(localPort(pair.clientSock)));
    EXPECT_TRUE(inPairRange(peerPort(pair.clientSock)));
    EXPECT_EQ(peerPort(pair.acceptSock), localPort(pair.clientSock));
    EXPECT_EQ(fcntl(pair.clientSock, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(fcntl(pair.clientSock, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(recvTimeoutSec(pair.clientSock), 60);
    EXPECT_EQ(recvTimeoutSec(pair.acceptSock), 60);

    exchangeBothWays(pair.clientSock, pair.acceptSock, 300000);

    // A line across the pair, as applications use it.
    EXPECT_EQ(uSocketSafeWriteData(pair.acceptSock, "hello\r\n", 7), 7);
    char line[16];
    EXPECT_EQ(uSocketReadLine(pair.clientSock, line, sizeof line), 5);
    EXPECT_STREQ(line, "hello");

    EXPECT_EQ(log.count(0, kModule, "uSocketPeer "), 1);
    EXPECT_EQ(log.count(0, kModule,
                        "uSocketPeer success clientSock=" + std::to_string(pair.clientSock) +
                            ", acceptSock=" + std::to_string(pair.acceptSock)),
              1);
}

TEST(SocketPeer, UdpPairCarriesDatagramsBothWays) {
    pu::test::LogCapture log;
    uSocketPair pair{-7, -7};
    ASSERT_EQ(uSocketUdpPeer(&pair), 0) << log.dump();
    OwnedPair owned(pair);
    EXPECT_EQ(peerPort(pair.clientSock), localPort(pair.acceptSock));
    EXPECT_EQ(peerPort(pair.acceptSock), localPort(pair.clientSock));
    EXPECT_TRUE(inPairRange(localPort(pair.clientSock)));
    EXPECT_TRUE(inPairRange(localPort(pair.acceptSock)));
    EXPECT_EQ(fcntl(pair.acceptSock, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(recvTimeoutSec(pair.clientSock), 60);

    char datagram[32] = {};
    EXPECT_EQ(uSocketSafeWriteData(pair.clientSock, "ping", 4), 4);
    EXPECT_EQ(uSocketReadWithTimeout(pair.acceptSock, datagram, 4, 5), 4);
    EXPECT_STREQ(datagram, "ping");
    EXPECT_EQ(uSocketSafeWriteData(pair.acceptSock, "pong!", 5), 5);
    EXPECT_EQ(uSocketReadWithTimeout(pair.clientSock, datagram, 5, 5), 5);
    EXPECT_STREQ(datagram, "pong!");
    EXPECT_EQ(log.count(0, kModule, "uSocketUdpPeer "), 0);
    EXPECT_EQ(log.countContaining(kModule, "uSocketUdpPeer success clientSock="), 1);
}

bool canBind(int type, int port) {
    Fd probe(socket(AF_INET, type, 0));
    sockaddr_in address = pu::test::loopback(static_cast<uint16_t>(port));
    return bind(probe.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
}

// The ports a pair draws after srand(seed), in order.
std::vector<int> drawnPorts(unsigned seed, int count) {
    srand(seed);
    std::vector<int> ports;
    for (int i = 0; i < count; ++i) {
        ports.push_back(kFirstPort + rand() % 1000);
    }
    return ports;
}

// A seed whose first two draws are distinct ports that this type can bind now.
unsigned usableSeed(int type) {
    for (unsigned seed = 1;; ++seed) {
        const std::vector<int> ports = drawnPorts(seed, 2);
        if (ports[0] != ports[1] && canBind(type, ports[0]) && canBind(type, ports[1])) {
            return seed;
        }
    }
}

TEST(SocketPeer, PortsAreDrawnFromTheProcessGenerator) {
    const unsigned tcpSeed = usableSeed(SOCK_STREAM);
    std::vector<int> ports = drawnPorts(tcpSeed, 2);
    srand(tcpSeed);
    uSocketPair pair{-1, -1};
    ASSERT_EQ(uSocketPeer(&pair), 0);
    {
        OwnedPair owned(pair);
        EXPECT_EQ(peerPort(pair.clientSock), ports[0]) << "the server binds first";
        EXPECT_EQ(localPort(pair.clientSock), ports[1]);
    }

    const unsigned udpSeed = usableSeed(SOCK_DGRAM);
    ports = drawnPorts(udpSeed, 2);
    srand(udpSeed);
    ASSERT_EQ(uSocketUdpPeer(&pair), 0);
    OwnedPair owned(pair);
    EXPECT_EQ(localPort(pair.acceptSock), ports[0]) << "the first socket becomes the accepting one";
    EXPECT_EQ(localPort(pair.clientSock), ports[1]);
}

// Holds every port of the pairs' range on 127.0.0.1 that it can get, for one socket type.
class PortHog {
  public:
    explicit PortHog(int type) {
        for (int port = kFirstPort; port <= kLastPort; ++port) {
            Fd fd(socket(AF_INET, type, 0));
            sockaddr_in address = pu::test::loopback(static_cast<uint16_t>(port));
            if (bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
                held_.emplace(port, std::move(fd));
            }
        }
    }
    bool holds(int port) const { return held_.count(port) != 0; }
    void release(int port) { held_.erase(port); }

  private:
    std::map<int, Fd> held_;
};

// A seed whose first draw is a port the hog holds (so it can hand it over).
unsigned seedOfHeldPort(const PortHog &hog) {
    for (unsigned seed = 1;; ++seed) {
        if (hog.holds(drawnPorts(seed, 1)[0])) {
            return seed;
        }
    }
}

// Runs a pair function that must fail: nothing leaks, nothing is stored, and the log carries
// the expected bind message with its fixed number.
void expectBindFailure(int32_t (*makePair)(uSocketPair *), const std::string &name, int number) {
    pu::test::LogCapture log;
    const int before = openDescriptors();
    uSocketPair pair{-7, -7};
    EXPECT_EQ(makePair(&pair), -1);
    EXPECT_EQ(pair.clientSock, -7);
    EXPECT_EQ(pair.acceptSock, -7);
    EXPECT_EQ(openDescriptors(), before) << "every socket the call made is closed";
    EXPECT_EQ(
        log.count(3, kModule, name + " " + std::to_string(number) + " uSocketTryBind error !"), 1)
        << log.dump();
    EXPECT_EQ(log.count(0, kModule, name + " failed !"), 1);
}

// With every port taken the first bind fails; handed its first draw, the first socket binds
// and the second finds every port taken.
void expectBindFailures(int type, int32_t (*makePair)(uSocketPair *), const std::string &name,
                        int firstNumber, int secondNumber) {
    PortHog hog(type);
    expectBindFailure(makePair, name, firstNumber);
    const unsigned seed = seedOfHeldPort(hog);
    hog.release(drawnPorts(seed, 1)[0]);
    srand(seed);
    expectBindFailure(makePair, name, secondNumber);
}

TEST(SocketPeer, BindFailuresReleaseEverythingAndKeepTheirNumbers) {
    expectBindFailures(SOCK_STREAM, uSocketPeer, "uSocketPeer", 421, 449);
    expectBindFailures(SOCK_DGRAM, uSocketUdpPeer, "uSocketUdpPeer", 559, 581);
}

TEST(SocketPeer, RefusesDescriptorsSelectCannotWatch) {
    // Fill every descriptor below FD_SETSIZE, so the pair's sockets land above it.
    std::vector<Fd> fillers;
    for (int fd = 0; fd < FD_SETSIZE - 1;) {
        fd = open("/dev/null", O_RDONLY);
        ASSERT_GE(fd, 0) << "needs a descriptor limit above FD_SETSIZE";
        fillers.emplace_back(fd);
    }
    pu::test::LogCapture log;
    const int before = openDescriptors();
    uSocketPair pair{-7, -7};
    EXPECT_EQ(uSocketPeer(&pair), -1);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(log.count(0, kModule, "uSocketPeer failed !"), 1);
}

TEST(SocketPortIsUsable, OnlyAFreeUdpPortCounts) {
    EXPECT_EQ(uSocketPortIsUsable(-1), 0);
    EXPECT_EQ(uSocketPortIsUsable(65536), 0);
    EXPECT_EQ(uSocketPortIsUsable(0), 1); // the kernel picks one

    // Held by a UDP socket on all interfaces, then released.
    Fd udp(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in any{};
    any.sin_family = AF_INET;
    ASSERT_EQ(bind(udp.get(), reinterpret_cast<sockaddr *>(&any), sizeof any), 0);
    const int port = localPort(udp.get());
    EXPECT_EQ(uSocketPortIsUsable(port), 0);
    udp.reset();
    EXPECT_EQ(uSocketPortIsUsable(port), 1);

    // Held on the loopback address only: the wildcard bind still collides.
    Fd loopbackOnly(socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in local = pu::test::loopback(0);
    ASSERT_EQ(bind(loopbackOnly.get(), reinterpret_cast<sockaddr *>(&local), sizeof local), 0);
    EXPECT_EQ(uSocketPortIsUsable(localPort(loopbackOnly.get())), 0);

    // A TCP listener does not make the port unusable: only UDP is checked.
    Fd listener = pu::test::listenLoopback();
    EXPECT_EQ(uSocketPortIsUsable(localPort(listener.get())), 1);
}

// Fills fd (made non-blocking) until the kernel takes no more.
void fillUntilFull(int fd) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    const std::string chunk = pattern(4096);
    while (send(fd, chunk.data(), chunk.size(), MSG_NOSIGNAL) > 0) {
    }
    ASSERT_EQ(errno, EAGAIN);
}

TEST(SocketWaitSendDataConfirmed, DrainedByAReaderOrStalledByAPeerThatDoesNotRead) {
    pu::test::TaskDelayRecorder delays;
    pu::test::Connection c = connectLoopback(4096);
    EXPECT_EQ(uSocketWaitSendDataConfirmed(c.near.get(), 0), 0);
    EXPECT_TRUE(delays.calls().empty()) << "an empty queue needs no poll";

    const std::string data = pattern(200000);
    std::thread reader([&] {
        std::string sink(data.size(), '\0');
        EXPECT_EQ(
            uSocketReadNormalData(c.far.get(), sink.data(), static_cast<int32_t>(sink.size())),
            static_cast<int32_t>(sink.size()));
    });
    pu::test::sendAll(c.near.get(), data);
    // A generous tolerance keeps a slow reader from looking stalled.
    EXPECT_EQ(uSocketWaitSendDataConfirmed(c.near.get(), 1000), 0);
    reader.join();
    for (int ticks : delays.calls()) {
        EXPECT_EQ(ticks, sysClkRateGet()) << "polls are a second apart";
    }

    fillUntilFull(c.near.get());
    EXPECT_EQ(uSocketWaitSendDataConfirmed(c.near.get(), 0), -1);

    pu::test::LogCapture log;
    EXPECT_EQ(uSocketWaitSendDataConfirmed(-1, 5), -1);
    EXPECT_EQ(log.count(3, kModule, "uSocketWaitSendDataConfirmed: ioctl error"), 1);
}

// A local stream pair's queue changes only when the peer reads, so polls can be counted exactly.
struct LocalPair {
    Fd writer;
    Fd reader;
    LocalPair() {
        int fds[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        writer.reset(fds[0]);
        reader.reset(fds[1]);
    }
    void drain(std::size_t bytes) {
        std::string sink(bytes, '\0');
        EXPECT_GT(read(reader.get(), sink.data(), bytes), 0);
    }
};

TEST(SocketWaitSendDataConfirmed, ToleranceCountsUnchangedPollsInARow) {
    pu::test::TaskDelayRecorder delays;
    LocalPair local;
    fillUntilFull(local.writer.get());
    for (int tolerance : {0, 1, 3, -4}) {
        delays.clear();
        EXPECT_EQ(uSocketWaitSendDataConfirmed(local.writer.get(), tolerance), -1);
        // One poll finds a new amount, then tolerance + 1 polls find it unchanged.
        EXPECT_EQ(delays.calls().size(), static_cast<std::size_t>(std::max(tolerance, 0) + 1))
            << "tolerance " << tolerance;
    }

    // A change in the amount starts the count again.
    delays.clear();
    delays.onCall([&](std::size_t call) {
        if (call == 2) {
            local.drain(100000);
        }
    });
    EXPECT_EQ(uSocketWaitSendDataConfirmed(local.writer.get(), 1), -1);
    EXPECT_EQ(delays.calls().size(), 4u);

    // Draining everything between two polls ends the wait with success.
    delays.clear();
    delays.onCall([&](std::size_t call) {
        if (call == 3) {
            local.drain(1 << 22);
        }
    });
    EXPECT_EQ(uSocketWaitSendDataConfirmed(local.writer.get(), 5), 0);
    EXPECT_EQ(delays.calls().size(), 3u);
}

TEST(SocketOptions, NegativeValuesAndNonSocketsAreRefused) {
    Fd s(socket(AF_INET, SOCK_STREAM, 0));
    EXPECT_EQ(uSocketSetRecvTimeout(s.get(), 3), 0);
    EXPECT_EQ(recvTimeoutSec(s.get()), 3);
    EXPECT_EQ(uSocketSetRecvTimeout(s.get(), 0), 0); // 0 clears it
    EXPECT_EQ(recvTimeoutSec(s.get()), 0);
    EXPECT_EQ(uSocketSetSendBufferSize(s.get(), 0), 0);
    Fd notSocket(open("/dev/null", O_RDONLY));
    for (auto set : {uSocketSetSendBufferSize, uSocketSetRecvBufferSize, uSocketSetSendTimeout,
                     uSocketSetRecvTimeout}) {
        EXPECT_EQ(set(s.get(), -1), -1);
        EXPECT_EQ(set(-1, 1), -1);
        EXPECT_EQ(set(notSocket.get(), 1), -1);
    }
}

} // namespace
