// SPDX-License-Identifier: MIT
// Connected socket pairs over the loopback interface, and the UDP port check.
#include <platform_os.h>
#include <usocket.h>

#include "core/log_modules.hpp"
#include "net/owned_fd.hpp"
#include "net/socket_wait.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using pu::net::OwnedFd;

constexpr const char *kPeerName = "uSocketPeer";
constexpr const char *kUdpPeerName = "uSocketUdpPeer";
constexpr const char *kLoopback = "127.0.0.1";
constexpr int kFirstPort = 10240;
constexpr int kPortSpan = 1000;
constexpr int kBindAttempts = 100;
constexpr std::int32_t kPairRecvTimeoutSec = 60;
constexpr std::uint32_t kMaxPort = 65535;

// Fixed numbers the failure messages carry; log filters match on them.
constexpr int kServerBindLine = 421;
constexpr int kListenLine = 427;
constexpr int kClientBindLine = 449;
constexpr int kUdpFirstBindLine = 559;
constexpr int kUdpSecondBindLine = 581;

sockaddr_in loopbackAddress() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(kLoopback);
    return address;
}

// Binds fd to address at a port drawn from rand() in 10240..11239, up to 100 draws. Leaves the
// port in address and returns it, or -1. The process-wide generator is used unseeded on purpose:
// an application that seeds it gets a reproducible choice.
int tryBindRandomPort(int fd, sockaddr_in &address) {
    for (int attempt = 0; attempt < kBindAttempts; ++attempt) {
        const int port = kFirstPort + std::rand() % kPortSpan; // NOLINT(concurrency-mt-unsafe)
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
            return port;
        }
    }
    return -1;
}

void setCloseOnExec(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
}

// Replaces every file status flag with O_NONBLOCK alone: a fresh socket has none worth keeping.
void setNonBlockingOnly(int fd) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
}

// What one end of a pair says when it cannot be made.
struct EndMessages {
    const char *createFailure;
    int bindFailureLine;
};

// Creates one end of a pair: close-on-exec, bound to a random loopback port (left in address),
// non-blocking. Logs and returns an empty OwnedFd on failure; the caller then says "failed !".
OwnedFd openEnd(const char *name, int type, int protocol, sockaddr_in &address,
                const EndMessages &messages) {
    OwnedFd end(socket(AF_INET, type, protocol));
    if (end.get() < 0) {
        pu::log::debug(pu::log::kSocket, messages.createFailure, name);
        return end;
    }
    setCloseOnExec(end.get());
    if (tryBindRandomPort(end.get(), address) < 0) {
        pu::log::error(pu::log::kSocket, "%s %d uSocketTryBind error !", name,
                       messages.bindFailureLine);
        end.reset();
        return end;
    }
    setNonBlockingOnly(end.get());
    return end;
}

std::int32_t pairFailed(const char *name) {
    pu::log::debug(pu::log::kSocket, "%s failed !", name);
    return -1;
}

std::int32_t pairMade(const char *name, uSocketPair *pair, OwnedFd &client, OwnedFd &accepted) {
    pair->clientSock = client.release();
    pair->acceptSock = accepted.release();
    uSocketSetRecvTimeout(pair->clientSock, kPairRecvTimeoutSec);
    uSocketSetRecvTimeout(pair->acceptSock, kPairRecvTimeoutSec);
    pu::log::debug(pu::log::kSocket, "%s success clientSock=%d, acceptSock=%d", name,
                   pair->clientSock, pair->acceptSock);
    return 0;
}

