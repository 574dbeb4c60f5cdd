// SPDX-License-Identifier: MIT
// Loopback plumbing for the socket tests: connected TCP ends on 127.0.0.1, senders, and
// descriptors above what select() can watch.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "net/owned_fd.hpp"
#include "test_support.hpp"

namespace pu::test {

// A descriptor closed on scope exit.
using Fd = pu::net::OwnedFd;

inline sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// The port of fd's own address (getsockname) or of its peer's (getpeername), or -1.
inline int portOf(int fd, int (*query)(int, sockaddr *, socklen_t *) = getsockname) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return query(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0 ? ntohs(address.sin_port)
                                                                           : -1;
}

// Binds a new socket of type to 127.0.0.1:port (0: the kernel picks); an empty Fd if it fails.
inline Fd bindLoopback(int type, int port) {
    Fd fd(socket(AF_INET, type, 0));
    const sockaddr_in address = loopback(static_cast<std::uint16_t>(port));
    return bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
               ? std::move(fd)
               : Fd();
}

// Two connected, blocking TCP ends on 127.0.0.1: `near` is used by the code under test, `far`
// is the peer. A buffer size, when given, is set on both before connecting.
struct Connection {
    Fd near, far;
};
inline Connection connectLoopback(int bufferBytes = 0) {
    Fd listener = bindLoopback(SOCK_STREAM, 0), far(socket(AF_INET, SOCK_STREAM, 0));
    for (int fd : {listener.get(), far.get()}) {
        for (int option : {SO_SNDBUF, SO_RCVBUF}) {
            if (bufferBytes > 0) {
                setsockopt(fd, SOL_SOCKET, option, &bufferBytes, sizeof bufferBytes);
            }
        }
    }
    EXPECT_EQ(listen(listener.get(), 1), 0);
    const sockaddr_in address = loopback(static_cast<std::uint16_t>(portOf(listener.get())));
    EXPECT_EQ(connect(far.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    return {Fd(accept(listener.get(), nullptr, nullptr)), std::move(far)};
}

// Writes all of data on fd (blocking).
inline void sendAll(int fd, const std::string &data) {
    for (std::size_t done = 0; done < data.size();) {
        const ssize_t sent = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        ASSERT_GT(sent, 0);
        done += static_cast<std::size_t>(sent);
    }
}

// Sends data and ends the stream, and waits until all of it is queued at `near`, so a reader
// meets it at once and then end of stream instead of a time-out.
inline void sendAndFinish(Connection &c, const std::string &data) {
    sendAll(c.far.get(), data);
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
inline bool allowDescriptorsUpTo(int highest) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::max(limit.rlim_cur, rlim_t(highest) + 1);
    return limit.rlim_max > rlim_t(highest) && setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// The ports a loopback pair draws after srand(seed), in order (10240 + rand() % 1000 each).
inline std::vector<int> drawnPorts(unsigned seed, int count) {
    srand(seed);
    std::vector<int> ports;
    while (count-- > 0) {
        ports.push_back(10240 + rand() % 1000);
    }
    return ports;
}

// Number of descriptors this process has open.
inline int openDescriptors() {
    int count = 0;
    DIR *dir = opendir("/proc/self/fd");
    for (; dir != nullptr && readdir(dir) != nullptr; ++count) {
    }
    return dir != nullptr && closedir(dir) == 0 ? count : -1;
}

} // namespace pu::test
