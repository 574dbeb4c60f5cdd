// SPDX-License-Identifier: MIT
// HTTP request bodies streamed to a callback in pieces of at most 1024 bytes, with and without
// a closing boundary line, from a loopback peer and from the curl client.
#include <usocket.h>

#include "socket_test_util.hpp"

#include <cstdlib>
#include <poll.h>
#include <spawn.h>
#include <strings.h>
#include <sys/wait.h>

extern char **environ;

namespace pu::test {
namespace {

// What the callback was handed: the bytes, and the size of each piece.
struct Body {
    std::string data;
    std::vector<std::uint32_t> pieces;
    static std::int32_t collect(void *context, const char *bytes, std::uint32_t length) {
        static_cast<Body *>(context)->data.append(bytes, length);
        static_cast<Body *>(context)->pieces.push_back(length);
        return -1; // ignored
    }
};

const std::string payload = pattern(2500, 5);
using Pieces = std::vector<std::uint32_t>;

TEST(SocketReadHttpData, PiecesAndTheHeldBackTail) {
    // Sent (then end of stream), boundary, result, piece sizes. With a boundary of length L the
    // last L + 4 bytes are dropped only when they hold two bytes, the text and its zero byte.
    using Row = std::tuple<const char *, std::string, const char *, std::int32_t, Pieces>;
    for (const auto &[label, sent, boundary, result, pieces] : {
             Row{"no boundary", pattern(5000), nullptr, 5000, {1024, 1024, 1024, 1024, 904}},
             Row{"no boundary, last read filled", pattern(2048), nullptr, 2048, {1024, 1024, 0}},
             Row{"the usual closing line stays",
                 payload + "\r\nXYZ\r\n",
                 "XYZ",
                 2507,
                 {1024, 1024, 452, 7}},
             Row{"text and zero: dropped",
                 payload + std::string("--XYZ\0!", 7),
                 "XYZ",
                 2500,
                 {1024, 1024, 452}},
             Row{"a byte differs: kept",
                 payload + std::string("--XYW\0!", 7),
                 "XYZ",
                 2507,
                 {1024, 1024, 452, 7}},
             Row{"shorter than the tail", "abcdef", "XYZ", 0, {}},
             Row{"exactly the tail", "0123456", "XYZ", 7, {0, 7}},
             Row{"first read full, then nothing", pattern(1031, 9), "XYZ", 1031, {1024, 0, 7}},
             Row{"an empty boundary holds back 4", "ab", "", 0, {}},
         }) {
        SCOPED_TRACE(label);
        Connection c = connectLoopback();
        sendAndFinish(c, sent);
        Body body;
        EXPECT_EQ(uSocketReadHttpData(c.near.get(), boundary, &body, Body::collect), result);
        EXPECT_EQ(body.pieces, pieces);
        EXPECT_EQ(body.data, sent.substr(0, body.data.size()));
    }
}

TEST(SocketReadHttpDataWithSize, ConsumesTheContentLengthAndNoMore) {
    // Sent (then end of stream), boundary, content length, result, piece sizes, what is left.
    using Row = std::tuple<const char *, std::string, const char *, std::int32_t, std::int32_t,
                           Pieces, std::string>;
    for (const auto &[label, sent, boundary, length, result, pieces, rest] : {
             Row{"no boundary", payload + "NEXT", nullptr, 2500, 2500, {1024, 1024, 452}, "NEXT"},
             Row{"closing line read, not delivered",
                 payload + "\r\nXYZ\r\nNEXT",
                 "XYZ",
                 2507,
                 2507,
                 {1024, 1024, 452},
                 "NEXT"},
             Row{"no content", "abc", nullptr, 0, 0, {}, "abc"},
             Row{"negative length", "abc", nullptr, -3, 0, {}, "abc"},
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

// The head of a request, up to its empty line: the request line and the Content-Length value.
std::pair<std::string, int> readHead(int fd) {
    std::pair<std::string, int> head{"", -1};
    char line[1024];
    for (std::int32_t n; (n = uSocketReadLine(fd, line, sizeof line - 1)) > 0;) {
        line[n] = '\0';
        head.first = head.first.empty() ? line : head.first;
        head.second =
            strncasecmp(line, "Content-Length:", 15) == 0 ? std::atoi(line + 15) : head.second;
    }
    return head;
}

TEST(SlowSocketReadHttpDataWithSize, ReceivesABodyPostedByCurl) {
    if (access("/usr/bin/curl", X_OK) != 0) {
        GTEST_SKIP() << "curl is not installed (scripts/install-deps.sh installs it)";
    }
    const std::string closing = "\r\n--XYZ--\r\n";
    char path[] = "/tmp/pu-curl-body-XXXXXX";
    const Fd file(mkstemp(path));
    const auto size = static_cast<std::int32_t>(payload.size() + closing.size());
    ASSERT_EQ(uSocketSafeWriteData(file.get(), (payload + closing).data(), size), size); // write()
    Fd listener = bindLoopback(SOCK_STREAM, 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    const std::string url = "http://127.0.0.1:" + std::to_string(portOf(listener.get())) + "/up";
    const std::string data = std::string("@") + path;
    const char *args[] = {"curl", "-sS",       "--max-time",    "20",
                          "-H",   "Expect:",   "--data-binary", data.c_str(),
                          "-o",   "/dev/null", url.c_str(),     nullptr};
    pid_t pid = 0;
    ASSERT_EQ(
        posix_spawn(&pid, "/usr/bin/curl", nullptr, nullptr, const_cast<char **>(args), environ),
        0);
    pollfd waiting{listener.get(), POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 20000), 1) << "curl did not connect";
    Fd client(accept(listener.get(), nullptr, nullptr));
    const auto [requestLine, length] = readHead(client.get());
    EXPECT_EQ(requestLine, "POST /up HTTP/1.1");
    EXPECT_EQ(length, static_cast<int>(payload.size() + closing.size()));
    Body body;
    EXPECT_EQ(uSocketReadHttpDataWithSize(client.get(), "--XYZ--", length, &body, Body::collect),
              length);
    EXPECT_EQ(body.data, payload);
    const std::string reply = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(
        uSocketSafeWriteData(client.get(), reply.data(), static_cast<std::int32_t>(reply.size())),
        static_cast<std::int32_t>(reply.size()));
    client.reset();
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "curl status " << status;
    unlink(path);
}

} // namespace
} // namespace pu::test
