// SPDX-License-Identifier: MIT
// HTTP request bodies streamed to a callback, from test peers and from the curl client.
#include <usocket.h>

#include "socket_test_util.hpp"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <strings.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

extern char **environ;

namespace {

using pu::test::Connection;
using pu::test::connectLoopback;
using pu::test::pattern;
using pu::test::sendAll;

// What the callback was handed, piece by piece.
struct Body {
    std::string data;
    std::vector<uint32_t> pieces;

    static int32_t collect(void *context, const char *bytes, uint32_t length) {
        auto *body = static_cast<Body *>(context);
        body->data.append(bytes, length);
        body->pieces.push_back(length);
        return -1; // ignored
    }
};

// Sends data in uneven pieces from a thread, then (if finish) ends the stream.
class UnevenPeer {
  public:
    UnevenPeer(Connection &c, std::string data, bool finish = true)
        : thread_([&c, data = std::move(data), finish] {
              pu::test::sendUnevenly(c.far.get(), data);
              if (finish) {
                  shutdown(c.far.get(), SHUT_WR);
              }
          }) {}
    ~UnevenPeer() { thread_.join(); }
    UnevenPeer(const UnevenPeer &) = delete;
    UnevenPeer &operator=(const UnevenPeer &) = delete;

  private:
    std::thread thread_;
};

Body readHttp(const std::string &sent, const char *boundary, int32_t *result) {
    Connection c = connectLoopback();
    Body body;
    {
        UnevenPeer peer(c, sent);
        *result = uSocketReadHttpData(c.near.get(), boundary, &body, Body::collect);
    }
    for (uint32_t piece : body.pieces) {
        EXPECT_LE(piece, 1024u);
    }
    return body;
}

TEST(SocketReadHttpData, WithoutBoundaryEverythingIsDeliveredInOrder) {
    int32_t result = 0;
    const std::string sent = pattern(5000);
    Body body = readHttp(sent, nullptr, &result);
    EXPECT_EQ(result, 5000);
    EXPECT_EQ(body.data, sent);
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{1024, 1024, 1024, 1024, 904}));

    // A body that fills the last read exactly ends with an empty piece.
    body = readHttp(pattern(2048), nullptr, &result);
    EXPECT_EQ(result, 2048);
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{1024, 1024, 0}));
}

TEST(SocketReadHttpData, HeldBackTailIsDroppedOnlyWhenItCarriesTheBoundaryAndItsZero) {
    const std::string payload = pattern(2500, 5);
    int32_t result = 0;

    // The usual closing line, CR LF boundary CR LF, does not match the boundary's terminating
    // zero, so it is delivered after all. Intended.
    Body body = readHttp(payload + "\r\nXYZ\r\n", "XYZ", &result);
    EXPECT_EQ(result, 2507);
    EXPECT_EQ(body.data, payload + "\r\nXYZ\r\n");
    EXPECT_EQ(body.pieces.back(), 7u) << "the tail comes last, as one piece";

    // Two bytes, the boundary text and a zero byte: the tail of L + 4 bytes is dropped.
    const std::string closing("--XYZ\0!", 7);
    body = readHttp(payload + closing, "XYZ", &result);
    EXPECT_EQ(result, 2500);
    EXPECT_EQ(body.data, payload);

    // The comparison covers the text only up to its zero: a differing byte there keeps the tail.
    body = readHttp(payload + std::string("--XYW\0!", 7), "XYZ", &result);
    EXPECT_EQ(result, 2507);
}

TEST(SocketReadHttpData, ShortBodiesAndReadsThatFillTheBuffer) {
    int32_t result = 0;
    // Shorter than the tail: nothing is delivered, not even through an empty piece.
    Body body = readHttp("abcdef", "XYZ", &result);
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(body.pieces.empty());

    // Exactly the tail: an empty piece, then the tail itself.
    body = readHttp("0123456", "XYZ", &result);
    EXPECT_EQ(result, 7);
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{0, 7}));

    // L + 1028 bytes fill the first read: 1024 go out, the next read finds nothing, and the
    // held tail follows.
    const std::string full = pattern(1031, 9);
    body = readHttp(full, "XYZ", &result);
    EXPECT_EQ(result, 1031);
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{1024, 0, 7}));
    EXPECT_EQ(body.data, full);

    // An empty boundary still holds back four bytes.
    body = readHttp("ab", "", &result);
    EXPECT_EQ(result, 0);
    std::string noCallback = pattern(3000);
    Connection c = connectLoopback();
    {
        UnevenPeer peer(c, noCallback);
        EXPECT_EQ(uSocketReadHttpData(c.near.get(), "XYZ", nullptr, nullptr), 3000);
    }
}

