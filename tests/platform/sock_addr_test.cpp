// SPDX-License-Identifier: MIT
// Numeric address recognition.
#include <platform_os.h>

#include <gtest/gtest.h>

namespace {

TEST(SockIsValidAddr, AcceptsNumericIpv4AndIpv6Only) {
    for (const char *good : {"127.0.0.1", "0.0.0.0", "255.255.255.255", "::", "::1", "fe80::1",
                             "2001:db8::8a2e:370:7334", "::ffff:192.168.1.1"}) {
        EXPECT_NE(sockIsValidAddr(good), 0) << good;
    }
    for (const char *bad :
         {"", " ", "localhost", "256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.4 ", " 1.2.3.4",
          "01.2.3.4x", "::g", "1:2:3:4:5:6:7:8:9", "fe80::1%eth0", "[::1]", "1.2.3.4:80"}) {
        EXPECT_EQ(sockIsValidAddr(bad), 0) << '"' << bad << '"';
    }
    EXPECT_EQ(sockIsValidAddr(nullptr), 0);
}

} // namespace
