// SPDX-License-Identifier: MIT
// The platform logger: the level read from the environment and set at run time, the line format
// and its newline, long lines, sinks and the syslog sink, writers on many threads.
#include "call_table.hpp"
#include "test_support.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <syslog.h>
#include <thread>
#include <vector>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

std::vector<std::pair<int, std::string>> syslogged;

void recordSyslog(int priority, const char *format, va_list arguments) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, arguments);
    syslogged.emplace_back(priority, text);
}

} // namespace

// The executable's syslog wins over the C library's for the platform layer, as any platform
// function does; fortified builds call __syslog_chk instead.
extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char *format,
                                                              ...) {
    va_list arguments;
    va_start(arguments, format);
    recordSyslog(priority, format, arguments);
    va_end(arguments);
}

extern "C" __attribute__((visibility("default"))) void __syslog_chk(int priority, int,
                                                                    const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    recordSyslog(priority, format, arguments);
    va_end(arguments);
}

namespace {

using pu::test::checkRows;
using Lines = std::vector<std::string>;

void collect(void *context, int level, const char *module, const char *message) {
    static_cast<Lines *>(context)->push_back(std::to_string(level) + "|" + module + "|" + message);
}

// Restores the level and removes the sinks whatever a test does.
class Logger : public ::testing::Test {
  protected:
    void SetUp() override { saved_ = platformLogGetLevel(); }
    void TearDown() override {
        platformLogSetSink(nullptr, nullptr);
        platformSimSetLogSink(nullptr, nullptr, 0);
        platformLogSetLevel(saved_);
    }

  private:
    int saved_ = PLATFORM_LOG_WARNING;
};

// The setting is read when the logger is first used, so each row runs in a fresh process.
TEST(LoggerEnvironment, LevelSettingAcceptsOnlyWholeNumbers) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *text; // null: not set
        int level;
    } cases[] = {
        {nullptr, PLATFORM_LOG_WARNING},
        {"0", 0},
        {"3", 3},
        {"-7", -7},
        {"2147483647", INT_MAX},
        {"2147483648", PLATFORM_LOG_WARNING},
        {"", PLATFORM_LOG_WARNING},
        {"1x", PLATFORM_LOG_WARNING},
    };
    for (const auto &c : cases) {
        EXPECT_EXIT(
            {
                if (c.text != nullptr) {
                    setenv("PLATFORM_LOG_LEVEL", c.text, 1);
                } else {
                    unsetenv("PLATFORM_LOG_LEVEL");
                }
                std::exit(platformLogGetLevel() == c.level ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << "PLATFORM_LOG_LEVEL=" << pu::test::orNull(c.text);
    }
}

TEST_F(Logger, LevelDecidesWhatTheSinkGets) {
    const struct {
        int threshold;
        Lines expected;
    } cases[] = {
        {INT_MIN, {"-5|m|low", "0|m|debug", "1|m|info", "2|m|warning", "3|m|error", "9|m|high"}},
        {PLATFORM_LOG_WARNING, {"2|m|warning", "3|m|error", "9|m|high"}},
        {PLATFORM_LOG_ERROR, {"3|m|error", "9|m|high"}},
        {INT_MAX, {}},
    };
    for (const auto &c : cases) {
        Lines app;
        const int before = platformLogGetLevel();
        EXPECT_EQ(platformLogSetLevel(c.threshold), before) << "returns the previous";
        platformLogSetSink(collect, &app);
        CaptureStderr();
        basaltPrintLog(-5, "m", "low");
        basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "debug");
        basaltPrintLog(PLATFORM_LOG_INFO, "m", "info");
        basaltPrintLog(PLATFORM_LOG_WARNING, "m", "warning\n");
        const int error = basaltPrintLog(PLATFORM_LOG_ERROR, "m", "%s", "error");
        basaltPrintLog(9, "m", "high");
        EXPECT_EQ(GetCapturedStderr(), "") << "threshold " << c.threshold;
        EXPECT_EQ(app, c.expected) << "threshold " << c.threshold;
        EXPECT_EQ(error, c.threshold <= PLATFORM_LOG_ERROR ? 11 : 0) << "3 m: error + newline";
    }
    platformLogSetSink(nullptr, nullptr);
    platformLogSetLevel(PLATFORM_LOG_ERROR);
    CaptureStderr();
    basaltPrintLog(PLATFORM_LOG_WARNING, "m", "filtered");
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "back on stderr");
    EXPECT_EQ(GetCapturedStderr(), "3 m: back on stderr\n");
}

