// SPDX-License-Identifier: MIT
// Every line the platform layer logs, exactly: applications watch for these texts.
#include "call_table.hpp"

#include <platform_os.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using pu::test::logged;

TEST(LogCatalogue, PlatformMessages) {
    int app = 0;
    const auto line = [](const std::string &text) { return "0 platform.os: osaSm" + text; };
    const std::string registered = logged([&] { app = osaSmRegisterApp("cat", [] {}); });
    pu::test::checkRows({
        {"register", registered,
         line("RegisterApp: app " + std::to_string(app) + " \"cat\" registered")},
        {"active", logged([&] { osaSmAddActiveApp(app, 2); }),
         line("AddActiveApp: app " + std::to_string(app) + " active count 2")},
        {"inactive", logged([&] { osaSmDelActiveApp(app); }),
         line("DelActiveApp: app " + std::to_string(app) + " active count 1")},
        {"wake-up", logged([&] { osaSmAddWakeUpTimer(app, 4000000000u); }),
         line("AddWakeUpTimer: app " + std::to_string(app) + " wake-up in 4000000000 ms")},
        {"no wake-up", logged([&] { EXPECT_EQ(osaSmDelWakeUpTimer(app), 0); }),
         line("DelWakeUpTimer: app " + std::to_string(app) + " wake-up cancelled")},
        {"time base", logged([] { EXPECT_EQ(osaUpdateSysTimeBase(1000, 5, 1500), 0); }),
         "0 platform.os: osaUpdateSysTimeBase: time base 1000.000005 s re-based, step 1500 ms"},
    });
}

} // namespace
