// SPDX-License-Identifier: MIT
// Every line the status store logs, exactly: applications watch for these texts. Some show only
// before the first status is set, so the table runs in a fresh process, in order.
#include "call_table.hpp"

#include <ustatus.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using pu::test::logged;

// The result of looking name up, and what that logged.
std::string get(const char *name) {
    std::uint32_t value = 0;
    int32_t result = 0;
    const std::string line = logged([&] { result = getSystemStatus(name, &value); });
    return std::to_string(result) + " " + line;
}

TEST(LogCatalogue, StatusMessagesFromAFreshStore) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string status = "0 basalt.utils.status: ";
    EXPECT_EXIT(
        {
            pu::test::checkRows({
                {"before any set", get("never"),
                 "-1 " + status + "The status [never] is not set yet."},
                {"null", get(nullptr), "-1 " + status + "The status [(null)] is not set yet."},
                {"free first", (statusBuffFree(), get("x")),
                 "-1 " + status + "The status [x] is not set yet."},
                {"first set", logged([] { setSystemStatus("first", 3); }), ""},
                {"known", get("first"), "0 "},
                {"unknown", get("First"), "-1 " + status + "Cannot find this status: First "},
                {"after a free", (statusBuffFree(), get("first")),
                 "-1 " + status + "Cannot find this status: first "},
                {"fill every slot", logged([] {
                     for (int i = 0; i < 1024; ++i) {
                         setSystemStatus(("s" + std::to_string(i)).c_str(), 1);
                     }
                 }),
                 ""},
                {"probe all the way round", get("s-1"),
                 "-1 " + status + "cannot find this status: s-1 "},
            });
            statusBuffFree();
            std::exit(::testing::Test::HasFailure() ? 1 : 0);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
