// SPDX-License-Identifier: MIT
// A table of calls made in order, one row each: what the row does, what it gave, what it should
// give. Rows of a braced list are evaluated left to right, so a row may depend on the rows above.
#pragma once

#include "log_capture.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>

namespace pu::test {

struct Check {
    Check(const char *what, long long got, long long expected)
        : what(what), got(std::to_string(got)), expected(std::to_string(expected)) {}
    Check(const char *what, std::string got, std::string expected)
        : what(what), got(std::move(got)), expected(std::move(expected)) {}
    const char *what;
    std::string got;
    std::string expected;
};

inline void expectAll(std::initializer_list<Check> checks) {
    for (const Check &check : checks) {
        EXPECT_EQ(check.got, check.expected) << check.what;
    }
}

// The lines call logs, each as "<level> <module>: <message>", one per row; "" for none.
inline std::string logged(const std::function<void()> &call) {
    LogCapture capture;
    call();
    std::string out;
    for (const LogLine &line : capture.lines()) {
        out += (out.empty() ? "" : "\n") + std::to_string(line.level) + " " + line.module + ": " +
               line.message;
    }
    return out;
}

} // namespace pu::test
