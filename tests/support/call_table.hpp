// SPDX-License-Identifier: MIT
// Call tables: each row is a call as written, what it gave and what it should give, so a table of
// refusals or small results reads as a list and a failure names the call.
#pragma once

#include "log_capture.hpp"

#include <functional>
#include <initializer_list>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace pu::test {

inline std::string shown(const std::string &text) {
    return text;
}
inline std::string shown(const char *text) {
    return text != nullptr ? text : "(null)";
}
template <typename T>
requires std::is_integral_v<T> std::string shown(T value) {
    return std::to_string(value);
}

// Rows are evaluated in order, so a row may depend on the state the rows before it left. A row
// is written {"label", got, want} or, through PU_ROW, with the call itself as its label.
struct Row {
    template <typename Got, typename Want>
    Row(const char *label, const Got &got, const Want &want)
        : call(label), got(shown(got)), want(shown(want)) {}
    const char *call;
    std::string got, want;
};
inline void checkRows(std::initializer_list<Row> rows) {
    for (const Row &row : rows) {
        EXPECT_EQ(row.got, row.want) << row.call;
    }
}
#define PU_ROW(call, want)                                                                         \
    { #call, (call), (want) }

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

// A log catalogue row: running the call logs this exact line (other lines may come with it).
struct LogRow {
    const char *call;
    std::function<void()> run;
    int level;
    const char *module;
    std::string text;
};
inline void checkLogRows(std::initializer_list<LogRow> rows) {
    for (const LogRow &row : rows) {
        LogCapture log;
        row.run();
        EXPECT_EQ(log.count(row.level, row.module, row.text), 1) << row.call << "\n" << log.dump();
    }
}
#define PU_LOG_ROW(call, level, module, text)                                                      \
    {                                                                                              \
#call, [&] { (void)(call); }, level, module, text                                          \
    }

} // namespace pu::test
