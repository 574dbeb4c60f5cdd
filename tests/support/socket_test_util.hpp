// SPDX-License-Identifier: MIT
// Loopback plumbing for the socket tests: connected TCP ends on 127.0.0.1, peers on threads,
// and descriptor bookkeeping.
#pragma once

#include <arpa/inet.h>
#include <algorithm>
#include <cstdint>
#include <dirent.h>
#include <netinet/in.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "net/owned_fd.hpp"

#include <gtest/gtest.h>

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
inline int portOf(int fd, int (*query)(int, sockaddr *, socklen_t *)) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    return query(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0 ? ntohs(address.sin_port)
                                                                           : -1;
}

inline int localPort(int fd) {
    return portOf(fd, getsockname);
}

inline int peerPort(int fd) {
    return portOf(fd, getpeername);
}

// A TCP listener on 127.0.0.1 at a port the kernel picks.
inline Fd listenLoopback() {
    Fd listener(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address = loopback(0);
    EXPECT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener.get(), 4), 0);
    return listener;
}

// Two connected, blocking TCP ends on 127.0.0.1: `near` is read by the code under test, `far`
// is the peer. Optional buffer sizes are set before connecting.
struct Connection {
    Fd near;
    Fd far;
};

inline Connection connectLoopback(int bufferBytes = 0) {
    Fd listener = listenLoopback();
    Fd far(socket(AF_INET, SOCK_STREAM, 0));
    if (bufferBytes > 0) {
        setsockopt(far.get(), SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
        setsockopt(far.get(), SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
        setsockopt(listener.get(), SOL_SOCKET, SO_RCVBUF, &bufferBytes, sizeof bufferBytes);
        setsockopt(listener.get(), SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
    }
    sockaddr_in address = loopback(static_cast<std::uint16_t>(localPort(listener.get())));
    EXPECT_EQ(connect(far.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    Fd near(accept(listener.get(), nullptr, nullptr));
    EXPECT_GE(near.get(), 0);
    return {std::move(near), std::move(far)};
}

// Writes all of data on fd (blocking).
inline void sendAll(int fd, const std::string &data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t sent = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        ASSERT_GT(sent, 0);
        done += static_cast<std::size_t>(sent);
    }
}

// Writes data on fd in pieces of uneven sizes, 1 to 1500 bytes, so readers meet partial data.
inline void sendUnevenly(int fd, const std::string &data) {
    std::size_t done = 0;
    for (std::size_t piece = 3; done < data.size(); piece = (piece * 5) % 1500 + 1) {
        const std::size_t n = std::min(piece, data.size() - done);
        sendAll(fd, data.substr(done, n));
        done += n;
    }
}

// Waits until fd has at least bytes queued for reading, so a reader meets them all at once
// (loopback delivery may finish just after the sender's write returns).
inline void awaitReadable(int fd, int bytes) {
    for (int round = 0; round < 100000; ++round) {
        int queued = 0;
        ioctl(fd, FIONREAD, &queued);
        if (queued >= bytes) {
            return;
        }
        std::this_thread::yield();
    }
    FAIL() << "data did not arrive";
}

// Sends data and then ends the stream, so the reader meets end of stream instead of a time-out.
inline void sendAndFinish(Connection &connection, const std::string &data) {
    sendAll(connection.far.get(), data);
    shutdown(connection.far.get(), SHUT_WR);
    awaitReadable(connection.near.get(), static_cast<int>(data.size()));
}

// A byte pattern with every value, zeros, carriage returns and line feeds included.
inline std::string pattern(std::size_t size, unsigned seed = 0) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 131 + seed) % 251);
    }
    return bytes;
}

// Number of descriptors this process has open.
inline int openDescriptors() {
    int count = 0;
    if (DIR *dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) {
            ++count;
        }
        closedir(dir);
    }
    return count;
}

} // namespace pu::test