// Lines around the 1 KiB line buffer, which longer lines leave for the heap.
TEST_F(Logger, StderrLineGetsOneNewlineAndTheSinkNone) {
    const std::string edge(1017, 'x'); // "3 m: " + 1017 + newline + terminator fill 1 KiB exactly
    const struct {
        const char *module;
        std::string message;
        std::string line;   // on stderr
        std::string handed; // to the sink
    } cases[] = {
        {"m", "plain", "3 m: plain\n", "3|m|plain"},
        {"m", "ends\n", "3 m: ends\n", "3|m|ends"},
        {"m", "two\n\n", "3 m: two\n\n", "3|m|two\n"},
        {"m", "inner\nline", "3 m: inner\nline\n", "3|m|inner\nline"},
        {nullptr, "no module", "3 : no module\n", "3||no module"},
        {"m", edge, "3 m: " + edge + "\n", "3|m|" + edge},
        {"m", edge + "y", "3 m: " + edge + "y\n", "3|m|" + edge + "y"},
        {"m", edge + "y\n", "3 m: " + edge + "y\n", "3|m|" + edge + "y"},
        {"m", std::string(100'000, 'z') + "|", "3 m: " + std::string(100'000, 'z') + "|\n",
         "3|m|" + std::string(100'000, 'z') + "|"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line.substr(0, 20) + " (" + std::to_string(c.message.size()) + ")");
        Lines sink;
        platformLogSetLevel(PLATFORM_LOG_WARNING);
        platformSimSetLogSink(collect, &sink, 0); // the sink and stderr by the level
        CaptureStderr();
        const int written = basaltPrintLog(PLATFORM_LOG_ERROR, c.module, "%s", c.message.c_str());
        const std::string out = GetCapturedStderr();
        platformSimSetLogSink(nullptr, nullptr, 0);
        EXPECT_EQ(out, c.line);
        EXPECT_EQ(written, static_cast<int>(c.line.size()));
        EXPECT_EQ(sink, Lines{c.handed});
    }
    EXPECT_EQ(basaltPrintLog(PLATFORM_LOG_ERROR, "m", nullptr), 0) << "no format, no line";
}

TEST_F(Logger, CaptureSeesEveryLineAndKeepsStderrToTheLevelItReplaced) {
    for (int quiet : {0, 1}) {
        Lines first, second;
        platformLogSetLevel(PLATFORM_LOG_WARNING);
        platformSimSetLogSink(collect, &first, quiet);
        platformSimSetLogSink(collect, &second, quiet); // keeps the level the first replaced
        CaptureStderr();
        checkRows({
            {"a debug line is handed over", basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "debug"), 11},
            {"an error too", basaltPrintLog(PLATFORM_LOG_ERROR, "m", "error\n"), 11},
            {"stderr by the level unless quiet", GetCapturedStderr(), quiet ? "" : "3 m: error\n"},
            {"the replaced capture", static_cast<int>(first.size()), 0},
            {"the capture", second.size() == 2 ? second[0] + "," + second[1] : "",
             "0|m|debug,3|m|error"},
            {"removal restores the level",
             (platformSimSetLogSink(nullptr, nullptr, 0), platformLogGetLevel()), 2},
            {"and stderr",
             (CaptureStderr(), basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "gone"),
              basaltPrintLog(PLATFORM_LOG_ERROR, "m", "back"), GetCapturedStderr()),
             "3 m: back\n"},
            {"no more capture", static_cast<int>(second.size()), 2},
        });
    }
}

TEST_F(Logger, SyslogSinkMapsLevelsToPriorities) {
    const std::pair<int, int> cases[] = {
        {-1, LOG_DEBUG},
        {PLATFORM_LOG_DEBUG, LOG_DEBUG},
        {PLATFORM_LOG_INFO, LOG_INFO},
        {PLATFORM_LOG_WARNING, LOG_WARNING},
        {PLATFORM_LOG_ERROR, LOG_ERR},
        {7, LOG_ERR},
    };
    for (const auto &[level, priority] : cases) {
        syslogged.clear();
        platformLogSyslogSink(nullptr, level, "mod", "50% done");
        EXPECT_EQ(syslogged,
                  (std::vector<std::pair<int, std::string>>{{priority, "mod: 50% done"}}))
            << "level " << level << "; the message is not a format";
    }
    syslogged.clear();
    platformLogSetSink(platformLogSyslogSink, nullptr);
    basaltPrintLog(PLATFORM_LOG_ERROR, "net", "down");
    EXPECT_EQ(syslogged, (std::vector<std::pair<int, std::string>>{{LOG_ERR, "net: down"}}));
}

// A sink whose context dies right after removal: no call may reach it afterwards.
struct GuardedSink {
    std::atomic<bool> removed{false};
    std::atomic<int> calls{0};
    std::atomic<int> late{0};

    static void sink(void *context, int, const char *, const char *) {
        auto *self = static_cast<GuardedSink *>(context);
        self->calls.fetch_add(1);
        std::this_thread::yield(); // widen the window in which a removal can race
        self->late += self->removed.load();
    }
};

TEST(SlowLogger, RemovingTheSinkWaitsForCallsInProgress) {
    std::atomic<bool> stop{false};
    std::atomic<int> late{0};
    pu::test::fanOut(4, [&](int t) {
        if (t > 0) {
            while (!stop.load()) {
                basaltPrintLog(PLATFORM_LOG_DEBUG, "race", "line");
            }
            return;
        }
        for (int round = 0; round < 200; ++round) {
            GuardedSink guarded;
            platformSimSetLogSink(GuardedSink::sink, &guarded, 1);
            while (guarded.calls.load() < 3) {
                std::this_thread::yield();
            }
            platformSimSetLogSink(nullptr, nullptr, 0);
            guarded.removed.store(true);
            late += guarded.late.load();
        }
        stop = true;
    });
    EXPECT_EQ(late.load(), 0) << "a sink was called after its removal returned";
}

} // namespace
