// SPDX-License-Identifier: MIT
// HTTP request bodies streamed to a callback in pieces of at most 1024 bytes, with and without
// a closing boundary line, from a loopback peer. That a tail is held back only when it matches
// (a closing line ending in CR LF is delivered) is the socket_http_body fuzz target's to check.
#include <usocket.h>

#include "socket_test_util.hpp"

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

const std::string payload = pattern(2500, 5), closing = payload + "\r\nXYZ\r\n";
using Pieces = std::vector<std::uint32_t>;

TEST(SocketReadHttpData, PiecesAndTheHeldBackTail) {
    // Sent (then end of stream), boundary, result, piece sizes. With a boundary of length L the
    // last L + 4 bytes are dropped only when they hold two bytes, the text and its zero byte.
    using Row = std::tuple<const char *, std::string, const char *, std::int32_t, Pieces>;
    for (const auto &[label, sent, boundary, result, pieces] : {
             Row{"no boundary", pattern(5000), nullptr, 5000, {1024, 1024, 1024, 1024, 904}},
             Row{"no boundary, last read full", pattern(2048), nullptr, 2048, {1024, 1024, 0}},
             Row{"text+NUL", payload + std::string("--XYZ\0!", 7), "XYZ", 2500, {1024, 1024, 452}},
             Row{"first read full", pattern(1031, 9), "XYZ", 1031, {1024, 0, 7}},
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
             Row{"closing line", closing + "NEXT", "XYZ", 2507, 2507, {1024, 1024, 452}, "NEXT"},
             Row{"no content", "abc", nullptr, 0, 0, {}, "abc"},
             Row{"one byte", "abc", nullptr, 1, 1, {1}, "bc"},
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

} // namespace
} // namespace pu::test