TEST(SocketReadHttpDataWithSize, ConsumesExactlyTheContentLength) {
    // Without a boundary: the whole content goes to the callback, what follows stays unread.
    Connection c = connectLoopback();
    const std::string payload = pattern(2500, 1);
    Body body;
    {
        UnevenPeer peer(c, payload + "NEXT", false);
        EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), nullptr, 2500, &body, Body::collect),
                  2500);
    }
    EXPECT_EQ(body.data, payload);
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{1024, 1024, 452}));
    char rest[8] = {};
    EXPECT_EQ(uSocketReadWithTimeout(c.near.get(), rest, 4, 5), 4);
    EXPECT_STREQ(rest, "NEXT");

    // With a boundary: the closing L + 4 bytes are consumed but not delivered.
    Connection d = connectLoopback();
    Body bounded;
    {
        UnevenPeer peer(d, payload + "\r\nXYZ\r\nNEXT", false);
        EXPECT_EQ(uSocketReadHttpDataWithSize(d.near.get(), "XYZ", 2507, &bounded, Body::collect),
                  2507);
    }
    EXPECT_EQ(bounded.data, payload);
    std::memset(rest, 0, sizeof rest);
    EXPECT_EQ(uSocketReadWithTimeout(d.near.get(), rest, 4, 5), 4);
    EXPECT_STREQ(rest, "NEXT");
}

TEST(SocketReadHttpDataWithSize, LengthsTooSmallAndBodiesCutShort) {
    Connection c = connectLoopback();
    sendAll(c.far.get(), "abcdefgh");
    pu::test::awaitReadable(c.near.get(), 8);
    Body body;
    // No body at all, or a content length that cannot hold the boundary line (2 + 4 > 5): nothing
    // is read and the callback is not called.
    EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), nullptr, 0, &body, Body::collect), 0);
    EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), nullptr, -3, &body, Body::collect), 0);
    EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), "ab", 5, &body, Body::collect), 0);
    EXPECT_TRUE(body.pieces.empty());

    // Content length exactly L + 4: an empty body (one empty piece), then the line is dropped.
    EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), "ab", 6, &body, Body::collect), 6);
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{0}));

    // The peer ends early: what arrived is delivered, then an empty piece; the boundary line is
    // not looked for, since the body never completed.
    sendAll(c.far.get(), "xyz");
    shutdown(c.far.get(), SHUT_WR);
    body = Body{};
    EXPECT_EQ(uSocketReadHttpDataWithSize(c.near.get(), "ab", 1000, &body, Body::collect), 5);
    EXPECT_EQ(body.data, "ghxyz");
    EXPECT_EQ(body.pieces, (std::vector<uint32_t>{5, 0}));
}

// ---- A body sent by the curl client ------------------------------------------------------

struct HttpRequest {
    std::string requestLine;
    int32_t contentLength = -1;
};

HttpRequest readRequestHead(int fd) {
    HttpRequest request;
    char line[1024];
    int32_t length;
    while ((length = uSocketReadLine(fd, line, sizeof line - 1)) > 0) {
        line[length] = '\0';
        if (request.requestLine.empty()) {
            request.requestLine = line;
        } else if (strncasecmp(line, "Content-Length:", 15) == 0) {
            request.contentLength = std::atoi(line + 15);
        }
    }
    return request;
}

TEST(SocketReadHttpDataWithSize, ReceivesABodyPostedByCurl) {
    const std::string curl = "/usr/bin/curl";
    if (access(curl.c_str(), X_OK) != 0) {
        GTEST_SKIP() << "curl is not installed (scripts/install-deps.sh installs it)";
    }
    const std::string payload = pattern(3001, 13);
    const std::string closing = "\r\n--XYZ--\r\n";
    char path[] = "/tmp/pu-curl-body-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    close(file);
    std::ofstream(path, std::ios::binary) << payload << closing;

    pu::test::Fd listener = pu::test::listenLoopback();
    const std::string url =
        "http://127.0.0.1:" + std::to_string(pu::test::localPort(listener.get())) + "/upload";
    const std::string data = std::string("@") + path;
    const char *args[] = {"curl",      "--silent",  "--show-error",  "--max-time", "20",
                          "-H",        "Expect:",   "--data-binary", data.c_str(), "-o",
                          "/dev/null", url.c_str(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, curl.c_str(), nullptr, nullptr, const_cast<char **>(args), environ),
              0);

    pollfd waiting{listener.get(), POLLIN, 0};
    ASSERT_EQ(poll(&waiting, 1, 20000), 1) << "curl did not connect";
    pu::test::Fd client(accept(listener.get(), nullptr, nullptr));
    HttpRequest request = readRequestHead(client.get());
    EXPECT_EQ(request.requestLine, "POST /upload HTTP/1.1");
    EXPECT_EQ(request.contentLength, static_cast<int32_t>(payload.size() + closing.size()));

    Body body;
    EXPECT_EQ(uSocketReadHttpDataWithSize(client.get(), "--XYZ--", request.contentLength, &body,
                                          Body::collect),
              request.contentLength);
    EXPECT_EQ(body.data, payload);
    const std::string reply = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(uSocketSafeWriteData(client.get(), reply.data(), static_cast<int32_t>(reply.size())),
              static_cast<int32_t>(reply.size()));
    client.reset();

    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "curl status " << status;
    unlink(path);
}

} // namespace