// Waits, without a time-out, until the server has a connection to accept and the client is
// writable, whichever comes first. Accepts (taking accept's result as it is) and closes the
// server at once. False only when select() fails for a reason other than a signal.
bool completeLoopbackConnect(OwnedFd &server, const OwnedFd &client, OwnedFd &accepted) {
    bool connected = false;
    while (server.get() >= 0 || !connected) {
        fd_set readSet;
        fd_set writeSet;
        FD_ZERO(&readSet);
        FD_ZERO(&writeSet);
        if (server.get() >= 0) {
            FD_SET(server.get(), &readSet);
        }
        if (!connected) {
            FD_SET(client.get(), &writeSet);
        }
        const int highest = std::max(server.get(), client.get());
        if (select(highest + 1, &readSet, &writeSet, nullptr, nullptr) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (server.get() >= 0 && FD_ISSET(server.get(), &readSet)) {
            accepted.reset(accept(server.get(), nullptr, nullptr));
            server.reset();
        }
        if (!connected && FD_ISSET(client.get(), &writeSet)) {
            connected = true;
        }
    }
    return true;
}

} // namespace

extern "C" {

int32_t uSocketPeer(uSocketPair *pair) {
    if (pair == nullptr) {
        return -1;
    }
    pu::log::debug(pu::log::kSocket, "%s ", kPeerName);
    sockaddr_in serverAddress = loopbackAddress();
    OwnedFd server = openEnd(kPeerName, SOCK_STREAM, IPPROTO_TCP, serverAddress,
                             {"%s failed cannot create server socket!", kServerBindLine});
    if (server.get() < 0) {
        return pairFailed(kPeerName);
    }
    if (listen(server.get(), 1) != 0) {
        pu::log::error(pu::log::kSocket, "%s %d listen error !", kPeerName, kListenLine);
        return pairFailed(kPeerName);
    }
    sockaddr_in clientAddress = loopbackAddress();
    OwnedFd client = openEnd(kPeerName, SOCK_STREAM, IPPROTO_TCP, clientAddress,
                             {"%s failed cannot create clientSock socket!", kClientBindLine});
    if (client.get() < 0) {
        return pairFailed(kPeerName);
    }
    // Both go into fd_sets below; a descriptor beyond their capacity cannot be waited for.
    if (!pu::net::selectable(server.get()) || !pu::net::selectable(client.get())) {
        return pairFailed(kPeerName);
    }
    // The non-blocking connect is normally still in progress; the wait below completes it.
    connect(client.get(), reinterpret_cast<const sockaddr *>(&serverAddress), sizeof serverAddress);
    OwnedFd accepted;
    if (!completeLoopbackConnect(server, client, accepted)) {
        return pairFailed(kPeerName);
    }
    return pairMade(kPeerName, pair, client, accepted);
}

int32_t uSocketUdpPeer(uSocketPair *pair) {
    if (pair == nullptr) {
        return -1;
    }
    sockaddr_in firstAddress = loopbackAddress();
    OwnedFd first = openEnd(kUdpPeerName, SOCK_DGRAM, 0, firstAddress,
                            {"%s failed cannot create server socket!", kUdpFirstBindLine});
    if (first.get() < 0) {
        return pairFailed(kUdpPeerName);
    }
    sockaddr_in secondAddress = loopbackAddress();
    OwnedFd second = openEnd(kUdpPeerName, SOCK_DGRAM, 0, secondAddress,
                             {"%s failed cannot create clientSock!", kUdpSecondBindLine});
    if (second.get() < 0) {
        return pairFailed(kUdpPeerName);
    }
    if (connect(first.get(), reinterpret_cast<const sockaddr *>(&secondAddress),
                sizeof secondAddress) != 0 ||
        connect(second.get(), reinterpret_cast<const sockaddr *>(&firstAddress),
                sizeof firstAddress) != 0) {
        std::perror("connect failed");
        return pairFailed(kUdpPeerName);
    }
    return pairMade(kUdpPeerName, pair, second, first);
}

int32_t uSocketPortIsUsable(int32_t port) {
    if (port < 0 || static_cast<std::uint32_t>(port) > kMaxPort) {
        return 0;
    }
    OwnedFd probe(socket(AF_INET, SOCK_DGRAM, 0));
    if (probe.get() < 0) {
        return 0;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return bind(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 1
                                                                                                : 0;
}

} // extern "C"
