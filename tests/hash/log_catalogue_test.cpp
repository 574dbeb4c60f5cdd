// SPDX-License-Identifier: MIT
// Every line the status store logs, exactly: applications watch for these texts. Some show only
// before the first status is set, so the table runs in a fresh process, in order.
#include "call_table.hpp"

#include <ustatus.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

std::uint32_t gValue = 0;

TEST(LogCatalogue, StatusMessagesFromAFreshStore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const char *status = "basalt.utils.status";
            pu::test::checkLogRows({
                PU_LOG_ROW(getSystemStatus("never", &gValue), 0, status,
                           "The status [never] is not set yet."),
                PU_LOG_ROW(getSystemStatus(nullptr, &gValue), 0, status,
                           "The status [(null)] is not set yet."),
                PU_LOG_ROW((statusBuffFree(), getSystemStatus("x", &gValue)), 0, status,
                           "The status [x] is not set yet."),
                PU_LOG_ROW((setSystemStatus("first", 3), getSystemStatus("First", &gValue)), 0,
                           status, "Cannot find this status: First "),
                PU_LOG_ROW((statusBuffFree(), getSystemStatus("first", &gValue)), 0, status,
                           "Cannot find this status: first "),
            });
            for (int i = 0; i < 1024; ++i) { // every slot taken: the probe goes all the way round
                setSystemStatus(("s" + std::to_string(i)).c_str(), 1);
            }
            pu::test::checkLogRows({PU_LOG_ROW(getSystemStatus("s-1", &gValue), 0, status,
                                               "cannot find this status: s-1 ")});
            statusBuffFree();
            std::exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
