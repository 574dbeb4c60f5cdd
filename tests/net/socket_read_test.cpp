// SPDX-License-Identifier: MIT
// Reading until the peer goes quiet into a growing buffer, and reading lines.
#include <umem.h>
#include <usocket.h>

#include "log_capture.hpp"
#include "socket_test_util.hpp"

namespace pu::test {
namespace {

TEST(SocketReadWithoutSize, TheLimitIsConsultedOnlyWhereTheBufferGrows) {
    // Bytes sent, the limit (-1: none), the result. The buffer grows when 1024 more bytes would
    // not fit with the terminator: at 1024 bytes read, then at 3072, 5120...
    using Row = std::tuple<std::size_t, std::int32_t, std::int32_t>;
    LogCapture quiet;
    for (const auto &[size, limit, result] :
         {Row{0, -1, 0}, Row{1023, 1, 1023}, Row{1024, 1024, -1}, Row{1024, 1025, 1024},
          Row{3071, 2048, 3071}, Row{3072, 2048, -1}, Row{3072, 3073, 3072}, Row{1024, -2, -1},
          Row{20000, -1, 20000}}) {
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

TEST(SocketReadWithoutSize, CollectsAnUnevenSenderUntilItCloses) {
    Connection c = connectLoopback();
    const std::string data = pattern(50003, 11);
    std::thread peer([&] {
        sendAll(c.far.get(), data, 0);
        c.far.reset();
    });
    char *out = nullptr;
    EXPECT_EQ(uSocketReadWithoutSize(c.near.get(), &out), static_cast<std::int32_t>(data.size()));
    peer.join();
    EXPECT_EQ(std::string(out, data.size() + 1), data + '\0');
    uFree(out);
    EXPECT_EQ(uSocketReadWithoutSize(c.near.get(), nullptr), 0);
}

TEST(SocketReadLine, TerminatorsFullBuffersAndEarlyEnds) {
    // Stream, then for each read the size given and what it returns; an unterminated result is
    // shown with the byte after it, which the reader left as it was ('Z').
    using Row = std::tuple<const char *, std::vector<std::pair<std::int32_t, std::string>>>;
    for (const auto &[stream, reads] : {
             Row{"abc\r\nabc\n\n\r\na\rb\n\r\r\n",
                 {{32, "abc"},
                  {32, "abc"},
                  {32, ""},
                  {32, ""},
                  {32, "a\rb"},
                  {32, "\r"},
                  {32, "-1"}}},
             Row{"abc\nxy", {{2, "ab|Z"}, {32, "c"}, {32, "xy|Z"}, {32, "-1"}}},
             Row{"\na\n", {{1, ""}, {1, "a|Z"}, {0, "-1"}, {32, ""}, {32, "-1"}}},
         }) {
        SCOPED_TRACE(stream);
        Connection c = connectLoopback();
        sendAndFinish(c, stream);
        for (const auto &[size, expected] : reads) {
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
    char buffer[8];
    Connection c = connectLoopback();
    sendAndFinish(c, "x\n");
    EXPECT_EQ(uSocketReadLine(c.near.get(), nullptr, 8), -1);
    EXPECT_EQ(uSocketReadLine(c.near.get(), buffer, 8), 1); // the refusal read nothing
}

} // namespace
} // namespace pu::test
