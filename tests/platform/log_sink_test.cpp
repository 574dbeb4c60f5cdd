// SPDX-License-Identifier: MIT
// The application's log sink and run-time level: which lines reach it instead of stderr, the
// level's edges, going back to stderr, the syslog sink's priorities, and the simulation's log
// capture built on them.
#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <syslog.h>
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

struct Lines {
    std::vector<std::string> lines;
};

void collect(void *context, int level, const char *module, const char *message) {
    static_cast<Lines *>(context)->lines.push_back(std::to_string(level) + "|" + module + "|" +
                                                   message);
}

// Restores the level and removes the sinks whatever a test does.
class LogSink : public ::testing::Test {
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

TEST_F(LogSink, LinesThatPassTheLevelGoToTheSinkInsteadOfStderr) {
    struct Case {
        int threshold;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {INT_MIN, {"-5|m|low", "0|m|debug", "1|m|info", "2|m|warning", "3|m|error", "9|m|high"}},
        {PLATFORM_LOG_DEBUG, {"0|m|debug", "1|m|info", "2|m|warning", "3|m|error", "9|m|high"}},
        {PLATFORM_LOG_WARNING, {"2|m|warning", "3|m|error", "9|m|high"}},
        {PLATFORM_LOG_ERROR, {"3|m|error", "9|m|high"}},
        {INT_MAX, {}},
    };
    for (const Case &c : cases) {
        Lines app;
        platformLogSetLevel(c.threshold);
        platformLogSetSink(collect, &app);
        CaptureStderr();
        basaltPrintLog(-5, "m", "low");
        basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "debug");
        basaltPrintLog(PLATFORM_LOG_INFO, "m", "info");
        basaltPrintLog(PLATFORM_LOG_WARNING, "m", "warning\n");
        int error = basaltPrintLog(PLATFORM_LOG_ERROR, "m", "%s", "error");
        basaltPrintLog(9, "m", "high");
        EXPECT_EQ(GetCapturedStderr(), "") << "threshold " << c.threshold;
        EXPECT_EQ(app.lines, c.expected) << "threshold " << c.threshold;
        EXPECT_EQ(error, c.threshold <= PLATFORM_LOG_ERROR ? 11 : 0) << "3 m: error + newline";
    }
}

TEST_F(LogSink, CaptureSeesEveryLineAndKeepsStderrToTheLevelItReplaced) {
    struct Case {
        int quiet;
        const char *stderrText;
    };
    const Case cases[] = {{0, "3 m: error\n"}, {1, ""}};
    for (const Case &c : cases) {
        Lines first, second;
        platformLogSetLevel(PLATFORM_LOG_WARNING);
        platformSimSetLogSink(collect, &first, c.quiet);
        // A second capture replaces the first and keeps the level the first one replaced.
        platformSimSetLogSink(collect, &second, c.quiet);
        CaptureStderr();
        basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "debug");
        basaltPrintLog(PLATFORM_LOG_ERROR, "m", "error\n");
        EXPECT_EQ(GetCapturedStderr(), c.stderrText) << "quiet " << c.quiet;
        EXPECT_TRUE(first.lines.empty());
        EXPECT_EQ(second.lines, (std::vector<std::string>{"0|m|debug", "3|m|error"}));

        platformSimSetLogSink(nullptr, nullptr, 0);
        EXPECT_EQ(platformLogGetLevel(), PLATFORM_LOG_WARNING) << "restored on removal";
        CaptureStderr();
        basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "gone");
        basaltPrintLog(PLATFORM_LOG_ERROR, "m", "back");
        EXPECT_EQ(GetCapturedStderr(), "3 m: back\n");
        EXPECT_EQ(second.lines.size(), 2u);
    }
}

TEST_F(LogSink, RemovingTheSinkGoesBackToStderrAndSetLevelReturnsThePrevious) {
    Lines app;
    platformLogSetLevel(PLATFORM_LOG_INFO);
    EXPECT_EQ(platformLogSetLevel(PLATFORM_LOG_ERROR), PLATFORM_LOG_INFO);
    EXPECT_EQ(platformLogGetLevel(), PLATFORM_LOG_ERROR);
    platformLogSetSink(collect, &app);
    platformLogSetSink(nullptr, &app);
    CaptureStderr();
    basaltPrintLog(PLATFORM_LOG_WARNING, "m", "filtered");
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "shown");
    EXPECT_EQ(GetCapturedStderr(), "3 m: shown\n");
    EXPECT_TRUE(app.lines.empty());
}

TEST_F(LogSink, SyslogSinkMapsLevelsToPriorities) {
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
        ASSERT_EQ(syslogged.size(), 1u) << "level " << level;
        EXPECT_EQ(syslogged[0].first, priority) << "level " << level;
        EXPECT_EQ(syslogged[0].second, "mod: 50% done") << "the message is not a format";
    }
    syslogged.clear();
    platformLogSetSink(platformLogSyslogSink, nullptr);
    basaltPrintLog(PLATFORM_LOG_ERROR, "net", "down");
    EXPECT_EQ(syslogged, (std::vector<std::pair<int, std::string>>{{LOG_ERR, "net: down"}}));
}

} // namespace
