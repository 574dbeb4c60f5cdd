// SPDX-License-Identifier: MIT
// Every exact log text of the socket helpers, with its level: log filters match on them, the
// fixed numbers of the bind failures included.
#include <usocket.h>

#include "log_capture.hpp"
#include "socket_test_util.hpp"

namespace pu::test {
namespace {

// Makes a pair fail to bind its first (end 0) or second end (end 1): after srand(seed) every
// port that end draws is held. The failure closes all it made and leaves the pair untouched.
std::string failBind(std::int32_t (*makePair)(uSocketPair *), int type, int end) {
    // For the second end the first draw must be free now: an earlier connection may have left
    // a port in TIME_WAIT, so take the first seed whose first port binds.
    unsigned seed = 5;
    std::vector<int> ports = drawnPorts(seed, 101);
    while (end == 1 && bindLoopback(type, ports[0]).get() < 0) {
        ports = drawnPorts(++seed, 101);
    }
    std::vector<Fd> held;
    for (int i = end; i < end + 100; ++i) {
        held.push_back(ports[i] != ports[0] || end == 0 ? bindLoopback(type, ports[i]) : Fd());
    }
    const int before = openDescriptors();
    uSocketPair pair{-7, -7};
    srand(seed);
    EXPECT_EQ(makePair(&pair), -1);
    EXPECT_EQ(pair.clientSock + pair.acceptSock, -14);
    EXPECT_EQ(openDescriptors(), before);
    return "";
}

// A pair made and closed; its success line carries the descriptors.
std::string madePair(std::int32_t (*makePair)(uSocketPair *)) {
    uSocketPair pair{-1, -1};
    EXPECT_EQ(makePair(&pair), 0);
    const Fd client(pair.clientSock), accepted(pair.acceptSock);
    return std::to_string(client.get()) + ", acceptSock=" + std::to_string(accepted.get());
}

TEST(NetLogCatalogue, EveryMessageWithItsLevel) {
    // The call (giving the end of its text where that varies), the level, the fixed text.
    using Row = std::tuple<std::function<std::string()>, int, std::string>;
    for (const auto &[call, level, text] : {
             Row{[] { return (madePair(uSocketPeer), ""); }, 0, "uSocketPeer "},
             Row{[] { return madePair(uSocketPeer); }, 0, "uSocketPeer success clientSock="},
             Row{[] { return madePair(uSocketUdpPeer); }, 0, "uSocketUdpPeer success clientSock="},
             Row{[] { return failBind(uSocketPeer, SOCK_STREAM, 0); }, 3,
                 "uSocketPeer 421 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketPeer, SOCK_STREAM, 1); }, 3,
                 "uSocketPeer 449 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketPeer, SOCK_STREAM, 1); }, 0, "uSocketPeer failed !"},
             Row{[] { return failBind(uSocketUdpPeer, SOCK_DGRAM, 0); }, 3,
                 "uSocketUdpPeer 559 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketUdpPeer, SOCK_DGRAM, 1); }, 3,
                 "uSocketUdpPeer 581 uSocketTryBind error !"},
             Row{[] { return failBind(uSocketUdpPeer, SOCK_DGRAM, 0); }, 0,
                 "uSocketUdpPeer failed !"},
             Row{[] { return (uSocketWaitSendDataConfirmed(-1, 5), ""); }, 3,
                 "uSocketWaitSendDataConfirmed: ioctl error"},
             Row{[] {
                     Connection c = connectLoopback();
                     sendAndFinish(c, pattern(2048));
                     char *out = nullptr;
                     return (uSocketReadLimitWithoutSize(c.near.get(), &out, 1), "");
                 },
                 3, "uSocketReadLimitWithoutSize: read too much."},
         }) {
        SCOPED_TRACE(text);
        LogCapture capture;
        const std::string end = call();
        EXPECT_EQ(capture.count(level, "basalt.utils.socket", text + end), 1) << capture.dump();
    }
}

} // namespace
} // namespace pu::test
