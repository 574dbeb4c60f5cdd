// SPDX-License-Identifier: MIT
// The platform logger: level filter, sink, newlines, long lines and concurrent writers.
#include "log_capture.hpp"

#include <platform_os.h>
#include <platform_sim.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using pu::test::LogCapture;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// The stderr threshold is read from the environment once; these tests expect the default.
class Logger : public ::testing::Test {
  protected:
    void SetUp() override {
        if (std::getenv("PLATFORM_LOG_LEVEL") != nullptr) {
            GTEST_SKIP() << "PLATFORM_LOG_LEVEL is set";
        }
    }
};

TEST_F(Logger, StderrGetsWarningsAndErrorsOnly) {
    CaptureStderr();
    int debug = basaltPrintLog(PLATFORM_LOG_DEBUG, "mod", "debug %d", 0);
    int info = basaltPrintLog(PLATFORM_LOG_INFO, "mod", "info %d", 1);
    int warning = basaltPrintLog(PLATFORM_LOG_WARNING, "mod", "%s: warning %d", "fn", 2);
    int error = basaltPrintLog(PLATFORM_LOG_ERROR, "basalt.utils.list", "error");
    int high = basaltPrintLog(7, "mod", "beyond error");
    std::string out = GetCapturedStderr();
    EXPECT_EQ(debug, 0);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(warning, static_cast<int>(std::string("2 mod: fn: warning 2\n").size()));
    EXPECT_EQ(error, static_cast<int>(std::string("3 basalt.utils.list: error\n").size()));
    EXPECT_GT(high, 0);
    EXPECT_EQ(out, "2 mod: fn: warning 2\n3 basalt.utils.list: error\n7 mod: beyond error\n");
}

struct Collected {
    std::vector<std::string> lines;
};

void collect(void *context, int level, const char *module, const char *message) {
    static_cast<Collected *>(context)->lines.push_back(std::to_string(level) + "|" + module + "|" +
                                                       message);
}

TEST_F(Logger, NewlineIsAddedOnlyWhenMissingAndStrippedForTheSink) {
    Collected collected;
    platformSimSetLogSink(collect, &collected, 0);
    CaptureStderr();
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "plain");
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "ends\n");
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "two\n\n");
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "%s", "");
    basaltPrintLog(PLATFORM_LOG_ERROR, "m", "inner\nline");
    std::string out = GetCapturedStderr();
    platformSimSetLogSink(nullptr, nullptr, 0);
    EXPECT_EQ(out, "3 m: plain\n3 m: ends\n3 m: two\n\n3 m: \n3 m: inner\nline\n");
    EXPECT_EQ(collected.lines, (std::vector<std::string>{"3|m|plain", "3|m|ends", "3|m|two\n",
                                                         "3|m|", "3|m|inner\nline"}));
}

TEST_F(Logger, SinkSeesEveryLevelAndQuietSilencesStderr) {
    Collected collected;
    platformSimSetLogSink(collect, &collected, 0);
    CaptureStderr();
    int debug = basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "d");
    int warning = basaltPrintLog(PLATFORM_LOG_WARNING, "m", "w\n");
    std::string loud = GetCapturedStderr();
    EXPECT_EQ(loud, "2 m: w\n") << "a loud sink leaves stderr to the level rule";
    // Every line is handed to the capture, so each returns its length, newline included.
    EXPECT_EQ(debug, 7);
    EXPECT_EQ(warning, 7);

    platformSimSetLogSink(collect, &collected, 1);
    CaptureStderr();
    int quietError = basaltPrintLog(PLATFORM_LOG_ERROR, "m", "e");
    std::string quiet = GetCapturedStderr();
    EXPECT_EQ(quiet, "");
    EXPECT_EQ(quietError, 7) << "handed to the sink";

    platformSimSetLogSink(nullptr, nullptr, 0);
    basaltPrintLog(PLATFORM_LOG_DEBUG, "m", "after removal");
    EXPECT_EQ(collected.lines, (std::vector<std::string>{"0|m|d", "2|m|w", "3|m|e"}));
}

TEST_F(Logger, NullArguments) {
    Collected collected;
    platformSimSetLogSink(collect, &collected, 1);
    EXPECT_EQ(basaltPrintLog(PLATFORM_LOG_ERROR, "m", nullptr), 0);
    basaltPrintLog(PLATFORM_LOG_ERROR, nullptr, "no module");
    platformSimSetLogSink(nullptr, nullptr, 0);
    EXPECT_EQ(collected.lines, (std::vector<std::string>{"3||no module"}));
}

TEST_F(Logger, VeryLongMessagesArriveWhole) {
    std::string big(100'000, 'x');
    big[50'000] = 'y';
    LogCapture sink;
    basaltPrintLog(PLATFORM_LOG_DEBUG, "long", "<%s>", big.c_str());
    ASSERT_EQ(sink.lines().size(), 1u);
    EXPECT_EQ(sink.lines()[0].message, "<" + big + ">");

    platformSimSetLogSink(nullptr, nullptr, 0);
    CaptureStderr();
    int written = basaltPrintLog(PLATFORM_LOG_ERROR, "long", "%s|%s", big.c_str(), big.c_str());
    std::string out = GetCapturedStderr();
    std::string expected = "3 long: " + big + "|" + big + "\n";
    EXPECT_EQ(written, static_cast<int>(expected.size()));
    EXPECT_EQ(out, expected);
}

TEST_F(Logger, LinesFromManyThreadsDoNotInterleave) {
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    CaptureStderr();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            std::string body(3000 + t * 500, static_cast<char>('a' + t));
            for (int i = 0; i < kLines; ++i) {
                basaltPrintLog(PLATFORM_LOG_ERROR, "mt", "%d %s", t, body.c_str());
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    std::istringstream out(GetCapturedStderr());
    int lines = 0;
    for (std::string line; std::getline(out, line); ++lines) {
        ASSERT_GE(line.size(), 8u);
        int t = line[6] - '0';
        ASSERT_TRUE(t >= 0 && t < kThreads) << line.substr(0, 20);
        EXPECT_EQ(line, "3 mt: " + std::to_string(t) + " " +
                            std::string(3000 + t * 500, static_cast<char>('a' + t)));
    }
    EXPECT_EQ(lines, kThreads * kLines);
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
        if (self->removed.load()) {
            self->late.fetch_add(1);
        }
    }
};

TEST_F(Logger, RemovingTheSinkWaitsForCallsInProgress) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> loggers;
    for (int t = 0; t < 3; ++t) {
        loggers.emplace_back([&stop] {
            while (!stop.load()) {
                basaltPrintLog(PLATFORM_LOG_DEBUG, "race", "line");
            }
        });
    }
    int late = 0;
    int calls = 0;
    for (int round = 0; round < 200; ++round) {
        GuardedSink guarded;
        platformSimSetLogSink(GuardedSink::sink, &guarded, 1);
        while (guarded.calls.load() < 3) {
            std::this_thread::yield();
        }
        platformSimSetLogSink(nullptr, nullptr, 0);
        guarded.removed.store(true);
        late += guarded.late.load();
        calls += guarded.calls.load();
    }
    stop.store(true);
    for (auto &thread : loggers) {
        thread.join();
    }
    EXPECT_EQ(late, 0) << "a sink was called after its removal returned";
    EXPECT_GE(calls, 600);
}

} // namespace
